#include "MDMDriverIPCI.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <future>
#include <map>
#include <memory>
#include <thread>
#include <utility>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "HangGuard.h"
#include "MfDriverManager.h"
#include "RecordingDistributorFID.h"
#include "RecordingPanelState.h"
#include "RecordingSystem.h"
#include "StandardOutput.h"

namespace {

using Calls = std::vector<std::string>;
using namespace std::string_literals;

struct Proxy {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    RecordingDistributorFID distributor;
    RecordingSystem system;
    std::unique_ptr<MDMDriverIPCI> pSut = std::make_unique<MDMDriverIPCI>("/mods/libA.so", "A");
    MDMDriverIPCI& sut = *pSut;

    Proxy() {
        g_debugStartMFDProcess = true;
        sut.setPanelStateInterface(&panel);
        sut.setDistributorFIDInterface(&distributor);
        sut.setSystemInterface(&system);
    }
    ~Proxy() { g_debugStartMFDProcess = true; }

    /// Starts the proxy; what it prints is told by other tests.
    void start() {
        fakehost::printedBy([&] { EXPECT_TRUE(sut.init()); });
    }
    /// Starts the proxy and returns once its thread waits for messages.
    void startIdle() {
        host.queues().noteReceives(true);
        start();
        EXPECT_TRUE(host.journal().waitFor("queue receive A_OUTQ 1000"));
    }
    /// Whether the thread body returns by itself when it is called while the proxy is running.
    bool bodyEnds() {
        auto body = std::async(std::launch::async, [this] { sut.run(); });
        const bool ended = body.wait_for(c_hangGuard) == std::future_status::ready;
        sut.deinitialize();
        return ended;
    }
    void push(const std::string& message) { host.queues().push("A_OUTQ", message); }
    /// Waits until everything pushed so far has been delivered, and gives what was delivered.
    Calls delivered() {
        push(
            "TRIGGR\x03"
            "end\x00"s);
        EXPECT_TRUE(host.journal().waitFor("panel triggerEvent end "));
        Calls result = host.journal().linesOf({"panel", "distributor", "system"});
        if (!result.empty())
            result.pop_back();
        return result;
    }
    /// What a burst of messages that stands in the queue at the start delivers.
    Calls deliveredFrom(const std::vector<std::string>& messages) {
        for (const std::string& message : messages)
            push(message);
        push(
            "TRIGGR\x03"
            "end\x00"s);
        start();
        EXPECT_TRUE(host.journal().waitFor("panel triggerEvent end "));
        Calls result = host.journal().linesOf({"panel", "distributor", "system"});
        if (!result.empty())
            result.pop_back();
        return result;
    }
    /// The only message that the driver has been sent.
    std::string sent() {
        const auto messages = host.queues().messages("A_INQ");
        EXPECT_EQ(messages.size(), 1u);
        return messages.empty() ? std::string() : messages.front();
    }
};

std::string text(const std::string& value) {
    return std::string(1, static_cast<char>(value.size())) + value;
}

template <class Number>
std::string bytes(Number value) {
    std::string result(sizeof value, '\0');
    std::memcpy(result.data(), &value, sizeof value);
    return result;
}

MDMDriverIPCI::QueueCmd command(int kind, const std::string& name, const std::string& value = std::string()) {
    MDMDriverIPCI::QueueCmd result;
    result.cmdType = kind;
    result.name = name;
    result.strValue = value;
    return result;
}

// Stays inside the first event until it is let go.
class WaitingPanel : public RecordingPanelState {
public:
    void triggerEvent(const std::string& eventID, const std::string& value) override {
        RecordingPanelState::triggerEvent(eventID, value);
        if (std::exchange(m_isFirst, false)) {
            entered.set_value();
            leave.get_future().wait();
        }
    }

    std::promise<void> entered;
    std::promise<void> leave;

private:
    bool m_isFirst = true;
};

// Stays inside the first command until it is let go.
class WaitingSystem : public ISystem {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void executeCommand(const std::string&, const std::string&) override {
        entered.set_value();
        leave.get_future().wait();
    }

    std::promise<void> entered;
    std::promise<void> leave;
};

}  // namespace

// What the driver is sent.

TEST(MDMDriverIPCI, ConfigurationIsNumberAndSixTexts) {
    Proxy s;
    s.start();
    EXPECT_TRUE(s.sut.setConfiguration(2, "A", "data/A", "192.0.2.20", "eth0", "192.0.2.10", "/wp/nvram/A"));
    EXPECT_EQ(s.sent(),
              "SETCFG\x02\x00\x00\x00\x01"
              "A\x06"
              "data/A\x0a"
              "192.0.2.20\x04"
              "eth0\x0a"
              "192.0.2.10\x0b"
              "/wp/nvram/A"s);
}

TEST(MDMDriverIPCI, NegativeWorkplaceIsTwosComplement) {
    Proxy s;
    s.start();
    s.sut.setConfiguration(-2, "", "", "", "", "", "");
    EXPECT_EQ(s.sent(), "SETCFG\xfe\xff\xff\xff\x00\x00\x00\x00\x00\x00"s);
}

TEST(MDMDriverIPCI, ConfigurationWaitsASecondBeforeItIsSent) {
    Proxy s;
    s.start();
    s.host.journal().clear();
    s.sut.setConfiguration(0, "", "", "", "", "", "");
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"thread sleep 1",
                     "queue send A_INQ SETCFG\\00\\00\\00\\00\\00\\00\\00\\00\\00\\00 timeout -1"}));
}

TEST(MDMDriverIPCI, ConfigurationTextsOf1008BytesFit) {
    Proxy s;
    s.start();
    const std::string part(252, 'x');
    EXPECT_TRUE(s.sut.setConfiguration(0, part, part, part, part, "", ""));
    EXPECT_EQ(s.sent().size(), 1024u);
    EXPECT_TRUE(s.sent().ends_with(part + "\x00\x00"s));
}

TEST(MDMDriverIPCI, ConfigurationTextsBeyond1008BytesAreNotSent) {
    Proxy s;
    s.start();
    const std::string part(252, 'x');
    EXPECT_FALSE(s.sut.setConfiguration(0, part, part, part, part, "y", ""));
    EXPECT_EQ(s.host.queues().messages("A_INQ"), Calls{});
}

TEST(MDMDriverIPCI, ConfigurationTextsFarBeyondTheBufferAreNotSent) {
    Proxy s;
    s.start();
    const std::string part(255, 'x');
    EXPECT_FALSE(s.sut.setConfiguration(0, part, part, part, part, part, part));
    EXPECT_EQ(s.host.queues().messages("A_INQ"), Calls{});
}

