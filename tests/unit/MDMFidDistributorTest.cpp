#include "MDMFidDistributor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <iostream>
#include <memory>
#include <thread>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "FlushedOutput.h"
#include "HangGuard.h"
#include "RecordingFunctionID.h"
#include "RecordingMacroSystem.h"
#include "RecordingPanelState.h"
#include "RecordingSystem.h"
#include "StandardOutput.h"
#include "sal/CmdParameters.h"

namespace {

struct Hub {
    fakehost::FakeHost host;
    std::unique_ptr<MDMFidDistributor> pSut = std::make_unique<MDMFidDistributor>();
    MDMFidDistributor& sut = *pSut;

    Hub() { host.journal().clear(); }
    std::vector<std::string> calls() { return host.journal().lines(); }
    bool command(bool (MDMFidDistributor::*handler)(sal::CmdParameters&),
                 std::vector<std::string> arguments) {
        sal::CmdParameters parameters(std::move(arguments));
        return (sut.*handler)(parameters);
    }
    /// The FID and pairs that "sendFID" with these arguments hands to the driver A.
    std::vector<std::string> sentBy(std::vector<std::string> arguments) {
        RecordingFunctionID driver("A");
        sut.addDriverPort("A", &driver);
        host.journal().clear();
        EXPECT_TRUE(command(&MDMFidDistributor::shellCmdSendFID, std::move(arguments)));
        const auto result = host.journal().linesOf({"A"});
        sut.addDriverPort("A", nullptr);
        return result;
    }
};

class TestSegmentPointer : public FIDSegmentPointer {
public:
    void pointAt(const char* pText) { m_pSegment = pText; }
};

// Holds the calls that come into it until it is let go.
class HeldDriver : public RecordingFunctionID {
public:
    using RecordingFunctionID::RecordingFunctionID;
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        entered.set_value();
        leave.get_future().wait();
        return RecordingFunctionID::sendFID(fid, parameters);
    }

    mutable std::promise<void> entered;
    mutable std::promise<void> leave;
};

// Runs what a test wants in the driver's report.
class ReportingDriver : public RecordingFunctionID {
public:
    using RecordingFunctionID::RecordingFunctionID;
    bool showState() const override {
        RecordingFunctionID::showState();
        onShowState();
        return true;
    }

    std::function<void()> onShowState;
};

// Runs what a test wants in the notification of a FID.
class ActingMacroSystem : public RecordingMacroSystem {
public:
    void fidDispatched(const std::string& fid, const FIDParameterList& parameters) override {
        RecordingMacroSystem::fidDispatched(fid, parameters);
        onDispatched(fid);
    }

    std::function<void(const std::string& fid)> onDispatched;
};

// For what would never return once it is broken: ends the whole program then, since nothing else would.
void expectReturns(const std::function<void()>& action) {
    auto running = std::async(std::launch::async, action);
    if (running.wait_for(std::chrono::seconds(20)) == std::future_status::ready)
        return;
    std::cerr << "the call does not return" << std::endl;
    std::abort();
}

using Calls = std::vector<std::string>;

}  // namespace

// Routing.

TEST(MDMFidDistributor, FidReachesTheNamedDriverWithTheRestOfItsText) {
    Hub s;
    RecordingFunctionID driver("driver");
    s.sut.addDriverPort("PANEL", &driver);
    FIDParameterList parameters;
    parameters.add("a", "5");
    s.sut.dispatchFID("PANEL.KEY.F1", parameters);
    EXPECT_EQ(s.calls(),
              (Calls{"log MDM 5: MDM: PANEL.KEY.F1 ( a=5) received.", "driver sendFID KEY.F1 {a=5}"}));
}

TEST(MDMFidDistributor, ReceivedLineHoldsTheParametersText) {
    Hub s;
    FIDParameterList parameters;
    parameters.add("x", "1");
    parameters.add("y", "2");
    s.sut.dispatchFID("NODOT", parameters);
    EXPECT_EQ(s.calls(), Calls{"log MDM 5: MDM: NODOT ( x=1, y=2) received."});
}

TEST(MDMFidDistributor, FidForAnUnknownDriverIsLoggedAsNotDispatched) {
    Hub s;
    s.sut.dispatchFID("NOPE.x", FIDParameterList());
    EXPECT_EQ(s.calls(),
              (Calls{"log MDM 5: MDM: NOPE.x ( ) received.", "log MDM 5: MDM:  -> but not dispatched"}));
}

TEST(MDMFidDistributor, FidWithoutADotIsLoggedOnceAndGoesNowhere) {
    Hub s;
    RecordingFunctionID driver("driver");
    s.sut.addDriverPort("NODOT", &driver);
    s.sut.dispatchFID("NODOT", FIDParameterList());
    EXPECT_EQ(s.calls(), Calls{"log MDM 5: MDM: NODOT ( ) received."});
}

