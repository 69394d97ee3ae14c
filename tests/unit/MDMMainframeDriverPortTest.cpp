#include "MDMMainframeDriverPort.h"

#include <gtest/gtest.h>

#include <future>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "RecordingFunctionID.h"
#include "RecordingPanelState.h"
#include "StandardOutput.h"

namespace {

struct Port {
    fakehost::FakeHost host;
    RecordingPanelState panel{"distributor"};
    RecordingFunctionID driver{"driver"};
    MDMMainframeDriverPort sut;

    explicit Port(const std::string& driverID = "PANEL") : sut(driverID) {
        sut.setPanelStateInterface(&panel);
        sut.setFunctionIDInterface(&driver);
    }
    std::vector<std::string> calls() { return host.journal().lines(); }
};

FIDParameterList parameters(const std::string& name, const std::string& value) {
    FIDParameterList result;
    result.add(name, value);
    return result;
}

// Driver that stays inside its call until it is let go.
class WaitingDriver : public IFunctionID {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    bool sendFID(const std::string&, const FIDParameterList&) const override {
        entered.set_value();
        leave.get_future().wait();
        fakehost::Journal::instance().note("driver left");
        return true;
    }
    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }

    mutable std::promise<void> entered;
    mutable std::promise<void> leave;
};

using Calls = std::vector<std::string>;

}  // namespace

TEST(MDMMainframeDriverPort, IntStateGetsTheDriverIDAsPrefix) {
    Port s;
    s.host.journal().clear();
    s.sut.setStateValueInt("LAMP", 3);
    EXPECT_EQ(s.calls(), Calls{"distributor setStateValueInt PANEL.LAMP 3"});
}

TEST(MDMMainframeDriverPort, EveryStateOperationReachesItsOwnCounterpart) {
    Port s("AXIS1");
    s.host.journal().clear();
    s.sut.setStateValue("a", "text");
    s.sut.setStateValueFloat("b", 1.5F);
    s.sut.setStateValueInt("c", -7);
    s.sut.setStateValueBool("d", true);
    s.sut.setStateValueBool("e", false);
    s.sut.unsetStateValue("f");
    s.sut.triggerEvent("g", "now");
    EXPECT_EQ(s.calls(),
              (Calls{"distributor setStateValue AXIS1.a text", "distributor setStateValueFloat AXIS1.b 1.5",
                     "distributor setStateValueInt AXIS1.c -7", "distributor setStateValueBool AXIS1.d true",
                     "distributor setStateValueBool AXIS1.e false", "distributor unsetStateValue AXIS1.f",
                     "distributor triggerEvent AXIS1.g now"}));
}

TEST(MDMMainframeDriverPort, DotsInAStateIDStay) {
    Port s;
    s.host.journal().clear();
    s.sut.setStateValue("A.B", "1");
    EXPECT_EQ(s.calls(), Calls{"distributor setStateValue PANEL.A.B 1"});
}

TEST(MDMMainframeDriverPort, EmptyStateIDGivesDriverIDAndDot) {
    Port s;
    s.host.journal().clear();
    s.sut.unsetStateValue("");
    EXPECT_EQ(s.calls(), Calls{"distributor unsetStateValue PANEL."});
}

TEST(MDMMainframeDriverPort, DefaultConstructedPortHasAnEmptyDriverID) {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    MDMMainframeDriverPort sut;
    sut.setPanelStateInterface(&panel);
    host.journal().clear();
    sut.setStateValue("LAMP", "1");
    EXPECT_EQ(host.journal().lines(), Calls{"panel setStateValue .LAMP 1"});
}

TEST(MDMMainframeDriverPort, StateOperationsWithoutATargetDoNothing) {
    Port s;
    s.sut.setPanelStateInterface(nullptr);
    s.host.journal().clear();
    s.sut.setStateValue("a", "text");
    s.sut.setStateValueFloat("b", 1.5F);
    s.sut.setStateValueInt("c", -7);
    s.sut.setStateValueBool("d", true);
    s.sut.unsetStateValue("f");
    s.sut.triggerEvent("g", "now");
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMMainframeDriverPort, FreshPortIsWiredToNothing) {
    fakehost::FakeHost host;
    MDMMainframeDriverPort sut("PANEL");
    host.journal().clear();
    sut.setStateValue("a", "text");
    EXPECT_FALSE(sut.sendFID("KEY", FIDParameterList()));
    EXPECT_EQ(host.journal().lines(), Calls{});
}

TEST(MDMMainframeDriverPort, FidReachesTheDriverUnchanged) {
    Port s;
    s.host.journal().clear();
    s.sut.sendFID("KEY.F1", parameters("a", "5"));
    EXPECT_EQ(s.calls(), Calls{"driver sendFID KEY.F1 {a=5}"});
}

