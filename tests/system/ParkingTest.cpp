#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <thread>

#include "BrokenFileCase.h"
#include "ConsoleWorkplace.h"

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr const char* s_heading =
    "# Drivers that are parked, an ID a line: stopDriver adds one, startDriver takes it away.\n";

}  // namespace

// A driver that an operator stops stays unloaded until he starts it again, whatever comes between.
class Parking : public ConsoleWorkplace {
protected:
    void prepare() override {
        ConsoleWorkplace::prepare();
        workplace().addModule("Echo");
        workplace().addModule("Recorder");
    }

    fs::path marks() { return workplace().workdir() / "mfhost.parked"; }
    std::string record(const std::string& driverID) {
        return readFile(workplace().workdir() / "nvram" / driverID / "record.txt");
    }

    static void expectParked(HostProcess& host, const std::string& driverID) {
        EXPECT_THAT(host.listed(driverID), ContainsRegex("  parked +[0-9].*  parked at the console  -  "))
            << host.output() << host.log();
        // It may still be on its way out.
        EXPECT_TRUE(eventually([&] { return host.driverProcess(driverID) == 0; }));
    }
    static void stop(HostProcess& host, const std::string& driverID) {
        EXPECT_THAT(host.ask("stopDriver " + driverID), Not(HasSubstr("is not stopped")));
        // The log is written by a thread of its own.
        EXPECT_TRUE(
            host.waitForLog("HOST: " + driverID + ": is parked; startDriver " + driverID + " starts it\n"))
            << host.log();
    }
    static void kill(HostProcess& host, const std::string& driverID) {
        ASSERT_TRUE(eventually([&] { return host.driverProcess(driverID) != 0; })) << host.log();
        ::kill(host.driverProcess(driverID), SIGKILL);
    }
    /// A driver process that came up too late for its queues may say so.
    static void expectNoErrors(const HostProcess& host) {
        EXPECT_THAT(host.log(), Not(ContainsRegex(" (error|critical) +[A-Z]+: ")));
    }
};

class ParkingInEachMode : public Parking, public testing::WithParamInterface<const char*> {};

TEST_P(ParkingInEachMode, RunningDriverIsUnloadedInOrderAndStaysSo) {
    const std::string mode = GetParam();
    workplace().configure(entry("R", mode, "Recorder") + entry("E", mode) + entry("G", "queue"));
    HostProcess& host = startAndWait({"--restart-delay", "0.1", "--follow=E.*"});
    expectSets(host, "E");
    const pid_t process = host.driverProcess("R");
    EXPECT_EQ(process != 0, mode == "queue");
    stop(host, "R");
    stop(host, "E");
    if (process != 0) {
        EXPECT_TRUE(endsInTime(process));
        EXPECT_TRUE(host.waitForLog(" info     HOST: R: process " + std::to_string(process) +
                                    " ended: exit code 0\n"))
            << host.log();
    }
    const std::string left = record("R");
    const std::string last = "initializationCompleted\ndeinitialize\ndestroyed\n";
    EXPECT_TRUE(left.ends_with(last)) << left;
    EXPECT_EQ(count(left, "deinitialize\n"), 1);
    EXPECT_TRUE(host.waitForOutput("\nE: 1 value stale: parked at the console\n")) << host.output();
    EXPECT_THAT(host.ask("state E.*"), ContainsRegex("E\\.N +int +[0-9]+ +E +[0-9]+ s +stale for [0-9]+ s "
                                                     "\\(parked at the console\\)\n"));
    EXPECT_EQ(readFile(marks()), std::string(s_heading) + "E\nR\n");
    // Ten times as long as a restart would wait.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    expectParked(host, "R");
    expectParked(host, "E");
    EXPECT_EQ(record("R"), left);
    expectSets(host, "G");
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
    EXPECT_EQ(count(host.output(), "(ID: R)..."), 1);
    EXPECT_EQ(count(host.output(), "(ID: E)..."), 1);
}

TEST_P(ParkingInEachMode, DriverThatIsStartedAgainServesAndItsMarkIsGone) {
    const std::string mode = GetParam();
    workplace().configure(entry("R", mode, "Recorder") + entry("E", mode) + entry("G", "queue"));
    HostProcess& host = startAndWait();
    expectSets(host, "E");
    stop(host, "E");
    stop(host, "R");
    EXPECT_THAT(host.ask("startDriver E"), HasSubstr("OK\n"));
    EXPECT_THAT(host.listed("E"), HasSubstr("  running  "));
    expectSets(host, "E");
    expectParked(host, "R");
    EXPECT_EQ(readFile(marks()), std::string(s_heading) + "R\n");
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
}