TEST(MDMFidDistributor, FidWithoutADotIsToldToTheMacroSystem) {
    Hub s;
    RecordingMacroSystem macros;
    s.sut.setMacroSystem(&macros);
    s.sut.dispatchFID("NODOT", FIDParameterList());
    EXPECT_EQ(s.calls(), (Calls{"log MDM 5: MDM: NODOT ( ) received.", "macro fidDispatched NODOT {}"}));
}

TEST(MDMFidDistributor, MacroSystemIsToldTheWholeFidBeforeTheDriver) {
    Hub s;
    RecordingMacroSystem macros;
    RecordingFunctionID driver("driver");
    s.sut.setMacroSystem(&macros);
    s.sut.addDriverPort("A", &driver);
    FIDParameterList parameters;
    parameters.add("a", "5");
    s.sut.dispatchFID("A.x", parameters);
    EXPECT_EQ(s.calls(), (Calls{"log MDM 5: MDM: A.x ( a=5) received.", "macro fidDispatched A.x {a=5}",
                                "driver sendFID x {a=5}"}));
}

TEST(MDMFidDistributor, MacroSystemIsToldOfAFidThatNobodyTakes) {
    Hub s;
    RecordingMacroSystem macros;
    s.sut.setMacroSystem(&macros);
    s.sut.dispatchFID("NOPE.x", FIDParameterList());
    EXPECT_EQ(s.calls(), (Calls{"log MDM 5: MDM: NOPE.x ( ) received.", "macro fidDispatched NOPE.x {}",
                                "log MDM 5: MDM:  -> but not dispatched"}));
}

TEST(MDMFidDistributor, MacroSystemThatWasTakenOutIsToldNothing) {
    Hub s;
    RecordingMacroSystem macros;
    s.sut.setMacroSystem(&macros);
    s.sut.setMacroSystem(nullptr);
    s.sut.dispatchFID("A.x", FIDParameterList());
    EXPECT_EQ(s.host.journal().linesOf({"macro"}), Calls{});
}