TEST(MDMDriverIPCI, SubscriptionIsItsName) {
    Proxy s;
    s.start();
    EXPECT_TRUE(s.sut.subscribe("MOVE"));
    EXPECT_EQ(s.sent(), "SUBSCR\x04MOVE");
}

TEST(MDMDriverIPCI, SubscriptionOf255BytesIs262BytesLong) {
    Proxy s;
    s.start();
    const std::string name(255, 'n');
    EXPECT_TRUE(s.sut.subscribe(name));
    EXPECT_EQ(s.sent(), "SUBSCR\xff" + name);
    EXPECT_EQ(s.sent().size(), 262u);
}

TEST(MDMDriverIPCI, TextOf256BytesIsCutToNothing) {
    Proxy s;
    s.start();
    s.sut.subscribe(std::string(256, 'n'));
    EXPECT_EQ(s.sent(), "SUBSCR\x00"s);
}

TEST(MDMDriverIPCI, LongerTextIsCutToItsLengthModulo256) {
    Proxy s;
    s.start();
    s.sut.subscribe("abcd" + std::string(256, 'n'));
    EXPECT_EQ(s.sent(),
              "SUBSCR\x04"
              "abcd");
}

TEST(MDMDriverIPCI, FidIsItsNameAndTheParameters) {
    Proxy s;
    s.start();
    FIDParameterList parameters;
    parameters.add("x", "12");
    parameters.add("", "y");
    EXPECT_TRUE(s.sut.sendFID("MOVE", parameters));
    EXPECT_EQ(s.sent(),
              "SNDFDP\x04MOVE\x02\x01x\x02"
              "12\x00\x01y"s);
}

TEST(MDMDriverIPCI, FidWithoutParametersHasACountOfZero) {
    Proxy s;
    s.start();
    EXPECT_TRUE(s.sut.sendFID("", FIDParameterList()));
    EXPECT_EQ(s.sent(), "SNDFDP\x00\x00"s);
}

TEST(MDMDriverIPCI, ParametersThatDoNotFitAreLeftOutWhole) {
    Proxy s;
    s.start();
    FIDParameterList parameters;
    for (const char* name : {"a", "b", "c", "d", "e"})
        parameters.add(name, std::string(250, 'v'));
    EXPECT_TRUE(s.sut.sendFID("MOVE", parameters));
    const std::string sent = s.sent();
    EXPECT_EQ(sent.size(), 1024u);
    EXPECT_TRUE(
        sent.starts_with("SNDFDP\x04MOVE\x04\x01"
                         "a\xfa"s))
        << fakehost::escaped(sent);
}

TEST(MDMDriverIPCI, RoomForParametersIsCountedFromTheCutName) {
    Proxy s;
    s.start();
    FIDParameterList parameters;
    for (const char* name : {"a", "b", "c", "d"})
        parameters.add(name, std::string(250, 'v'));
    EXPECT_TRUE(s.sut.sendFID("MOVE" + std::string(256, 'n'), parameters));
    EXPECT_EQ(s.sent().size(), 1024u);
}

TEST(MDMDriverIPCI, FidListRequestIsItsCode) {
    Proxy s;
    s.start();
    EXPECT_TRUE(s.sut.createFIDList());
    EXPECT_EQ(s.sent(), "CRTFID");
}

TEST(MDMDriverIPCI, InitializationCompletedIsItsCode) {
    Proxy s;
    s.start();
    EXPECT_TRUE(s.sut.initializationCompleted());
    EXPECT_EQ(s.sent(), "INTCMP");
}

TEST(MDMDriverIPCI, ShowStateIsItsCodeAndPrintsNothing) {
    Proxy s;
    s.start();
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_TRUE(s.sut.showState()); }), "");
    EXPECT_EQ(s.sent(), "SHOWST");
}

TEST(MDMDriverIPCI, DeinitializeIsItsCode) {
    Proxy s;
    s.start();
    EXPECT_TRUE(s.sut.deinitialize());
    EXPECT_EQ(s.sent(), "DEINIT");
}

TEST(MDMDriverIPCI, EverythingIsSentWithoutATimeLimit) {
    Proxy s;
    s.start();
    s.host.journal().clear();
    s.sut.subscribe("x");
    s.sut.sendFID("x", FIDParameterList());
    s.sut.createFIDList();
    s.sut.initializationCompleted();
    s.sut.showState();
    s.sut.deinitialize();
    EXPECT_EQ(s.host.journal().linesOf({"queue send"}),
              (Calls{"queue send A_INQ SUBSCR\\01x timeout -1", "queue send A_INQ SNDFDP\\01x\\00 timeout -1",
                     "queue send A_INQ CRTFID timeout -1", "queue send A_INQ INTCMP timeout -1",
                     "queue send A_INQ SHOWST timeout -1", "queue send A_INQ DEINIT timeout -1"}));
}

TEST(MDMDriverIPCI, FullQueueMakesASenderWait) {
    Proxy s;
    s.start();
    for (int index = 0; index < 256; ++index)
        s.sut.showState();
    std::thread sender([&] {
        s.sut.subscribe("late");
        s.host.journal().note("sent");
    });
    EXPECT_TRUE(s.host.journal().waitFor("queue send A_INQ SUBSCR\\04late timeout -1"));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(s.host.journal().count("sent"), 0);
    s.host.queues().take("A_INQ");
    EXPECT_TRUE(s.host.journal().waitFor("sent"));
    sender.join();
    EXPECT_EQ(s.host.queues().messages("A_INQ").back(), "SUBSCR\x04late");
}

TEST(MDMDriverIPCI, RefusalOfTheQueueIsHandedBack) {
    Proxy s;
    s.start();
    s.host.fail("queue send A_INQ");
    EXPECT_FALSE(s.sut.setConfiguration(0, "", "", "", "", "", ""));
    EXPECT_FALSE(s.sut.subscribe("x"));
    EXPECT_FALSE(s.sut.sendFID("x", FIDParameterList()));
    EXPECT_FALSE(s.sut.createFIDList());
    EXPECT_FALSE(s.sut.initializationCompleted());
    EXPECT_FALSE(s.sut.showState());
    EXPECT_FALSE(s.sut.deinitialize());
}

TEST(MDMDriverIPCI, SendingBeforeInitFails) {
    Proxy s;
    EXPECT_FALSE(s.sut.subscribe("x"));
    EXPECT_FALSE(s.sut.deinitialize());
}

