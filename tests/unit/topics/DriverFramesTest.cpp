#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <functional>
#include <limits>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "DriverCalls.h"
#include "DriverOutput.h"
#include "FIDParameterList.h"
#include "FakeHost.h"
#include "FrameCase.h"
#include "GoldenFrame.h"
#include "InterfaceIds.h"
#include "QueueDistributorFID.h"
#include "QueueFunctionID.h"
#include "QueuePanelState.h"
#include "QueueSystem.h"
#include "RecordingSink.h"

// The driver process's end of the queue protocol, held to the bytes of tests/data/frames.

namespace {

using Calls = std::vector<std::string>;
using namespace std::string_literals;
using golden::emptyPairs;
using golden::FrameCase;
using golden::list;
using golden::many;
using golden::repeated;

/// What a driver is handed, and the messages that come of its calls.
struct Handed {
    fakehost::FakeHost host;
    RecordingSink sink;
    DriverOutput output{sink};
    QueuePanelState panel{output};
    QueueFunctionID sender{output};
    QueueDistributorFID distributor{sender};
    QueueSystem system{output, sender};
};

using Report = std::function<void(Handed&)>;

// What the driver reports.

struct Sent {
    const char* claim;
    std::string frame;
    Report report;
};

void PrintTo(const Sent& sent, std::ostream* pStream) {
    *pStream << sent.frame;
}

Report value(const std::string& name, const std::string& text) {
    return [=](Handed& driver) { driver.panel.setStateValue(name, text); };
}

Report floatBits(const std::string& name, std::uint32_t bits) {
    return [=](Handed& driver) { driver.panel.setStateValueFloat(name, std::bit_cast<float>(bits)); };
}

Report integer(const std::string& name, int number) {
    return [=](Handed& driver) { driver.panel.setStateValueInt(name, number); };
}

Report truth(const std::string& name, bool value) {
    return [=](Handed& driver) { driver.panel.setStateValueBool(name, value); };
}

Report unset(const std::string& name) {
    return [=](Handed& driver) { driver.panel.unsetStateValue(name); };
}

Report event(const std::string& name, const std::string& parameter) {
    return [=](Handed& driver) { driver.panel.triggerEvent(name, parameter); };
}

Report command(const std::string& name, const std::string& arguments) {
    return [=](Handed& driver) { driver.system.executeCommand(name, arguments); };
}

Report fid(const std::string& name, const FIDParameterList& parameters) {
    return [=](Handed& driver) { driver.distributor.dispatchFID(name, parameters); };
}

std::vector<Sent> sentFrames() {
    const std::string v = many(250, 'v');
    return {
        {"TextIsNameAndValue", "SETVAL", value("MODE", "auto")},
        {"EmptyNameAndText", "SETVAL-empty", value("", "")},
        {"EmptyText", "SETVAL-empty-value", value("MODE", "")},
        {"NameAndTextOf255Bytes", "SETVAL-255-bytes", value(many(255, 'n'), many(255, 'v'))},
        {"ZeroBytesOfATextAreSent", "SETVAL-zero-byte", value("A\0B"s, "c\0d"s)},
        {"BytesOfATextAreSentAsTheyAre", "SETVAL-high-bytes", value("\xc3\xa4", "\x80\xff")},
        {"FloatIsFourBytesLowestFirst", "SETVAF",
         [](Handed& driver) { driver.panel.setStateValueFloat("TEMP", 21.5F); }},
        {"FloatZero", "SETVAF-zero", floatBits("T", 0)},
        {"FloatNegativeZero", "SETVAF-negative-zero", floatBits("T", 0x80000000)},
        {"FloatInfinity", "SETVAF-infinity", floatBits("T", 0x7f800000)},
        {"FloatNegativeInfinity", "SETVAF-negative-infinity", floatBits("T", 0xff800000)},
        {"FloatNotANumberKeepsItsBits", "SETVAF-nan", floatBits("T", 0x7fc12345)},
        {"FloatDenormal", "SETVAF-denormal", floatBits("T", 1)},
        {"FloatLargest", "SETVAF-max", floatBits("T", 0x7f7fffff)},
        {"FloatLowest", "SETVAF-lowest", floatBits("T", 0xff7fffff)},
        {"FloatBehindANameOf255Bytes", "SETVAF-255-bytes", floatBits(many(255, 'n'), 0x41ac0000)},
        {"IntOne", "SETVAI", integer("A", 1)},
        {"IntNegativeIsTwosComplement", "SETVAI-negative", integer("A", -2)},
        {"IntZero", "SETVAI-zero", integer("A", 0)},
        {"IntLargest", "SETVAI-max", integer("A", std::numeric_limits<int>::max())},
        {"IntSmallest", "SETVAI-min", integer("A", std::numeric_limits<int>::min())},
        {"IntIsFourBytesLowestFirst", "SETVAI-each-byte", integer("A", 0x01020304)},
        {"IntBehindANameOf255Bytes", "SETVAI-255-bytes", integer(many(255, 'n'), 1)},
        {"TrueIsOne", "SETVAB", truth("DOOR", true)},
        {"FalseIsZero", "SETVAB-false", truth("DOOR", false)},
        {"TrueBehindANameOf255Bytes", "SETVAB-255-bytes", truth(many(255, 'n'), true)},
        {"UnsetIsItsName", "UNSVAL", unset("DOOR")},
        {"UnsetOfAnEmptyName", "UNSVAL-empty", unset("")},
        {"UnsetOfANameOf255Bytes", "UNSVAL-255-bytes", unset(many(255, 'n'))},
        {"ZeroByteOfAnUnsetIsSent", "UNSVAL-zero-byte", unset("DO\0OR"s)},
        {"EventIsNameAndParameter", "TRIGGR", event("ALARM", "hot")},
        {"EmptyEvent", "TRIGGR-empty", event("", "")},
        {"EventOf255Bytes", "TRIGGR-255-bytes", event(many(255, 'e'), many(255, 'p'))},
        {"ZeroBytesOfAnEventAreSent", "TRIGGR-zero-byte", event("E\0V"s, "p\0q"s)},
        {"CommandIsNameAndArguments", "SYSCMD", command("reloadDriver", "AXIS2")},
        {"EmptyCommand", "SYSCMD-empty", command("", "")},
        {"CommandOf255Bytes", "SYSCMD-255-bytes", command(many(255, 'c'), many(255, 'a'))},
        {"ZeroBytesOfACommandAreSent", "SYSCMD-zero-byte", command("C\0D"s, "a\0b"s)},
        {"FidIsItsNameAndItsParameters", "DSPFID", fid("PANEL.SHOW", list({{"page", "2"}}))},
        {"FidOfTheSystemsSenderIsTheSame", "DSPFID",
         [](Handed& driver) {
             dynamic_cast<IFunctionID&>(*driver.system.queryInterface(IID_IFunctionID))
                 .sendFID("PANEL.SHOW", list({{"page", "2"}}));
         }},
        {"FidWithoutParametersHasACountOfZero", "DSPFID-no-parameters", fid("PANEL.CLEAR", list({}))},
        {"EmptyFid", "DSPFID-empty", fid("", list({}))},
        {"EmptyParameterIsTwoZeroBytes", "DSPFID-empty-pair", fid("B.M", list({{"", ""}}))},
        {"FidAndParameterOf255Bytes", "DSPFID-255-bytes",
         fid("B." + many(253, 'M'), list({{many(255, 'n'), many(255, 'v')}}))},
        {"FidWith255Parameters", "DSPFID-255-parameters", fid("B.M", emptyPairs(255))},
        {"Parameter256IsLeftOut", "DSPFID-255-parameters", fid("B.M", emptyPairs(256))},
        {"ParametersMayFillTheMessage", "DSPFID-fullest",
         fid("B.MV", list({{"a", v}, {"b", v}, {"c", v}, {"d", v}}))},
        {"ParameterBehindTheMessagesEndIsLeftOut", "DSPFID-fullest",
         fid("B.MV", list({{"a", v}, {"b", v}, {"c", v}, {"d", v}, {"", ""}}))},
        {"ParameterOf256BytesIsLeftOut", "DSPFID-left-out",
         fid("B.M", list({{"a", "1"}, {"b", many(256, 'v')}, {"c", "3"}}))},
        {"ZeroBytesOfAFidAreSent", "DSPFID-zero-byte", fid("B.M\0V"s, list({{"a\0b"s, "c\0d"s}}))},
    };
}

class DriverFramesSent : public testing::TestWithParam<Sent> {};

TEST_P(DriverFramesSent, AreTheseBytes) {
    Handed driver;
    GetParam().report(driver);
    EXPECT_EQ(driver.sink.messages, Calls{goldenText(GetParam().frame)});
}

INSTANTIATE_TEST_SUITE_P(Driver, DriverFramesSent, testing::ValuesIn(sentFrames()),
                         [](const auto& information) { return information.param.claim; });

TEST(DriverFrames, EachFrameToTheHostIsWritten) {
    std::set<std::string> written;
    for (const Sent& sent : sentFrames())
        written.insert(sent.frame);
    EXPECT_EQ(written, framesToWrite(EFrameWay::eToHost));
}

struct Refused {
    const char* claim;
    Report report;
};

void PrintTo(const Refused& refused, std::ostream* pStream) {
    *pStream << refused.claim;
}

class DriverFramesRefused : public testing::TestWithParam<Refused> {};

TEST_P(DriverFramesRefused, IsNotSent) {
    Handed driver;
    GetParam().report(driver);
    EXPECT_EQ(driver.sink.messages, Calls{});
}

INSTANTIATE_TEST_SUITE_P(Driver, DriverFramesRefused,
                         testing::Values(Refused{"NameOfATextOf256Bytes", value(many(256, 'n'), "v")},
                                         Refused{"TextOf256Bytes", value("n", many(256, 'v'))},
                                         Refused{"NameOfAFloatOf256Bytes", floatBits(many(256, 'n'), 0)},
                                         Refused{"NameOfAnIntOf256Bytes", integer(many(256, 'n'), 0)},
                                         Refused{"NameOfATruthOf256Bytes", truth(many(256, 'n'), true)},
                                         Refused{"UnsetOf256Bytes", unset(many(256, 'n'))},
                                         Refused{"EventOf256Bytes", event(many(256, 'e'), "p")},
                                         Refused{"EventParameterOf256Bytes", event("e", many(256, 'p'))},
                                         Refused{"CommandOf256Bytes", command(many(256, 'c'), "a")},
                                         Refused{"ArgumentsOf256Bytes", command("c", many(256, 'a'))},
                                         Refused{"FidOf256Bytes", fid(many(256, 'f'), list({}))}),
                         [](const auto& information) { return information.param.claim; });

// What the driver is told.

/// A driver that notes each call with its texts in brackets.
class Recorder : public IFunctionID, public IMFDConfiguration {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        std::string call = "sendFID" + text(fid);
        for (const auto& [name, value] : parameters)
            call += text(name) + "=" + text(value).substr(1);
        return note(call);
    }
    bool subscribe(const std::string& fid) const override { return note("subscribe" + text(fid)); }
    bool showState() const override { return note("showState"); }
    bool setConfiguration(int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                          const std::string& ipAddress, const std::string& networkAdapter,
                          const std::string& virtualPanelAddress,
                          const std::string& nvramDirectory) override {
        return note("setConfiguration " + std::to_string(workplaceId) + text(driverID) +
                    text(workingDirectory) + text(ipAddress) + text(networkAdapter) +
                    text(virtualPanelAddress) + text(nvramDirectory));
    }
    void setPanelStateInterface(IPanelState*) override { note("setPanelStateInterface"); }
    void setDistributorFIDInterface(IDistributorFID*) override { note("setDistributorFIDInterface"); }
    void setSystemInterface(ISystem*) override { note("setSystemInterface"); }
    bool initializationCompleted() override { return note("initializationCompleted"); }
    bool deinitialize() override { return note("deinitialize"); }
    bool createFIDList() override { return note("createFIDList"); }