TEST(MDMFidDistributor, MacroSystemIsLeftBeforeItIsTakenOut) {
    struct Waiting : RecordingMacroSystem {
        void fidDispatched(const std::string&, const FIDParameterList&) override {
            entered.set_value();
            leave.get_future().wait();
            fakehost::Journal::instance().note("macro left");
        }
        std::promise<void> entered;
        std::promise<void> leave;
    };
    Hub s;
    Waiting macros;
    s.sut.setMacroSystem(&macros);
    auto dispatching = std::async(std::launch::async, [&] { s.sut.dispatchFID("A.x", FIDParameterList()); });
    macros.entered.get_future().wait();
    auto taking = std::async(std::launch::async, [&] {
        s.sut.setMacroSystem(nullptr);
        s.host.journal().note("taken out");
    });
    EXPECT_EQ(taking.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    macros.leave.set_value();
    taking.wait();
    dispatching.wait();
    EXPECT_EQ(s.host.journal().linesOf({"macro", "taken"}), (Calls{"macro left", "taken out"}));
}

TEST(MDMFidDistributor, MacroSystemThatIsSetAgainIsToldOfEveryFidMeanwhile) {
    Hub s;
    ActingMacroSystem macros;
    std::promise<void> entered;
    std::promise<void> leave;
    macros.onDispatched = [&](const std::string& fid) {
        if (fid != "A.held")
            return;
        entered.set_value();
        leave.get_future().wait();
    };
    s.sut.setMacroSystem(&macros);
    auto dispatching =
        std::async(std::launch::async, [&] { s.sut.dispatchFID("A.held", FIDParameterList()); });
    entered.get_future().wait();
    expectReturns([&] { s.sut.setMacroSystem(&macros); });
    s.sut.dispatchFID("A.meanwhile", FIDParameterList());
    leave.set_value();
    dispatching.wait();
    EXPECT_EQ(s.host.journal().linesOf({"macro"}),
              (Calls{"macro fidDispatched A.held {}", "macro fidDispatched A.meanwhile {}"}));
}

TEST(MDMFidDistributor, MacroSystemMayBeSetAgainFromInsideItsNotification) {
    Hub s;
    ActingMacroSystem macros;
    macros.onDispatched = [&](const std::string&) { s.sut.setMacroSystem(&macros); };
    s.sut.setMacroSystem(&macros);
    expectReturns([&] { s.sut.dispatchFID("A.x", FIDParameterList()); });
    s.sut.dispatchFID("A.y", FIDParameterList());
    EXPECT_EQ(s.host.journal().linesOf({"macro"}),
              (Calls{"macro fidDispatched A.x {}", "macro fidDispatched A.y {}"}));
}

TEST(MDMFidDistributor, DotAloneNamesTheEmptyDriverIDAndTheEmptyFunction) {
    Hub s;
    RecordingFunctionID driver("driver");
    s.sut.addDriverPort("", &driver);
    s.sut.dispatchFID(".", FIDParameterList());
    EXPECT_EQ(s.calls(), (Calls{"log MDM 5: MDM: . ( ) received.", "driver sendFID  {}"}));
}

TEST(MDMFidDistributor, LeadingDotNamesTheEmptyDriverID) {
    Hub s;
    s.sut.dispatchFID(".x", FIDParameterList());
    EXPECT_EQ(s.calls(),
              (Calls{"log MDM 5: MDM: .x ( ) received.", "log MDM 5: MDM:  -> but not dispatched"}));
}

TEST(MDMFidDistributor, EmptyDriverIDIsRoutedWhenItHasAPort) {
    Hub s;
    RecordingFunctionID driver("driver");
    s.sut.addDriverPort("", &driver);
    s.sut.dispatchFID(".x", FIDParameterList());
    EXPECT_EQ(s.host.journal().linesOf({"driver"}), Calls{"driver sendFID x {}"});
}

TEST(MDMFidDistributor, TrailingDotGivesAnEmptyFunction) {
    Hub s;
    RecordingFunctionID driver("driver");
    s.sut.addDriverPort("A", &driver);
    s.sut.dispatchFID("A.", FIDParameterList());
    EXPECT_EQ(s.calls(), (Calls{"log MDM 5: MDM: A. ( ) received.", "driver sendFID  {}"}));
}

TEST(MDMFidDistributor, DriverIDsAreComparedExactly) {
    Hub s;
    RecordingFunctionID driver("driver");
    s.sut.addDriverPort("PANEL", &driver);
    s.sut.dispatchFID("panel.x", FIDParameterList());
    s.sut.dispatchFID("PANE.x", FIDParameterList());
    s.sut.dispatchFID("PANELS.x", FIDParameterList());
    EXPECT_EQ(s.host.journal().linesOf({"driver"}), Calls{});
}

TEST(MDMFidDistributor, FidForAPortWithoutEndpointIsSwallowedWithoutANotDispatchedLine) {
    Hub s;
    s.sut.addDriverPort("A", nullptr);
    s.sut.dispatchFID("A.x", FIDParameterList());
    EXPECT_EQ(s.calls(), Calls{"log MDM 5: MDM: A.x ( ) received."});
}

TEST(MDMFidDistributor, ResultOfTheDriverIsNotLookedAt) {
    Hub s;
    RecordingFunctionID driver("driver", false);
    s.sut.addDriverPort("A", &driver);
    EXPECT_TRUE(s.sut.sendFID("A.x", FIDParameterList()));
    EXPECT_EQ(s.calls(), (Calls{"log MDM 5: MDM: A.x ( ) received.", "driver sendFID x {}"}));
}

TEST(MDMFidDistributor, SendFidIsDispatchedWithItsLogLine) {
    Hub s;
    RecordingFunctionID driver("driver");
    s.sut.addDriverPort("A", &driver);
    FIDParameterList parameters;
    parameters.add("a", "5");
    s.sut.sendFID("A.x", parameters);
    EXPECT_EQ(s.calls(), (Calls{"log MDM 5: MDM: A.x ( a=5) received.", "driver sendFID x {a=5}"}));
}

TEST(MDMFidDistributor, SendFidGoesThroughTheVirtualOperation) {
    struct Derived : MDMFidDistributor {
        void dispatchFID(const std::string& fid, const FIDParameterList&) const override {
            fakehost::Journal::instance().note("derived " + fid);
        }
    };
    fakehost::FakeHost host;
    Derived sut;
    host.journal().clear();
    sut.sendFID("A.x", FIDParameterList());
    EXPECT_EQ(host.journal().lines(), Calls{"derived A.x"});
}

// Subscriptions.

TEST(MDMFidDistributor, SubscriptionReachesTheNamedDriverSilently) {
    Hub s;
    RecordingMacroSystem macros;
    RecordingFunctionID driver("driver");
    s.sut.setMacroSystem(&macros);
    s.sut.addDriverPort("A", &driver);
    s.sut.subscribe("A.x.y");
    EXPECT_EQ(s.calls(), Calls{"driver subscribe x.y"});
}

TEST(MDMFidDistributor, SubscriptionForAnUnknownDriverDoesNothing) {
    Hub s;
    s.sut.subscribe("A.x");
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMFidDistributor, SubscriptionWithoutADotDoesNothing) {
    Hub s;
    RecordingFunctionID driver("driver");
    s.sut.addDriverPort("A", &driver);
    s.sut.subscribe("A");
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMFidDistributor, SubscriptionHandsTheDriversResultBack) {
    Hub s;
    RecordingFunctionID willing("willing", true);
    RecordingFunctionID refusing("refusing", false);
    s.sut.addDriverPort("A", &willing);
    s.sut.addDriverPort("B", &refusing);
    EXPECT_TRUE(s.sut.subscribe("A.x"));
    EXPECT_FALSE(s.sut.subscribe("B.x"));
}

TEST(MDMFidDistributor, SubscriptionThatReachesNobodyFails) {
    Hub s;
    s.sut.addDriverPort("A", nullptr);
    EXPECT_FALSE(s.sut.subscribe("A"));
    EXPECT_FALSE(s.sut.subscribe("A.x"));
    EXPECT_FALSE(s.sut.subscribe("B.x"));
}

TEST(MDMFidDistributor, ShowStateDoesNothing) {
    Hub s;
    RecordingFunctionID driver("driver");
    s.sut.addDriverPort("A", &driver);
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_TRUE(s.sut.showState()); }), "");
    EXPECT_EQ(s.calls(), Calls{});
}

