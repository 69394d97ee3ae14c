#include "GuardedConfiguration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "IPanelState.h"
#include "LogCapture.h"

namespace {

using testing::_;
using testing::EndsWith;
using testing::Return;
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

TEST_F(GuardedConfiguration, OtherInterfacesAreAskedOfTheModule) {
    EXPECT_CALL(module, queryInterface(1100)).WillOnce(Return(nullptr));
    EXPECT_EQ(sut.queryInterface(1100), nullptr);
}

}  // namespace
