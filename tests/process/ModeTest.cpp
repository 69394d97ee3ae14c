// What the author of a driver may rely on, with the driver in the host's process and in one of its own. Where
// the two differ on purpose, a test for each says how.
#include <gmock/gmock.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <future>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ModeBench.h"

// Not in the unnamed namespace: their names are those of the tests.
struct InProcess {
    static constexpr auto mode = EInterfaceTypes::Direct;
};
struct Process {
    static constexpr auto mode = EInterfaceTypes::Queue;
};

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Lines = std::vector<std::string>;

constexpr auto direct = EInterfaceTypes::Direct;
constexpr auto queue = EInterfaceTypes::Queue;

template <class Mode>
class Modes : public ModeBench {
public:
    static constexpr auto mode = Mode::mode;

    bool load(const std::string& driverID = "A") { return load(driverID, {}); }
    bool load(const std::string& driverID, const Entry& entry) {
        return ModeBench::load(mode, driverID, entry);
    }
    bool loadPartner() { return ModeBench::load(direct, "B", {.workingDirectory = "data/B"}); }
    bool startWorkplace(int workplace, const std::string& entries) {
        if (mode == queue)
            expectEndOf("A");
        return ModeBench::startWorkplace(workplace, entries);
    }

    using ModeBench::acts;
    using ModeBench::configure;
    using ModeBench::end;
    using ModeBench::entry;
    using ModeBench::gate;
    using ModeBench::host;
    using ModeBench::log;
    using ModeBench::manager;
    using ModeBench::open;
    using ModeBench::recordOf;
    using ModeBench::reload;
    using ModeBench::send;
    using ModeBench::sender;
    using ModeBench::standardOutput;
    using ModeBench::waitForLog;
    using ModeBench::waitForRecord;
    using ModeBench::workdir;

    /// Lets the driver act and waits until it has.
    bool act(const std::string& verb, const std::string& name, const std::string& value = {}) {
        const std::size_t already = this->recordOf("A did").size();
        this->send("A." + verb, {{"name", name}, {"value", value}});
        return this->eventually([&] { return this->recordOf("A did").size() > already; });
    }
    /// Everything reported so far has arrived: the panel's calls, in order.
    Lines reported() {
        const int already = host.calls.count("event A.END ");
        this->send("A.event", {{"name", "END"}});
        EXPECT_TRUE(host.calls.waitFor("event A.END ", already + 1));
        Lines lines = host.calls.lines();
        std::erase(lines, "event A.END ");
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("PANEL.MFDDEF"); });
        return lines;
    }
    /// The FIDs that the driver got so far, in order.
    Lines fids() {
        this->send("A.LAST");
        EXPECT_TRUE(this->waitForRecord("A sendFID LAST"));
        Lines lines = this->recordOf("A sendFID ");
        lines.pop_back();
        return lines;
    }
};

using BothModes = testing::Types<InProcess, Process>;
TYPED_TEST_SUITE(Modes, BothModes);

// What the driver is told.

TYPED_TEST(Modes, ConfigurationCarriesEveryValueOfTheEntry) {
    auto& s = *this;
    ASSERT_TRUE(s.load("A", {.workplace = 5,
                             .workingDirectory = "data/axis",
                             .ipAddress = "198.51.100.21",
                             .networkAdapter = "eth1"}));
    EXPECT_TRUE(s.waitForRecord("A setConfiguration 5|A|data/axis|198.51.100.21|eth1|192.0.2.10|" +
                                s.workdir() + "/nvram/A"));
}

TYPED_TEST(Modes, ConfigurationWithoutAnAddressHasTheAdaptersOwn) {
    auto& s = *this;
    ASSERT_TRUE(s.load("A", {.networkAdapter = "eth1"}));
    EXPECT_TRUE(s.waitForRecord("A setConfiguration 0|A|data/A|198.51.100.5|eth1|192.0.2.10|" + s.workdir() +
                                "/nvram/A"));
}

TYPED_TEST(Modes, ConfigurationWithoutAnAdapterHasTheFirst) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    EXPECT_TRUE(s.waitForRecord("A setConfiguration 0|A|data/A|192.0.2.10|eth0|192.0.2.10|" + s.workdir() +
                                "/nvram/A"));
}

TYPED_TEST(Modes, EmptyWorkingDirectoryArrivesEmpty) {
    auto& s = *this;
    ASSERT_TRUE(s.load("A", {.workingDirectory = ""}));
    EXPECT_TRUE(
        s.waitForRecord("A setConfiguration 0|A||192.0.2.10|eth0|192.0.2.10|" + s.workdir() + "/nvram/A"));
}

TYPED_TEST(Modes, WorkplaceNumberKeepsItsSign) {
    auto& s = *this;
    ASSERT_TRUE(s.load("A", {.workplace = INT_MIN}));
    EXPECT_TRUE(s.waitForRecord("A setConfiguration -2147483648|A|data/A|192.0.2.10|eth0|192.0.2.10|" +
                                s.workdir() + "/nvram/A"));
}

TYPED_TEST(Modes, TextsOf255BytesArriveWhole) {
    auto& s = *this;
    const std::string longest = std::string(127, 'd') + "/" + std::string(127, 'e');
    ASSERT_TRUE(s.load("A", {.workingDirectory = longest}));
    EXPECT_TRUE(s.waitForRecord("A setConfiguration 0|A|" + longest + "|192.0.2.10|eth0|192.0.2.10|" +
                                s.workdir() + "/nvram/A"));
}