// Ports.

TEST(MDMFidDistributor, PortPutsTheDriverIDBeforeWhatTheDriverReports) {
    Hub s;
    RecordingPanelState panel;
    s.sut.setPanelStateInterface(&panel);
    IPanelState* pPort = s.sut.addDriverPort("A", nullptr);
    ASSERT_NE(pPort, nullptr);
    pPort->setStateValueInt("LAMP", 3);
    EXPECT_EQ(s.calls(), Calls{"panel setStateValueInt A.LAMP 3"});
}

TEST(MDMFidDistributor, LaterPanelStateTargetHoldsForEveryPort) {
    Hub s;
    RecordingPanelState first("first");
    RecordingPanelState second("second");
    s.sut.setPanelStateInterface(&first);
    IPanelState* pPort = s.sut.addDriverPort("A", nullptr);
    s.sut.setPanelStateInterface(&second);
    pPort->setStateValue("x", "1");
    EXPECT_EQ(s.calls(), Calls{"second setStateValue A.x 1"});
}

TEST(MDMFidDistributor, SecondPortOfADriverIDReplacesTheFirst) {
    Hub s;
    RecordingFunctionID first("first");
    RecordingFunctionID second("second");
    s.sut.addDriverPort("A", &first);
    s.sut.addDriverPort("A", &second);
    s.sut.dispatchFID("A.x", FIDParameterList());
    EXPECT_EQ(s.host.journal().linesOf({"first", "second"}), Calls{"second sendFID x {}"});
}

TEST(MDMFidDistributor, ReplacedPortIsListedOnce) {
    Hub s;
    s.sut.addDriverPort("A", nullptr);
    s.sut.addDriverPort("A", nullptr);
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.showUsedModules(); }), "A\n");
}

TEST(MDMFidDistributor, UsedModulesAreListedInByteOrder) {
    Hub s;
    s.sut.addDriverPort("a", nullptr);
    s.sut.addDriverPort("B", nullptr);
    s.sut.addDriverPort("B1", nullptr);
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.showUsedModules(); }), "B\nB1\na\n");
}

TEST(MDMFidDistributor, UsedModulesWithoutPortsPrintNothing) {
    Hub s;
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.showUsedModules(); }), "");
}

TEST(MDMFidDistributor, DriversReportFollowsItsName) {
    Hub s;
    RecordingFunctionID driver("driver");
    s.sut.addDriverPort("A", &driver);
    s.sut.addDriverPort("B", nullptr);
    {
        fakehost::StandardOutput output;
        output.intoJournal();
        s.sut.showUsedModules();
        output.journalNow();
    }
    EXPECT_EQ(s.calls(), (Calls{"stdout A\\0a", "driver showState", "stdout B\\0a"}));
}

TEST(MDMFidDistributor, DestructionTouchesNeitherDriversNorInterfaces) {
    Hub s;
    RecordingPanelState panel;
    RecordingMacroSystem macros;
    RecordingSystem system;
    RecordingFunctionID driver("driver");
    s.sut.setPanelStateInterface(&panel);
    s.sut.setMacroSystem(&macros);
    s.sut.setSystemInterface(&system);
    s.sut.addDriverPort("A", &driver);
    s.pSut.reset();
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMFidDistributor, ReleasedDriverIsNotCalledAnyMoreAndItsPortStays) {
    Hub s;
    RecordingFunctionID driver("driver");
    s.sut.addDriverPort("A", &driver);
    s.sut.releaseDriver("A");
    s.sut.dispatchFID("A.x", FIDParameterList());
    EXPECT_EQ(s.calls(), Calls{"log MDM 5: MDM: A.x ( ) received."});
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.showUsedModules(); }), "A\n");
}

TEST(MDMFidDistributor, ReleasingAnUnknownDriverDoesNothing) {
    Hub s;
    s.sut.releaseDriver("A");
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMFidDistributor, PortsMayBeAddedWhileFidsFlow) {
    Hub s;
    RecordingFunctionID driver("driver");
    std::atomic<bool> stop{false};
    std::thread sender([&] {
        while (!stop)
            s.sut.dispatchFID("A5.x", FIDParameterList());
    });
    for (int index = 0; index < 200; ++index)
        s.sut.addDriverPort("A" + std::to_string(index % 10), &driver);
    EXPECT_TRUE(s.host.journal().waitFor("driver sendFID x {}"));
    stop = true;
    sender.join();
}

TEST(MDMFidDistributor, DriversMayBeReleasedAndReplacedWhileFidsFlow) {
    Hub s;
    std::atomic<bool> stop{false};
    std::thread sender([&] {
        while (!stop)
            s.sut.dispatchFID("A.x", FIDParameterList());
    });
    for (int index = 0; index < 100; ++index) {
        RecordingFunctionID driver("driver");
        s.sut.addDriverPort("A", &driver);
        std::this_thread::yield();
        s.sut.releaseDriver("A");
    }
    stop = true;
    sender.join();
    EXPECT_EQ(s.host.journal().count("driver gone"), 100);
}

