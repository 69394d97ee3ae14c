#include "DriverOutput.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "FakeHost.h"
#include "RecordingSink.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

struct DriverOutputFixture {
    bool sendText(const std::string& id, const std::string& value) {
        return sut.send(protocol::MessageWriter("SETVAL").string(id).string(value));
    }
    std::vector<std::string> log() { return host.journal().linesOf({"log"}); }

    fakehost::FakeHost host;
    RecordingSink sink;
    DriverOutput sut{sink};
};

TEST(DriverOutput, HandsTheMessageOn) {
    DriverOutputFixture f;
    EXPECT_TRUE(f.sendText("A", "b"));
    EXPECT_THAT(f.sink.messages, ElementsAre("SETVAL\1A\1b"));
}

TEST(DriverOutput, TooLongTextIsNotSent) {
    DriverOutputFixture f;
    EXPECT_FALSE(f.sendText("LAMP", std::string(300, 'x')));
    EXPECT_THAT(f.sink.messages, IsEmpty());
}

TEST(DriverOutput, TooLongTextIsLoggedWithIdAndLength) {
    DriverOutputFixture f;
    f.sendText("LAMP", std::string(300, 'x'));
    EXPECT_THAT(f.log(), ElementsAre("log MFD 3: \"LAMP\" not sent: a text of 300 bytes, 255 is the most"));
}

TEST(DriverOutput, TooLongTextIsLoggedOnceForAnId) {
    DriverOutputFixture f;
    f.sendText("LAMP", std::string(300, 'x'));
    f.sendText("LAMP", std::string(400, 'x'));
    f.sendText("DOOR", std::string(500, 'x'));
    EXPECT_THAT(f.log(), ElementsAre("log MFD 3: \"LAMP\" not sent: a text of 300 bytes, 255 is the most",
                                     "log MFD 3: \"DOOR\" not sent: a text of 500 bytes, 255 is the most"));
}

TEST(DriverOutput, TooLongIdIsCutInTheLog) {
    DriverOutputFixture f;
    f.sendText(std::string(1000, 'x'), "");
    EXPECT_THAT(f.log(), ElementsAre("log MFD 3: \"" + std::string(255, 'x') +
                                     "\" not sent: a text of 1000 bytes, 255 is the most"));
}

TEST(DriverOutput, LogsTooLongTextsOf256IdsAndThenSaysSo) {
    DriverOutputFixture f;
    for (int id = 0; id < 300; ++id)
        f.sendText("ID" + std::to_string(id), std::string(256, 'x'));
    ASSERT_THAT(f.log(), SizeIs(257));
    EXPECT_EQ(f.log().back(), "log MFD 3: Too long texts of further IDs are no longer reported");
}

TEST(DriverOutput, RefusedMessageIsReportedAsFailure) {
    DriverOutputFixture f;
    f.sink.refuses = true;
    EXPECT_FALSE(f.sendText("A", "b"));
}

TEST(DriverOutput, RefusalIsLoggedOnce) {
    DriverOutputFixture f;
    f.sink.refuses = true;
    f.sendText("A", "b");
    f.sendText("C", "d");
    EXPECT_THAT(
        f.log(),
        ElementsAre("log MFD 4: The host takes no more messages; what the driver reports is dropped"));
}

}  // namespace