TYPED_TEST(Modes, DirectoriesAndLinkAreThereForTheDriver) {
    auto& s = *this;
    s.acts("setConfiguration|wait|/var/data/A;setConfiguration|wait|" + s.workdir() +
           "/data/A;setConfiguration|wait|" + s.workdir() + "/nvram/A;setConfiguration|unset|READY");
    ASSERT_TRUE(s.load());
    EXPECT_THAT(s.reported(), ElementsAre("A.READY unset"));
    EXPECT_EQ(std::filesystem::read_symlink("/var/data/A"), s.workdir() + "/data/A");
}

TYPED_TEST(Modes, EntryOfTheWorkplaceFileArrives) {
    auto& s = *this;
    ASSERT_TRUE(s.startWorkplace(7, s.entry(s.mode, "A")));
    EXPECT_TRUE(s.waitForRecord("A setConfiguration 7|A|data/A|192.0.2.10|eth0|192.0.2.10|" + s.workdir() +
                                "/nvram/A"));
}

TYPED_TEST(Modes, InitializationCompletesOnceAndBehindTheConfiguration) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    s.fids();
    EXPECT_THAT(s.recordOf("A "), ElementsAre(testing::StartsWith("A setConfiguration "),
                                              "A initializationCompleted", "A sendFID LAST"));
}

TYPED_TEST(Modes, CreateFidListIsNeverAsked) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    s.fids();
    EXPECT_THAT(s.record(), Not(Contains(HasSubstr("createFIDList"))));
}

TYPED_TEST(Modes, WhatTheDriverAnswersStopsNothing) {
    auto& s = *this;
    s.acts("setConfiguration|fail;initializationCompleted|fail;sendFID|fail;deinitialize|fail");
    EXPECT_TRUE(s.load());
    s.send("A.FIRST");
    EXPECT_THAT(s.fids(), ElementsAre("A sendFID FIRST"));
    s.end();
    EXPECT_TRUE(s.waitForRecord("A destroyed"));
    EXPECT_THAT(s.recordOf("A deinit"), ElementsAre("A deinitialize"));
}

// What the driver reports.

TYPED_TEST(Modes, TextsArriveUnchanged) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    Lines expected;
    for (const std::string& text : {std::string(), std::string(" "), std::string("on"), std::string("a=b, c"),
                                    std::string("\xc3\xa4\xff\x01\n"), std::string(240, 'v')}) {
        s.send("A.string", {{"name", "S" + std::to_string(expected.size())}, {"value", text}});
        expected.push_back("A.S" + std::to_string(expected.size()) + " string " + text);
    }
    EXPECT_EQ(s.reported(), expected);
}

TYPED_TEST(Modes, TextOf255BytesArrivesWhole) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    s.send("A.long", {{"name", std::string(200, 'n')}, {"value", "255"}});
    EXPECT_THAT(s.reported(), ElementsAre("A." + std::string(200, 'n') + " string " + std::string(255, 'v')));
}

TYPED_TEST(Modes, IntegersArriveUnchanged) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    Lines expected;
    for (const int value : {0, 1, -1, 255, 256, 65536, INT_MAX, INT_MIN}) {
        s.send("A.int", {{"name", "I" + std::to_string(expected.size())}, {"value", std::to_string(value)}});
        expected.push_back("A.I" + std::to_string(expected.size()) + " int " + std::to_string(value));
    }
    EXPECT_EQ(s.reported(), expected);
}

TYPED_TEST(Modes, FloatsArriveBitByBit) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    const std::vector<std::pair<const char*, float>> values{
        {"0", 0.0F},
        {"-0", -0.0F},
        {"21.5", 21.5F},
        {"0.1", 0.1F},
        {"0x1.fffffep+127", std::numeric_limits<float>::max()},
        {"0x1p-149", std::numeric_limits<float>::denorm_min()},
        {"inf", std::numeric_limits<float>::infinity()},
        {"-inf", -std::numeric_limits<float>::infinity()},
        {"nan", std::numeric_limits<float>::quiet_NaN()}};
    Lines expected;
    for (const auto& [text, value] : values) {
        s.send("A.float", {{"name", "F" + std::to_string(expected.size())}, {"value", text}});
        expected.push_back("A.F" + std::to_string(expected.size()) + " float " +
                           ModeHost::hexadecimal(std::bit_cast<std::uint32_t>(value)));
    }
    EXPECT_EQ(s.reported(), expected);
}

TYPED_TEST(Modes, BooleansUnsetsAndEventsArrive) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    s.send("A.bool", {{"name", "B1"}, {"value", "true"}});
    s.send("A.bool", {{"name", "B2"}, {"value", "false"}});
    s.send("A.unset", {{"name", "B3"}});
    s.send("A.event", {{"name", "ALARM"}, {"value", "hot"}});
    s.send("A.event", {{"name", "ALARM"}, {"value", "hot"}});
    EXPECT_THAT(s.reported(), ElementsAre("A.B1 bool true", "A.B2 bool false", "A.B3 unset",
                                          "event A.ALARM hot", "event A.ALARM hot"));
}

TYPED_TEST(Modes, ValuesOfAllTypesUnderOneNameKeepTheirOrder) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    s.send("A.string", {{"name", "X"}, {"value", "1"}});
    s.send("A.int", {{"name", "X"}, {"value", "2"}});
    s.send("A.float", {{"name", "X"}, {"value", "1"}});
    s.send("A.bool", {{"name", "X"}, {"value", "true"}});
    s.send("A.event", {{"name", "X"}, {"value", "3"}});
    s.send("A.unset", {{"name", "X"}});
    EXPECT_THAT(s.reported(), ElementsAre("A.X string 1", "A.X int 2", "A.X float 3f800000", "A.X bool true",
                                          "event A.X 3", "A.X unset"));
}