TEST(MDMFidDistributor, DriversMayBeListedWhileOthersAreAdded) {
    Hub s;
    std::atomic<bool> stop{false};
    // Without a buffer nothing is written, so that most of the time goes to the list itself.
    std::streambuf* const pFormer = std::cout.rdbuf(nullptr);
    std::thread lister([&] {
        while (!stop)
            s.sut.showUsedModules();
    });
    for (int index = 0; index < 500; ++index)
        s.sut.addDriverPort("D" + std::to_string(index), nullptr);
    stop = true;
    lister.join();
    std::cout.rdbuf(pFormer);
    const std::string printed = fakehost::printedBy([&] { s.sut.showUsedModules(); });
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 500);
}

TEST(MDMFidDistributor, DriverMayAddAnotherFromInsideItsReportAndItsSubscription) {
    struct Adder : RecordingFunctionID {
        explicit Adder(MDMFidDistributor& hub) : RecordingFunctionID("adder"), m_hub(hub) {}
        bool subscribe(const std::string&) const override {
            return m_hub.addDriverPort("SUBSCRIBED", nullptr) != nullptr;
        }
        bool showState() const override { return m_hub.addDriverPort("SHOWN", nullptr) != nullptr; }
        MDMFidDistributor& m_hub;
    };
    Hub s;
    Adder driver(s.sut);
    s.sut.addDriverPort("A", &driver);
    fakehost::printedBy([&] { s.sut.showUsedModules(); });
    EXPECT_TRUE(s.sut.subscribe("A.x"));
    s.sut.releaseDriver("A");
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.showUsedModules(); }), "A\nSHOWN\nSUBSCRIBED\n");
}

TEST(MDMFidDistributor, SlowReportOfOneDriverDoesNotHoldUpThePortsOfOthers) {
    Hub s;
    ReportingDriver slow("slow");
    std::promise<void> entered;
    std::promise<void> leave;
    slow.onShowState = [&] {
        entered.set_value();
        leave.get_future().wait();
    };
    s.sut.addDriverPort("A", nullptr);
    s.sut.addDriverPort("B", &slow);
    s.sut.addDriverPort("C", nullptr);
    std::string printed;
    auto listing = std::async(std::launch::async,
                              [&] { printed = fakehost::printedBy([&] { s.sut.showUsedModules(); }); });
    entered.get_future().wait();
    expectReturns([&] { s.sut.addDriverPort("A", nullptr); });
    expectReturns([&] { s.sut.addDriverPort("C", nullptr); });
    leave.set_value();
    listing.wait();
    EXPECT_EQ(printed, "A\nB\nC\n");
}

TEST(MDMFidDistributor, DriverMayReplaceAnotherFromInsideItsReport) {
    Hub s;
    RecordingFunctionID former("former");
    RecordingFunctionID latter("latter");
    ReportingDriver driver("driver");
    driver.onShowState = [&] {
        s.sut.addDriverPort("A", &latter);
        s.sut.addDriverPort("C", &latter);
    };
    s.sut.addDriverPort("A", &former);
    s.sut.addDriverPort("B", &driver);
    s.sut.addDriverPort("C", &former);
    expectReturns([&] { EXPECT_EQ(fakehost::printedBy([&] { s.sut.showUsedModules(); }), "A\nB\nC\n"); });
    EXPECT_EQ(s.calls(), (Calls{"former showState", "driver showState", "latter showState"}));
}

TEST(MDMFidDistributor, PortAddedDuringTheListingIsListedWhenItsTurnIsStillToCome) {
    Hub s;
    ReportingDriver driver("driver");
    driver.onShowState = [&] {
        s.sut.addDriverPort("A", nullptr);
        s.sut.addDriverPort("B1", nullptr);
        s.sut.addDriverPort("D", nullptr);
    };
    s.sut.addDriverPort("B", &driver);
    s.sut.addDriverPort("C", nullptr);
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.showUsedModules(); }), "B\nB1\nC\nD\n");
}

TEST(MDMFidDistributor, EmptyDriverIDIsListedFirstAndOnce) {
    Hub s;
    s.sut.addDriverPort("A", nullptr);
    s.sut.addDriverPort("", nullptr);
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.showUsedModules(); }), "\nA\n");
}