TEST_P(ParkingInEachMode, MarkSurvivesTheEndAndTheDeathOfTheHost) {
    const std::string mode = GetParam();
    workplace().configure(entry("E", mode) + entry("G", "queue"));
    stop(startAndWait(), "E");
    EXPECT_EQ(end(), 0);
    for (const bool isKilled : {true, false}) {
        HostProcess& host = startAndWait();
        EXPECT_THAT(host.log(), HasSubstr("HOST: E: is parked and not started; startDriver E starts it\n"));
        EXPECT_THAT(host.output(), Not(HasSubstr("(ID: E)")));
        expectParked(host, "E");
        expectSets(host, "G");
        expectNoErrors(host);
        if (isKilled) {
            const pid_t other = host.driverProcess("G");
            host.signal(SIGKILL);
            EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
            EXPECT_TRUE(endsInTime(other));
            continue;
        }
        host.ask("startDriver E");
        expectSets(host, "E");
        EXPECT_EQ(end(), 0);
    }
    expectSets(startAndWait(), "E");
    EXPECT_EQ(end(), 0);
    expectNoErrors(host());
}

/// The host is killed at once: what it said is on disk.
TEST_P(ParkingInEachMode, HostThatIsKilledAsSoonAsItSaysSoRemembersIt) {
    workplace().configure(entry("E", GetParam()) + entry("F", GetParam()));
    {
        HostProcess& host = startAndWait();
        host.type("stopDriver E");
        host.type("stopDriver F");
        host.type("startDriver E");
        ASSERT_TRUE(host.waitForLog("HOST: F: is parked")) << host.log();
        host.signal(SIGKILL);
        EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    }
    HostProcess& host = startAndWait();
    expectParked(host, "F");
    EXPECT_EQ(end(), 0);
}

TEST_P(ParkingInEachMode, FiftyTimesInARowLeaveExactlyWhoIsAskedFor) {
    const std::string mode = GetParam();
    workplace().configure(entry("E", mode) + entry("F", mode) + entry("G", "queue"));
    HostProcess& host = startAndWait();
    for (int i = 0; i < 50; ++i) {
        host.ask("stopDriver E");
        host.ask("stopDriver F");
        host.ask("startDriver E");
    }
    for (int i = 0; i < 50; ++i)
        host.ask(i % 2 == 0 ? "startDriver F" : "stopDriver F");
    expectParked(host, "F");
    expectSets(host, "E");
    expectSets(host, "G");
    EXPECT_TRUE(eventually([&] { return host.children().size() == (mode == "queue" ? 2u : 1u); }));
    EXPECT_EQ(readFile(marks()), std::string(s_heading) + "F\n");
    EXPECT_EQ(count(host.log(), "HOST: E: is parked;"), 50);
    EXPECT_EQ(end(), 3);
    expectNoErrors(host);
    EXPECT_EQ(count(host.output(), "Deinitializing MF driver ID: E...OK\n"), 51);
}

/// What its file says now decides, and not what it said when the driver was stopped.
TEST_P(ParkingInEachMode, DriverThatIsStartedAgainHasTheModeThatTheFileGivesItNow) {
    const std::string before = GetParam();
    const std::string after = before == "queue" ? "direct" : "queue";
    workplace().configure(entry("E", before));
    HostProcess& host = startAndWait();
    stop(host, "E");
    workplace().configure(entry("E", after));
    host.ask("startDriver E");
    expectSets(host, "E");
    EXPECT_TRUE(eventually([&] { return (host.driverProcess("E") != 0) == (after == "queue"); }));
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
}

INSTANTIATE_TEST_SUITE_P(, ParkingInEachMode, testing::Values("queue", "direct"),
                         [](const auto& test) { return std::string(test.param); });

