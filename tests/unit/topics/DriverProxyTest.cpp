// The driver proxy between its calls: what it holds, and when its thread is told to go on or to end. Built
// without access control.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FakeHost.h"
#include "MDMDriverIPCI.h"
#include "MfDriverManager.h"
#include "RecordingDistributorFID.h"
#include "RecordingPanelState.h"
#include "RecordingSystem.h"
#include "StandardOutput.h"

namespace {

using Calls = std::vector<std::string>;

struct DriverProxy : testing::Test {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    RecordingDistributorFID distributor;
    RecordingSystem system;
    MDMDriverIPCI sut{"/mods/libA.so", "A"};

    DriverProxy() { g_debugStartMFDProcess = true; }

    void connect() {
        sut.setPanelStateInterface(&panel);
        sut.setDistributorFIDInterface(&distributor);
        sut.setSystemInterface(&system);
    }
    bool init() {
        bool result = false;
        fakehost::printedBy([&] { result = sut.init(); });
        return result;
    }
    /// What action asks of the host, and before each call how the mark of the running thread had changed.
    Calls traced(const std::function<void()>& action) {
        host.journal().clear();
        bool last = sut.m_running;
        host.journal().setObserver([&]() -> Calls {
            if (sut.m_running == last)
                return {};
            last = sut.m_running;
            return {last ? "running" : "not running"};
        });
        action();
        host.journal().setObserver(nullptr);
        return host.journal().lines();
    }
    void lookAhead(int kind, const std::string& name, const std::string& value = std::string()) {
        MDMDriverIPCI::QueueCmd command;
        command.cmdType = kind;
        command.name = name;
        command.strValue = value;
        sut.lookAhead(command);
    }
    /// Kind, name and text of what is pending, oldest first.
    Calls pending() const {
        Calls result;
        for (const MDMDriverIPCI::QueueCmd& command : sut.m_laQueue)
            result.push_back(std::to_string(command.cmdType) + " " + command.name + " " + command.strValue);
        return result;
    }
};

}  // namespace

TEST_F(DriverProxy, HoldsItsTwoTextsAndNothingElseAtFirst) {
    EXPECT_EQ(sut.m_moduleFileName, "/mods/libA.so");
    EXPECT_EQ(sut.m_driverID, "A");
    EXPECT_EQ(sut.m_pIPanelState, nullptr);
    EXPECT_EQ(sut.m_pIDistributorFID, nullptr);
    EXPECT_EQ(sut.m_pISystem, nullptr);
    EXPECT_FALSE(sut.m_running);
    EXPECT_TRUE(sut.m_laQueue.empty());
    EXPECT_EQ(host.journal().lines(), Calls{});
}

TEST_F(DriverProxy, HoldsTheInterfacesItWasGivenLast) {
    connect();
    EXPECT_EQ(sut.m_pIPanelState, static_cast<IPanelState*>(&panel));
    EXPECT_EQ(sut.m_pIDistributorFID, static_cast<IDistributorFID*>(&distributor));
    EXPECT_EQ(sut.m_pISystem, static_cast<ISystem*>(&system));
    RecordingPanelState other;
    sut.setPanelStateInterface(&other);
    sut.setDistributorFIDInterface(nullptr);
    sut.setSystemInterface(nullptr);
    EXPECT_EQ(sut.m_pIPanelState, static_cast<IPanelState*>(&other));
    EXPECT_EQ(sut.m_pIDistributorFID, nullptr);
    EXPECT_EQ(sut.m_pISystem, nullptr);
}

TEST_F(DriverProxy, ThreadIsToRunFromJustBeforeItsStart) {
    connect();
    EXPECT_EQ(traced([this] { init(); }),
              (Calls{"queue create A_INQ 256 1024 0", "queue create A_OUTQ 16384 1024 0", "running",
                     "thread start 259",
                     "process start /opt/host/bin/mfddllwrap [A MFD Console] [/mods/libA.so] [A]"}));
}

TEST_F(DriverProxy, ThreadIsNotToRunWhenAQueueFails) {
    connect();
    host.fail("queue create A_OUTQ");
    EXPECT_FALSE(init());
    EXPECT_FALSE(sut.m_running);
}

TEST_F(DriverProxy, ThreadIsNotToRunWhenItDoesNotStart) {
    connect();
    host.fail("thread start");
    EXPECT_EQ(traced([this] { EXPECT_FALSE(init()); }),
              (Calls{"queue create A_INQ 256 1024 0", "queue create A_OUTQ 16384 1024 0", "running",
                     "thread start 259"}));
    EXPECT_FALSE(sut.m_running);
}

TEST_F(DriverProxy, ThreadIsToRunOnWhenTheProcessFails) {
    connect();
    host.fail("process start");
    EXPECT_FALSE(init());
    EXPECT_TRUE(sut.m_running);
}

TEST_F(DriverProxy, ThreadIsToEndFromBehindTheLastMessage) {
    connect();
    init();
    EXPECT_EQ(
        traced([this] { sut.deinitialize(); }),
        (Calls{"queue send A_INQ DEINIT timeout -1", "not running", "thread shutdown -1", "thread ended"}));
}

TEST_F(DriverProxy, OtherMessagesLetTheThreadRunOn) {
    connect();
    init();
    sut.createFIDList();
    sut.initializationCompleted();
    sut.showState();
    sut.setConfiguration(0, "", "", "", "", "", "");
    EXPECT_TRUE(sut.m_running);
}

TEST_F(DriverProxy, ConfigurationChangesNeitherIDNorModulePath) {
    connect();
    init();
    sut.setConfiguration(1, "other", "dir", "ip", "adapter", "vp", "nvram");
    EXPECT_EQ(sut.m_moduleFileName, "/mods/libA.so");
    EXPECT_EQ(sut.m_driverID, "A");
}

TEST_F(DriverProxy, PendingCallsStandOldestFirst) {
    lookAhead(1, "a", "1");
    lookAhead(5, "e", "x");
    lookAhead(0, "a");
    lookAhead(5, "e", "x");
    EXPECT_EQ(pending(), (Calls{"1 a 1", "5 e x", "0 a ", "5 e x"}));
}

TEST_F(DriverProxy, NewerCallTakesTheLastPlaceAndTheOlderOneGoes) {
    lookAhead(1, "a", "1");
    lookAhead(1, "b", "2");
    lookAhead(2, "a");
    lookAhead(1, "a", "3");
    EXPECT_EQ(pending(), (Calls{"1 b 2", "2 a ", "1 a 3"}));
}

TEST_F(DriverProxy, CallsOfAnUnknownKindAreMergedToo) {
    lookAhead(6, "a", "1");
    lookAhead(6, "a", "2");
    EXPECT_EQ(pending(), Calls{"6 a 2"});
}

TEST_F(DriverProxy, FlushLeavesNothingPending) {
    connect();
    lookAhead(1, "a", "1");
    lookAhead(5, "e", "x");
    lookAhead(6, "b", "1");
    sut.flushLAQueue();
    EXPECT_EQ(pending(), Calls{});
    lookAhead(1, "a", "2");
    EXPECT_EQ(pending(), Calls{"1 a 2"});
}