TEST(MDMFidDistributor, ReplacedPortGoesOnlyWhenTheCallInsideHasReturned) {
    Hub s;
    HeldDriver driver("driver");
    s.sut.addDriverPort("A", &driver);
    auto sending = std::async(std::launch::async, [&] { s.sut.dispatchFID("A.x", FIDParameterList()); });
    driver.entered.get_future().wait();
    auto replacing = std::async(std::launch::async, [&] {
        s.sut.addDriverPort("A", nullptr);
        s.host.journal().note("replaced");
    });
    EXPECT_EQ(replacing.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    driver.leave.set_value();
    replacing.wait();
    sending.wait();
    EXPECT_EQ(s.host.journal().linesOf({"driver", "replaced"}), (Calls{"driver sendFID x {}", "replaced"}));
}

TEST(MDMFidDistributor, NobodyFindsAPortThatIsBeingReplaced) {
    Hub s;
    HeldDriver driver("driver");
    s.sut.addDriverPort("A", &driver);
    auto sending = std::async(std::launch::async, [&] { s.sut.dispatchFID("A.x", FIDParameterList()); });
    driver.entered.get_future().wait();
    auto replacing = std::async(std::launch::async, [&] { s.sut.addDriverPort("A", nullptr); });
    EXPECT_TRUE(eventually([&] { return !s.sut.subscribe("A.x"); }));
    driver.leave.set_value();
    replacing.wait();
    sending.wait();
}

TEST(MDMFidDistributor, DriverMayDispatchFromInsideItsOwnFid) {
    struct Relay : RecordingFunctionID {
        explicit Relay(MDMFidDistributor& hub) : RecordingFunctionID("relay"), m_hub(hub) {}
        bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
            RecordingFunctionID::sendFID(fid, parameters);
            m_hub.dispatchFID("B.y", parameters);
            return true;
        }
        MDMFidDistributor& m_hub;
    };
    Hub s;
    Relay relay(s.sut);
    RecordingFunctionID driver("B");
    s.sut.addDriverPort("A", &relay);
    s.sut.addDriverPort("B", &driver);
    s.sut.dispatchFID("A.x", FIDParameterList());
    EXPECT_EQ(s.host.journal().linesOf({"relay", "B"}), (Calls{"relay sendFID x {}", "B sendFID y {}"}));
}

// Panel state.

TEST(MDMFidDistributor, StateOperationsReachTheTargetUnchanged) {
    Hub s;
    RecordingPanelState panel;
    s.sut.setPanelStateInterface(&panel);
    s.sut.setStateValue("A.a", "text");
    s.sut.setStateValueFloat("A.b", 1.5F);
    s.sut.setStateValueInt("A.c", 3);
    s.sut.setStateValueBool("A.d", true);
    s.sut.unsetStateValue("A.e");
    s.sut.triggerEvent("A.f", "now");
    EXPECT_EQ(s.calls(), (Calls{"panel setStateValue A.a text", "panel setStateValueFloat A.b 1.5",
                                "panel setStateValueInt A.c 3", "panel setStateValueBool A.d true",
                                "panel unsetStateValue A.e", "panel triggerEvent A.f now"}));
}

TEST(MDMFidDistributor, StateOperationsWithoutATargetDoNothing) {
    Hub s;
    s.sut.setStateValue("A.a", "text");
    s.sut.setStateValueFloat("A.b", 1.5F);
    s.sut.setStateValueInt("A.c", 3);
    s.sut.setStateValueBool("A.d", true);
    s.sut.unsetStateValue("A.e");
    s.sut.triggerEvent("A.f", "now");
    EXPECT_EQ(s.calls(), Calls{});
}

// Interfaces and construction.

TEST(MDMFidDistributor, AnswersItsThreeInterfaces) {
    Hub s;
    EXPECT_EQ(dynamic_cast<IFunctionID*>(s.sut.queryInterface(1100)), static_cast<IFunctionID*>(&s.sut));
    EXPECT_EQ(dynamic_cast<IPanelState*>(s.sut.queryInterface(1101)), static_cast<IPanelState*>(&s.sut));
    EXPECT_EQ(dynamic_cast<IDistributorFID*>(s.sut.queryInterface(1106)),
              static_cast<IDistributorFID*>(&s.sut));
}

TEST(MDMFidDistributor, AnswersNoOtherIdentifier) {
    Hub s;
    for (unsigned int id : {0u, 1012u, 1102u, 1103u, 1104u, 1105u, 1107u, 1109u, 1201u})
        EXPECT_EQ(s.sut.queryInterface(id), nullptr) << id;
}

TEST(MDMFidDistributor, SystemInterfaceIsHeldAndNullAtFirst) {
    Hub s;
    RecordingSystem system;
    EXPECT_EQ(s.sut.getSystemInterface(), nullptr);
    s.sut.setSystemInterface(&system);
    EXPECT_EQ(s.sut.getSystemInterface(), static_cast<ISystem*>(&system));
}

TEST(MDMFidDistributor, AsksForTheLogOutputOnce) {
    fakehost::FakeHost host;
    const MDMFidDistributor sut;
    EXPECT_EQ(host.journal().lines(), Calls{"getLogOutput MDM"});
}

TEST(MDMFidDistributor, MissingLogManagerEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            fakehost::FakeHost host;
            host.removeLogManager();
            const MDMFidDistributor sut;
        },
        "assertion failed: s_pInstance\n");
}

TEST(MDMFidDistributor, MissingLogOutputEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            fakehost::FakeHost host;
            host.fail("getLogOutput MDM");
            const MDMFidDistributor sut;
        },
        "assertion failed: m_pLog\n");
}