TEST_F(Parking, CrashLoopIsStoppedAndSaysNothingMore) {
    workplace().configure(TestWorkplace::entry("BAD", "Faulty", "queue") + entry("G", "queue"));
    HostProcess::Start start = call({"--restart-delay", "0.1", "--restart-limit", "1000"});
    start.environment["MFD_FAULTS"] = "load crash";
    HostProcess& host = startCall(start);
    ASSERT_TRUE(eventually([&] { return count(host.log(), "BAD: process ") >= 3; })) << host.log();
    stop(host, "BAD");
    // The last one may have been on its way.
    ASSERT_TRUE(eventually([&] { return host.driverProcess("BAD") == 0; }));
    expectParked(host, "BAD");
    const long said = count(host.log(), "BAD");
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    EXPECT_EQ(count(host.log(), "BAD"), said) << host.log();
    expectParked(host, "BAD");
    expectSets(host, "G");
    EXPECT_EQ(end(), 0);
}

TEST_F(Parking, DriverThatWaitsForItsNextTryIsStoppedAndStartedAtOnce) {
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait({"--restart-delay", "60"});
    expectSets(host, "E");
    kill(host, "E");
    ASSERT_TRUE(host.waitForLog("it is started again in ")) << host.log();
    EXPECT_THAT(host.ask("state E.*"), HasSubstr("(signal 9 (Killed))"));
    stop(host, "E");
    expectParked(host, "E");
    EXPECT_THAT(host.ask("state E.*"), HasSubstr("(parked at the console)"));
    host.ask("startDriver E");
    expectSets(host, "E");
    EXPECT_EQ(end(), 0);
}

TEST_F(Parking, ReloadOfAParkedDriverIsRefused) {
    workplace().configure(entry("E", "queue") + entry("G", "queue"));
    HostProcess& host = startAndWait();
    stop(host, "E");
    EXPECT_EQ(host.ask("reloadDriver E"),
              "E is not reloaded, nothing is unloaded: it is parked; start it instead\n");
    expectParked(host, "E");
    // A reload of another one leaves it as it is.
    EXPECT_THAT(host.ask("reloadDriver G"), HasSubstr("OK\n"));
    expectParked(host, "E");
    expectSets(host, "G");
    EXPECT_EQ(end(), 3);
    EXPECT_EQ(count(host.output(), "(ID: E)..."), 1);
    expectNoErrors(host);
}

TEST_F(Parking, WhatMakesNoSenseIsRefusedAndChangesNothing) {
    workplace().configure(entry("E", "queue") + entry("D", "direct"));
    HostProcess& host = startAndWait();
    const std::string before = host.ask("drivers");
    EXPECT_EQ(host.ask("stopDriver PANEL"),
              "PANEL is not stopped: the module starts the panel driver whatever the configuration says\n");
    EXPECT_EQ(host.ask("stopDriver NOBODY"),
              "NOBODY is not stopped: there is no driver NOBODY; drivers lists them\n");
    EXPECT_EQ(host.ask("startDriver NOBODY"),
              "NOBODY is not started: there is no driver NOBODY; drivers lists them\n");
    EXPECT_EQ(host.ask("stopDriver 'E\x1b'"),
              "E\\x1b is not stopped: there is no driver E\\x1b; drivers lists them\n");
    for (const char* id : {"E", "D", "PANEL"})
        EXPECT_EQ(host.ask(std::string("startDriver ") + id),
                  std::string(id) + " is not started: it runs already; reload it instead\n");
    EXPECT_THAT(host.ask("stopDriver"), StartsWith("stopDriver <driverID>\n\t"));
    EXPECT_THAT(host.ask("startDriver"), StartsWith("startDriver <driverID>\n\t"));
    EXPECT_FALSE(fs::exists(marks()));
    stop(host, "E");
    EXPECT_EQ(host.ask("stopDriver E"), "E is not stopped: it is parked already\n");
    expectParked(host, "E");
    EXPECT_EQ(end(), 3);
    EXPECT_EQ(count(host.output(), "Deinitializing MF driver ID: E...OK\n"), 1);
    expectNoErrors(host);
}

TEST_F(Parking, DriverThatEndedAtItsLimitIsStarted) {
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait({"--restart-delay", "0.1", "--restart-limit", "1"});
    kill(host, "E");
    ASSERT_TRUE(host.waitForLog("HOST: E: is started again\n")) << host.log();
    kill(host, "E");
    ASSERT_TRUE(host.waitForLog("it is not started again: 1 restart in a row are the limit\n")) << host.log();
    EXPECT_THAT(host.listed("E"), HasSubstr("  ended  "));
    EXPECT_THAT(host.ask("startDriver E"), HasSubstr("OK\n"));
    expectSets(host, "E");
    EXPECT_FALSE(fs::exists(marks()));
    // Its tries count from the beginning.
    kill(host, "E");
    ASSERT_TRUE(eventually([&] { return count(host.log(), "HOST: E: is started again\n") == 2; }))
        << host.log();
    EXPECT_EQ(end(), 0);
}

