#include "QueueSystem.h"

#include <gmock/gmock.h>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "GoldenFrame.h"
#include "InterfaceIds.h"
#include "RecordingSink.h"

namespace {

using testing::ElementsAre;

struct QueueSystemFixture {
    fakehost::FakeHost host;
    RecordingSink sink;
    DriverOutput output{sink};
    QueueFunctionID sender{output};
    QueueSystem sut{output, sender};
};

TEST(QueueSystem, SendsCommand) {
    QueueSystemFixture f;
    f.sut.executeCommand("reloadDriver", "AXIS2");
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("SYSCMD")));
}

TEST(QueueSystem, AnswersASenderOfFids) {
    QueueSystemFixture f;
    auto* pSender = dynamic_cast<IFunctionID*>(f.sut.queryInterface(IID_IFunctionID));
    ASSERT_NE(pSender, nullptr);
    pSender->sendFID("PANEL.CLEAR", FIDParameterList());
    EXPECT_THAT(f.sink.messages, ElementsAre(goldenText("DSPFID-no-parameters")));
}

TEST(QueueSystem, AnswersNothingElse) {
    QueueSystemFixture f;
    EXPECT_EQ(f.sut.queryInterface(IID_IDistributorFID), nullptr);
}

}  // namespace