TEST(MDMDriverIPCI, SendersOfSeveralThreadsDeliverWholeMessages) {
    Proxy s;
    s.start();
    std::thread other([&] {
        for (int index = 0; index < 100; ++index)
            s.sut.subscribe("x");
    });
    for (int index = 0; index < 100; ++index)
        s.sut.subscribe("longer");
    other.join();
    const auto messages = s.host.queues().messages("A_INQ");
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "SUBSCR\x01x"), 100);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "SUBSCR\x06longer"), 100);
}

// What the driver sends.

TEST(MDMDriverIPCI, EachStateMessageReachesItsOperation) {
    Proxy s;
    EXPECT_EQ(
        s.deliveredFrom({"SETVAL\x01"
                         "a\x04text"s,
                         "SETVAF\x01"
                         "b" +
                             bytes(1.5F),
                         "SETVAI\x01"
                         "c" +
                             bytes(-7),
                         "SETVAB\x01"
                         "d\x01"s,
                         "SETVAB\x01"
                         "e\x00"s,
                         "UNSVAL\x01"
                         "f"s,
                         "TRIGGR\x01g\x03now"s}),
        (Calls{"panel setStateValue a text", "panel setStateValueFloat b 1.5", "panel setStateValueInt c -7",
               "panel setStateValueBool d true", "panel setStateValueBool e false", "panel unsetStateValue f",
               "panel triggerEvent g now"}));
}

TEST(MDMDriverIPCI, IntMessageIsReadInTheMachinesByteOrder) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAI\x01x\x01\x00\x00\x00"s}), Calls{"panel setStateValueInt x 1"});
}

TEST(MDMDriverIPCI, EmptyNameAndValueAreDelivered) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAL\x00\x00"s}), Calls{"panel setStateValue  "});
}

TEST(MDMDriverIPCI, EveryByteButZeroIsTrue) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAB\x01x\x80"s}), Calls{"panel setStateValueBool x true"});
}

TEST(MDMDriverIPCI, TextEndsAtAZeroByteAndTheNextFieldIsStillFound) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAL\x04"
                               "ab\x00"
                               "c\x03"
                               "d\x00"
                               "e"s}),
              Calls{"panel setStateValue ab d"});
}

TEST(MDMDriverIPCI, TextOf255BytesIsReadWhole) {
    Proxy s;
    const std::string name(255, 'n');
    EXPECT_EQ(s.deliveredFrom({"UNSVAL\xff" + name}), Calls{"panel unsetStateValue " + name});
}

TEST(MDMDriverIPCI, FidIsDispatchedWithItsParametersInOrder) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"DSPFID\x06"
                               "B.MOVE\x02\x01x\x02"
                               "12\x01x\x00"s}),
              Calls{"distributor dispatchFID B.MOVE {x=12, x=}"});
}

TEST(MDMDriverIPCI, FidWithCountZeroIsDispatchedWithoutParameters) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"DSPFID\x03"
                               "B.x\x00"s}),
              Calls{"distributor dispatchFID B.x {}"});
}

TEST(MDMDriverIPCI, ParametersOfOneFidDoNotReachTheNext) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"DSPFID\x03"
                               "B.x\x01\x01"
                               "a\x01"
                               "1"s,
                               "DSPFID\x03"
                               "B.y\x00"s}),
              (Calls{"distributor dispatchFID B.x {a=1}", "distributor dispatchFID B.y {}"}));
}

TEST(MDMDriverIPCI, SystemCommandIsHandedOnWithBothTexts) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SYSCMD\x04save\x03now"s}), Calls{"system executeCommand save now"});
}

TEST(MDMDriverIPCI, UnknownCodeChangesNothing) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAX\x01"
                               "a\x01"
                               "1"s,
                               "setval\x01"
                               "a\x01"
                               "1"s,
                               "NONSENSE"}),
              Calls{});
}

TEST(MDMDriverIPCI, MessageShorterThanACodeChangesNothing) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"", "SETVA"}), Calls{});
}

TEST(MDMDriverIPCI, ShortMessageIsNotCompletedByTheOneBefore) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAL\x04name\x05value"s, "TRIGGR",
                               "SYSCMD\x03"
                               "ab"s}),
              (Calls{"panel setStateValue name value", "panel triggerEvent  ", "system executeCommand ab "}));
}

TEST(MDMDriverIPCI, FieldThatWouldCrossTheBuffersEndIsEmpty) {
    Proxy s;
    const std::string value(250, 'v');
    std::string message = "DSPFID" + text("B.x") + "\x04";
    for (const char* name : {"a", "b", "c"})
        message += text(name) + text(value);
    message += text("d") + "\xff";
    message.resize(1024, 'w');
    EXPECT_EQ(s.deliveredFrom({message}),
              Calls{"distributor dispatchFID B.x {a=" + value + ", b=" + value + ", c=" + value + ", d=}"});
}

TEST(MDMDriverIPCI, LongestMessageIsReceivedToItsLastByte) {
    Proxy s;
    const std::string value(250, 'v');
    const std::string last = std::string(248, 'w') + "!";
    std::string message = "DSPFID" + text("B.xyz") + "\x04";
    for (const char* name : {"a", "b", "c"})
        message += text(name) + text(value);
    message += text("d") + text(last);
    ASSERT_EQ(message.size(), 1024u);
    EXPECT_EQ(s.deliveredFrom({message}), Calls{"distributor dispatchFID B.xyz {a=" + value + ", b=" + value +
                                                ", c=" + value + ", d=" + last + "}"});
}

TEST(MDMDriverIPCI, CountBeyondTheBufferGivesEmptyPairs) {
    Proxy s;
    std::string message = "DSPFID" + text("B.x") + "\xff";
    message.resize(1024, '\xff');
    const Calls calls = s.deliveredFrom({message});
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_TRUE(calls.front().starts_with("distributor dispatchFID B.x {"));
}

TEST(MDMDriverIPCI, FidWithoutADistributorIsDropped) {
    Proxy s;
    s.start();
    s.sut.setDistributorFIDInterface(nullptr);
    s.push(
        "DSPFID\x03"
        "B.x\x00"s);
    EXPECT_EQ(s.delivered(), Calls{});
}

TEST(MDMDriverIPCI, FidWithoutADistributorStillDeliversTheUpdatesBeforeIt) {
    Proxy s;
    s.start();
    s.sut.setDistributorFIDInterface(nullptr);
    s.push("SETVAI\x01x" + bytes(1));
    s.push(
        "DSPFID\x03"
        "B.x\x00"s);
    s.push("SETVAI\x01x" + bytes(2));
    EXPECT_EQ(s.delivered(), (Calls{"panel setStateValueInt x 1", "panel setStateValueInt x 2"}));
}