TYPED_TEST(Modes, KeyIsTheDriverADotAndTheName) {
    auto& s = *this;
    ASSERT_TRUE(s.load("A", {}));
    s.send("A.unset", {{"name", "B.C"}});
    s.send("A.unset", {{"name", ""}});
    s.send("A.unset", {{"name", ".D"}});
    s.send("A.unset", {{"name", "A.E"}});
    EXPECT_THAT(s.reported(), ElementsAre("A.B.C unset", "A. unset", "A..D unset", "A.A.E unset"));
}

TYPED_TEST(Modes, ReportsFromInsideEachOperationArrive) {
    auto& s = *this;
    s.acts(
        "setPanelStateInterface|unset|1;setSystemInterface|unset|2;setConfiguration|unset|3;"
        "initializationCompleted|unset|4;subscribe|unset|5;showState|unset|6");
    ASSERT_TRUE(s.load());
    s.sender().subscribe("A.x");
    s.manager().showModules();
    EXPECT_THAT(s.reported(),
                ElementsAre("A.1 unset", "A.2 unset", "A.3 unset", "A.4 unset", "A.5 unset", "A.6 unset"));
}

TYPED_TEST(Modes, ReportsOfManyThreadsArriveInEachThreadsOrder) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    s.send("A.threads", {{"value", "4"}});
    ASSERT_TRUE(s.waitForRecord("A did threads"));
    s.reported();
    for (const std::string thread : {"T0", "T1", "T2", "T3"}) {
        Lines expected;
        for (int value = 0; value < 50; ++value)
            expected.push_back("event A." + thread + " " + std::to_string(value));
        EXPECT_EQ(s.host.calls.linesOf("event A." + thread + " "), expected);
    }
}

// Commands for the host.

TYPED_TEST(Modes, CommandsReachTheHost) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    s.send("A.command", {{"name", "reloadDriver"}, {"value", "B"}});
    s.send("A.command", {{"name", ""}, {"value", ""}});
    s.send("A.command", {{"name", "say"}, {"value", "two  words=\xc3\xa4"}});
    EXPECT_THAT(s.reported(),
                ElementsAre("command reloadDriver B", "command  ", "command say two  words=\xc3\xa4"));
}

TYPED_TEST(Modes, CommandNeverOvertakesAReport) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    Lines expected;
    for (int round = 0; round < 20; ++round) {
        const std::string number = std::to_string(round);
        s.send("A.int", {{"name", "X" + number}, {"value", number}});
        s.send("A.command", {{"name", "go"}, {"value", number}});
        expected.push_back("A.X" + number + " int " + number);
        expected.push_back("command go " + number);
    }
    EXPECT_EQ(s.reported(), expected);
}

// FIDs that the driver gets.

TYPED_TEST(Modes, FidArrivesWithoutItsDriverAndWithItsParameters) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    ASSERT_TRUE(s.waitForRecord("A initializationCompleted"));
    s.send("A.NONE");
    s.send("A.ONE", {{"to", "12.5"}});
    s.send("A.ORDER", {{"b", "1"}, {"a", "2"}, {"b", "3"}});
    s.send("A.EMPTY", {{"", ""}, {"a", ""}, {"", "b"}});
    s.send("A.TEXTS", {{"a=b", "c, d"}, {" ", "\xc3\xa4\xff"}, {"n", "-5"}});
    s.send("A.B.C");
    s.send("A.");
    s.send("A..");
    EXPECT_THAT(s.fids(),
                ElementsAre("A sendFID NONE", "A sendFID ONE to=12.5", "A sendFID ORDER b=1, a=2, b=3",
                            "A sendFID EMPTY =, a=, =b", "A sendFID TEXTS a=b=c, d,  =\xc3\xa4\xff, n=-5",
                            "A sendFID B.C", "A sendFID ", "A sendFID ."));
}

TYPED_TEST(Modes, TextsOfAFidMayHave255Bytes) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    const std::string function(255, 'f');
    const std::string name(255, 'n');
    const std::string value(255, 'v');
    s.send("A." + function, {{name, value}});
    EXPECT_THAT(s.fids(), ElementsAre("A sendFID " + function + " " + name + "=" + value));
}

TYPED_TEST(Modes, FidMayHave255Parameters) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    ModeBench::Parameters parameters;
    std::string expected = "A sendFID MANY ";
    for (int index = 0; index < 255; ++index) {
        parameters.emplace_back("n", "");
        expected += index ? ", n=" : "n=";
    }
    s.send("A.MANY", parameters);
    EXPECT_THAT(s.fids(), ElementsAre(expected));
}

TYPED_TEST(Modes, FidsKeepTheirOrder) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    Lines expected;
    for (int number = 0; number < 300; ++number) {
        s.send("A.N" + std::to_string(number));
        expected.push_back("A sendFID N" + std::to_string(number));
    }
    EXPECT_EQ(s.fids(), expected);
}

TYPED_TEST(Modes, FidsForOthersDoNotArrive) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    for (const char* fid : {"A", "", ".A", "a.x", "AA.x", "B.A.x", " A.x", "A .x"})
        s.send(fid);
    EXPECT_THAT(s.fids(), IsEmpty());
}

TYPED_TEST(Modes, SubscriptionArrivesWithoutItsDriver) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    ASSERT_TRUE(s.waitForRecord("A initializationCompleted"));
    EXPECT_TRUE(s.sender().subscribe("A.POSITION"));
    EXPECT_TRUE(s.sender().subscribe("A.B.C"));
    EXPECT_TRUE(s.sender().subscribe("A."));
    EXPECT_TRUE(s.sender().subscribe("A." + std::string(255, 's')));
    s.fids();
    EXPECT_THAT(s.recordOf("A subscribe"),
                ElementsAre("A subscribe POSITION", "A subscribe B.C", "A subscribe ",
                            "A subscribe " + std::string(255, 's')));
}

