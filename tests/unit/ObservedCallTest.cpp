#include "ObservedCall.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MockModuleObserver.h"

namespace {

using testing::InSequence;
using testing::StrEq;
using testing::StrictMock;

class ObservedCall : public testing::Test {
protected:
    ObservedCall() { sal::ObservedCall::setObserver(&observer); }
    ~ObservedCall() override { sal::ObservedCall::setObserver(nullptr); }

    StrictMock<MockModuleObserver> observer;
};

TEST_F(ObservedCall, TellsBeginAndEnd) {
    const InSequence order;
    EXPECT_CALL(observer, callBegins("AXIS1", StrEq("deinitialize")));
    EXPECT_CALL(observer, callEnded("AXIS1", StrEq("deinitialize")));
    const sal::ObservedCall sut("AXIS1", "deinitialize");
}

TEST_F(ObservedCall, TellsWhatTheDriverHasAnswered) {
    const InSequence order;
    EXPECT_CALL(observer, callBegins("AXIS1", StrEq("deinitialize")));
    EXPECT_CALL(observer, callReturned("AXIS1", StrEq("deinitialize"), false));
    EXPECT_CALL(observer, callEnded("AXIS1", StrEq("deinitialize")));
    sal::ObservedCall sut("AXIS1", "deinitialize");
    EXPECT_FALSE(sut.setResult(false));
}

TEST_F(ObservedCall, TellsNothingOfADriverWithoutID) {
    { const sal::ObservedCall sut("", "deinitialize"); }
    sal::ObservedCall::driverDeleted("");
}

TEST_F(ObservedCall, TellsTheEndOfTheDriver) {
    EXPECT_CALL(observer, driverDeleted("AXIS1"));
    sal::ObservedCall::driverDeleted("AXIS1");
}

TEST_F(ObservedCall, TellsOfAModuleThatIsNotLoaded) {
    EXPECT_CALL(observer, loadFailed("/drivers/a.so", "file too short"));
    sal::ObservedCall::loadFailed("/drivers/a.so", "file too short");
    sal::ObservedCall::setObserver(nullptr);
    sal::ObservedCall::loadFailed("/drivers/a.so", "file too short");
}

TEST_F(ObservedCall, ObserverThatLeftIsNotTold) {
    sal::ObservedCall::setObserver(nullptr);
    const sal::ObservedCall sut("AXIS1", "deinitialize");
}

}  // namespace