// The look-ahead queue.

TEST(MDMDriverIPCI, NewestOfSeveralUpdatesOfABurstIsDelivered) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAI\x01x" + bytes(1), "SETVAI\x01x" + bytes(2), "SETVAI\x01x" + bytes(3)}),
              Calls{"panel setStateValueInt x 3"});
}

TEST(MDMDriverIPCI, UpdatesOfEachKindAreMerged) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAF\x01x" + bytes(1.5F), "SETVAF\x01x" + bytes(2.5F), "SETVAB\x01y\x00"s,
                               "SETVAB\x01y\x01"s, "UNSVAL\x01z"s, "UNSVAL\x01z"s}),
              (Calls{"panel setStateValueFloat x 2.5", "panel setStateValueBool y true",
                     "panel unsetStateValue z"}));
}

TEST(MDMDriverIPCI, UnknownCodeDoesNotEndABurst) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAI\x01x" + bytes(1), "NONSENSE", "SETVAI\x01x" + bytes(2)}),
              Calls{"panel setStateValueInt x 2"});
}

TEST(MDMDriverIPCI, EmptyMessageDoesNotEndABurst) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAI\x01x" + bytes(1), "", "SETVAI\x01x" + bytes(2)}),
              Calls{"panel setStateValueInt x 2"});
}

TEST(MDMDriverIPCI, UpdatesOfDifferentKindsAreBothDeliveredInOrder) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAL\x01x\x01"
                               "1"s,
                               "SETVAI\x01x" + bytes(2)}),
              (Calls{"panel setStateValue x 1", "panel setStateValueInt x 2"}));
}

TEST(MDMDriverIPCI, SetAndUnsetAreNotMerged) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAL\x01x\x01"
                               "1"s,
                               "UNSVAL\x01x"s,
                               "SETVAL\x01x\x01"
                               "2"s}),
              (Calls{"panel unsetStateValue x", "panel setStateValue x 2"}));
}

TEST(MDMDriverIPCI, EventsAreNeverMerged) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"TRIGGR\x01"
                               "e\x01"
                               "1"s,
                               "TRIGGR\x01"
                               "e\x01"
                               "1"s}),
              (Calls{"panel triggerEvent e 1", "panel triggerEvent e 1"}));
}

TEST(MDMDriverIPCI, MergedUpdateStandsAtThePlaceOfTheNewest) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAL\x01"
                               "a\x01"
                               "1"s,
                               "SETVAL\x01"
                               "b\x01"
                               "2"s,
                               "SETVAL\x01"
                               "a\x01"
                               "3"s}),
              (Calls{"panel setStateValue b 2", "panel setStateValue a 3"}));
}

TEST(MDMDriverIPCI, NamesAreMergedOnlyWhenTheyAreEqualByteForByte) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAL\x01"
                               "a\x01"
                               "1"s,
                               "SETVAL\x01"
                               "A\x01"
                               "2"s,
                               "SETVAL\x02"
                               "ab\x01"
                               "3"s}),
              (Calls{"panel setStateValue a 1", "panel setStateValue A 2", "panel setStateValue ab 3"}));
}

TEST(MDMDriverIPCI, FidDoesNotOvertakeTheUpdatesBeforeIt) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAL\x01"
                               "a\x01"
                               "1"s,
                               "SETVAI\x01"
                               "b" +
                                   bytes(2),
                               "UNSVAL\x01"
                               "c"s,
                               "DSPFID\x03"
                               "B.x\x00"s,
                               "SETVAL\x01"
                               "a\x01"
                               "4"s}),
              (Calls{"panel setStateValue a 1", "panel setStateValueInt b 2", "panel unsetStateValue c",
                     "distributor dispatchFID B.x {}", "panel setStateValue a 4"}));
}

TEST(MDMDriverIPCI, SystemCommandDoesNotOvertakeTheUpdatesBeforeIt) {
    Proxy s;
    EXPECT_EQ(s.deliveredFrom({"SETVAL\x01"
                               "a\x01"
                               "1"s,
                               "SYSCMD\x01s\x00"s,
                               "SETVAL\x01"
                               "a\x01"
                               "4"s}),
              (Calls{"panel setStateValue a 1", "system executeCommand s ", "panel setStateValue a 4"}));
}

TEST(MDMDriverIPCI, UpdatesOfDifferentBurstsAreNotMerged) {
    Proxy s;
    s.start();
    s.push("SETVAI\x01x" + bytes(1));
    EXPECT_TRUE(s.host.journal().waitFor("panel setStateValueInt x 1"));
    s.push("SETVAI\x01x" + bytes(2));
    EXPECT_EQ(s.delivered(), (Calls{"panel setStateValueInt x 1", "panel setStateValueInt x 2"}));
}

TEST(MDMDriverIPCI, PendingUpdatesAreDeliveredBeforeThe301stMessageOfABurst) {
    Proxy s;
    for (int index = 0; index < 301; ++index)
        s.push("SETVAI" + text("n" + std::to_string(index)) + bytes(index));
    s.host.queues().noteReceives(true);
    s.start();
    EXPECT_TRUE(s.host.journal().waitFor("panel setStateValueInt n300 300"));
    const Calls calls = s.host.journal().linesOf({"panel", "queue receive"});
    ASSERT_GE(calls.size(), 603u);
    EXPECT_EQ(calls[0], "queue receive A_OUTQ 1000");
    for (std::size_t index = 1; index < 301; ++index)
        EXPECT_EQ(calls[index], "queue receive A_OUTQ 0") << index;
    for (std::size_t index = 0; index < 300; ++index)
        EXPECT_EQ(calls[301 + index],
                  "panel setStateValueInt n" + std::to_string(index) + " " + std::to_string(index));
    EXPECT_EQ(calls[601], "queue receive A_OUTQ 0");
    EXPECT_EQ(calls[602], "panel setStateValueInt n300 300");
}

TEST(MDMDriverIPCI, PendingUpdatesAreDeliveredBeforeTheOneThatWouldHaveReplacedOneOfThem) {
    Proxy s;
    for (int index = 0; index < 300; ++index)
        s.push("SETVAI" + text("n" + std::to_string(index)) + bytes(index));
    s.push("SETVAI" + text("n0") + bytes(7));
    s.start();
    EXPECT_TRUE(s.host.journal().waitFor("panel setStateValueInt n0 7"));
    const Calls calls = s.host.journal().linesOf({"panel"});
    EXPECT_EQ(calls.size(), 301u);
    EXPECT_EQ(calls.front(), "panel setStateValueInt n0 0");
}