TYPED_TEST(Modes, SubscriptionForOthersDoesNotArriveAndIsNotLogged) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    for (const char* fid : {"A", "", ".x", "a.x", "B.x"})
        EXPECT_FALSE(s.sender().subscribe(fid)) << fid;
    s.fids();
    EXPECT_THAT(s.recordOf("A subscribe"), IsEmpty());
    EXPECT_THAT(s.log(), Not(HasSubstr("not dispatched")));
}

TYPED_TEST(Modes, DriverIsAskedForItsReportOnce) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    s.manager().showModules();
    s.fids();
    EXPECT_THAT(s.recordOf("A showState"), ElementsAre("A showState"));
    EXPECT_THAT(s.standardOutput(), HasSubstr("Used MfDriver Modules\nA\n"));
}

// FIDs that the driver sends.

TYPED_TEST(Modes, FidReachesTheDriverThatItNames) {
    auto& s = *this;
    ASSERT_TRUE(s.loadPartner());
    ASSERT_TRUE(s.load());
    s.send("A.send", {{"name", "B.HELLO"}});
    s.send("A.send", {{"name", "B.C.D"}, {"b", "1"}, {"a", ""}, {"", "2"}, {"b", "=3"}});
    s.send("A.syssend", {{"name", "B.SYSTEM"}, {"x", std::string(200, 'x')}});
    EXPECT_TRUE(s.waitForRecord("B sendFID SYSTEM x=" + std::string(200, 'x')));
    EXPECT_THAT(s.recordOf("B sendFID "), ElementsAre("B sendFID HELLO", "B sendFID C.D b=1, a=, =2, b==3",
                                                      "B sendFID SYSTEM x=" + std::string(200, 'x')));
}

TYPED_TEST(Modes, TwoDriversOfOneModeReachEachOther) {
    auto& s = *this;
    ASSERT_TRUE(s.load("B", {.workingDirectory = "data/B"}));
    ASSERT_TRUE(s.load());
    s.send("A.send", {{"name", "B.string"}, {"name", "GOT"}, {"value", "it"}});
    EXPECT_TRUE(s.host.calls.waitFor("B. string it"));
}

TYPED_TEST(Modes, FidReachesTheSenderItself) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    s.send("A.send", {{"name", "A.AGAIN"}, {"x", "1"}});
    EXPECT_TRUE(s.waitForRecord("A sendFID AGAIN x=1"));
}

TYPED_TEST(Modes, FidForAnUnknownDriverIsLoggedAndTheDriverGoesOn) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    ASSERT_TRUE(s.act("send", "NOPE.x", "5"));
    EXPECT_TRUE(s.waitForLog("MDM: NOPE.x ( value=5) received."));
    EXPECT_TRUE(s.waitForLog("MDM:  -> but not dispatched"));
    EXPECT_THAT(s.fids(), ElementsAre("A sendFID send name=NOPE.x, value=5"));
}

TYPED_TEST(Modes, FidWithoutADotIsLoggedAlone) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    ASSERT_TRUE(s.act("send", "NODOT", "5"));
    EXPECT_TRUE(s.waitForLog("MDM: NODOT ( value=5) received."));
    s.reported();
    EXPECT_THAT(s.log(), Not(HasSubstr("not dispatched")));
}

TYPED_TEST(Modes, FidNeverOvertakesAReport) {
    auto& s = *this;
    ASSERT_TRUE(s.loadPartner());
    ASSERT_TRUE(s.load());
    Lines expected;
    for (int round = 0; round < 20; ++round) {
        const std::string number = std::to_string(round);
        s.send("A.int", {{"name", "X" + number}, {"value", number}});
        s.send("A.send", {{"name", "B.unset"}, {"round", number}});
        expected.push_back("A.X" + number + " int " + number);
        expected.emplace_back("B. unset");
    }
    EXPECT_EQ(s.reported(), expected);
}

TYPED_TEST(Modes, PanelsMacroSystemIsToldOfTheDriversFids) {
    auto& s = *this;
    ASSERT_TRUE(s.startWorkplace(0, s.entry(s.mode, "A")));
    s.send("A.send", {{"name", "NOPE.x"}, {"y", "1"}});
    EXPECT_TRUE(s.waitForRecord("fidDispatched NOPE.x y=1"));
    EXPECT_THAT(s.recordOf("fidDispatched"),
                ElementsAre("fidDispatched A.send name=NOPE.x, y=1", "fidDispatched NOPE.x y=1"));
}

TYPED_TEST(Modes, PanelDriverGetsTheDriversFids) {
    auto& s = *this;
    ASSERT_TRUE(s.startWorkplace(0, s.entry(s.mode, "A")));
    s.send("A.send", {{"name", "PANEL.SHOW"}, {"page", "2"}});
    EXPECT_TRUE(s.waitForRecord("sendFID SHOW page=2"));
}

// Exceptions.

TYPED_TEST(Modes, ExceptionOutOfAnyOperationHoldsUpNothing) {
    auto& s = *this;
    s.acts(
        "setPanelStateInterface|throw;setDistributorFIDInterface|throw;setSystemInterface|throw;"
        "setConfiguration|throw;initializationCompleted|throw;subscribe|throw;showState|throw;"
        "deinitialize|throw");
    ASSERT_TRUE(s.load());
    ASSERT_TRUE(s.waitForRecord("A initializationCompleted"));
    EXPECT_NO_THROW(s.sender().subscribe("A.x"));
    EXPECT_NO_THROW(s.manager().showModules());
    EXPECT_NO_THROW(s.send("A.throw"));
    s.send("A.unset", {{"name", "ALIVE"}});
    EXPECT_THAT(s.reported(), ElementsAre("A.ALIVE unset"));
    EXPECT_NO_THROW(s.end());
    ASSERT_TRUE(s.waitForRecord("A destroyed"));
    EXPECT_THAT(
        s.recordOf("A "),
        ElementsAre(testing::StartsWith("A setConfiguration "), "A initializationCompleted", "A subscribe x",
                    "A showState", "A sendFID throw", "A sendFID unset name=ALIVE", "A did unset",
                    "A sendFID event name=END", "A did event", "A deinitialize", "A destroyed"));
}

