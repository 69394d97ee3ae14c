#include "ObservedFid.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FIDParameterList.h"
#include "MockModuleObserver.h"
#include "ObservedCall.h"

namespace {

using testing::Eq;
using testing::InSequence;
using testing::IsNull;
using testing::StrEq;
using testing::StrictMock;

class ObservedFid : public testing::Test {
protected:
    ObservedFid() {
        parameters.add("to", "5");
        sal::ObservedCall::setObserver(&observer);
    }
    ~ObservedFid() override { sal::ObservedCall::setObserver(nullptr); }

    const std::string driverID = "AXIS1";
    const std::string fid = "MOVE";
    FIDParameterList parameters;
    StrictMock<MockModuleObserver> observer;
};

TEST_F(ObservedFid, TellsBeginAndEndWithTheResult) {
    const InSequence order;
    EXPECT_CALL(observer, fidBegins("AXIS1", "MOVE", Eq(parameters)));
    EXPECT_CALL(observer, fidEnded("AXIS1", true, IsNull()));
    sal::ObservedFid sut(driverID, fid, parameters);
    sut.setResult(true);
}

TEST_F(ObservedFid, TellsTheExceptionThatLeftTheDriver) {
    EXPECT_CALL(observer, fidBegins);
    EXPECT_CALL(observer, fidEnded("AXIS1", false, StrEq("no")));
    sal::ObservedFid sut(driverID, fid, parameters);
    *sut.exception() = "no";
}

TEST_F(ObservedFid, TellsNothingOfADriverWithoutID) {
    const std::string none;
    sal::ObservedFid sut(none, fid, parameters);
    EXPECT_EQ(sut.exception(), nullptr);
}

TEST_F(ObservedFid, NobodyIsToldWithoutAnObserver) {
    sal::ObservedCall::setObserver(nullptr);
    sal::ObservedFid sut(driverID, fid, parameters);
    EXPECT_EQ(sut.exception(), nullptr);
}

/// One that looks at calls alone.
class CallObserver : public sal::Module::Observer {
public:
    void callBegins(const std::string&, const char*) override {}
    void callEnded(const std::string&, const char*) override {}
    void driverDeleted(const std::string&) override {}
};

TEST_F(ObservedFid, ObserverNeedNotLookAtFids) {
    CallObserver calls;
    sal::ObservedCall::setObserver(&calls);
    sal::ObservedFid sut(driverID, fid, parameters);
    EXPECT_NE(sut.exception(), nullptr);
}

}  // namespace