namespace {

void configureText(const fs::path& file, const std::string& elements) {
    replaceFile(file, "<workplaces>\n<workplace id=\"0\">\n" + elements + "</workplace>\n</workplaces>\n");
}

}  // namespace

class ParkingWithABrokenFile : public Parking, public testing::WithParamInterface<BrokenFileCase> {};

TEST_P(ParkingWithABrokenFile, StopsTheDriverAndStartsItWhenTheFileIsWholeAgain) {
    workplace().configure(entry("E", "queue") + entry("D", "direct") + entry("G", "queue"));
    const std::string whole = readFile(file());
    HostProcess& host = startAndWait();
    fs::remove(file());
    GetParam().makeIt(file());
    for (const std::string id : {"E", "D"}) {
        stop(host, id);
        expectParked(host, id);
        EXPECT_EQ(host.ask("startDriver " + id),
                  id + " is not started: " + file() + GetParam().reason + "\n");
        expectParked(host, id);
    }
    EXPECT_EQ(readFile(marks()), std::string(s_heading) + "D\nE\n");
    fs::remove_all(file());
    replaceFile(file(), whole);
    for (const char* id : {"E", "D"}) {
        host.ask(std::string("startDriver ") + id);
        expectSets(host, id);
    }
    expectSets(host, "G");
    EXPECT_EQ(readFile(marks()), s_heading);
    EXPECT_EQ(end(), 3);
}

INSTANTIATE_TEST_SUITE_P(
    , ParkingWithABrokenFile,
    testing::Values(
        missingFile(), illFormedFile(),
        BrokenFileCase{"FaultyBeforeTheDrivers", [](const fs::path& file) { configureText(file, "text\n"); },
                       " line 3: text may not stand in a workplace"},
        BrokenFileCase{
            "HeldByAForeignAttribute",
            [](const fs::path& file) {
                configureText(file, "<mainframeDriver driverType=\"Echo\" driverID=\"X\"/>\n" +
                                        TestWorkplace::entry("E", "Echo", "queue") +
                                        TestWorkplace::entry("D", "Echo", "direct"));
            },
            " line 3: driverID must be the first attribute of a mainframeDriver that can be reloaded"},
        directoryAsFile()),
    [](const auto& test) { return test.param.claim; });

TEST_F(Parking, DriverThatTheFileNoLongerNamesIsStoppedAndItsMarkTakenBack) {
    for (const std::string mode : {"queue", "direct"}) {
        SCOPED_TRACE(mode);
        fs::remove(marks());
        workplace().configure(entry("E", mode) + entry("G", "queue"));
        const std::string whole = readFile(file());
        HostProcess& host = startAndWait();
        expectSets(host, "E");
        workplace().configure(entry("G", "queue"));
        // The module has read by now that it is gone.
        EXPECT_THAT(host.ask("reloadDriver G"), HasSubstr("OK\n"));
        expectSets(host, "E");
        stop(host, "E");
        expectParked(host, "E");
        EXPECT_TRUE(host.waitForOutput("Deinitializing MF driver ID: E...OK\n")) << host.output();
        EXPECT_THAT(host.ask("reloadDriver G"), HasSubstr("OK\n"));
        expectParked(host, "E");
        EXPECT_EQ(host.ask("startDriver E"),
                  "E is not started: its mark is taken back, and " + file() + " has no driver \"E\"\n");
        EXPECT_EQ(host.listed("E"), "");
        EXPECT_EQ(readFile(marks()), s_heading);
        EXPECT_EQ(host.ask("startDriver E"), "E is not started: there is no driver E; drivers lists them\n");
        replaceFile(file(), whole);
        host.ask("startDriver E");
        expectSets(host, "E");
        EXPECT_EQ(end(), 3);
        expectNoErrors(host);
    }
}

/// Its entry stands after a fault, and one before it has been reloaded since.
TEST_F(Parking, DriverAfterAFaultIsStopped) {
    workplace().configure(entry("G", "queue") + entry("E", "queue"));
    HostProcess& host = startAndWait();
    workplace().configure(entry("G", "queue") + "text\n" + entry("E", "queue"));
    EXPECT_THAT(host.ask("reloadDriver G"), HasSubstr("OK\n"));
    expectSets(host, "E");
    stop(host, "E");
    expectParked(host, "E");
    expectSets(host, "G");
    EXPECT_EQ(end(), 0);
}