TYPED_TEST(Modes, ExceptionIsLoggedWithTheDriverItsOperationAndItsText) {
    auto& s = *this;
    s.acts("initializationCompleted|throw;deinitialize|throw");
    ASSERT_TRUE(s.load());
    s.send("A.throw");
    for (const std::string operation : {"initializationCompleted", "sendFID", "deinitialize"}) {
        if (operation == "deinitialize")
            s.end();
        const std::string line = "driver A: an exception left " + operation + "(" +
                                 (operation == "sendFID" ? "throw" : "") + "): ";
        EXPECT_TRUE(s.waitForLog(line)) << line;
        EXPECT_THAT(s.log().substr(s.log().find(line)), HasSubstr("thrown on purpose"));
    }
}

// The end.

TYPED_TEST(Modes, EndDeinitialisesOnceAndThenDestroys) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    ASSERT_TRUE(s.waitForRecord("A initializationCompleted"));
    s.end();
    ASSERT_TRUE(s.waitForRecord("A destroyed"));
    EXPECT_THAT(s.recordOf("A "), ElementsAre(testing::StartsWith("A setConfiguration "),
                                              "A initializationCompleted", "A deinitialize", "A destroyed"));
    EXPECT_THAT(s.standardOutput(), testing::EndsWith("Deinitializing MF driver ID: A...OK\n"));
}

TYPED_TEST(Modes, EndDeinitialisesAllInTheOrderOfTheirIDs) {
    auto& s = *this;
    ASSERT_TRUE(s.load("B", {.workingDirectory = "data/B"}));
    ASSERT_TRUE(s.load("A"));
    s.end();
    EXPECT_THAT(s.standardOutput(), testing::EndsWith("Deinitializing MF driver ID: A...OK\n"
                                                      "Deinitializing MF driver ID: B...OK\n"));
}

TYPED_TEST(Modes, FidsSentBeforeTheEndArriveBeforeIt) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    for (int number = 0; number < 100; ++number)
        s.send("A.N" + std::to_string(number));
    s.end();
    ASSERT_TRUE(s.waitForRecord("A destroyed"));
    const Lines lines = s.recordOf("A ");
    ASSERT_EQ(lines.size(), 2U + 100U + 2U);
    EXPECT_EQ(lines[lines.size() - 3], "A sendFID N99");
    EXPECT_EQ(lines[lines.size() - 2], "A deinitialize");
}

TYPED_TEST(Modes, ReportsMadeBeforeTheEndArrive) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    ASSERT_TRUE(s.act("burst", "X", "500"));
    s.end();
    EXPECT_EQ(s.host.calls.linesOf("event A.X ").size(), 500U);
    EXPECT_THAT(s.host.calls.linesOf("A.X int "), Contains("A.X int 500"));
}

TYPED_TEST(Modes, NothingIsReportedBehindTheEnd) {
    auto& s = *this;
    ASSERT_TRUE(s.load());
    ASSERT_TRUE(s.act("burst", "X", "20"));
    s.end();
    const std::size_t before = s.host.calls.lines().size();
    ASSERT_TRUE(s.waitForRecord("A destroyed"));
    EXPECT_EQ(s.host.calls.lines().size(), before);
}

TYPED_TEST(Modes, ReloadEndsTheOldDriverBeforeTheNewOneIsConfigured) {
    auto& s = *this;
    ASSERT_TRUE(s.startWorkplace(1, s.entry(s.mode, "A")));
    ASSERT_TRUE(s.waitForRecord("A initializationCompleted"));
    s.configure(6, s.entry(s.mode, "A"));
    ASSERT_TRUE(s.reload("A"));
    s.send("A.NEW");
    ASSERT_TRUE(s.waitForRecord("A sendFID NEW"));
    EXPECT_THAT(s.recordOf("A "),
                ElementsAre(testing::StartsWith("A setConfiguration 1|"), "A initializationCompleted",
                            "A deinitialize", "A destroyed", testing::StartsWith("A setConfiguration 6|"),
                            "A initializationCompleted", "A sendFID NEW"));
}

TYPED_TEST(Modes, ReloadedDriverReportsUnderItsID) {
    auto& s = *this;
    ASSERT_TRUE(s.startWorkplace(0, s.entry(s.mode, "A")));
    ASSERT_TRUE(s.reload("A"));
    s.send("A.unset", {{"name", "X"}});
    EXPECT_THAT(s.reported(), ElementsAre("A.X unset"));
}

TYPED_TEST(Modes, FidForAnUnloadedDriverIsSwallowed) {
    auto& s = *this;
    ASSERT_TRUE(s.startWorkplace(0, s.entry(s.mode, "A")));
    ASSERT_TRUE(s.waitForRecord("A initializationCompleted"));
    s.configure(0, s.entry(s.mode, "A", "Unknown"));
    ASSERT_TRUE(s.reload("A"));
    s.send("A.x");
    EXPECT_FALSE(s.sender().subscribe("A.x"));
    EXPECT_EQ(s.recordOf("A ").back(), "A destroyed");
    EXPECT_THAT(s.log(), HasSubstr("MDM: A.x ( ) received."));
    EXPECT_THAT(s.log(), Not(HasSubstr("not dispatched")));
}