    mutable Calls calls;

private:
    static std::string text(const std::string& value) { return " [" + value + "]"; }
    bool note(const std::string& call) const {
        calls.push_back(call);
        return true;
    }
};

/// What the message calls; the one that ends the driver is followed by the wrapper's own call. The bytes
/// behind the message's end are not its own.
Calls callsOf(const std::string& message) {
    std::array<unsigned char, 1024> buffer;
    buffer.fill(0xff);
    std::copy(message.begin(), message.end(), buffer.begin());
    Recorder driver;
    DriverCalls sut(&driver, &driver);
    protocol::MessageReader reader(buffer.data(), message.size());
    if (!sut.handle(reader))
        sut.deinitialize();
    return driver.calls;
}

std::vector<FrameCase> readFrames() {
    const std::string v = many(250, 'v');
    const std::string highs = many(255, '\xff');
    return {
        {"SETCFG",
         {"setConfiguration 3 [AXIS1] [axis1] [192.0.2.11] [eth0] [192.0.2.10] [/srv/nvram/AXIS1]"}},
        {"SETCFG-empty", {"setConfiguration 0 [] [] [] [] [] []"}},
        {"SETCFG-workplace-max", {"setConfiguration 2147483647 [A] [w] [i] [a] [p] [n]"}},
        {"SETCFG-workplace-min", {"setConfiguration -2147483648 [A] [w] [i] [a] [p] [n]"}},
        {"SETCFG-255-bytes", {"setConfiguration 1 [A] [" + many(255, 'd') + "] [i] [a] [p] [n]"}},
        {"SETCFG-cut", {"setConfiguration 1 [A] [data] [i] [a] [p] [n]"}},
        {"SETCFG-zero-byte", {"setConfiguration 1 [A] [w] [i] [a] [p] [n]"}},
        {"SETCFG-fullest",
         {"setConfiguration 1 [" + many(168, 'A') + "] [" + many(168, 'w') + "] [" + many(168, 'i') + "] [" +
          many(168, 'a') + "] [" + many(168, 'p') + "] [" + many(168, 'n') + "]"}},
        {"SUBSCR", {"subscribe [POSITION]"}},
        {"SUBSCR-empty", {"subscribe []"}},
        {"SUBSCR-255-bytes", {"subscribe [" + many(255, 'n') + "]"}},
        {"SUBSCR-cut", {"subscribe [MOVE]"}},
        {"SUBSCR-zero-byte", {"subscribe [MO]"}},
        {"SUBSCR-high-bytes", {"subscribe [\xc3\xa4\x80\xff]"}},
        {"SNDFDP", {"sendFID [MOVE] [to]=[12.5] [speed]=[3]"}},
        {"SNDFDP-no-parameters", {"sendFID [STOP]"}},
        {"SNDFDP-empty", {"sendFID []"}},
        {"SNDFDP-empty-pair", {"sendFID [M] []=[]"}},
        {"SNDFDP-255-bytes",
         {"sendFID [" + many(255, 'M') + "] [" + many(255, 'n') + "]=[" + many(255, 'v') + "]"}},
        {"SNDFDP-255-parameters", {"sendFID [M]" + repeated(255, " []=[]")}},
        {"SNDFDP-fullest",
         {"sendFID [MOVE] [a]=[" + v + "] [b]=[" + v + "] [c]=[" + v + "] [d]=[" + v + "]"}},
        {"SNDFDP-cut", {"sendFID [MOVE] [a]=[1]"}},
        {"SNDFDP-left-out", {"sendFID [M] [a]=[1] [c]=[3]"}},
        {"SNDFDP-zero-byte", {"sendFID [M] [a\0b]=[c\0d]"s}},
        {"CRTFID", {"createFIDList"}},
        {"INTCMP", {"initializationCompleted"}},
        {"SHOWST", {"showState"}},
        {"DEINIT", {"deinitialize"}},

        {"unsent/empty", {}},
        {"unsent/unknown", {}},
        {"unsent/unknown-last-byte", {}},
        {"unsent/unknown-lower-case", {}},
        {"unsent/unknown-zeros", {}},
        {"unsent/DEINIT-cut-5", {}},
        {"unsent/CRTFID-trailing", {"createFIDList"}},
        {"unsent/INTCMP-trailing", {"initializationCompleted"}},
        {"unsent/SHOWST-trailing", {"showState"}},
        {"unsent/DEINIT-trailing", {"deinitialize"}},
        {"unsent/SUBSCR-trailing", {"subscribe [A]"}},
        {"unsent/SNDFDP-trailing", {"sendFID [M] [a]=[1]"}},
        {"unsent/SETCFG-cut-6", {"setConfiguration 0 [] [] [] [] [] []"}},
        {"unsent/SETCFG-cut-8", {"setConfiguration 3 [] [] [] [] [] []"}},
        {"unsent/SETCFG-cut-10", {"setConfiguration 3 [] [] [] [] [] []"}},
        {"unsent/SETCFG-cut-11", {"setConfiguration 3 [] [] [] [] [] []"}},
        {"unsent/SETCFG-cut-13", {"setConfiguration 3 [AX] [] [] [] [] []"}},
        {"unsent/SETCFG-cut-16", {"setConfiguration 3 [AXIS1] [] [] [] [] []"}},
        {"unsent/SETCFG-cut-17", {"setConfiguration 3 [AXIS1] [] [] [] [] []"}},
        {"unsent/SETCFG-cut-65",
         {"setConfiguration 3 [AXIS1] [axis1] [192.0.2.11] [eth0] [192.0.2.10] [/srv/nvram/AXIS]"}},
        {"unsent/SUBSCR-cut-6", {"subscribe []"}},
        {"unsent/SUBSCR-cut-7", {"subscribe []"}},
        {"unsent/SUBSCR-cut-11", {"subscribe [POSI]"}},
        {"unsent/SNDFDP-cut-6", {"sendFID []"}},
        {"unsent/SNDFDP-cut-7", {"sendFID []"}},
        {"unsent/SNDFDP-cut-9", {"sendFID [MO]"}},
        {"unsent/SNDFDP-cut-11", {"sendFID [MOVE]"}},
        {"unsent/SNDFDP-cut-12", {"sendFID [MOVE]"}},
        {"unsent/SNDFDP-cut-13", {"sendFID [MOVE]"}},
        {"unsent/SNDFDP-cut-14", {"sendFID [MOVE]"}},
        {"unsent/SNDFDP-cut-15", {"sendFID [MOVE]"}},
        {"unsent/SNDFDP-cut-16", {"sendFID [MOVE]"}},
        {"unsent/SNDFDP-cut-18", {"sendFID [MOVE]"}},
        {"unsent/SNDFDP-cut-20", {"sendFID [MOVE] [to]=[12.5]"}},
        {"unsent/SNDFDP-cut-26", {"sendFID [MOVE] [to]=[12.5]"}},
        {"unsent/SNDFDP-cut-27", {"sendFID [MOVE] [to]=[12.5]"}},
        {"unsent/SETCFG-crossing",
         {"setConfiguration 1 [" + many(255, 'A') + "] [" + many(255, 'w') + "] [" + many(255, 'i') +
          "] [] [] []"}},
        {"unsent/SETCFG-all-ff",
         {"setConfiguration -1 [" + highs + "] [" + highs + "] [" + highs + "] [] [] []"}},
        {"unsent/SNDFDP-crossing", {"sendFID [M] [a]=[" + v + "] [b]=[" + v + "] [c]=[" + v + "]"}},
        {"unsent/SNDFDP-count-beyond", {"sendFID [M] [a]=[1]"}},
        {"unsent/SNDFDP-all-ff", {"sendFID [" + highs + "] [" + highs + "]=[" + highs + "]"}},
    };
}

