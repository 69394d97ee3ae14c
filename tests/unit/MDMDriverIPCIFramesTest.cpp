#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "FrameCase.h"
#include "GoldenFrame.h"
#include "IDistributorFID.h"
#include "IPanelState.h"
#include "ISystem.h"
#include "MDMDriverIPCI.h"
#include "StandardOutput.h"

// The host's end of the queue protocol, held to the bytes of tests/data/frames.

namespace {

using Calls = std::vector<std::string>;
using namespace std::string_literals;
using golden::emptyPairs;
using golden::FrameCase;
using golden::list;
using golden::many;
using golden::repeated;

/// Notes each call with its texts in brackets and the bits of a float.
class Recorder : public IPanelState, public IDistributorFID, public ISystem {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }

    void setStateValue(const std::string& stateID, const std::string& value) override {
        note("setStateValue" + text(stateID) + text(value));
    }
    void setStateValueFloat(const std::string& stateID, float value) override {
        char bits[9];
        std::snprintf(bits, sizeof bits, "%08x", std::bit_cast<std::uint32_t>(value));
        note("setStateValueFloat" + text(stateID) + " bits " + bits);
    }
    void setStateValueInt(const std::string& stateID, int value) override {
        note("setStateValueInt" + text(stateID) + " " + std::to_string(value));
    }
    void setStateValueBool(const std::string& stateID, bool value) override {
        note("setStateValueBool" + text(stateID) + (value ? " true" : " false"));
    }
    void unsetStateValue(const std::string& stateID) override { note("unsetStateValue" + text(stateID)); }
    void triggerEvent(const std::string& eventID, const std::string& value) override {
        note("triggerEvent" + text(eventID) + text(value));
    }
    void dispatchFID(const std::string& fid, const FIDParameterList& parameters) const override {
        std::string call = "dispatchFID" + text(fid);
        for (const auto& [name, value] : parameters)
            call += text(name) + "=" + text(value).substr(1);
        note(call);
    }
    void executeCommand(const std::string& command, const std::string& arguments) override {
        note("executeCommand" + text(command) + text(arguments));
    }

private:
    static std::string text(const std::string& value) { return " [" + value + "]"; }
    static void note(const std::string& call) { fakehost::Journal::instance().note("call " + call); }
};

struct FramesProxy {
    fakehost::FakeHost host;
    Recorder recorder;
    MDMDriverIPCI sut{"/mods/libA.so", "A"};

    FramesProxy() {
        sut.setPanelStateInterface(&recorder);
        sut.setDistributorFIDInterface(&recorder);
        sut.setSystemInterface(&recorder);
    }
    void start() {
        fakehost::printedBy([&] { EXPECT_TRUE(sut.init()); });
    }
    /// A receive buffer that is full of the message before, which no later message may be completed from.
    void pushDirt() { push("NOSUCH" + std::string(1018, '\xff')); }
    void push(const std::string& message) { host.queues().push("A_OUTQ", message); }
    /// What everything pushed so far calls.
    Calls calls() {
        push("TRIGGR\x0fthe end of test\x00"s);
        start();
        EXPECT_TRUE(host.journal().waitFor("call triggerEvent [the end of test] []"));
        Calls result;
        for (const std::string& line : host.journal().linesOf({"call"}))
            result.push_back(line.substr(5));
        if (!result.empty())
            result.pop_back();
        return result;
    }
};

// What the host sends.

struct Sent {
    const char* claim;
    std::string frame;
    std::function<bool(MDMDriverIPCI&)> call;
};

void PrintTo(const Sent& sent, std::ostream* pStream) {
    *pStream << sent.frame;
}

std::function<bool(MDMDriverIPCI&)> configuration(int workplace, const std::vector<std::string>& texts) {
    return [=](MDMDriverIPCI& sut) {
        return sut.setConfiguration(workplace, texts.at(0), texts.at(1), texts.at(2), texts.at(3),
                                    texts.at(4), texts.at(5));
    };
}

