#include "QueuePanelState.h"

#include <gmock/gmock.h>

#include <limits>
#include <string>

#include "FakeHost.h"
#include "GoldenFrame.h"
#include "InterfaceIds.h"
#include "RecordingSink.h"

namespace {

using testing::ElementsAre;

struct QueuePanelStateFixture {
    fakehost::FakeHost host;
    RecordingSink sink;
    DriverOutput output{sink};
    QueuePanelState sut{output};
};

TEST(QueuePanelState, AnswersIPanelStateAlone) {
    QueuePanelStateFixture f;
    EXPECT_EQ(f.sut.queryInterface(IID_IPanelState), &f.sut);
    EXPECT_EQ(f.sut.queryInterface(IID_IFunctionID), nullptr);
}

TEST(QueuePanelState, SendsText) {
    QueuePanelStateFixture f;
    f.sut.setStateValue("MODE", "auto");
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("SETVAL")));
}

TEST(QueuePanelState, SendsEmptyText) {
    QueuePanelStateFixture f;
    f.sut.setStateValue("", "");
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("SETVAL-empty")));
}

TEST(QueuePanelState, SendsFloat) {
    QueuePanelStateFixture f;
    f.sut.setStateValueFloat("TEMP", 21.5F);
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("SETVAF")));
}

TEST(QueuePanelState, SendsNotANumber) {
    QueuePanelStateFixture f;
    f.sut.setStateValueFloat("T", std::numeric_limits<float>::quiet_NaN());
    EXPECT_THAT(f.sink.messages, ElementsAre(std::string("SETVAF\1T\0\0\xc0\x7f", 12)));
}

TEST(QueuePanelState, SendsInt) {
    QueuePanelStateFixture f;
    f.sut.setStateValueInt("A", 1);
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("SETVAI")));
}

TEST(QueuePanelState, SendsNegativeInt) {
    QueuePanelStateFixture f;
    f.sut.setStateValueInt("A", -2);
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("SETVAI-negative")));
}

TEST(QueuePanelState, SendsTrue) {
    QueuePanelStateFixture f;
    f.sut.setStateValueBool("DOOR", true);
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("SETVAB")));
}

TEST(QueuePanelState, SendsFalse) {
    QueuePanelStateFixture f;
    f.sut.setStateValueBool("DOOR", false);
    EXPECT_THAT(f.sink.messages, ElementsAre(std::string("SETVAB\4DOOR\0", 12)));
}

TEST(QueuePanelState, SendsUnset) {
    QueuePanelStateFixture f;
    f.sut.unsetStateValue("DOOR");
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("UNSVAL")));
}

TEST(QueuePanelState, SendsEvent) {
    QueuePanelStateFixture f;
    f.sut.triggerEvent("ALARM", "hot");
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("TRIGGR")));
}

}  // namespace
