#include "MfdDriverBase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "DriverHost.h"
#include "LogFile.h"

using testing::HasSubstr;

namespace {

class Driver : public MfdDriverBase {
public:
    using MfdDriverBase::configuration;
    using MfdDriverBase::log;
    using MfdDriverBase::panelState;
    using MfdDriverBase::sendToDriver;
    using MfdDriverBase::system;

    bool sendFID(const std::string&, const FIDParameterList&) const override { return true; }
};

/// A driver whose FIDs stand in a table.
class TableDriver : public MfdDriverBase {
public:
    TableDriver() { setConfiguration(0, "AXIS1", "", "", "", "", ""); }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        static const mfd::FunctionTable<TableDriver>::Function s_functions[] = {
            {"MOVE", &TableDriver::move, {"to", "speed"}},
            {"STOP", &TableDriver::stop},
        };
        return callFunction<TableDriver>(s_functions, fid, parameters);
    }

    mutable std::string moved;

private:
    bool move(const FIDParameterList& parameters) const {
        moved = parameters.value("to");
        return true;
    }
    bool stop(const FIDParameterList&) const { return false; }
};

class Distributor : public IDistributorFID {
public:
    mutable CallLog calls;

    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void dispatchFID(const std::string& fid, const FIDParameterList& parameters) const override {
        calls.add(fid + " " + parameters.value("x"));
    }
};

class SystemWithoutSender : public ISystem {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void executeCommand(const std::string&, const std::string&) override {}
};

TEST(MfdDriverBase, AnswersTheTwoDriverInterfacesAlone) {
    Driver sut;
    EXPECT_NE(dynamic_cast<IFunctionID*>(sut.queryInterface(1100)), nullptr);
    EXPECT_NE(dynamic_cast<IMFDConfiguration*>(sut.queryInterface(1201)), nullptr);
    EXPECT_EQ(sut.queryInterface(1107), nullptr);
}

TEST(MfdDriverBase, KeepsTheConfigurationInItsOrder) {
    Driver sut;
    EXPECT_TRUE(
        sut.setConfiguration(3, "AXIS1", "data/AXIS1", "192.0.2.7", "eth0", "192.0.2.1", "/nvram/AXIS1"));
    EXPECT_EQ(sut.configuration().workplaceId, 3);
    EXPECT_EQ(sut.configuration().driverID, "AXIS1");
    EXPECT_EQ(sut.configuration().workingDirectory, "data/AXIS1");
    EXPECT_EQ(sut.configuration().ipAddress, "192.0.2.7");
    EXPECT_EQ(sut.configuration().networkAdapter, "eth0");
    EXPECT_EQ(sut.configuration().virtualPanelAddress, "192.0.2.1");
    EXPECT_EQ(sut.configuration().nvramDirectory, "/nvram/AXIS1");
}

TEST(MfdDriverBase, KeepsTheInterfacesOfTheHost) {
    DriverHost host;
    Driver sut;
    sut.setPanelStateInterface(&host);
    sut.setSystemInterface(&host);
    EXPECT_EQ(sut.panelState(), &host);
    EXPECT_EQ(sut.system(), &host);
}

TEST(MfdDriverBase, DoesNothingByDefaultAndSucceeds) {
    Driver sut;
    EXPECT_TRUE(sut.subscribe("X"));
    EXPECT_TRUE(sut.showState());
    EXPECT_TRUE(sut.initializationCompleted());
    EXPECT_TRUE(sut.createFIDList());
    EXPECT_TRUE(sut.deinitialize());
}

TEST(MfdDriverBase, SendsThroughTheHostWithoutADistributor) {
    DriverHost host;
    Driver sut;
    sut.setSystemInterface(&host);
    EXPECT_TRUE(sut.sendToDriver("A.B", {}));
    EXPECT_EQ(host.calls.count("send A.B "), 1);
}

TEST(MfdDriverBase, TellsWhenTheHostCouldNotSend) {
    DriverHost host;
    host.sendResult = false;
    Driver sut;
    sut.setSystemInterface(&host);
    EXPECT_FALSE(sut.sendToDriver("A.B", {}));
}

TEST(MfdDriverBase, TellsWhatTheQueueAnsweredThoughThereIsADistributor) {
    DriverHost host;
    Distributor distributor;
    Driver sut;
    sut.setSystemInterface(&host);
    sut.setDistributorFIDInterface(&distributor);
    FIDParameterList parameters;
    parameters.add("x", "1");
    EXPECT_TRUE(sut.sendToDriver("A.B", parameters));
    host.sendResult = false;
    EXPECT_FALSE(sut.sendToDriver("A.C", {}));
    EXPECT_EQ(host.calls.count("send A.B x=1"), 1);
    EXPECT_EQ(host.calls.count("send A.C "), 1);
    EXPECT_TRUE(distributor.calls.lines().empty());
}

TEST(MfdDriverBase, SendsThroughTheDistributorWhereTheHostHasNoSender) {
    SystemWithoutSender system;
    Distributor distributor;
    Driver sut;
    sut.setSystemInterface(&system);
    sut.setDistributorFIDInterface(&distributor);
    FIDParameterList parameters;
    parameters.add("x", "1");
    EXPECT_TRUE(sut.sendToDriver("A.B", parameters));
    EXPECT_EQ(distributor.calls.count("A.B 1"), 1);
}

TEST(MfdDriverBase, SendsThroughTheDistributorWithoutASystem) {
    Distributor distributor;
    Driver sut;
    sut.setDistributorFIDInterface(&distributor);
    EXPECT_TRUE(sut.sendToDriver("A.B", {}));
    EXPECT_EQ(distributor.calls.count("A.B "), 1);
}

TEST(MfdDriverBase, CannotSendWithoutAHost) {
    Driver sut;
    EXPECT_FALSE(sut.sendToDriver("A.B", {}));
}

TEST(MfdDriverBase, LogsWithItsDriverID) {
    LogFile log;
    Driver sut;
    sut.setConfiguration(0, "AXIS1", "", "", "", "", "");
    sut.log(sal::LogOutput::eWarning, "too hot");
    EXPECT_THAT(log.text(), HasSubstr("AXIS1: too hot\n"));
}

TEST(MfdDriverBase, CallsWhatTheTableHasForAFID) {
    LogFile log;
    const TableDriver sut;
    FIDParameterList parameters;
    parameters.add("to", "5");
    parameters.add("speed", "3");
    EXPECT_TRUE(sut.sendFID("MOVE", parameters));
    EXPECT_EQ(sut.moved, "5");
    EXPECT_FALSE(sut.sendFID("STOP", {}));
    EXPECT_EQ(log.text(), "");
}

TEST(MfdDriverBase, SaysWhichFIDsTheTableHas) {
    LogFile log;
    const TableDriver sut;
    EXPECT_FALSE(sut.sendFID("DANCE", {}));
    EXPECT_THAT(log.text(), HasSubstr("AXIS1: unknown FID \"DANCE\"; known are MOVE, STOP\n"));
}

TEST(MfdDriverBase, SaysWhichParameterIsMissing) {
    LogFile log;
    const TableDriver sut;
    FIDParameterList parameters;
    parameters.add("to", "5");
    parameters.add("speed", "");
    EXPECT_FALSE(sut.sendFID("MOVE", parameters));
    EXPECT_EQ(sut.moved, "");
    EXPECT_THAT(log.text(), HasSubstr("AXIS1: MOVE ignored, it needs the parameter \"speed\"\n"));
}

}  // namespace