TEST(MDMFidDistributor, SegmentPointersAreClassesThatMayBeDeletedThroughTheirBase) {
    auto pSegment = std::make_unique<TestSegmentPointer>();
    pSegment->pointAt("A.x");
    std::unique_ptr<SegmentPointerBase> pSut = std::move(pSegment);
    pSut.reset();
    EXPECT_TRUE(std::has_virtual_destructor_v<SegmentPointerBase>);
    EXPECT_EQ(sizeof(FIDSegmentPointer), 2 * sizeof(void*));
}

// Console commands.

TEST(MDMFidDistributor, SetStateValueCommandPassesBothArgumentsOn) {
    Hub s;
    RecordingPanelState panel;
    s.sut.setPanelStateInterface(&panel);
    EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdSetStateValue, {"PANEL.LAMP", "1"}));
    EXPECT_EQ(s.calls(), Calls{"panel setStateValue PANEL.LAMP 1"});
}

TEST(MDMFidDistributor, UnsetStateValueCommandPassesTheKeyOn) {
    Hub s;
    RecordingPanelState panel;
    s.sut.setPanelStateInterface(&panel);
    EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdUnsetStateValue, {"PANEL.LAMP"}));
    EXPECT_EQ(s.calls(), Calls{"panel unsetStateValue PANEL.LAMP"});
}

TEST(MDMFidDistributor, TriggerEventCommandPassesBothArgumentsOn) {
    Hub s;
    RecordingPanelState panel;
    s.sut.setPanelStateInterface(&panel);
    EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdTriggerEvent, {"PANEL.ALARM", "hot"}));
    EXPECT_EQ(s.calls(), Calls{"panel triggerEvent PANEL.ALARM hot"});
}

TEST(MDMFidDistributor, StateCommandsWithoutArgumentsPassEmptyTextsAndSucceed) {
    Hub s;
    RecordingPanelState panel;
    s.sut.setPanelStateInterface(&panel);
    EXPECT_EQ(fakehost::printedBy([&] {
                  EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdSetStateValue, {}));
                  EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdUnsetStateValue, {}));
                  EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdTriggerEvent, {}));
              }),
              "");
    EXPECT_EQ(s.calls(), (Calls{"panel setStateValue  ", "panel unsetStateValue ", "panel triggerEvent  "}));
}

TEST(MDMFidDistributor, StateCommandsLookAtNoFurtherArguments) {
    Hub s;
    RecordingPanelState panel;
    s.sut.setPanelStateInterface(&panel);
    EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdSetStateValue, {"a", "1", "2"}));
    EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdUnsetStateValue, {"a", "1"}));
    EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdTriggerEvent, {"e", "1", "2"}));
    EXPECT_EQ(s.calls(),
              (Calls{"panel setStateValue a 1", "panel unsetStateValue a", "panel triggerEvent e 1"}));
}

TEST(MDMFidDistributor, StateCommandsWithoutATargetAreSilentAndSucceed) {
    Hub s;
    EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdSetStateValue, {"a", "1"}));
    EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdUnsetStateValue, {"a"}));
    EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdTriggerEvent, {"a", "1"}));
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMFidDistributor, SendFidCommandAlonePrintsItsUsageAndFails) {
    Hub s;
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_FALSE(s.command(&MDMFidDistributor::shellCmdSendFID, {})); }),
              "Usage: sendFID <FID> [<parameter name>=<parameter value> [...]]\n");
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMFidDistributor, SendFidCommandWithAFidAloneSendsNoParameters) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE"}), Calls{"A sendFID MOVE {}"});
}

TEST(MDMFidDistributor, SendFidCommandTakesEveryFormOfAParameter) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "x=1", "y=", "2", "z", "3", "w", "=4"}),
              Calls{"A sendFID MOVE {x=1, y=2, z=3, w=4}"});
}

TEST(MDMFidDistributor, SendFidCommandTakesALoneEqualsSignBetweenNameAndValue) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "a", "=", "5", "b", "=", "6"}), Calls{"A sendFID MOVE {a=5, b=6}"});
}

TEST(MDMFidDistributor, SendFidCommandKeepsFurtherEqualsSignsInTheValue) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "a=b=c"}), Calls{"A sendFID MOVE {a=b=c}"});
}

TEST(MDMFidDistributor, SendFidCommandSplitsAtTheFirstEqualsSign) {
    Hub s;
    RecordingMacroSystem unused;
    EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdSendFID, {"A.MOVE", "a=b=", "next"}));
    EXPECT_EQ(s.calls().front(), "log MDM 5: MDM: A.MOVE ( a=b=, next=) received.");
}

TEST(MDMFidDistributor, SendFidCommandTakesALoneEqualsSignAsTheEmptyName) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "=", "5"}), Calls{"A sendFID MOVE {=5}"});
}

TEST(MDMFidDistributor, SendFidCommandTakesALeadingEqualsSignAsTheEmptyName) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "=5"}), Calls{"A sendFID MOVE {=5}"});
}

TEST(MDMFidDistributor, SendFidCommandKeepsEqualsSignsInsideASeparateValue) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "a", "b=c"}), Calls{"A sendFID MOVE {a=b=c}"});
}

