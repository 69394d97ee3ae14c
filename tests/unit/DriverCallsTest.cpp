#include "DriverCalls.h"

#include <gmock/gmock.h>

#include <string>

#include "FIDParameterList.h"
#include "GoldenFrame.h"
#include "IDistributorFID.h"
#include "IPanelState.h"
#include "ISystem.h"

namespace {

using testing::_;
using testing::StrictMock;

class MockDriver : public IFunctionID, public IMFDConfiguration {
public:
    MOCK_METHOD(IInterface*, queryInterface, (unsigned int), (override));
    MOCK_METHOD(bool, sendFID, (const std::string&, const FIDParameterList&), (const, override));
    MOCK_METHOD(bool, subscribe, (const std::string&), (const, override));
    MOCK_METHOD(bool, showState, (), (const, override));
    MOCK_METHOD(bool, setConfiguration,
                (int, const std::string&, const std::string&, const std::string&, const std::string&,
                 const std::string&, const std::string&),
                (override));
    MOCK_METHOD(void, setPanelStateInterface, (IPanelState*), (override));
    MOCK_METHOD(void, setDistributorFIDInterface, (IDistributorFID*), (override));
    MOCK_METHOD(void, setSystemInterface, (ISystem*), (override));
    MOCK_METHOD(bool, initializationCompleted, (), (override));
    MOCK_METHOD(bool, deinitialize, (), (override));
    MOCK_METHOD(bool, createFIDList, (), (override));
};

bool handle(DriverCalls& sut, const std::string& bytes) {
    protocol::MessageReader message(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return sut.handle(message);
}

struct DriverCallsFixture {
    StrictMock<MockDriver> driver;
    DriverCalls sut{&driver, &driver};
};

TEST(DriverCalls, SetConfigurationKeepsTheOrderOfItsFields) {
    DriverCallsFixture f;
    EXPECT_CALL(f.driver, setConfiguration(3, "AXIS1", "axis1", "192.0.2.11", "eth0", "192.0.2.10",
                                           "/srv/nvram/AXIS1"));
    EXPECT_TRUE(handle(f.sut, goldenText("SETCFG")));
}

TEST(DriverCalls, SubscribePassesTheFunction) {
    DriverCallsFixture f;
    EXPECT_CALL(f.driver, subscribe("POSITION"));
    EXPECT_TRUE(handle(f.sut, goldenText("SUBSCR")));
}

TEST(DriverCalls, SendFidPassesFunctionAndParameters) {
    DriverCallsFixture f;
    FIDParameterList parameters;
    parameters.add("to", "12.5");
    parameters.add("speed", "3");
    EXPECT_CALL(f.driver, sendFID("MOVE", parameters));
    EXPECT_TRUE(handle(f.sut, goldenText("SNDFDP")));
}

TEST(DriverCalls, SendFidWithoutParametersPassesAnEmptyList) {
    DriverCallsFixture f;
    EXPECT_CALL(f.driver, sendFID("STOP", FIDParameterList()));
    EXPECT_TRUE(handle(f.sut, goldenText("SNDFDP-no-parameters")));
}

TEST(DriverCalls, CreateFidList) {
    DriverCallsFixture f;
    EXPECT_CALL(f.driver, createFIDList());
    EXPECT_TRUE(handle(f.sut, goldenText("CRTFID")));
}

TEST(DriverCalls, InitializationCompleted) {
    DriverCallsFixture f;
    EXPECT_CALL(f.driver, initializationCompleted());
    EXPECT_TRUE(handle(f.sut, goldenText("INTCMP")));
}

TEST(DriverCalls, ShowState) {
    DriverCallsFixture f;
    EXPECT_CALL(f.driver, showState());
    EXPECT_TRUE(handle(f.sut, goldenText("SHOWST")));
}

TEST(DriverCalls, DeinitIsLeftToTheCaller) {
    DriverCallsFixture f;
    EXPECT_CALL(f.driver, deinitialize()).Times(0);
    EXPECT_FALSE(handle(f.sut, goldenText("DEINIT")));
}

TEST(DriverCalls, DeinitializesOnce) {
    DriverCallsFixture f;
    EXPECT_CALL(f.driver, deinitialize()).Times(1);
    f.sut.deinitialize();
    f.sut.deinitialize();
}

TEST(DriverCalls, UnknownCodeDoesNothing) {
    DriverCallsFixture f;
    EXPECT_TRUE(handle(f.sut, "WAKEUP"));
    EXPECT_TRUE(handle(f.sut, "deinit"));
    EXPECT_TRUE(handle(f.sut, ""));
}

TEST(DriverCalls, FidsReachADriverWithoutConfiguration) {
    StrictMock<MockDriver> driver;
    DriverCalls sut(nullptr, &driver);
    EXPECT_CALL(driver, sendFID("STOP", FIDParameterList()));
    EXPECT_TRUE(handle(sut, goldenText("SETCFG")));
    EXPECT_TRUE(handle(sut, goldenText("SNDFDP-no-parameters")));
    EXPECT_FALSE(handle(sut, goldenText("DEINIT")));
    sut.deinitialize();
}

TEST(DriverCalls, ConfigurationReachesADriverWithoutFids) {
    StrictMock<MockDriver> driver;
    DriverCalls sut(&driver, nullptr);
    EXPECT_CALL(driver, initializationCompleted());
    EXPECT_TRUE(handle(sut, goldenText("SNDFDP")));
    EXPECT_TRUE(handle(sut, goldenText("SUBSCR")));
    EXPECT_TRUE(handle(sut, goldenText("SHOWST")));
    EXPECT_TRUE(handle(sut, goldenText("INTCMP")));
}

TEST(DriverCalls, TruncatedConfigurationHasEmptyFields) {
    DriverCallsFixture f;
    EXPECT_CALL(f.driver, setConfiguration(3, "AXIS1", "", "", "", "", ""));
    EXPECT_TRUE(handle(f.sut, goldenText("SETCFG").substr(0, 16)));
}

}  // namespace