std::function<bool(MDMDriverIPCI&)> subscription(const std::string& fid) {
    return [=](MDMDriverIPCI& sut) { return sut.subscribe(fid); };
}

std::function<bool(MDMDriverIPCI&)> fid(const std::string& name, const FIDParameterList& parameters) {
    return [=](MDMDriverIPCI& sut) { return sut.sendFID(name, parameters); };
}

std::vector<Sent> sentFrames() {
    const std::string v = many(250, 'v');
    return {
        {"ConfigurationIsTheWorkplaceAndSixTextsInOrder", "SETCFG",
         configuration(3, {"AXIS1", "axis1", "192.0.2.11", "eth0", "192.0.2.10", "/srv/nvram/AXIS1"})},
        {"EmptyTextsOfAConfigurationAreOneZeroByteEach", "SETCFG-empty",
         configuration(0, {"", "", "", "", "", ""})},
        {"LargestWorkplace", "SETCFG-workplace-max",
         configuration(std::numeric_limits<int>::max(), {"A", "w", "i", "a", "p", "n"})},
        {"SmallestWorkplace", "SETCFG-workplace-min",
         configuration(std::numeric_limits<int>::min(), {"A", "w", "i", "a", "p", "n"})},
        {"ConfigurationHoldsATextOf255Bytes", "SETCFG-255-bytes",
         configuration(1, {"A", many(255, 'd'), "i", "a", "p", "n"})},
        {"ConfigurationTextIsCutToItsLengthModulo256", "SETCFG-cut",
         configuration(1, {"A", "data" + many(256, 'x'), "i", "a", "p", "n"})},
        {"ZeroByteInAConfigurationTextIsSent", "SETCFG-zero-byte",
         configuration(1, {"A\0B"s, "w", "i", "a", "p", "n"})},
        {"ConfigurationMayFillTheMessage", "SETCFG-fullest",
         configuration(1, {many(168, 'A'), many(168, 'w'), many(168, 'i'), many(168, 'a'), many(168, 'p'),
                           many(168, 'n')})},
        {"ConfigurationTextsOf256BytesAreCutToNothing", "SETCFG-empty",
         configuration(0, {many(256, 'd'), many(256, 'w'), many(256, 'i'), many(256, 'a'), many(256, 'p'),
                           many(256, 'n')})},
        {"SubscriptionIsItsName", "SUBSCR", subscription("POSITION")},
        {"SubscriptionOfAnEmptyName", "SUBSCR-empty", subscription("")},
        {"SubscriptionOf255Bytes", "SUBSCR-255-bytes", subscription(many(255, 'n'))},
        {"SubscriptionOf256BytesIsCutToNothing", "SUBSCR-empty", subscription(many(256, 'n'))},
        {"SubscriptionOf260BytesIsCutToFour", "SUBSCR-cut", subscription("MOVE" + many(256, 'n'))},
        {"SubscriptionOf511BytesIsCutTo255", "SUBSCR-255-bytes", subscription(many(511, 'n'))},
        {"ZeroByteInASubscriptionIsSent", "SUBSCR-zero-byte", subscription("MO\0VE"s)},
        {"BytesOfASubscriptionAreSentAsTheyAre", "SUBSCR-high-bytes", subscription("\xc3\xa4\x80\xff")},
        {"FidIsItsNameAndItsParametersInOrder", "SNDFDP",
         fid("MOVE", list({{"to", "12.5"}, {"speed", "3"}}))},
        {"FidWithoutParametersHasACountOfZero", "SNDFDP-no-parameters", fid("STOP", list({}))},
        {"EmptyFidWithoutParameters", "SNDFDP-empty", fid("", list({}))},
        {"EmptyParameterIsTwoZeroBytes", "SNDFDP-empty-pair", fid("M", list({{"", ""}}))},
        {"FidAndParameterOf255Bytes", "SNDFDP-255-bytes",
         fid(many(255, 'M'), list({{many(255, 'n'), many(255, 'v')}}))},
        {"FidWith255Parameters", "SNDFDP-255-parameters", fid("M", emptyPairs(255))},
        {"Parameter256IsLeftOut", "SNDFDP-255-parameters", fid("M", emptyPairs(256))},
        {"ParametersMayFillTheMessage", "SNDFDP-fullest",
         fid("MOVE", list({{"a", v}, {"b", v}, {"c", v}, {"d", v}}))},
        {"ParameterBehindTheMessagesEndIsLeftOut", "SNDFDP-fullest",
         fid("MOVE", list({{"a", v}, {"b", v}, {"c", v}, {"d", v}, {"", ""}}))},
        {"RoomForParametersIsCountedFromTheCutName", "SNDFDP-fullest",
         fid("MOVE" + many(256, 'n'), list({{"a", v}, {"b", v}, {"c", v}, {"d", v}}))},
        {"FidOf260BytesIsCutToFour", "SNDFDP-cut", fid("MOVE" + many(256, 'n'), list({{"a", "1"}}))},
        {"FidOf256BytesIsCutToNothing", "SNDFDP-empty", fid(many(256, 'n'), list({}))},
        {"ParameterOf256BytesIsLeftOut", "SNDFDP-left-out",
         fid("M", list({{"a", "1"}, {"b", many(256, 'v')}, {"c", "3"}}))},
        {"ParameterNameOf256BytesIsLeftOut", "SNDFDP-left-out",
         fid("M", list({{"a", "1"}, {many(256, 'b'), "2"}, {"c", "3"}}))},
        {"ZeroBytesOfAFidAreSent", "SNDFDP-zero-byte", fid("M\0V"s, list({{"a\0b"s, "c\0d"s}}))},
        {"FidListRequestIsItsCode", "CRTFID", [](MDMDriverIPCI& sut) { return sut.createFIDList(); }},
        {"InitializationCompletedIsItsCode", "INTCMP",
         [](MDMDriverIPCI& sut) { return sut.initializationCompleted(); }},
        {"ShowStateIsItsCode", "SHOWST", [](MDMDriverIPCI& sut) { return sut.showState(); }},
        {"DeinitializeIsItsCode", "DEINIT", [](MDMDriverIPCI& sut) { return sut.deinitialize(); }},
    };
}