TYPED_TEST(Modes, FidsMayFlowWhileTheDriverIsReloaded) {
    auto& s = *this;
    ASSERT_TRUE(s.startWorkplace(0, s.entry(s.mode, "A")));
    std::atomic<bool> stop{false};
    std::thread flow([&] {
        while (!stop) {
            s.send("A.FLOW");
            std::this_thread::sleep_for(2ms);
        }
    });
    EXPECT_TRUE(s.reload("A"));
    EXPECT_TRUE(s.reload("A"));
    stop = true;
    flow.join();
    s.fids();
    bool destroyed = false;
    for (const std::string& line : s.record()) {
        if (line == "A destroyed")
            destroyed = true;
        else if (line.starts_with("? set"))
            destroyed = false;
        // One of the next driver, which is not configured yet, begins with "?".
        EXPECT_FALSE(destroyed && line.starts_with("A sendFID")) << line;
    }
}

// Where the modes differ.

class ModeDifferences : public ModeBench {
protected:
    bool load(EInterfaceTypes mode, const std::string& workingDirectory = "data/A") {
        return ModeBench::load(mode, "A", {.workingDirectory = workingDirectory});
    }
    /// Holds the panel in the delivery of "A.HOLD" until the gate is opened.
    void holdPanel() {
        host.onStateText = [this](const std::string& key) {
            if (key != "A.HOLD")
                return;
            m_held.set_value();
            m_released.get_future().wait_for(c_hangGuard);
        };
    }
    bool panelIsHeld() { return m_held.get_future().wait_for(c_hangGuard) == std::future_status::ready; }
    void releasePanel() { m_released.set_value(); }

private:
    std::promise<void> m_held;
    std::promise<void> m_released;
};

TEST_F(ModeDifferences, InProcessDriverGetsNoDistributor) {
    ASSERT_TRUE(load(direct));
    EXPECT_THAT(record(),
                ElementsAre("? setPanelStateInterface set", "? setSystemInterface set",
                            testing::StartsWith("A setConfiguration"), "A initializationCompleted"));
}

TEST_F(ModeDifferences, ProcessDriverGetsADistributor) {
    ASSERT_TRUE(load(queue));
    ASSERT_TRUE(waitForRecord("A initializationCompleted"));
    EXPECT_THAT(record(), ElementsAre("? setPanelStateInterface set", "? setDistributorFIDInterface set",
                                      "? setSystemInterface set", testing::StartsWith("A setConfiguration"),
                                      "A initializationCompleted"));
}

TEST_F(ModeDifferences, InProcessLoadReturnsWhenTheDriverIsReady) {
    acts("initializationCompleted|wait|" + gate("ready"));
    auto loading = std::async(std::launch::async, [&] { return load(direct); });
    ASSERT_TRUE(waitForRecord("A initializationCompleted"));
    EXPECT_EQ(loading.wait_for(50ms), std::future_status::timeout);
    open("ready");
    EXPECT_TRUE(loading.get());
}

TEST_F(ModeDifferences, ProcessLoadReturnsWhileTheDriverIsNotReadyYet) {
    acts("initializationCompleted|wait|" + gate("ready"));
    EXPECT_TRUE(load(queue));
    send("A.EARLY");
    ASSERT_TRUE(waitForRecord("A initializationCompleted"));
    EXPECT_THAT(recordOf("A sendFID"), IsEmpty());
    open("ready");
    EXPECT_TRUE(waitForRecord("A sendFID EARLY"));
}

TEST_F(ModeDifferences, InProcessFidBeforeTheConfigurationArrivesAtOnce) {
    acts("setSystemInterface|syssend|A.EARLY");
    ASSERT_TRUE(load(direct));
    EXPECT_THAT(
        record(),
        ElementsAre("? setPanelStateInterface set", "? setSystemInterface set", "? sendFID EARLY",
                    "? did syssend", testing::StartsWith("A setConfiguration"), "A initializationCompleted"));
}

TEST_F(ModeDifferences, ProcessFidBeforeTheConfigurationArrivesBeforeIt) {
    if (waitsUntilAttached())
        GTEST_SKIP() << "there is hardly a moment before the configuration";
    std::atomic<bool> stop{false};
    std::thread early([&] {
        while (!stop) {
            send("A.EARLY");
            std::this_thread::sleep_for(10ms);
        }
    });
    EXPECT_TRUE(load(queue));
    stop = true;
    early.join();
    ASSERT_TRUE(waitForRecord("A initializationCompleted"));
    EXPECT_THAT(record(), Contains("? sendFID EARLY"));
}

TEST_F(ModeDifferences, InProcessDeliversEveryUpdate) {
    ASSERT_TRUE(load(direct));
    send("A.burst", {{"name", "X"}, {"value", "3"}});
    EXPECT_THAT(host.calls.linesOf("A.X "), ElementsAre("A.X int 1", "A.X int 2", "A.X int 3"));
    EXPECT_THAT(host.calls.linesOf("event "), ElementsAre("event A.X 1", "event A.X 2", "event A.X 3"));
}

TEST_F(ModeDifferences, ProcessMergesPendingUpdatesAndNoEvents) {
    ASSERT_TRUE(load(queue));
    holdPanel();
    send("A.string", {{"name", "HOLD"}});
    ASSERT_TRUE(panelIsHeld());
    send("A.burst", {{"name", "X"}, {"value", "3"}});
    ASSERT_TRUE(waitForRecord("A did burst"));
    releasePanel();
    ASSERT_TRUE(host.calls.waitFor("event A.X 3"));
    Lines lines = host.calls.lines();
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("PANEL."); });
    EXPECT_THAT(lines,
                ElementsAre("A.HOLD string ", "event A.X 1", "event A.X 2", "A.X int 3", "event A.X 3"));
}