/// A start takes such a file, and a reload would never end.
TEST_F(Parking, DriverAfterAForeignAttributeIsStopped) {
    workplace().configure(
        "<mainframeDriver driverType=\"Echo\" driverID=\"G\" version=\"1.0\" "
        "workingDirectory=\"data/G\" interfaceType=\"direct\"/>\n" +
        entry("E", "queue"));
    HostProcess& host = startAndWait();
    stop(host, "E");
    expectParked(host, "E");
    expectSets(host, "G");
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
}

TEST_F(Parking, MarkOfADriverThatTheFileGetsLaterHolds) {
    fs::create_directories(workplace().workdir());
    writeFile(marks(), "# by hand\nE\nGONE\n");
    workplace().configure(entry("G", "queue"));
    HostProcess& host = startAndWait();
    workplace().configure(entry("G", "queue") + entry("E", "queue"));
    EXPECT_THAT(host.ask("reloadDriver G"), HasSubstr("OK\n"));
    expectParked(host, "E");
    EXPECT_EQ(host.ask("reloadDriver E"),
              "E is not reloaded, nothing is unloaded: it is parked; start it instead\n");
    host.ask("startDriver E");
    expectSets(host, "E");
    EXPECT_EQ(readFile(marks()), std::string(s_heading) + "GONE\n");
    EXPECT_EQ(end(), 3);
    expectNoErrors(host);
}

/// The same without any reload: startDriver itself has to look into the file.
TEST_F(Parking, MarkedDriverThatTheFileGetsLaterIsStarted) {
    fs::create_directories(workplace().workdir());
    writeFile(marks(), "E\n");
    workplace().configure(entry("G", "queue"));
    HostProcess& host = startAndWait();
    workplace().configure(entry("G", "queue") + entry("E", "queue"));
    EXPECT_THAT(host.ask("startDriver E"), HasSubstr("OK\n"));
    expectSets(host, "E");
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
}

TEST_F(Parking, MarkOfThePanelThatSomebodyHasWrittenIsIgnored) {
    fs::create_directories(workplace().workdir());
    writeFile(marks(), "PANEL\n");
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait();
    EXPECT_THAT(host.listed("PANEL"), HasSubstr("  running  "));
    stop(host, "E");
    EXPECT_THAT(host.listed("PANEL"), HasSubstr("  running  "));
    host.ask("startDriver E");
    expectSets(host, "E");
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(count(host.output(), "Deinitializing MF driver ID: PANEL...OK\n"), 1);
    expectNoErrors(host);
}

/// Nobody knows whom they name: they are neither overwritten nor taken for empty in silence.
TEST_F(Parking, MarksThatCannotBeReadAreToldAndKept) {
    const fs::path elsewhere = workplace().directory() / "elsewhere";
    fs::create_directories(workplace().workdir());
    fs::create_directory(elsewhere);
    fs::create_symlink(elsewhere, marks());
    workplace().configure(entry("E", "queue") + entry("F", "queue"));
    HostProcess& host = startAndWait();
    const std::string fault = marks().string() + " cannot be read: not a regular file";
    EXPECT_TRUE(host.waitForLog(" warning  HOST: " + fault + "; no driver is taken for parked\n"))
        << host.log();
    EXPECT_EQ(host.ask("stopDriver E"),
              "E is not stopped: " + marks().string() +
                  " cannot be written: what is in it could not be read, and must not be lost\n");
    EXPECT_TRUE(fs::is_symlink(marks()));
    expectSets(host, "E");
    fs::remove(marks());
    writeFile(marks(), "F\n");
    stop(host, "E");
    EXPECT_EQ(readFile(marks()), std::string(s_heading) + "E\nF\n");
    EXPECT_EQ(end(), 3);
}