TEST(MDMMainframeDriverPort, SubscriptionReachesTheDriverUnchanged) {
    Port s;
    s.host.journal().clear();
    s.sut.subscribe("KEY.F1");
    EXPECT_EQ(s.calls(), Calls{"driver subscribe KEY.F1"});
}

TEST(MDMMainframeDriverPort, ResultsOfTheDriverAreHandedBack) {
    fakehost::FakeHost host;
    RecordingFunctionID willing("willing", true);
    RecordingFunctionID refusing("refusing", false);
    MDMMainframeDriverPort sut("A");
    sut.setFunctionIDInterface(&willing);
    EXPECT_TRUE(sut.sendFID("KEY", FIDParameterList()));
    EXPECT_TRUE(sut.subscribe("KEY"));
    sut.setFunctionIDInterface(&refusing);
    EXPECT_FALSE(sut.sendFID("KEY", FIDParameterList()));
    EXPECT_FALSE(sut.subscribe("KEY"));
}

TEST(MDMMainframeDriverPort, MissingEndpointSwallowsFidAndSubscription) {
    Port s;
    s.sut.setFunctionIDInterface(nullptr);
    s.host.journal().clear();
    EXPECT_FALSE(s.sut.sendFID("KEY", FIDParameterList()));
    EXPECT_FALSE(s.sut.subscribe("KEY"));
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMMainframeDriverPort, ShowStatePrintsNothingAndAsksNobody) {
    Port s;
    s.host.journal().clear();
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_TRUE(s.sut.showState()); }), "");
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMMainframeDriverPort, ShowPortStatePrintsTheDriverIDAndThenAsksTheDriver) {
    Port s;
    s.host.journal().clear();
    {
        fakehost::StandardOutput output;
        output.intoJournal();
        s.sut.showPortState();
        output.journalNow();
    }
    EXPECT_EQ(s.calls(), (Calls{"stdout PANEL\\0a", "driver showState"}));
}

TEST(MDMMainframeDriverPort, ShowPortStateFlushesItsLine) {
    Port s;
    fakehost::StandardOutput output;
    s.sut.showPortState();
    const std::string flushed = output.flushed();
    EXPECT_EQ(flushed, "PANEL\n");
}

TEST(MDMMainframeDriverPort, ShowPortStateWithoutEndpointPrintsTheDriverIDAlone) {
    Port s;
    s.sut.setFunctionIDInterface(nullptr);
    s.host.journal().clear();
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.showPortState(); }), "PANEL\n");
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMMainframeDriverPort, AnswersPanelState) {
    Port s;
    EXPECT_EQ(dynamic_cast<IPanelState*>(s.sut.queryInterface(1101)), static_cast<IPanelState*>(&s.sut));
}

TEST(MDMMainframeDriverPort, DoesNotAnswerFunctionIDThoughItImplementsIt) {
    Port s;
    EXPECT_EQ(s.sut.queryInterface(1100), nullptr);
}

TEST(MDMMainframeDriverPort, AnswersNoOtherIdentifier) {
    Port s;
    for (unsigned int id : {0u, 1012u, 1102u, 1103u, 1104u, 1105u, 1106u, 1107u, 1109u, 1201u})
        EXPECT_EQ(s.sut.queryInterface(id), nullptr) << id;
}

TEST(MDMMainframeDriverPort, DestructionLeavesDriverAndTargetAlone) {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    RecordingFunctionID driver("driver");
    auto pSut = std::make_unique<MDMMainframeDriverPort>("A");
    pSut->setPanelStateInterface(&panel);
    pSut->setFunctionIDInterface(&driver);
    host.journal().clear();
    pSut.reset();
    EXPECT_EQ(host.journal().lines(), Calls{});
}

TEST(MDMMainframeDriverPort, ReleasedEndpointSwallowsWhatComesLater) {
    Port s;
    s.sut.releaseFunctionID();
    s.host.journal().clear();
    EXPECT_FALSE(s.sut.sendFID("KEY", FIDParameterList()));
    EXPECT_FALSE(s.sut.subscribe("KEY"));
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMMainframeDriverPort, ReleaseWaitsForTheCallInside) {
    fakehost::FakeHost host;
    WaitingDriver driver;
    MDMMainframeDriverPort sut("A");
    sut.setFunctionIDInterface(&driver);
    auto sending = std::async(std::launch::async, [&] { sut.sendFID("KEY", FIDParameterList()); });
    driver.entered.get_future().wait();
    auto releasing = std::async(std::launch::async, [&] {
        sut.releaseFunctionID();
        host.journal().note("released");
    });
    EXPECT_EQ(releasing.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    driver.leave.set_value();
    releasing.wait();
    sending.wait();
    EXPECT_EQ(host.journal().linesOf({"driver", "released"}), (Calls{"driver left", "released"}));
}
