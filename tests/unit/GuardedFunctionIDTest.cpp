#include "GuardedFunctionID.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "FIDParameterList.h"
#include "LogCapture.h"
#include "ObservedCall.h"

namespace {

using testing::_;
using testing::Eq;
using testing::HasSubstr;
using testing::Return;
using testing::StrictMock;
using testing::Throw;

class Driver : public IFunctionID {
public:
    MOCK_METHOD(IInterface*, queryInterface, (unsigned int id), (override));
    MOCK_METHOD(bool, sendFID, (const std::string& fid, const FIDParameterList& parameters),
                (const, override));
    MOCK_METHOD(bool, subscribe, (const std::string& fid), (const, override));
    MOCK_METHOD(bool, showState, (), (const, override));
};

class GuardedFunctionID : public testing::Test {
protected:
    StrictMock<Driver> module;
    StrictMock<Driver> driver;
    sal::DriverGuard guard{"Axis.so"};
    sal::GuardedFunctionID sut{module, driver, guard};
};

TEST_F(GuardedFunctionID, PassesEachCallOnWithItsResult) {
    FIDParameterList parameters;
    parameters.add("x", "1");
    EXPECT_CALL(driver, sendFID("MOVE", Eq(parameters))).WillOnce(Return(true));
    EXPECT_CALL(driver, subscribe("DONE")).WillOnce(Return(true));
    EXPECT_CALL(driver, showState()).WillOnce(Return(true));
    EXPECT_TRUE(sut.sendFID("MOVE", parameters));
    EXPECT_TRUE(sut.subscribe("DONE"));
    EXPECT_TRUE(sut.showState());
}

TEST_F(GuardedFunctionID, FalseOfTheDriverStaysFalse) {
    EXPECT_CALL(driver, sendFID("MOVE", _)).WillOnce(Return(false));
    EXPECT_FALSE(sut.sendFID("MOVE", {}));
}

TEST_F(GuardedFunctionID, ExceptionIsFalse) {
    const LogCapture log;
    EXPECT_CALL(driver, sendFID(_, _)).WillOnce(Throw(std::runtime_error("no")));
    EXPECT_CALL(driver, subscribe(_)).WillOnce(Throw(std::runtime_error("no")));
    EXPECT_CALL(driver, showState()).WillOnce(Throw(17));
    EXPECT_FALSE(sut.sendFID("MOVE", {}));
    EXPECT_FALSE(sut.subscribe("MOVE"));
    EXPECT_FALSE(sut.showState());
}

/// A driver that sends each FID that it gets to itself.
class Circle : public Driver {
public:
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        ++calls;
        return pSelf->sendFID(fid, parameters);
    }
    bool subscribe(const std::string& fid) const override {
        ++calls;
        return pSelf->subscribe(fid);
    }

    const IFunctionID* pSelf = nullptr;
    mutable int calls = 0;
};

TEST_F(GuardedFunctionID, CircleIsRefusedAndSaidOnce) {
    LogCapture log;
    guard.setDriverID("A");
    Circle circle;
    const sal::GuardedFunctionID circling{module, circle, guard};
    circle.pSelf = &circling;
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(circling.sendFID("PING", {}));
    EXPECT_EQ(circle.calls, 600);
    const std::string text = log.finish();
    EXPECT_THAT(text,
                HasSubstr("error    MODULE: driver A: sendFID(PING) is refused: drivers call each other "
                          "in a circle, 201 calls deep: A.PING -> A.PING\n"));
    EXPECT_EQ(text.find('\n'), text.size() - 1);
}

TEST_F(GuardedFunctionID, CircleOfSubscriptionsIsRefusedToo) {
    LogCapture log;
    guard.setDriverID("A");
    Circle circle;
    const sal::GuardedFunctionID circling{module, circle, guard};
    circle.pSelf = &circling;
    EXPECT_FALSE(circling.subscribe("DONE"));
    EXPECT_EQ(circle.calls, 200);
    EXPECT_THAT(log.finish(), HasSubstr("driver A: subscribe(DONE) is refused: "));
}

/// Writes down which FIDs come to drivers, and the calls of showState().
class NotingObserver : public sal::Module::Observer {
public:
    NotingObserver() { sal::ObservedCall::setObserver(this); }
    ~NotingObserver() override { sal::ObservedCall::setObserver(nullptr); }

    void callBegins(const std::string& driverID, const char* operation) override {
        lines.push_back(driverID + " " + operation);
    }
    void callEnded(const std::string& driverID, const char* operation) override {
        lines.push_back(driverID + " " + operation + " ended");
    }
    void driverDeleted(const std::string&) override {}
    void fidBegins(const std::string& driverID, const std::string& fid, const FIDParameterList&) override {
        lines.push_back(driverID + "." + fid);
    }
    void fidEnded(const std::string& driverID, bool ok, const char* exception) override {
        lines.push_back(driverID + (ok ? " true" : " false") +
                        (exception ? std::string(" ") + exception : ""));
    }

    std::vector<std::string> lines;
};

TEST_F(GuardedFunctionID, ObserverLearnsOfEachFidAndWhatTheDriverAnswers) {
    const LogCapture log;
    const NotingObserver observer;
    guard.setDriverID("A");
    EXPECT_CALL(driver, sendFID(_, _))
        .WillOnce(Return(true))
        .WillOnce(Return(false))
        .WillOnce(Throw(std::runtime_error("no")));
    for (const char* fid : {"ONE", "TWO", "THREE"})
        sut.sendFID(fid, {});
    EXPECT_EQ(observer.lines, (std::vector<std::string>{"A.ONE", "A true", "A.TWO", "A false", "A.THREE",
                                                        "A false std::runtime_error: no"}));
}

TEST_F(GuardedFunctionID, ObserverLearnsOfAShowState) {
    const NotingObserver observer;
    guard.setDriverID("A");
    EXPECT_CALL(driver, showState()).WillOnce(Return(true));
    sut.showState();
    EXPECT_EQ(observer.lines, (std::vector<std::string>{"A showState", "A showState ended"}));
}

TEST_F(GuardedFunctionID, ObserverLearnsOfNoFidThatACircleKeepsFromItsDriver) {
    const LogCapture log;
    const NotingObserver observer;
    guard.setDriverID("A");
    Circle circle;
    const sal::GuardedFunctionID circling{module, circle, guard};
    circle.pSelf = &circling;
    circling.sendFID("PING", {});
    EXPECT_EQ(observer.lines.size(), 400u);
}

TEST_F(GuardedFunctionID, OtherInterfacesAreAskedOfTheModule) {
    EXPECT_CALL(module, queryInterface(1201)).WillOnce(Return(&driver));
    EXPECT_EQ(sut.queryInterface(1201), static_cast<IInterface*>(&driver));
}

}  // namespace