TEST(MDMFidDistributor, SendFidCommandDropsOneLeadingEqualsSignOfASeparateValue) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "a", "==5"}), Calls{"A sendFID MOVE {a==5}"});
}

TEST(MDMFidDistributor, SendFidCommandTakesTheValueBehindNameEqualsAsItIs) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "a=", "=5"}), Calls{"A sendFID MOVE {a==5}"});
}

TEST(MDMFidDistributor, SendFidCommandGivesANameAtTheEndTheEmptyValue) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "a"}), Calls{"A sendFID MOVE {a=}"});
    EXPECT_EQ(s.sentBy({"A.MOVE", "a="}), Calls{"A sendFID MOVE {a=}"});
    EXPECT_EQ(s.sentBy({"A.MOVE", "a", "="}), Calls{"A sendFID MOVE {a=}"});
}

TEST(MDMFidDistributor, SendFidCommandTakesWhatStandsBehindALoneEqualsSignAsItIs) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "a", "=", "=5"}), Calls{"A sendFID MOVE {a==5}"});
    EXPECT_EQ(s.sentBy({"A.MOVE", "a", "=", "="}), Calls{"A sendFID MOVE {a==}"});
}

TEST(MDMFidDistributor, SendFidCommandTakesEmptyArgumentsAsNamesAndValues) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "", "5"}), Calls{"A sendFID MOVE {=5}"});
    EXPECT_EQ(s.sentBy({"A.MOVE", "a", "", "b", "6"}), Calls{"A sendFID MOVE {a=, b=6}"});
    EXPECT_EQ(s.sentBy({"A.MOVE", "a=", "", "b=6"}), Calls{"A sendFID MOVE {a=, b=6}"});
}

TEST(MDMFidDistributor, SendFidCommandSendsAlsoWhatIsRoutedNowhere) {
    Hub s;
    EXPECT_EQ(fakehost::printedBy([&] {
                  EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdSendFID, {"NODOT", "a=5"}));
              }),
              "");
    EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdSendFID, {""}));
    EXPECT_EQ(s.calls(), (Calls{"log MDM 5: MDM: NODOT ( a=5) received.", "log MDM 5: MDM:  ( ) received."}));
}

TEST(MDMFidDistributor, SendFidCommandKeepsRepeatedNames) {
    Hub s;
    EXPECT_EQ(s.sentBy({"A.MOVE", "a=1", "a=2"}), Calls{"A sendFID MOVE {a=1, a=2}"});
}

TEST(MDMFidDistributor, SendFidCommandForAnUnknownDriverPrintsNothingAndSucceeds) {
    Hub s;
    EXPECT_EQ(
        fakehost::printedBy([&] { EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdSendFID, {"NOPE.x"})); }),
        "");
    EXPECT_EQ(s.calls(),
              (Calls{"log MDM 5: MDM: NOPE.x ( ) received.", "log MDM 5: MDM:  -> but not dispatched"}));
}

TEST(MDMFidDistributor, ListDriversCommandListsThePorts) {
    Hub s;
    s.sut.addDriverPort("A", nullptr);
    EXPECT_EQ(
        fakehost::printedBy([&] { EXPECT_TRUE(s.command(&MDMFidDistributor::shellCmdListDrivers, {})); }),
        "A\n");
}

TEST(MDMFidDistributor, CommandsGoThroughTheVirtualOperations) {
    struct Derived : MDMFidDistributor {
        void setStateValue(const std::string& stateID, const std::string& value) override {
            note("setStateValue " + stateID + " " + value);
        }
        void unsetStateValue(const std::string& stateID) override { note("unsetStateValue " + stateID); }
        void triggerEvent(const std::string& eventID, const std::string& value) override {
            note("triggerEvent " + eventID + " " + value);
        }
        bool sendFID(const std::string& fid, const FIDParameterList&) const override {
            note("sendFID " + fid);
            return false;
        }
        static void note(const std::string& call) { fakehost::Journal::instance().note("derived " + call); }
    };
    fakehost::FakeHost host;
    Derived sut;
    sal::CmdParameters parameters({"A.x", "1"});
    EXPECT_TRUE(sut.shellCmdSetStateValue(parameters));
    EXPECT_TRUE(sut.shellCmdUnsetStateValue(parameters));
    EXPECT_TRUE(sut.shellCmdTriggerEvent(parameters));
    EXPECT_TRUE(sut.shellCmdSendFID(parameters));
    EXPECT_EQ(host.journal().linesOf({"derived"}),
              (Calls{"derived setStateValue A.x 1", "derived unsetStateValue A.x",
                     "derived triggerEvent A.x 1", "derived sendFID A.x"}));
}

TEST(MDMFidDistributor, UsageLineIsFlushed) {
    Hub s;
    FlushedOutput output;
    s.command(&MDMFidDistributor::shellCmdSendFID, {});
    EXPECT_EQ(output.pieces, Calls{"Usage: sendFID <FID> [<parameter name>=<parameter value> [...]]\n"});
}