TEST_F(ModeDifferences, InProcessReportReturnsWhenThePanelHasIt) {
    ASSERT_TRUE(load(direct));
    holdPanel();
    auto sending = std::async(std::launch::async, [&] { return send("A.string", {{"name", "HOLD"}}); });
    ASSERT_TRUE(panelIsHeld());
    EXPECT_EQ(sending.wait_for(50ms), std::future_status::timeout);
    EXPECT_THAT(record(), Not(Contains("A did string")));
    releasePanel();
    sending.get();
    EXPECT_THAT(record(), Contains("A did string"));
}

TEST_F(ModeDifferences, ProcessReportReturnsWhileThePanelIsBusy) {
    ASSERT_TRUE(load(queue));
    holdPanel();
    send("A.string", {{"name", "HOLD"}});
    ASSERT_TRUE(panelIsHeld());
    EXPECT_TRUE(waitForRecord("A did string"));
    send("A.string", {{"name", "NEXT"}, {"value", "1"}});
    EXPECT_TRUE(waitForRecord("A sendFID string name=NEXT, value=1"));
    EXPECT_THAT(host.calls.linesOf("A."), IsEmpty());
    releasePanel();
    EXPECT_TRUE(host.calls.waitFor("A.NEXT string 1"));
}

TEST_F(ModeDifferences, InProcessFidReturnsWhenTheDriverHas) {
    ASSERT_TRUE(load(direct));
    auto sending = std::async(std::launch::async, [&] { return send("A.wait", {{"name", gate("done")}}); });
    ASSERT_TRUE(waitForRecord("A sendFID wait name=" + gate("done")));
    EXPECT_EQ(sending.wait_for(50ms), std::future_status::timeout);
    open("done");
    EXPECT_TRUE(sending.get());
}

TEST_F(ModeDifferences, ProcessFidReturnsWhileTheDriverIsBusy) {
    ASSERT_TRUE(load(queue));
    EXPECT_TRUE(send("A.wait", {{"name", gate("done")}}));
    EXPECT_TRUE(send("A.NEXT"));
    ASSERT_TRUE(waitForRecord("A sendFID wait name=" + gate("done")));
    EXPECT_THAT(record(), Not(Contains("A sendFID NEXT")));
    open("done");
    EXPECT_TRUE(waitForRecord("A sendFID NEXT"));
}

TEST_F(ModeDifferences, InProcessSubscriptionGivesTheDriversAnswer) {
    acts("subscribe|fail");
    ASSERT_TRUE(load(direct));
    EXPECT_FALSE(sender().subscribe("A.x"));
}

TEST_F(ModeDifferences, ProcessSubscriptionGivesWhetherItWasSent) {
    acts("subscribe|fail");
    ASSERT_TRUE(load(queue));
    EXPECT_TRUE(sender().subscribe("A.x"));
    EXPECT_TRUE(waitForRecord("A subscribe x"));
}

TEST_F(ModeDifferences, InProcessConfigurationTextsHaveNoLimit) {
    const std::string directory256 = std::string(128, 'd') + "/" + std::string(127, 'e');
    ASSERT_TRUE(load(direct, directory256));
    EXPECT_THAT(record(), Contains(HasSubstr("|A|" + directory256 + "|192.0.2.10|eth0|")));
}

TEST_F(ModeDifferences, ProcessCutsConfigurationTextsToTheirLengthModulo256) {
    ASSERT_TRUE(load(queue, std::string(128, 'd') + "/" + std::string(130, 'e')));
    EXPECT_TRUE(
        waitForRecord("A setConfiguration 0|A|ddd|192.0.2.10|eth0|192.0.2.10|" + workdir() + "/nvram/A"));
}

TEST_F(ModeDifferences, InProcessFidTextsHaveNoLimit) {
    ASSERT_TRUE(load(direct));
    send("A." + std::string(300, 'f'), {{std::string(600, 'n'), std::string(600, 'v')}});
    EXPECT_THAT(record(), Contains("A sendFID " + std::string(300, 'f') + " " + std::string(600, 'n') + "=" +
                                   std::string(600, 'v')));
}

TEST_F(ModeDifferences, ProcessCutsTheFunctionToItsLengthModulo256) {
    ASSERT_TRUE(load(queue));
    send("A." + std::string(300, 'f'), {{"a", "1"}});
    EXPECT_TRUE(waitForRecord("A sendFID " + std::string(44, 'f') + " a=1"));
}

TEST_F(ModeDifferences, ProcessLeavesOutWholeParametersThatDoNotFitAndSaysSo) {
    ASSERT_TRUE(load(queue));
    const std::string value(255, 'v');
    send("A.FILL", {{"a", value}, {"b", value}, {"c", value}, {"d", value}});
    EXPECT_TRUE(waitForRecord("A sendFID FILL a=" + value + ", b=" + value + ", c=" + value));
    EXPECT_TRUE(waitForLog("parameter"));
}

TEST_F(ModeDifferences, InProcessReportsHaveNoLimit) {
    ASSERT_TRUE(load(direct));
    send("A.long", {{"name", "X"}, {"value", "5000"}});
    EXPECT_THAT(host.calls.linesOf("A.X"), ElementsAre("A.X string " + std::string(5000, 'v')));
}

TEST_F(ModeDifferences, ProcessDropsALongerReportAndSaysSo) {
    ASSERT_TRUE(load(queue));
    send("A.long", {{"name", "X"}, {"value", "256"}});
    send("A.unset", {{"name", "NEXT"}});
    EXPECT_TRUE(host.calls.waitFor("A.NEXT unset"));
    EXPECT_THAT(host.calls.linesOf("A.X"), IsEmpty());
    EXPECT_TRUE(waitForLog("256"));
}

TEST_F(ModeDifferences, InProcessSenderMayUseALongFid) {
    acts("initializationCompleted|send|B." + std::string(300, 'f'));
    ASSERT_TRUE(load(direct));
    EXPECT_THAT(record(), Contains("A did send"));
}

