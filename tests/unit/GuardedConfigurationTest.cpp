#include "GuardedConfiguration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "IPanelState.h"
#include "ISystem.h"
#include "LogCapture.h"
#include "MockModuleObserver.h"
#include "ObservedCall.h"

namespace {

using testing::_;
using testing::EndsWith;
using testing::Return;
using testing::StrEq;
using testing::StrictMock;
using testing::Throw;

class Driver : public IMFDConfiguration {
public:
    MOCK_METHOD(IInterface*, queryInterface, (unsigned int id), (override));
    MOCK_METHOD(bool, setConfiguration,
                (int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                 const std::string& ipAddress, const std::string& networkAdapter,
                 const std::string& virtualPanelAddress, const std::string& nvramDirectory),
                (override));
    MOCK_METHOD(void, setPanelStateInterface, (IPanelState * pPanelState), (override));
    MOCK_METHOD(void, setDistributorFIDInterface, (IDistributorFID * pDistributorFID), (override));
    MOCK_METHOD(void, setSystemInterface, (ISystem * pSystem), (override));
    MOCK_METHOD(bool, initializationCompleted, (), (override));
    MOCK_METHOD(bool, deinitialize, (), (override));
    MOCK_METHOD(bool, createFIDList, (), (override));
};

class GuardedConfiguration : public testing::Test {
protected:
    StrictMock<Driver> module;
    StrictMock<Driver> driver;
    sal::DriverGuard guard{"Axis.so"};
    sal::GuardedConfiguration sut{module, driver, guard};
};

TEST_F(GuardedConfiguration, PassesTheConfigurationOn) {
    EXPECT_CALL(driver, setConfiguration(7, "AXIS1", "work", "192.0.2.1", "eth0", "192.0.2.2", "/nvram"))
        .WillOnce(Return(true));
    EXPECT_TRUE(sut.setConfiguration(7, "AXIS1", "work", "192.0.2.1", "eth0", "192.0.2.2", "/nvram"));
}

TEST_F(GuardedConfiguration, LearnsTheDriverID) {
    EXPECT_CALL(driver, setConfiguration(_, _, _, _, _, _, _)).WillOnce(Return(true));
    sut.setConfiguration(0, "AXIS1", "", "", "", "", "");
    EXPECT_EQ(guard.name(), "AXIS1");
}

TEST_F(GuardedConfiguration, PassesInterfacesOn) {
    EXPECT_CALL(driver, setPanelStateInterface(nullptr));
    EXPECT_CALL(driver, setDistributorFIDInterface(nullptr));
    EXPECT_CALL(driver, setSystemInterface(nullptr));
    sut.setPanelStateInterface(nullptr);
    sut.setDistributorFIDInterface(nullptr);
    sut.setSystemInterface(nullptr);
}

TEST_F(GuardedConfiguration, PassesEachResultBack) {
    EXPECT_CALL(driver, initializationCompleted()).WillOnce(Return(true)).WillOnce(Return(false));
    EXPECT_CALL(driver, deinitialize()).WillOnce(Return(true)).WillOnce(Return(false));
    EXPECT_CALL(driver, createFIDList()).WillOnce(Return(true)).WillOnce(Return(false));
    for (const bool expected : {true, false}) {
        EXPECT_EQ(sut.initializationCompleted(), expected);
        EXPECT_EQ(sut.deinitialize(), expected);
        EXPECT_EQ(sut.createFIDList(), expected);
    }
}

TEST_F(GuardedConfiguration, ExceptionOfAnOperationIsFalse) {
    const LogCapture log;
    EXPECT_CALL(driver, setConfiguration(_, _, _, _, _, _, _)).WillOnce(Throw(std::runtime_error("no")));
    EXPECT_CALL(driver, initializationCompleted()).WillOnce(Throw(std::runtime_error("no")));
    EXPECT_CALL(driver, deinitialize()).WillOnce(Throw(std::runtime_error("no")));
    EXPECT_CALL(driver, createFIDList()).WillOnce(Throw(17));
    EXPECT_FALSE(sut.setConfiguration(0, "AXIS1", "", "", "", "", ""));
    EXPECT_FALSE(sut.initializationCompleted());
    EXPECT_FALSE(sut.deinitialize());
    EXPECT_FALSE(sut.createFIDList());
}

TEST_F(GuardedConfiguration, ExceptionWhileAnInterfaceIsHandedInEndsHere) {
    LogCapture log;
    EXPECT_CALL(driver, setSystemInterface(_)).WillOnce(Throw(std::runtime_error("no host")));
    sut.setSystemInterface(nullptr);
    EXPECT_THAT(log.finish(),
                EndsWith("driver Axis.so: an exception left setSystemInterface(): std::runtime_error: "
                         "no host\n"));
}

TEST_F(GuardedConfiguration, DriverHasAnISystemThatSaysWhoCalls) {
    class CallingHost : public ISystem {
    public:
        IInterface* queryInterface(unsigned int) override { return nullptr; }
        void executeCommand(const std::string&, const std::string&) override {
            callers.push_back(sal::DriverSystem::caller());
        }
        std::vector<std::string> callers;
    } host;
    ISystem* pSystem = nullptr;
    EXPECT_CALL(driver, setSystemInterface(_)).WillOnce(testing::SaveArg<0>(&pSystem));
    EXPECT_CALL(driver, setConfiguration(_, _, _, _, _, _, _)).WillOnce(Return(true));
    sut.setSystemInterface(&host);
    ASSERT_NE(pSystem, nullptr);
    pSystem->executeCommand("a", "");
    sut.setConfiguration(0, "AXIS1", "", "", "", "", "");
    pSystem->executeCommand("b", "");
    EXPECT_EQ(host.callers, (std::vector<std::string>{"", "AXIS1"}));
}

TEST_F(GuardedConfiguration, ObserverIsToldWhatTheDriverAnswers) {
    StrictMock<MockModuleObserver> observer;
    sal::ObservedCall::setObserver(&observer);
    EXPECT_CALL(driver, setConfiguration(_, _, _, _, _, _, _)).WillOnce(Return(true));
    EXPECT_CALL(driver, initializationCompleted()).WillOnce(Return(false));
    EXPECT_CALL(driver, deinitialize()).WillOnce(Throw(17));
    EXPECT_CALL(observer, callBegins("AXIS1", _)).Times(3);
    EXPECT_CALL(observer, callReturned("AXIS1", StrEq("setConfiguration"), true));
    EXPECT_CALL(observer, callReturned("AXIS1", StrEq("initializationCompleted"), false));
    EXPECT_CALL(observer, callReturned("AXIS1", StrEq("deinitialize"), false));
    EXPECT_CALL(observer, callEnded("AXIS1", _)).Times(3);
    sut.setConfiguration(0, "AXIS1", "", "", "", "", "");
    sut.initializationCompleted();
    sut.deinitialize();
    sal::ObservedCall::setObserver(nullptr);
}

TEST_F(GuardedConfiguration, OtherInterfacesAreAskedOfTheModule) {
    EXPECT_CALL(module, queryInterface(1100)).WillOnce(Return(nullptr));
    EXPECT_EQ(sut.queryInterface(1100), nullptr);
}

}  // namespace