TEST(MDMDriverIPCI, ThreeHundredUpdatesOfABurstAreDeliveredAtItsEnd) {
    Proxy s;
    for (int index = 0; index < 300; ++index)
        s.push("SETVAI" + text("n" + std::to_string(index)) + bytes(index));
    s.host.queues().noteReceives(true);
    s.start();
    EXPECT_TRUE(s.host.journal().waitFor("panel setStateValueInt n299 299"));
    const Calls calls = s.host.journal().linesOf({"panel", "queue receive"});
    ASSERT_GE(calls.size(), 302u);
    EXPECT_EQ(calls[300], "queue receive A_OUTQ 0");
    EXPECT_EQ(calls[301], "panel setStateValueInt n0 0");
}

TEST(MDMDriverIPCI, UpdateThatReplacedAnotherCountsOnceTowardsThe300) {
    Proxy s;
    s.push("SETVAI" + text("twice") + bytes(1));
    s.push("SETVAI" + text("n0") + bytes(0));
    s.push("SETVAI" + text("twice") + bytes(2));
    for (int index = 1; index < 298; ++index)
        s.push("SETVAI" + text("n" + std::to_string(index)) + bytes(index));
    // The 299 pending ones still wait when this one comes, so it replaces one of them.
    s.push("SETVAI" + text("n1") + bytes(7));
    s.start();
    EXPECT_TRUE(s.host.journal().waitFor("panel setStateValueInt n1 7"));
    const Calls calls = s.host.journal().linesOf({"panel"});
    EXPECT_EQ(calls.size(), 299u);
    EXPECT_EQ(calls[1], "panel setStateValueInt twice 2");
}

TEST(MDMDriverIPCI, UpdateThatReplacedAnotherStillCountsTowardsThe300) {
    Proxy s;
    s.push("SETVAI" + text("twice") + bytes(1));
    s.push("SETVAI" + text("n0") + bytes(0));
    s.push("SETVAI" + text("twice") + bytes(2));
    for (int index = 1; index < 299; ++index)
        s.push("SETVAI" + text("n" + std::to_string(index)) + bytes(index));
    // The 300 pending ones are delivered before this one is looked at.
    s.push("SETVAI" + text("n1") + bytes(7));
    s.start();
    EXPECT_TRUE(s.host.journal().waitFor("panel setStateValueInt n1 7"));
    const Calls calls = s.host.journal().linesOf({"panel"});
    EXPECT_EQ(calls.size(), 301u);
    EXPECT_EQ(calls[2], "panel setStateValueInt n1 1");
}

TEST(MDMDriverIPCI, EveryThreeHundredUpdatesOfALongBurstAreDelivered) {
    Proxy s;
    for (int index = 0; index < 600; ++index)
        s.push("SETVAI" + text("n" + std::to_string(index)) + bytes(index));
    s.push("SETVAI" + text("n300") + bytes(7));
    s.start();
    EXPECT_TRUE(s.host.journal().waitFor("panel setStateValueInt n300 7"));
    const Calls calls = s.host.journal().linesOf({"panel"});
    EXPECT_EQ(calls.size(), 601u);
    EXPECT_EQ(calls[300], "panel setStateValueInt n300 300");
}

TEST(MDMDriverIPCI, BurstThatIsLargerThanTheOneBeforeItIsMergedAsWell) {
    Proxy s;
    const auto update = [&s](const std::string& name, int value) {
        MDMDriverIPCI::QueueCmd number = command(2, name);
        number.numValue.asInt = value;
        s.sut.lookAhead(number);
    };
    Calls expected;
    for (int burst = 1; burst < 150; burst = 2 * burst + 1) {
        for (int value = 0; value < 3; ++value)
            for (int index = 0; index < burst; ++index)
                update("b" + std::to_string(burst) + "." + std::to_string(index), value);
        s.sut.flushLAQueue();
        for (int index = 0; index < burst; ++index)
            expected.push_back("panel setStateValueInt b" + std::to_string(burst) + "." +
                               std::to_string(index) + " 2");
    }
    EXPECT_EQ(s.host.journal().lines(), expected);
}

TEST(MDMDriverIPCI, WhatIsLeftAtTheEndIsReceivedWithoutAWait) {
    Proxy s;
    s.startIdle();
    s.sut.deinitialize();
    EXPECT_EQ(s.host.journal().linesOf({"queue receive"}).back(), "queue receive A_OUTQ 0");
}

TEST(MDMDriverIPCI, ReceivesWaitASecondFirstAndNotAtAllWithinABurst) {
    Proxy s;
    s.push(
        "SETVAL\x01"
        "a\x01"
        "1"s);
    s.push(
        "SETVAL\x01"
        "b\x01"
        "2"s);
    s.host.queues().noteReceives(true);
    s.start();
    EXPECT_TRUE(s.host.journal().waitFor("queue receive A_OUTQ 1000", 2));
    Calls calls = s.host.journal().linesOf({"panel", "queue receive"});
    calls.resize(6);
    EXPECT_EQ(calls,
              (Calls{"queue receive A_OUTQ 1000", "queue receive A_OUTQ 0", "queue receive A_OUTQ 0",
                     "panel setStateValue a 1", "panel setStateValue b 2", "queue receive A_OUTQ 1000"}));
}

TEST(MDMDriverIPCI, FlushDeliversOldestFirstAndEmptiesTheQueue) {
    Proxy s;
    s.sut.lookAhead(command(1, "a", "1"));
    s.sut.lookAhead(command(0, "b"));
    s.sut.flushLAQueue();
    s.sut.flushLAQueue();
    EXPECT_EQ(s.host.journal().lines(), (Calls{"panel setStateValue a 1", "panel unsetStateValue b"}));
}

TEST(MDMDriverIPCI, FlushDeliversEachKindOfCommandByItsNumber) {
    Proxy s;
    MDMDriverIPCI::QueueCmd number = command(2, "i");
    number.numValue.asInt = 7;
    s.sut.lookAhead(number);
    number = command(3, "f");
    number.numValue.asFloat = 2.5F;
    s.sut.lookAhead(number);
    number = command(4, "b");
    number.numValue.asBool = true;
    s.sut.lookAhead(number);
    s.sut.lookAhead(command(5, "e", "v"));
    s.sut.flushLAQueue();
    EXPECT_EQ(s.host.journal().lines(), (Calls{"panel setStateValueInt i 7", "panel setStateValueFloat f 2.5",
                                               "panel setStateValueBool b true", "panel triggerEvent e v"}));
}

