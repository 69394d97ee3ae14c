#include "QueueDistributorFID.h"

#include <gmock/gmock.h>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "GoldenFrame.h"
#include "InterfaceIds.h"
#include "RecordingSink.h"

namespace {

struct QueueDistributorFIDFixture {
    fakehost::FakeHost host;
    RecordingSink sink;
    DriverOutput output{sink};
    QueueFunctionID sender{output};
    QueueDistributorFID sut{sender};
};

TEST(QueueDistributorFID, AnswersIDistributorFIDAlone) {
    QueueDistributorFIDFixture f;
    EXPECT_EQ(f.sut.queryInterface(IID_IDistributorFID), &f.sut);
    EXPECT_EQ(f.sut.queryInterface(IID_IFunctionID), nullptr);
}

TEST(QueueDistributorFID, DispatchSendsTheFid) {
    QueueDistributorFIDFixture f;
    FIDParameterList parameters;
    parameters.add("page", "2");
    f.sut.dispatchFID("PANEL.SHOW", parameters);
    EXPECT_THAT(f.sink.messages, testing::ElementsAre(goldenText("DSPFID")));
}

}  // namespace