class MDMDriverIPCIFramesSent : public testing::TestWithParam<Sent> {};

TEST_P(MDMDriverIPCIFramesSent, AreTheseBytes) {
    FramesProxy s;
    s.start();
    EXPECT_TRUE(GetParam().call(s.sut));
    EXPECT_EQ(s.host.queues().messages("A_INQ"), Calls{goldenText(GetParam().frame)});
}

INSTANTIATE_TEST_SUITE_P(MDMDriverIPCI, MDMDriverIPCIFramesSent, testing::ValuesIn(sentFrames()),
                         [](const auto& information) { return information.param.claim; });

TEST(MDMDriverIPCIFrames, EachFrameToTheDriverIsWritten) {
    std::set<std::string> written;
    for (const Sent& sent : sentFrames())
        written.insert(sent.frame);
    EXPECT_EQ(written, framesToWrite(EFrameWay::eToDriver));
}

TEST(MDMDriverIPCIFrames, ConfigurationOfOneByteTooManyIsNotSent) {
    FramesProxy s;
    s.start();
    EXPECT_FALSE(configuration(1, {many(169, 'A'), many(168, 'w'), many(168, 'i'), many(168, 'a'),
                                   many(168, 'p'), many(168, 'n')})(s.sut));
    EXPECT_EQ(s.host.queues().messages("A_INQ"), Calls{});
}

// What the host receives.