TEST_F(Parking, WorkingDirectoryThatCannotBeWrittenIsAReasonAndNothingIsUnloaded) {
    workplace().configure(entry("E", "queue") + entry("F", "queue"));
    HostProcess::Start start = call();
    start.arguments.insert(start.arguments.begin(),
                           {"--bounding-set=-dac_override", "--inh-caps=-dac_override", start.program});
    start.program = "/usr/bin/setpriv";
    HostProcess& host = startCall(start);
    // CAP_DAC_OVERRIDE is bit 1 of the effective set; the host really runs without it.
    const std::string status = readFile("/proc/" + std::to_string(host.pid()) + "/status");
    const auto at = status.find("CapEff:");
    ASSERT_NE(at, std::string::npos);
    ASSERT_EQ(std::stoull(status.substr(at + 7), nullptr, 16) >> 1 & 1, 0u);
    stop(host, "F");
    const std::string marked = readFile(marks());
    const pid_t process = host.driverProcess("E");
    ASSERT_EQ(::chmod(workplace().workdir().c_str(), 0555), 0);
    EXPECT_EQ(host.ask("stopDriver E"),
              "E is not stopped: " + marks().string() + " cannot be written: Permission denied\n");
    EXPECT_EQ(host.ask("startDriver F"),
              "F is not started: " + marks().string() + " cannot be written: Permission denied\n");
    EXPECT_EQ(host.driverProcess("E"), process);
    EXPECT_THAT(host.listed("E"), HasSubstr("  running  "));
    expectSets(host, "E");
    expectParked(host, "F");
    EXPECT_EQ(readFile(marks()), marked);
    ASSERT_EQ(::chmod(workplace().workdir().c_str(), 0755), 0);
    stop(host, "E");
    EXPECT_EQ(end(), 3);
}

TEST_F(Parking, SignedFileIsAsked) {
    workplace().configure(entry("E", "queue") + entry("D", "direct"));
    const std::string whole = readFile(file());
    const std::string key = workplace().directory() / "site";
    const auto run = [&](const std::string& arguments) {
        return std::system(
            ((TestWorkplace::build() / "bin/mfctl").string() + " " + arguments + " >/dev/null").c_str());
    };
    ASSERT_EQ(0, run("keygen " + key));
    ASSERT_EQ(0, run("sign --key " + key + ".key " + file()));
    const std::vector<std::string> options{"--trust", workplace().directory(), "--require-signature"};
    {
        HostProcess& host = startAndWait(options);
        stop(host, "E");
        stop(host, "D");
        host.ask("startDriver D");
        expectSets(host, "D");
        replaceFile(file(), whole + "\n");
        stop(host, "D");
        EXPECT_THAT(host.ask("startDriver D"),
                    StartsWith("D is not started: " + file() + " is not signed by a trusted key, and "));
        expectParked(host, "D");
        replaceFile(file(), whole);
        EXPECT_EQ(end(), 3);
        EXPECT_THAT(host.log(), Not(HasSubstr("signature\n")));
        EXPECT_THAT(host.log(), Not(HasSubstr("VERIFY")));
    }
    HostProcess& host = startAndWait(options);
    expectParked(host, "E");
    host.ask("startDriver E");
    expectSets(host, "E");
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), Not(HasSubstr("VERIFY")));
    expectNoErrors(host);
}

TEST_F(Parking, ProcessThatHangsIsStopped) {
    workplace().addModule("HangsInSendFID");
    workplace().configure(entry("H", "queue", "HangsInSendFID") + entry("G", "queue"));
    HostProcess::Start start = call({"--stop-timeout", "1", "--restart-delay", "0.1"});
    start.environment["MFD_TEST_RECORD"] = workplace().directory() / "record";
    HostProcess& host = startCall(start);
    host.type("sendFID H.hang");
    ASSERT_TRUE(eventually(
        [&] { return readFile(workplace().directory() / "record").find("sendFID") != std::string::npos; }));
    const pid_t process = host.driverProcess("H");
    stop(host, "H");
    EXPECT_TRUE(endsInTime(process));
    expectParked(host, "H");
    std::this_thread::sleep_for(std::chrono::seconds(1));
    expectParked(host, "H");
    EXPECT_EQ(count(host.output(), "(ID: H)..."), 1);
    expectSets(host, "G");
    EXPECT_EQ(end(), 0);
}

/// One that the host has just found to hang and is ending.
TEST_F(Parking, ProcessThatIsBeingEndedIsStopped) {
    workplace().addModule("HangsInSendFID");
    workplace().configure(entry("H", "queue", "HangsInSendFID") + entry("G", "queue"));
    HostProcess& host = startAndWait({"--hang-timeout", "1", "--restart-delay", "0.1"});
    host.type("sendFID H.hang");
    host.type("sendFID H.hang");
    ASSERT_TRUE(host.waitForLog(" hangs: ")) << host.log();
    stop(host, "H");
    ASSERT_TRUE(eventually([&] { return host.driverProcess("H") == 0; }));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    expectParked(host, "H");
    EXPECT_EQ(count(host.output(), "(ID: H)..."), 1);
    expectSets(host, "G");
    EXPECT_EQ(end(), 0);
}