class DriverFramesRead : public testing::TestWithParam<FrameCase> {};

TEST_P(DriverFramesRead, MakesThisCall) {
    EXPECT_EQ(callsOf(goldenText(GetParam().frame)), GetParam().calls);
}

INSTANTIATE_TEST_SUITE_P(Driver, DriverFramesRead, testing::ValuesIn(readFrames()),
                         [](const auto& information) { return testName(information.param.frame); });

TEST(DriverFrames, EachFrameToTheDriverIsRead) {
    std::set<std::string> read;
    for (const FrameCase& frame : readFrames())
        read.insert(frame.frame);
    EXPECT_EQ(read, framesToRead(EFrameWay::eToDriver));
}

TEST(DriverFrames, FramesToTheHostChangeNothing) {
    int handled = 0;
    for (const std::string& name : goldenFrameNames()) {
        if (!goesOnly(EFrameWay::eToHost, name))
            continue;
        EXPECT_EQ(callsOf(goldenText(name)), Calls{}) << name;
        ++handled;
    }
    EXPECT_GT(handled, 20);
}

TEST(DriverFrames, FrameCutAnywhereReadsAsIfZeroesFollowed) {
    for (const std::string& name : framesToWrite(EFrameWay::eToDriver)) {
        const std::string frame = goldenText(name);
        if (frame.size() > 100 || name.starts_with("SNDFDP"))
            continue;
        for (std::size_t length = 0; length < frame.size(); ++length) {
            std::string message = frame.substr(0, length);
            const Calls cut = callsOf(message);
            message.resize(1024, '\0');
            EXPECT_EQ(cut, callsOf(message)) << name << " cut at " << length;
        }
    }
}

TEST(DriverFrames, ParametersOfACutFrameAreTheWholePairs) {
    const std::string frame = goldenText("SNDFDP");
    for (std::size_t length = 11; length < frame.size(); ++length)
        EXPECT_EQ(callsOf(frame.substr(0, length)),
                  Calls{length < 20 ? "sendFID [MOVE]" : "sendFID [MOVE] [to]=[12.5]"})
            << "cut at " << length;
}

}  // namespace