std::vector<FrameCase> readFrames() {
    const std::string v = many(250, 'v');
    const std::string highs = many(255, '\xff');
    return {
        {"SETVAL", {"setStateValue [MODE] [auto]"}},
        {"SETVAL-empty", {"setStateValue [] []"}},
        {"SETVAL-empty-value", {"setStateValue [MODE] []"}},
        {"SETVAL-255-bytes", {"setStateValue [" + many(255, 'n') + "] [" + many(255, 'v') + "]"}},
        {"SETVAL-zero-byte", {"setStateValue [A] [c]"}},
        {"SETVAL-high-bytes", {"setStateValue [\xc3\xa4] [\x80\xff]"}},
        {"SETVAF", {"setStateValueFloat [TEMP] bits 41ac0000"}},
        {"SETVAF-zero", {"setStateValueFloat [T] bits 00000000"}},
        {"SETVAF-negative-zero", {"setStateValueFloat [T] bits 80000000"}},
        {"SETVAF-infinity", {"setStateValueFloat [T] bits 7f800000"}},
        {"SETVAF-negative-infinity", {"setStateValueFloat [T] bits ff800000"}},
        {"SETVAF-nan", {"setStateValueFloat [T] bits 7fc12345"}},
        {"SETVAF-denormal", {"setStateValueFloat [T] bits 00000001"}},
        {"SETVAF-max", {"setStateValueFloat [T] bits 7f7fffff"}},
        {"SETVAF-lowest", {"setStateValueFloat [T] bits ff7fffff"}},
        {"SETVAF-255-bytes", {"setStateValueFloat [" + many(255, 'n') + "] bits 41ac0000"}},
        {"SETVAI", {"setStateValueInt [A] 1"}},
        {"SETVAI-negative", {"setStateValueInt [A] -2"}},
        {"SETVAI-zero", {"setStateValueInt [A] 0"}},
        {"SETVAI-max", {"setStateValueInt [A] 2147483647"}},
        {"SETVAI-min", {"setStateValueInt [A] -2147483648"}},
        {"SETVAI-each-byte", {"setStateValueInt [A] 16909060"}},
        {"SETVAI-255-bytes", {"setStateValueInt [" + many(255, 'n') + "] 1"}},
        {"SETVAB", {"setStateValueBool [DOOR] true"}},
        {"SETVAB-false", {"setStateValueBool [DOOR] false"}},
        {"SETVAB-255-bytes", {"setStateValueBool [" + many(255, 'n') + "] true"}},
        {"UNSVAL", {"unsetStateValue [DOOR]"}},
        {"UNSVAL-empty", {"unsetStateValue []"}},
        {"UNSVAL-255-bytes", {"unsetStateValue [" + many(255, 'n') + "]"}},
        {"UNSVAL-zero-byte", {"unsetStateValue [DO]"}},
        {"TRIGGR", {"triggerEvent [ALARM] [hot]"}},
        {"TRIGGR-empty", {"triggerEvent [] []"}},
        {"TRIGGR-255-bytes", {"triggerEvent [" + many(255, 'e') + "] [" + many(255, 'p') + "]"}},
        {"TRIGGR-zero-byte", {"triggerEvent [E] [p]"}},
        {"SYSCMD", {"executeCommand [reloadDriver] [AXIS2]"}},
        {"SYSCMD-empty", {"executeCommand [] []"}},
        {"SYSCMD-255-bytes", {"executeCommand [" + many(255, 'c') + "] [" + many(255, 'a') + "]"}},
        {"SYSCMD-zero-byte", {"executeCommand [C] [a]"}},
        {"DSPFID", {"dispatchFID [PANEL.SHOW] [page]=[2]"}},
        {"DSPFID-no-parameters", {"dispatchFID [PANEL.CLEAR]"}},
        {"DSPFID-empty", {"dispatchFID []"}},
        {"DSPFID-empty-pair", {"dispatchFID [B.M] []=[]"}},
        {"DSPFID-255-bytes",
         {"dispatchFID [B." + many(253, 'M') + "] [" + many(255, 'n') + "]=[" + many(255, 'v') + "]"}},
        {"DSPFID-255-parameters", {"dispatchFID [B.M]" + repeated(255, " []=[]")}},
        {"DSPFID-fullest",
         {"dispatchFID [B.MV] [a]=[" + v + "] [b]=[" + v + "] [c]=[" + v + "] [d]=[" + v + "]"}},
        {"DSPFID-left-out", {"dispatchFID [B.M] [a]=[1] [c]=[3]"}},
        {"DSPFID-zero-byte", {"dispatchFID [B.M] [a]=[c]"}},

        {"unsent/empty", {}},
        {"unsent/unknown", {}},
        {"unsent/unknown-last-byte", {}},
        {"unsent/unknown-lower-case", {}},
        {"unsent/unknown-zeros", {}},
        {"unsent/SETVAL-cut-5", {}},
        {"unsent/SETVAB-value-2", {"setStateValueBool [DOOR] true"}},
        {"unsent/SETVAB-value-128", {"setStateValueBool [DOOR] true"}},
        {"unsent/SETVAB-value-255", {"setStateValueBool [DOOR] true"}},
        {"unsent/SETVAI-trailing", {"setStateValueInt [A] 1"}},
        {"unsent/UNSVAL-trailing", {"unsetStateValue [A]"}},
        {"unsent/DSPFID-trailing", {"dispatchFID [B.M] [a]=[1]"}},
        {"unsent/SETVAL-cut-6", {"setStateValue [] []"}},
        {"unsent/SETVAL-cut-7", {"setStateValue [] []"}},
        {"unsent/SETVAL-cut-9", {"setStateValue [MO] []"}},
        {"unsent/SETVAL-cut-11", {"setStateValue [MODE] []"}},
        {"unsent/SETVAL-cut-12", {"setStateValue [MODE] []"}},
        {"unsent/SETVAL-cut-14", {"setStateValue [MODE] [au]"}},
        {"unsent/SETVAF-cut-6", {"setStateValueFloat [] bits 00000000"}},
        {"unsent/SETVAF-cut-7", {"setStateValueFloat [] bits 00000000"}},
        {"unsent/SETVAF-cut-11", {"setStateValueFloat [TEMP] bits 00000000"}},
        {"unsent/SETVAF-cut-13", {"setStateValueFloat [TEMP] bits 00000000"}},
        {"unsent/SETVAF-cut-14", {"setStateValueFloat [TEMP] bits 00ac0000"}},
        {"unsent/SETVAI-cut-6", {"setStateValueInt [] 0"}},
        {"unsent/SETVAI-cut-7", {"setStateValueInt [] 0"}},
        {"unsent/SETVAI-cut-8", {"setStateValueInt [A] 0"}},
        {"unsent/SETVAI-cut-9", {"setStateValueInt [A] 4"}},
        {"unsent/SETVAI-cut-10", {"setStateValueInt [A] 772"}},
        {"unsent/SETVAI-cut-11", {"setStateValueInt [A] 131844"}},
        {"unsent/SETVAB-cut-6", {"setStateValueBool [] false"}},
        {"unsent/SETVAB-cut-7", {"setStateValueBool [] false"}},
        {"unsent/SETVAB-cut-9", {"setStateValueBool [DO] false"}},
        {"unsent/SETVAB-cut-11", {"setStateValueBool [DOOR] false"}},
        {"unsent/UNSVAL-cut-6", {"unsetStateValue []"}},
        {"unsent/UNSVAL-cut-7", {"unsetStateValue []"}},
        {"unsent/UNSVAL-cut-9", {"unsetStateValue [DO]"}},
        {"unsent/TRIGGR-cut-6", {"triggerEvent [] []"}},
        {"unsent/TRIGGR-cut-7", {"triggerEvent [] []"}},
        {"unsent/TRIGGR-cut-9", {"triggerEvent [AL] []"}},
        {"unsent/TRIGGR-cut-12", {"triggerEvent [ALARM] []"}},
        {"unsent/TRIGGR-cut-13", {"triggerEvent [ALARM] []"}},
        {"unsent/TRIGGR-cut-15", {"triggerEvent [ALARM] [ho]"}},
        {"unsent/SYSCMD-cut-6", {"executeCommand [] []"}},
        {"unsent/SYSCMD-cut-7", {"executeCommand [] []"}},
        {"unsent/SYSCMD-cut-12", {"executeCommand [reloa] []"}},
        {"unsent/SYSCMD-cut-19", {"executeCommand [reloadDriver] []"}},
        {"unsent/SYSCMD-cut-20", {"executeCommand [reloadDriver] []"}},
        {"unsent/SYSCMD-cut-22", {"executeCommand [reloadDriver] [AX]"}},
        {"unsent/DSPFID-cut-6", {"dispatchFID []"}},
        {"unsent/DSPFID-cut-7", {"dispatchFID []"}},
        {"unsent/DSPFID-cut-12", {"dispatchFID [PANEL]"}},
        {"unsent/DSPFID-cut-17", {"dispatchFID [PANEL.SHOW]"}},
        {"unsent/DSPFID-cut-18", {"dispatchFID [PANEL.SHOW] []=[]"}},
        {"unsent/DSPFID-cut-19", {"dispatchFID [PANEL.SHOW] []=[]"}},
        {"unsent/DSPFID-cut-21", {"dispatchFID [PANEL.SHOW] [pa]=[]"}},
        {"unsent/DSPFID-cut-23", {"dispatchFID [PANEL.SHOW] [page]=[]"}},
        {"unsent/DSPFID-cut-24", {"dispatchFID [PANEL.SHOW] [page]=[]"}},
        {"unsent/DSPFID-crossing",
         {"dispatchFID [B.M] [a]=[" + v + "] [b]=[" + v + "] [c]=[" + v + "] [d]=[] []=[]"}},
        {"unsent/DSPFID-count-beyond", {"dispatchFID [B.M] [a]=[1]" + repeated(254, " []=[]")}},
        {"unsent/DSPFID-all-ff",
         {"dispatchFID [" + highs + "] [" + highs + "]=[" + highs + "]" + repeated(254, " []=[]")}},
    };
}