/// Nothing that the module waits for leads to it any more, and no newer process comes to replace it.
TEST_F(Parking, ProcessThatHasLetGoOfItsQueuesIsEndedAllTheSame) {
    workplace().addModule("BecomesAnother");
    workplace().configure(entry("B", "queue", "BecomesAnother") + entry("G", "queue"));
    HostProcess& host = startAndWait();
    EXPECT_TRUE(host.repliesWith("state --now B.*", "B\\.READY +int +1"));
    const pid_t process = host.driverProcess("B");
    ASSERT_NE(process, 0);
    host.type("sendFID B.become");
    ASSERT_TRUE(eventually(
        [&] { return readFile("/proc/" + std::to_string(process) + "/cmdline").starts_with("sleep"); }));
    stop(host, "B");
    EXPECT_TRUE(endsInTime(process)) << host.log();
    expectParked(host, "B");
    expectSets(host, "G");
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), Not(HasSubstr("replaced")));
}

TEST_F(Parking, ValuesOfOthersKeepComingWhileADriverTakesItsTime) {
    workplace().addModule("Puppet");
    workplace().addModule("Traffic");
    workplace().configure(entry("P", "queue", "Puppet") + entry("NEAR", "queue", "Traffic") +
                          entry("FAR", "direct", "Traffic"));
    HostProcess::Start start = call({"--stop-timeout", "90", "--hang-timeout", "0", "--follow=*.HEARD.*"});
    start.environment["MFD_TEST_TRAFFIC"] = "NEAR FAR";
    HostProcess& host = startCall(start);
    const fs::path go = workplace().directory() / "go";
    host.type("sendFID P.wait name=" + go.string());
    const pid_t process = host.driverProcess("P");
    host.type("stopDriver P");
    ASSERT_TRUE(host.waitForOutput("Deinitializing MF driver ID: P...")) << host.output();
    for (int i = 0; i < 3; ++i)
        for (const char* value : {"\nNEAR.HEARD.FAR = ", "\nFAR.HEARD.NEAR = "}) {
            const long before = count(host.output(), value);
            EXPECT_TRUE(eventually([&] { return count(host.output(), value) > before; })) << value;
        }
    EXPECT_FALSE(endsWithin(process, 0));
    EXPECT_THAT(host.log(), Not(HasSubstr("P: is parked")));
    writeFile(go, "");
    ASSERT_TRUE(host.waitForLog("HOST: P: is parked; startDriver P starts it\n")) << host.log();
    EXPECT_TRUE(host.waitForLog("P: process " + std::to_string(process) + " ended: exit code 0\n"));
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
}

TEST_F(Parking, DriverWhoseProcessIsStartedByHandIsStopped) {
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait({"--no-start-mfds"});
    const std::string name = "MFD_QUEUE_DIR=";
    const std::string log = host.log();
    const auto at = log.find(name);
    ASSERT_NE(at, std::string::npos) << log;
    fs::create_directory(workplace().directory() / "wrapper");
    const auto startWrapper = [&] {
        return HostProcess(
            {.program = TestWorkplace::build() / "bin/mfddllwrap",
             .arguments = {workplace().drivers() / "Echo.so", "E"},
             .environment = {{"MFD_QUEUE_DIR",
                              log.substr(at + name.size(), log.find('\n', at) - at - name.size())}},
             .files = workplace().directory() / "wrapper"});
    };
    {
        HostProcess wrapper = startWrapper();
        ASSERT_TRUE(host.waitForLog("E: process " + std::to_string(wrapper.pid()) +
                                    " was started by hand and serves it"));
        expectSets(host, "E");
        stop(host, "E");
        EXPECT_EQ(wrapper.waitForEnd(), 0);
        expectParked(host, "E");
        EXPECT_THAT(host.ask("state E.*"), HasSubstr("(parked at the console)"));
    }
    host.ask("startDriver E");
    EXPECT_THAT(host.listed("E"), HasSubstr("  waiting for its process  "));
    HostProcess wrapper = startWrapper();
    ASSERT_TRUE(host.waitForLog("E: process " + std::to_string(wrapper.pid()) +
                                " was started by hand and serves it"));
    expectSets(host, "E");
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
}
