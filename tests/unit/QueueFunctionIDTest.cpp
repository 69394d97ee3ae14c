#include "QueueFunctionID.h"

#include <gmock/gmock.h>

#include <string>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "GoldenFrame.h"
#include "InterfaceIds.h"
#include "RecordingSink.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct QueueFunctionIDFixture {
    fakehost::FakeHost host;
    RecordingSink sink;
    DriverOutput output{sink};
    QueueFunctionID sut{output};
};

TEST(QueueFunctionID, AnswersIFunctionIDAlone) {
    QueueFunctionIDFixture f;
    EXPECT_EQ(f.sut.queryInterface(IID_IFunctionID), &f.sut);
    EXPECT_EQ(f.sut.queryInterface(IID_IMFDConfiguration), nullptr);
}

TEST(QueueFunctionID, SendsFidWithParameters) {
    QueueFunctionIDFixture f;
    FIDParameterList parameters;
    parameters.add("page", "2");
    EXPECT_TRUE(f.sut.sendFID("PANEL.SHOW", parameters));
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("DSPFID")));
}

TEST(QueueFunctionID, SendsFidWithoutParameters) {
    QueueFunctionIDFixture f;
    EXPECT_TRUE(f.sut.sendFID("PANEL.CLEAR", FIDParameterList()));
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("DSPFID-no-parameters")));
}

TEST(QueueFunctionID, TooLongFidIsNotSent) {
    QueueFunctionIDFixture f;
    EXPECT_FALSE(f.sut.sendFID(std::string(256, 'x'), FIDParameterList()));
    EXPECT_THAT(f.sink.messages, IsEmpty());
}

TEST(QueueFunctionID, RefusedFidReportsFailure) {
    QueueFunctionIDFixture f;
    f.sink.refuses = true;
    EXPECT_FALSE(f.sut.sendFID("PANEL.CLEAR", FIDParameterList()));
}

TEST(QueueFunctionID, CannotSubscribe) {
    QueueFunctionIDFixture f;
    EXPECT_FALSE(f.sut.subscribe("PANEL.SHOW"));
    EXPECT_THAT(f.sink.messages, IsEmpty());
}

TEST(QueueFunctionID, HasNoStateToShow) {
    QueueFunctionIDFixture f;
    EXPECT_TRUE(f.sut.showState());
    EXPECT_THAT(f.sink.messages, IsEmpty());
}

}  // namespace