class MDMDriverIPCIFramesRead : public testing::TestWithParam<FrameCase> {};

TEST_P(MDMDriverIPCIFramesRead, MakesThisCall) {
    FramesProxy s;
    s.pushDirt();
    s.push(goldenText(GetParam().frame));
    EXPECT_EQ(s.calls(), GetParam().calls);
}

INSTANTIATE_TEST_SUITE_P(MDMDriverIPCI, MDMDriverIPCIFramesRead, testing::ValuesIn(readFrames()),
                         [](const auto& information) { return testName(information.param.frame); });

TEST(MDMDriverIPCIFrames, EachFrameToTheHostIsRead) {
    std::set<std::string> read;
    for (const FrameCase& frame : readFrames())
        read.insert(frame.frame);
    EXPECT_EQ(read, framesToRead(EFrameWay::eToHost));
}

TEST(MDMDriverIPCIFrames, FramesToTheDriverChangeNothing) {
    FramesProxy s;
    int pushed = 0;
    for (const std::string& name : goldenFrameNames()) {
        if (!goesOnly(EFrameWay::eToDriver, name))
            continue;
        s.push(goldenText(name));
        ++pushed;
    }
    EXPECT_GT(pushed, 20);
    EXPECT_EQ(s.calls(), Calls{});
}

TEST(MDMDriverIPCIFrames, FrameCutAnywhereReadsAsIfZeroesFollowed) {
    std::vector<std::string> cut;
    std::vector<std::string> filled;
    // An empty system command keeps updates of the same name from being merged.
    const std::string border = "SYSCMD\0\0"s;
    for (const std::string& name : framesToWrite(EFrameWay::eToHost)) {
        const std::string frame = goldenText(name);
        if (frame.size() > 64)
            continue;
        for (std::size_t length = 0; length < frame.size(); ++length) {
            std::string message = frame.substr(0, length);
            cut.insert(cut.end(), {"NOSUCH" + std::string(1018, '\xff'), message, border});
            message.resize(1024, '\0');
            filled.insert(filled.end(), {message, border});
        }
    }
    const auto calls = [](const std::vector<std::string>& messages) {
        FramesProxy s;
        for (const std::string& message : messages)
            s.push(message);
        return s.calls();
    };
    const Calls expected = calls(filled);
    EXPECT_GT(expected.size(), 500u);
    EXPECT_EQ(calls(cut), expected);
}

}  // namespace