TEST(MDMDriverIPCI, PendingCallHoldsItsFieldsInOrder) {
    const MDMDriverIPCI::QueueCmd sut;
    const auto at = [&sut](const void* pField) {
        return static_cast<const char*>(pField) - reinterpret_cast<const char*>(&sut);
    };
    EXPECT_EQ(at(&sut.name), 0);
    EXPECT_LT(at(&sut.name), at(&sut.cmdType));
    EXPECT_LT(at(&sut.cmdType), at(&sut.strValue));
    EXPECT_LT(at(&sut.strValue), at(&sut.numValue));
    EXPECT_EQ(sizeof sut.numValue, 4u);
}

TEST(MDMDriverIPCI, FlushSkipsUnknownKinds) {
    Proxy s;
    s.sut.lookAhead(command(6, "a", "1"));
    s.sut.lookAhead(command(-1, "b", "1"));
    s.sut.lookAhead(command(1, "c", "1"));
    s.sut.flushLAQueue();
    EXPECT_EQ(s.host.journal().lines(), Calls{"panel setStateValue c 1"});
}

// Start.

TEST(MDMDriverIPCI, InitMakesQueuesStartsTheThreadAndThenTheProcess) {
    Proxy s;
    {
        fakehost::StandardOutput output;
        output.intoJournal();
        EXPECT_TRUE(s.sut.init());
        output.journalNow();
    }
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"queue create A_INQ 256 1024 0", "queue create A_OUTQ 16384 1024 0", "thread start 259",
                     "stdout m_moduleFileName=/mods/libA.so\\0am_driverID=A\\0a",
                     "process start /opt/host/bin/mfddllwrap [A MFD Console] [/mods/libA.so] [A]"}));
}

TEST(MDMDriverIPCI, WrapperIsFoundBehindABasePathThatEndsInASeparator) {
    Proxy s;
    s.host.exeDirectory = "/opt/host/bin/";
    s.start();
    EXPECT_EQ(s.host.journal().linesOf({"process"}),
              Calls{"process start /opt/host/bin/mfddllwrap [A MFD Console] [/mods/libA.so] [A]"});
}

TEST(MDMDriverIPCI, NothingIsAppendedToAnEmptyBasePath) {
    Proxy s;
    s.host.exeDirectory = "";
    // A program without a name does not start.
    bool isStarted = true;
    fakehost::printedBy([&] { isStarted = s.sut.init(); });
    EXPECT_FALSE(isStarted);
    EXPECT_EQ(s.host.journal().linesOf({"process"}),
              Calls{"process start  [A MFD Console] [/mods/libA.so] [A]"});
}

TEST(MDMDriverIPCI, InitWithoutProcessesMakesQueuesAndThreadAndPrintsNothing) {
    Proxy s;
    g_debugStartMFDProcess = false;
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_TRUE(s.sut.init()); }), "");
    EXPECT_EQ(s.host.journal().lines(), (Calls{"queue create A_INQ 256 1024 0",
                                               "queue create A_OUTQ 16384 1024 0", "thread start 259"}));
}

TEST(MDMDriverIPCI, ProxyWithoutAProcessDeliversAllTheSame) {
    Proxy s;
    g_debugStartMFDProcess = false;
    EXPECT_EQ(s.deliveredFrom({"SETVAL\x01"
                               "a\x01"
                               "1"s}),
              Calls{"panel setStateValue a 1"});
}

TEST(MDMDriverIPCI, InputQueueThatCannotBeMadeEndsInit) {
    Proxy s;
    s.host.fail("queue create A_INQ");
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_FALSE(s.sut.init()); }), "\nFailed to create IPC queues\n");
    EXPECT_EQ(s.host.journal().lines(), Calls{"queue create A_INQ 256 1024 0"});
}

TEST(MDMDriverIPCI, OutputQueueThatCannotBeMadeEndsInitAndLeavesTheInputQueue) {
    Proxy s;
    s.host.fail("queue create A_OUTQ");
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_FALSE(s.sut.init()); }), "\nFailed to create IPC queues\n");
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"queue create A_INQ 256 1024 0", "queue create A_OUTQ 16384 1024 0"}));
    EXPECT_TRUE(s.host.queues().held("A_INQ"));
}

TEST(MDMDriverIPCI, ProcessThatCannotBeStartedEndsInitAndLeavesQueuesAndThread) {
    Proxy s;
    s.host.fail("process start");
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_FALSE(s.sut.init()); }),
              "m_moduleFileName=/mods/libA.so\nm_driverID=A\n\nFailed to create MFD process.\n");
    EXPECT_TRUE(s.host.queues().held("A_INQ"));
    s.push(
        "SETVAL\x01"
        "a\x01"
        "1"s);
    EXPECT_EQ(s.delivered(), Calls{"panel setStateValue a 1"});
}

TEST(MDMDriverIPCI, ThreadThatDoesNotStartEndsInitAndLeavesTheQueues) {
    Proxy s;
    s.host.fail("thread start");
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_FALSE(s.sut.init()); }),
              "\nFailed to create receiving thread.\n");
    EXPECT_EQ(s.host.journal().lines(), (Calls{"queue create A_INQ 256 1024 0",
                                               "queue create A_OUTQ 16384 1024 0", "thread start 259"}));
    EXPECT_TRUE(s.host.queues().held("A_INQ"));
    EXPECT_TRUE(s.host.queues().held("A_OUTQ"));
}

TEST(MDMDriverIPCI, ThreadThatDoesNotStartEndsInitWithoutAProcessToo) {
    Proxy s;
    g_debugStartMFDProcess = false;
    s.host.fail("thread start");
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_FALSE(s.sut.init()); }),
              "\nFailed to create receiving thread.\n");
}

TEST(MDMDriverIPCI, EachLineOfInitReachesAPipeAtOnce) {
    Proxy s;
    std::string atProcessStart;
    {
        const fakehost::StandardOutput output;
        // Looked at when the driver process is started: what stands in a buffer then is missing.
        s.host.journal().setObserver([&] {
            atProcessStart = output.flushed();
            return Calls{};
        });
        s.sut.init();
        s.host.journal().setObserver(nullptr);
    }
    EXPECT_EQ(atProcessStart, "m_moduleFileName=/mods/libA.so\nm_driverID=A\n");
}