TEST_F(ModeDifferences, ProcessTellsTheSenderOfALongFidThatItWasRefused) {
    acts("initializationCompleted|send|B." + std::string(300, 'f'));
    ASSERT_TRUE(load(queue));
    EXPECT_TRUE(waitForRecord("A did send, refused"));
}

TEST_F(ModeDifferences, InProcessTextsKeepAZeroByte) {
    ASSERT_TRUE(load(direct));
    send(std::string("A.f\0g", 5), {{"a", std::string("b\0c", 3)}});
    send("A.zero", {{"name", "X"}});
    EXPECT_THAT(record(), Contains("A sendFID f\\0g a=b\\0c"));
    EXPECT_THAT(host.calls.linesOf("A.X"), ElementsAre(std::string("A.X string a\0b", 14)));
}

TEST_F(ModeDifferences, ProcessCutsTextsAtAZeroByte) {
    ASSERT_TRUE(load(queue));
    send(std::string("A.f\0g", 5), {{"a", "1"}});
    send("A.zero", {{"name", "X"}});
    EXPECT_TRUE(waitForRecord("A sendFID f a=1"));
    EXPECT_TRUE(host.calls.waitFor("A.X string a"));
}

TEST_F(ModeDifferences, InProcessDriverMayReportAndSendWhileItIsDeinitialised) {
    acts("deinitialize|string|LAST|word;deinitialize|syssend|B.BYE");
    ASSERT_TRUE(load(direct));
    acts("");
    ASSERT_TRUE(ModeBench::load(direct, "B", {.workingDirectory = "data/B"}));
    acts("deinitialize|string|LAST|word;deinitialize|syssend|B.BYE");
    end();
    EXPECT_THAT(host.calls.linesOf("A."), ElementsAre("A.LAST string word"));
    EXPECT_THAT(record(), Contains("B sendFID BYE"));
}

TEST_F(ModeDifferences, InProcessDriversAreAllDeinitialisedBeforeOneIsDestroyed) {
    ASSERT_TRUE(ModeBench::load(direct, "B", {.workingDirectory = "data/B"}));
    ASSERT_TRUE(load(direct));
    end();
    Lines lines = record();
    lines.erase(lines.begin(), lines.end() - 4);
    EXPECT_THAT(lines, ElementsAre("A deinitialize", "B deinitialize", "A destroyed", "B destroyed"));
}

TEST_F(ModeDifferences, MixedEndDestroysInProcessDriversBeforeItLetsGoOfProcesses) {
    ASSERT_TRUE(load(queue));
    ASSERT_TRUE(ModeBench::load(direct, "B", {.workingDirectory = "data/B"}));
    end();
    EXPECT_THAT(standardOutput(), testing::EndsWith("Deinitializing MF driver ID: A...OK\n"
                                                    "Deinitializing MF driver ID: B...OK\n"));
    EXPECT_TRUE(waitForRecord("A destroyed"));
    EXPECT_EQ(recordOf("B ").back(), "B destroyed");
}

TEST_F(ModeDifferences, ProcessReportsThatWaitWhenTheEndComesArrive) {
    ASSERT_TRUE(load(queue));
    holdPanel();
    send("A.string", {{"name", "HOLD"}});
    ASSERT_TRUE(panelIsHeld());
    send("A.burst", {{"name", "X"}, {"value", "10"}});
    ASSERT_TRUE(waitForRecord("A did burst"));
    auto ending = std::async(std::launch::async, [&] { end(); });
    ASSERT_TRUE(waitForRecord("A deinitialize"));
    std::this_thread::sleep_for(20ms);
    releasePanel();
    ending.get();
    EXPECT_EQ(host.calls.linesOf("event A.X ").size(), 10U);
    EXPECT_THAT(host.calls.linesOf("A.X int "), ElementsAre("A.X int 10"));
}

TEST_F(ModeDifferences, ProcessIsGivenASecondBeforeItsConfiguration) {
    if (waitsUntilAttached())
        GTEST_SKIP() << "a start goes on as the processes come up";
    const auto before = std::chrono::steady_clock::now();
    ASSERT_TRUE(load(queue));
    EXPECT_GE(std::chrono::steady_clock::now() - before, 1s);
}

TEST_F(ModeDifferences, ProcessReloadWaitsUntilTheOldProcessHasGone) {
    expectEndOf("A");
    acts("deinitialize|wait|" + gate("go"));
    ASSERT_TRUE(startWorkplace(0, entry(queue, "A")));
    auto reloading = std::async(std::launch::async, [&] { return reload("A"); });
    ASSERT_TRUE(waitForRecord("A deinitialize"));
    EXPECT_EQ(reloading.wait_for(300ms), std::future_status::timeout);
    open("go");
    EXPECT_TRUE(reloading.get());
    send("A.NEW");
    EXPECT_TRUE(waitForRecord("A sendFID NEW"));
}

TEST_F(ModeDifferences, ProcessDriverIsHeldUpByNobodyAtTheEnd) {
    acts("deinitialize|wait|" + gate("go"));
    ASSERT_TRUE(load(queue));
    end();
    ASSERT_TRUE(waitForRecord("A deinitialize"));
    EXPECT_THAT(record(), Not(Contains("A destroyed")));
    open("go");
    EXPECT_TRUE(waitForRecord("A destroyed"));
}

TEST_F(ModeDifferences, InProcessDriverHoldsUpTheEnd) {
    acts("deinitialize|wait|" + gate("go"));
    ASSERT_TRUE(load(direct));
    auto ending = std::async(std::launch::async, [&] { end(); });
    ASSERT_TRUE(waitForRecord("A deinitialize"));
    EXPECT_EQ(ending.wait_for(50ms), std::future_status::timeout);
    open("go");
    ending.get();
    EXPECT_EQ(record().back(), "A destroyed");
}

}  // namespace