TEST(MDMDriverIPCI, FailureLinesReachAPipeAtOnce) {
    const std::string values = "m_moduleFileName=/mods/libA.so\nm_driverID=A\n";
    const std::map<std::string, std::string> lines{
        {"queue create A_INQ", "\nFailed to create IPC queues\n"},
        {"queue create A_OUTQ", "\nFailed to create IPC queues\n"},
        {"thread start", "\nFailed to create receiving thread.\n"},
        {"process start", values + "\nFailed to create MFD process.\n"}};
    for (const auto& [call, line] : lines) {
        Proxy s;
        s.host.fail(call);
        std::string flushed;
        {
            const fakehost::StandardOutput output;
            s.sut.init();
            flushed = output.flushed();
        }
        EXPECT_EQ(flushed, line) << call;
    }
}

TEST(MDMDriverIPCI, InitWithoutAPanelStateEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            fakehost::FakeHost host;
            MDMDriverIPCI sut("/mods/libA.so", "");
            sut.init();
        },
        "assertion failed: m_pIPanelState\n");
}

TEST(MDMDriverIPCI, InitWithoutADistributorEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Proxy s;
            s.sut.setDistributorFIDInterface(nullptr);
            s.sut.setSystemInterface(nullptr);
            s.sut.init();
        },
        "assertion failed: m_pIDistributorFID\n");
}

TEST(MDMDriverIPCI, InitWithoutASystemEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Proxy s;
            s.sut.setSystemInterface(nullptr);
            s.sut.init();
        },
        "assertion failed: m_pISystem\n");
}

TEST(MDMDriverIPCI, InitAsksForTheSystemBeforeTheDriverID) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Proxy s;
            MDMDriverIPCI sut("/mods/libA.so", "");
            sut.setPanelStateInterface(&s.panel);
            sut.setDistributorFIDInterface(&s.distributor);
            sut.init();
        },
        "assertion failed: m_pISystem\n");
}

TEST(MDMDriverIPCI, InitWithAnEmptyDriverIDEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Proxy s;
            MDMDriverIPCI sut("/mods/libA.so", "");
            sut.setPanelStateInterface(&s.panel);
            sut.setDistributorFIDInterface(&s.distributor);
            sut.setSystemInterface(&s.system);
            sut.init();
        },
        "assertion failed: !m_driverID.empty\\(\\)\n");
}

TEST(MDMDriverIPCI, InitLooksAtTheDriverIDBeforeItMakesQueues) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Proxy s;
            s.host.fail("queue create");
            MDMDriverIPCI sut("/mods/libA.so", "");
            sut.setPanelStateInterface(&s.panel);
            sut.setDistributorFIDInterface(&s.distributor);
            sut.setSystemInterface(&s.system);
            sut.init();
        },
        "assertion failed: !m_driverID.empty\\(\\)\n");
}

TEST(MDMDriverIPCI, ThreadBodyEndsAtOnceWhenNothingWasSet) {
    fakehost::FakeHost host;
    MDMDriverIPCI sut("/mods/libA.so", "A");
    host.queues().noteReceives(true);
    sut.run();
    EXPECT_EQ(host.journal().lines(), Calls{});
}

TEST(MDMDriverIPCI, ThreadBodyEndsAtOnceBeforeInit) {
    Proxy s;
    s.host.queues().noteReceives(true);
    s.sut.run();
    EXPECT_EQ(s.host.journal().lines(), Calls{});
}

TEST(MDMDriverIPCI, ThreadBodyEndsAtOnceWithoutAPanelState) {
    Proxy s;
    s.startIdle();
    s.sut.setPanelStateInterface(nullptr);
    EXPECT_TRUE(s.bodyEnds());
}

TEST(MDMDriverIPCI, ThreadBodyEndsAtOnceWithoutASystem) {
    Proxy s;
    s.startIdle();
    s.sut.setSystemInterface(nullptr);
    EXPECT_TRUE(s.bodyEnds());
}

// End.

TEST(MDMDriverIPCI, DeinitializeSendsAndThenEndsTheThread) {
    Proxy s;
    s.start();
    s.host.journal().clear();
    s.sut.deinitialize();
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"queue send A_INQ DEINIT timeout -1", "thread shutdown -1", "thread ended"}));
}

TEST(MDMDriverIPCI, DeinitializeEndsTheThreadEvenWhenTheDriverIsGone) {
    Proxy s;
    s.start();
    s.host.fail("queue send A_INQ");
    s.host.journal().clear();
    EXPECT_FALSE(s.sut.deinitialize());
    EXPECT_EQ(s.host.journal().linesOf({"thread"}), (Calls{"thread shutdown -1", "thread ended"}));
}

TEST(MDMDriverIPCI, DeinitializeDeliversWhatStoodInTheQueueDuringABurst) {
    Proxy s;
    WaitingSystem system;
    s.sut.setSystemInterface(&system);
    s.start();
    s.push("SYSCMD\x01s\x00"s);
    system.entered.get_future().wait();
    for (int index = 0; index < 500; ++index)
        s.push(
            "TRIGGR\x01"
            "e\x00"s);
    std::thread ending([&] { s.sut.deinitialize(); });
    EXPECT_TRUE(s.host.journal().waitFor("thread shutdown -1"));
    system.leave.set_value();
    ending.join();
    EXPECT_EQ(s.host.journal().count("panel triggerEvent e "), 500);
}

TEST(MDMDriverIPCI, DeinitializeReturnsThoughTheDriverNeverPauses) {
    Proxy s;
    s.start();
    std::atomic<bool> stop{false};
    std::thread driver([&] {
        while (!stop)
            s.push(
                "TRIGGR\x01"
                "e\x00"s);
    });
    EXPECT_TRUE(s.host.journal().waitFor("panel triggerEvent e "));
    s.sut.deinitialize();
    stop = true;
    driver.join();
    EXPECT_EQ(s.host.journal().linesOf({"thread ended"}), Calls{"thread ended"});
}

TEST(MDMDriverIPCI, NothingIsDeliveredBehindDeinitialize) {
    Proxy s;
    s.start();
    s.sut.deinitialize();
    s.host.journal().clear();
    s.push(
        "TRIGGR\x01"
        "e\x00"s);
    s.pSut.reset();
    EXPECT_EQ(s.host.journal().linesOf({"panel"}), Calls{});
}

TEST(MDMDriverIPCI, DestructionNeitherSendsNorClosesButLetsGoOfTheQueues) {
    Proxy s;
    s.start();
    s.sut.deinitialize();
    s.host.journal().clear();
    s.pSut.reset();
    EXPECT_EQ(s.host.journal().linesOf({"queue send", "queue close", "process"}), Calls{});
    EXPECT_FALSE(s.host.queues().held("A_INQ"));
    EXPECT_FALSE(s.host.queues().held("A_OUTQ"));
}

TEST(MDMDriverIPCI, DestructionWhileTheThreadRunsEndsItFirst) {
    Proxy s;
    s.start();
    s.host.journal().clear();
    s.pSut.reset();
    const Calls calls = s.host.journal().lines();
    ASSERT_GE(calls.size(), 3u);
    EXPECT_EQ(calls[0], "thread shutdown -1");
    EXPECT_EQ(calls[1], "thread ended");
    EXPECT_EQ(s.host.journal().linesOf({"queue send"}), Calls{});
}

/// What is delivered of these messages when the proxy is destroyed during the first event among them.
Calls deliveredWhileDestroyed(const std::vector<std::string>& before, const std::vector<std::string>& after) {
    WaitingPanel panel;
    Proxy s;
    s.sut.setPanelStateInterface(&panel);
    for (const std::string& message : before)
        s.push(message);
    s.start();
    panel.entered.get_future().wait();
    for (const std::string& message : after)
        s.push(message);
    std::thread ending([&] { s.pSut.reset(); });
    EXPECT_TRUE(s.host.journal().waitFor("thread shutdown -1"));
    panel.leave.set_value();
    ending.join();
    return s.host.journal().linesOf({"panel", "distributor", "system"});
}

TEST(MDMDriverIPCI, WhatIsHeldBackIsDroppedWhenTheProxyIsDestroyedWhileItsThreadRuns) {
    EXPECT_EQ(deliveredWhileDestroyed({"TRIGGR\x01"
                                       "e\x00"s,
                                       "SETVAL\x01"
                                       "a\x01"
                                       "1"s,
                                       "SETVAI\x01x" + bytes(1)},
                                      {}),
              Calls{"panel triggerEvent e "});
}

TEST(MDMDriverIPCI, WhatStillStandsInTheQueueIsNotDeliveredWhenTheProxyIsDestroyed) {
    EXPECT_EQ(deliveredWhileDestroyed({"TRIGGR\x01"
                                       "e\x00"s},
                                      {"SETVAI\x01x" + bytes(1),
                                       "DSPFID\x03"
                                       "B.x\x00"s,
                                       "SYSCMD\x04save\x00"s}),
              Calls{"panel triggerEvent e "});
}

TEST(MDMDriverIPCI, FidAfterWhatIsDroppedIsNotDispatched) {
    EXPECT_EQ(deliveredWhileDestroyed({"TRIGGR\x01"
                                       "e\x00"s,
                                       "SETVAI\x01x" + bytes(1),
                                       "DSPFID\x03"
                                       "B.x\x00"s},
                                      {}),
              Calls{"panel triggerEvent e "});
}

TEST(MDMDriverIPCI, SystemCommandAfterWhatIsDroppedIsNotExecuted) {
    EXPECT_EQ(deliveredWhileDestroyed({"TRIGGR\x01"
                                       "e\x00"s,
                                       "SETVAI\x01x" + bytes(1), "SYSCMD\x04save\x00"s},
                                      {}),
              Calls{"panel triggerEvent e "});
}

TEST(MDMDriverIPCI, PendingUpdatesAreDroppedAtDestruction) {
    Proxy s;
    s.sut.lookAhead(command(1, "a", "1"));
    s.pSut.reset();
    EXPECT_EQ(s.host.journal().linesOf({"panel"}), Calls{});
}

TEST(MDMDriverIPCI, WaitForQueuesTriesEachUntilItCanBeMadeAndClosesIt) {
    fakehost::FakeHost host;
    host.fail("queue create A_INQ", 2);
    host.fail("queue create A_OUTQ", 1);
    MDMDriverIPCI::waitForQueues("A");
    EXPECT_EQ(host.journal().lines(),
              (Calls{"queue create A_INQ 256 1024 0", "thread mssleep 100", "queue create A_INQ 256 1024 0",
                     "thread mssleep 100", "queue create A_INQ 256 1024 0", "queue close A_INQ",
                     "queue create A_OUTQ 16384 1024 0", "thread mssleep 100",
                     "queue create A_OUTQ 16384 1024 0", "queue close A_OUTQ"}));
}

TEST(MDMDriverIPCI, WaitForQueuesReturnsOnceTheLastHolderHasGone) {
    fakehost::FakeHost host;
    ASSERT_TRUE(host.queues().create("A_OUTQ", 16384, 1024));
    std::thread waiter([&] {
        MDMDriverIPCI::waitForQueues("A");
        host.journal().note("free");
    });
    EXPECT_TRUE(host.journal().waitFor("thread mssleep 100", 3));
    EXPECT_EQ(host.journal().count("free"), 0);
    host.queues().release("A_OUTQ");
    waiter.join();
    EXPECT_EQ(host.journal().count("free"), 1);
}

// Interfaces.

TEST(MDMDriverIPCI, AnswersBothDriverInterfaces) {
    Proxy s;
    EXPECT_EQ(dynamic_cast<IFunctionID*>(s.sut.queryInterface(1100)), static_cast<IFunctionID*>(&s.sut));
    EXPECT_EQ(dynamic_cast<IMFDConfiguration*>(s.sut.queryInterface(1201)),
              static_cast<IMFDConfiguration*>(&s.sut));
}

TEST(MDMDriverIPCI, AnswersNoOtherIdentifier) {
    Proxy s;
    for (unsigned int id : {0u, 1012u, 1101u, 1102u, 1103u, 1104u, 1105u, 1106u, 1107u, 1109u})
        EXPECT_EQ(s.sut.queryInterface(id), nullptr) << id;
}

// A panel that has the driver send more, and the host stop it, while the last updates are being delivered.
class StopsWhileDelivering : public RecordingPanelState {
public:
    void triggerEvent(const std::string& eventID, const std::string& value) override {
        RecordingPanelState::triggerEvent(eventID, value);
        if (eventID != "first")
            return;
        pProxy->push("TRIGGR\x04late\x00"s);
        delivering.set_value();
        EXPECT_TRUE(pProxy->host.journal().waitFor("thread shutdown -1"));
    }

    Proxy* pProxy = nullptr;
    std::promise<void> delivering;
};

TEST(MDMDriverIPCI, WhatCameDuringTheLastDeliveryIsDeliveredBeforeTheThreadEnds) {
    StopsWhileDelivering panel;
    Proxy s;
    panel.pProxy = &s;
    s.sut.setPanelStateInterface(&panel);
    s.push(
        "TRIGGR\x05"
        "first\x00"s);
    s.start();
    panel.delivering.get_future().wait();
    s.sut.deinitialize();
    EXPECT_EQ(s.host.journal().linesOf({"panel"}),
              (Calls{"panel triggerEvent first ", "panel triggerEvent late "}));
    s.pSut.reset();
}
