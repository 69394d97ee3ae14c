#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "GoldenFrame.h"
#include "HollowHost.h"
#include "ProcessController.h"
#include "Workbench.h"
#include "sal/Path.h"
#include "sal/Process.h"

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string field(const std::string& text) {
    return static_cast<char>(text.size()) + text;
}

/// "SNDFDP" with parameters.
std::string fidFrame(const std::string& fid,
                     const std::vector<std::pair<std::string, std::string>>& parameters = {}) {
    std::string frame = "SNDFDP" + field(fid) + static_cast<char>(parameters.size());
    for (const auto& [name, value] : parameters)
        frame += field(name) + field(value);
    return frame;
}

class Wrapper : public Workbench {
protected:
    /// The process with a module, started as the host starts it.
    void run(const std::string& moduleName) {
        ASSERT_TRUE(host.makeQueues());
        const StreamsToFiles streams(*this);
        const int pid = host.startWrapper(module(moduleName));
        ASSERT_NE(pid, 0);
        sut = ProcessController(pid);
    }

    HollowHost host{"AXIS1"};
    ProcessController sut;
};

TEST_F(Wrapper, TurnsEachMessageIntoACall) {
    run("Recorder");
    for (const char* frame :
         {"SETCFG", "CRTFID", "INTCMP", "SUBSCR", "SNDFDP", "SNDFDP-no-parameters", "SHOWST", "DEINIT"})
        ASSERT_TRUE(host.send(goldenText(frame)));
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(
        record(),
        ElementsAre("setPanelStateInterface set", "setDistributorFIDInterface set", "setSystemInterface set",
                    "setConfiguration 3|AXIS1|axis1|192.0.2.11|eth0|192.0.2.10|/srv/nvram/AXIS1",
                    "createFIDList", "initializationCompleted", "subscribe POSITION",
                    "sendFID MOVE to=12.5, speed=3", "sendFID STOP", "showState", "deinitialize",
                    "destroyed"));
}

struct Report {
    std::string fid;
    std::vector<std::pair<std::string, std::string>> parameters;
    std::string frame;
};

class WrapperReports : public Wrapper, public testing::WithParamInterface<Report> {};

TEST_P(WrapperReports, ReachTheHost) {
    run("Echo");
    ASSERT_TRUE(host.send(fidFrame(GetParam().fid, GetParam().parameters)));
    EXPECT_EQ(host.receive(), goldenText(GetParam().frame));
}

INSTANTIATE_TEST_SUITE_P(
    Wrapper, WrapperReports,
    testing::Values(Report{"STRING", {{"name", "MODE"}, {"value", "auto"}}, "SETVAL"},
                    Report{"STRING", {}, "SETVAL-empty"},
                    Report{"FLOAT", {{"name", "TEMP"}, {"value", "21.5"}}, "SETVAF"},
                    Report{"INT", {{"name", "A"}, {"value", "1"}}, "SETVAI"},
                    Report{"INT", {{"name", "A"}, {"value", "-2"}}, "SETVAI-negative"},
                    Report{"BOOL", {{"name", "DOOR"}, {"value", "true"}}, "SETVAB"},
                    Report{"UNSET", {{"name", "DOOR"}}, "UNSVAL"},
                    Report{"EVENT", {{"name", "ALARM"}, {"value", "hot"}}, "TRIGGR"},
                    Report{"COMMAND", {{"name", "reloadDriver"}, {"value", "AXIS2"}}, "SYSCMD"},
                    Report{"PING", {{"fid", "PANEL.SHOW"}, {"page", "2"}}, "DSPFID"},
                    Report{"PING", {{"fid", "PANEL.CLEAR"}}, "DSPFID-no-parameters"},
                    Report{"SYSPING", {{"fid", "PANEL.SHOW"}, {"page", "2"}}, "DSPFID"}));

TEST_F(Wrapper, StandardOutputIsTheDrivers) {
    run("Echo");
    host.send(fidFrame("PRINT", {{"value", "hello"}}));
    host.send("DEINIT");
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_EQ(standardOutput(), "hello\n");
}

TEST_F(Wrapper, WrongUsage) {
    sut = start("mfddllwrap", {"/opt/axis.so"});
    EXPECT_EQ(sut.waitEnd(), "exit 2");
    EXPECT_THAT(standardError(), Contains("usage: mfddllwrap MODULEPATH DRIVERID"));
    EXPECT_EQ(standardOutput(), "");
}

TEST_F(Wrapper, HelpGoesToStandardOutput) {
    sut = start("mfddllwrap", {"--help"});
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(standardOutput(), HasSubstr("usage: mfddllwrap MODULEPATH DRIVERID\n"));
}

TEST_F(Wrapper, MissingQueue) {
    sut = start("mfddllwrap", {module("Recorder"), "AXIS1"});
    EXPECT_EQ(sut.waitEnd(), "exit 1");
    EXPECT_THAT(standardError(), ElementsAre(testing::AllOf(HasSubstr("AXIS1"), HasSubstr("AXIS1_INQ"))));
    EXPECT_THAT(record(), IsEmpty());
}

TEST_F(Wrapper, MissingExecutable) {
    sal::Path executable("/nonexistent/mfddllwrap");
    EXPECT_FALSE(sal::Process::createProcess("AXIS1 MFD Console", executable, {"m", "AXIS1"}));
}

class WrapperModules : public Wrapper,
                       public testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(WrapperModules, ThatAreNoDriversAreSaidInOneLine) {
    run(GetParam().first);
    EXPECT_EQ(sut.waitEnd(), "exit 1");
    EXPECT_THAT(standardError(), ElementsAre(testing::AllOf(HasSubstr("AXIS1"), HasSubstr(GetParam().first),
                                                            HasSubstr(GetParam().second))));
}

INSTANTIATE_TEST_SUITE_P(Wrapper, WrapperModules,
                         testing::Values(std::pair("DoesNotExist", "No such file"),
                                         std::pair("MissingSymbol", "mfdTestSymbolThatNobodyDefines"),
                                         std::pair("NoFactory", "undefined symbol"),
                                         std::pair("NullFactory", "driver"), std::pair("WrongAbi", "999"),
                                         std::pair("AnswersNothing", "neither")));

TEST_F(Wrapper, DriverWithoutConfigurationGetsFids) {
    run("LacksConfiguration");
    host.send(goldenText("SETCFG"));
    host.send(goldenText("SNDFDP"));
    host.send("DEINIT");
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(record(), ElementsAre("sendFID MOVE to=12.5, speed=3"));
    EXPECT_THAT(standardError(), ElementsAre(HasSubstr("does not answer IMFDConfiguration")));
}

TEST_F(Wrapper, DriverWithoutFidsGetsItsConfiguration) {
    run("LacksFunctionID");
    host.send(goldenText("SNDFDP"));
    host.send("INTCMP");
    host.send("DEINIT");
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(record(), ElementsAre("initializationCompleted", "deinitialize"));
    EXPECT_THAT(standardError(), ElementsAre(HasSubstr("does not answer IFunctionID")));
}

TEST_F(Wrapper, GarbageDoesNoHarm) {
    run("Echo");
    std::mt19937 random(20240229);
    const std::vector<std::string> codes{"SETCFG", "SUBSCR", "SNDFDP", "SHOWST",
                                         "deinit", "DEINI",  "XXXXXX", ""};
    for (int round = 0; round < 2000; ++round) {
        std::string frame = codes[random() % codes.size()];
        const std::size_t length = random() % (1024 - frame.size()) + 1;
        for (std::size_t byte = 0; byte < length; ++byte)
            frame += static_cast<char>(random());
        if (frame.starts_with("DEINIT"))
            continue;
        ASSERT_TRUE(host.send(frame));
    }
    host.send(fidFrame("PING", {{"fid", "PANEL.CLEAR"}}));
    EXPECT_EQ(host.receive(), goldenText("DSPFID-no-parameters"));
}

TEST_F(Wrapper, ExceptionInAFidIsLoggedAndTheDriverGoesOn) {
    run("ThrowsInSendFID");
    host.send(fidFrame("MOVE"));
    host.send(fidFrame("INT"));
    host.send(fidFrame("RECORD"));
    host.send("DEINIT");
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(record(), ElementsAre("sendFID RECORD"));
    EXPECT_THAT(standardError(), Contains(HasSubstr("no such function: MOVE")));
}

TEST_F(Wrapper, ExceptionOfDeinitializeIsLogged) {
    run("ThrowsOnDeinitialize");
    host.send("DEINIT");
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(standardError(), Contains(HasSubstr("cannot stop")));
}

TEST_F(Wrapper, CrashOfTheDriverIsTheProcesss) {
    run("Crashes");
    host.send(fidFrame("CRASH"));
    EXPECT_EQ(sut.waitEnd(), "signal " + std::to_string(SIGSEGV));
}

TEST_F(Wrapper, DriverMayEndTheProcess) {
    run("ExitsAtOnce");
    EXPECT_EQ(sut.waitEnd(), "exit 7");
}

class WrapperSignals : public Wrapper, public testing::WithParamInterface<int> {};

TEST_P(WrapperSignals, StopTheDriverInOrder) {
    run("Recorder");
    host.send("INTCMP");
    ASSERT_TRUE(waitForRecord("initializationCompleted"));
    sut.signal(GetParam());
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(record(), Contains("deinitialize"));
    EXPECT_EQ(record().back(), "destroyed");
}

INSTANTIATE_TEST_SUITE_P(Wrapper, WrapperSignals, testing::Values(SIGTERM, SIGINT, SIGHUP));

TEST_F(Wrapper, SecondSignalEndsAHangingDriver) {
    run("IgnoresDeinit");
    ASSERT_TRUE(waitUntilItRuns());
    sut.signal(SIGTERM);
    ASSERT_TRUE(waitForRecord("deinitialize"));
    EXPECT_TRUE(sut.alive());
    sut.signal(SIGTERM);
    EXPECT_EQ(sut.waitEnd(), "exit 143");
}

TEST_F(Wrapper, EndsWhenALivingHostLetsGo) {
    run("Recorder");
    host.send("INTCMP");
    ASSERT_TRUE(waitForRecord("initializationCompleted"));
    host.closeQueues();
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_EQ(record().back(), "destroyed");
}

TEST_F(Wrapper, ServesWhatStoodInTheQueueWhenTheHostLetGo) {
    run("Recorder");
    ASSERT_TRUE(waitUntilItRuns());
    sut.signal(SIGSTOP);
    for (int count = 0; count < 200; ++count)
        host.send(fidFrame("F" + std::to_string(count)));
    host.closeQueues();
    sut.signal(SIGCONT);
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(record(), Contains("sendFID F199"));
}

TEST_F(Wrapper, BrokenInputQueueStopsTheDriverInOrder) {
    run("Recorder");
    host.send("INTCMP");
    ASSERT_TRUE(waitForRecord("initializationCompleted"));
    for (const auto& entry : std::filesystem::directory_iterator(directory / "queues"))
        if (entry.path().filename().string().find("AXIS1_INQ") != std::string::npos)
            std::fstream(entry.path(), std::ios::in | std::ios::out | std::ios::binary)
                << std::string(4096, '\xff');
    EXPECT_EQ(sut.waitEnd(), "exit 1");
    EXPECT_THAT(standardError(), Contains(HasSubstr("The input queue is broken: stops the driver")));
    EXPECT_EQ(record().back(), "destroyed");
}

TEST_F(Wrapper, SlowDriverIsNotCutOffWhileTheHostLives) {
    setenv("MFD_STOP_TIMEOUT", "0", 1);
    run("SlowDeinit");
    host.send("DEINIT");
    ASSERT_TRUE(waitForRecord("deinitialize"));
    host.closeQueues();
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(record(), ElementsAre("deinitialize", "deinitialized"));
}

TEST_F(Wrapper, DoesNotWaitForALivingHost) {
    run("Recorder");
    host.send("DEINIT");
    EXPECT_EQ(sut.waitEnd(), "exit 0");
}

TEST_F(Wrapper, FreesTheQueuesForTheNextLoad) {
    for (int round = 0; round < 5; ++round) {
        run("Recorder");
        host.send("DEINIT");
        ASSERT_EQ(sut.waitEnd(), "exit 0");
        host.closeQueues();
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory / "queues"));
}

/// Comes up only when the test says so, as a process does on a busy machine.
class LateWrapper : public Wrapper {
protected:
    ProcessController startLate() {
        std::ofstream(directory / "starts") << "stop\n";
        setenv("MFD_TEST_STARTS", (directory / "starts").c_str(), 1);
        const StreamsToFiles streams(*this);
        const int pid = host.startWrapper(module("Recorder"), "../late/bin/mfddllwrap");
        unsetenv("MFD_TEST_STARTS");
        EXPECT_NE(pid, 0);
        siginfo_t info{};
        EXPECT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED), 0);
        return ProcessController(pid);
    }
};

TEST_F(LateWrapper, LeavesTheQueuesToItsSuccessor) {
    ASSERT_TRUE(host.makeQueues());
    ProcessController late = startLate();
    host.closeQueues();
    ASSERT_TRUE(host.makeQueues());
    late.signal(SIGCONT);
    EXPECT_EQ(late.waitEnd(), "exit 1");
    EXPECT_THAT(standardError(),
                ElementsAre(testing::AllOf(HasSubstr(
                    "warning  AXIS1 QUEUE: queue AXIS1_INQ: not opened: it was made for a process that was "
                    "started later than this one, which has been replaced"))));
    EXPECT_THAT(record(), IsEmpty());
    const StreamsToFiles streams(*this);
    sut = ProcessController(host.startWrapper(module("Recorder")));
    ASSERT_TRUE(host.send("INTCMP") && host.send("DEINIT"));
    EXPECT_EQ(sut.waitEnd(), "exit 0");
}

TEST_F(LateWrapper, ServesTheQueuesThatItWasStartedFor) {
    ASSERT_TRUE(host.makeQueues());
    sut = startLate();
    HollowHost other("AXIS2");
    ASSERT_TRUE(other.makeQueues());
    ASSERT_TRUE(host.send("INTCMP") && host.send("DEINIT"));
    sut.signal(SIGCONT);
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(record(), Contains("initializationCompleted"));
}

TEST_F(LateWrapper, OfAHostThatLetGoFindsNoQueue) {
    ASSERT_TRUE(host.makeQueues());
    sut = startLate();
    host.closeQueues();
    sut.signal(SIGCONT);
    EXPECT_EQ(sut.waitEnd(), "exit 1");
    EXPECT_THAT(standardError(),
                ElementsAre(HasSubstr("warning  AXIS1 QUEUE: queue AXIS1_INQ: not opened: it is gone: its "
                                      "host has let go of it since it started this process")));
    EXPECT_TRUE(std::filesystem::is_empty(directory / "queues"));
}

TEST_F(Wrapper, StartedByHandItServesQueuesThatWereMadeLater) {
    HollowHost other("AXIS2");
    ASSERT_TRUE(other.makeQueues());
    ASSERT_TRUE(host.makeQueues());
    sut = start("mfddllwrap", {module("Recorder"), "AXIS1"}, false);
    ASSERT_TRUE(waitUntilItRuns());
    host.closeQueues();
    ASSERT_EQ(sut.waitEnd(), "exit 0");
    ASSERT_TRUE(host.makeQueues());
    sut = start("mfddllwrap", {module("Recorder"), "AXIS1"}, false);
    ASSERT_TRUE(host.send("DEINIT"));
    EXPECT_EQ(sut.waitEnd(), "exit 0");
}

TEST_F(Wrapper, LeavesNoDescriptorsOpenInTheHost) {
    run("Recorder");
    host.send("DEINIT");
    ASSERT_EQ(sut.waitEnd(), "exit 0");
    host.closeQueues();
    sut = ProcessController();
    const int before = ProcessController::openDescriptors(getpid());
    for (int round = 0; round < 5; ++round) {
        run("Recorder");
        host.send("DEINIT");
        ASSERT_EQ(sut.waitEnd(), "exit 0");
        host.closeQueues();
        sut = ProcessController();
    }
    EXPECT_EQ(ProcessController::openDescriptors(getpid()), before);
}

TEST_F(Wrapper, OpensNoDescriptorsWhileItServes) {
    run("Echo");
    const auto serve = [&](int messages) {
        for (int count = 0; count < messages; ++count) {
            host.send(fidFrame("PING", {{"fid", "PANEL.CLEAR"}}));
            ASSERT_EQ(host.receive(), goldenText("DSPFID-no-parameters"));
        }
    };
    serve(1);
    const int before = ProcessController::openDescriptors(sut.pid());
    serve(500);
    // The thread that watches the host may have opened its own in the meantime.
    EXPECT_LE(ProcessController::openDescriptors(sut.pid()), before + 1);
}

// Each of these would cost every start and restart of a driver process a part of its time.
TEST_F(Wrapper, LoadsNoLibraryThatItDoesNotUse) {
    run("Recorder");
    host.send("INTCMP");
    ASSERT_TRUE(waitForRecord("initializationCompleted"));
    std::ifstream file("/proc/" + std::to_string(sut.pid()) + "/maps");
    const std::string maps{std::istreambuf_iterator<char>(file), {}};
    ASSERT_THAT(maps, HasSubstr("/libsal.so"));
    for (const char* library :
         {"libcrypto", "libspdlog", "libsal_host", "libnl", "libfmt", "libMfDriverManager", "libtinyxml"})
        EXPECT_THAT(maps, Not(HasSubstr(library)));
}

TEST_F(Wrapper, IdleProcessTakesNoProcessorTime) {
    run("Recorder");
    host.send("INTCMP");
    ASSERT_TRUE(waitForRecord("initializationCompleted"));
    const auto before = sut.processorTime();
    const auto begin = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(1s);
    const auto used = sut.processorTime() - before;
    EXPECT_LE(used, (std::chrono::steady_clock::now() - begin) / 50);
}

TEST_F(Wrapper, BadSettingIsSaidAndTheDriverRuns) {
    setenv("MFD_LOG_LEVEL", "loud", 1);
    run("Recorder");
    host.send("DEINIT");
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(standardError(), Contains(HasSubstr("MFD_LOG_LEVEL=loud is not a number from 1 to 5")));
}

TEST_F(Wrapper, LogLevelIsObeyed) {
    setenv("MFD_LOG_LEVEL", "3", 1);
    run("Recorder");
    host.send("DEINIT");
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(standardError(), IsEmpty());
}

TEST_F(Wrapper, StartedByHandItEndsAHangingDriverWithoutTheHostsProcess) {
    ASSERT_TRUE(host.makeQueues());
    sut = start("mfddllwrap", {module("IgnoresDeinit"), "AXIS1"}, false);
    ASSERT_TRUE(waitUntilItRuns());
    host.closeQueues();
    EXPECT_EQ(sut.waitEnd(), "exit 1");
    EXPECT_THAT(record(), ElementsAre("deinitialize"));
}

TEST_F(Wrapper, StartedByHandASlowDriverHasTheStopTimeoutToo) {
    // Longer than the grace period, and much shorter than both.
    setenv("MFD_TEST_DEINIT_MS", "2500", 1);
    setenv("MFD_STOP_TIMEOUT", "600", 1);
    ASSERT_TRUE(host.makeQueues());
    sut = start("mfddllwrap", {module("SlowDeinit"), "AXIS1"}, false);
    host.send("DEINIT");
    ASSERT_TRUE(waitForRecord("deinitialize"));
    host.closeQueues();
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(record(), ElementsAre("deinitialize", "deinitialized"));
}

/// A host in a process of its own, which the test kills.
class KilledHost : public Workbench {
protected:
    void run(const std::string& moduleName) {
        host = start("hollowhost", {module(moduleName), "AXIS1"});
        ASSERT_TRUE(eventually([this] { return standardOutput().ends_with('\n'); }));
        sut = ProcessController(std::stoi(standardOutput()));
        ASSERT_TRUE(waitUntilItRuns());
    }
    void killHost() {
        host.signal(SIGKILL);
        ASSERT_EQ(host.waitEnd(), "signal 9");
    }

    ProcessController host;
    ProcessController sut;
};

TEST_F(KilledHost, DriverIsStoppedInOrder) {
    run("Recorder");
    ASSERT_TRUE(waitForRecord("initializationCompleted"));
    killHost();
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(record(), ElementsAre("setPanelStateInterface set", "setDistributorFIDInterface set",
                                      "setSystemInterface set", "initializationCompleted", "deinitialize",
                                      "destroyed"));
}

TEST_F(KilledHost, DriverThatTakesAMomentIsNotCutOff) {
    setenv("MFD_TEST_DEINIT_MS", "300", 1);
    run("SlowDeinit");
    killHost();
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(record(), ElementsAre("deinitialize", "deinitialized"));
}

TEST_F(KilledHost, DriverThatIgnoresItIsEnded) {
    run("IgnoresDeinit");
    killHost();
    EXPECT_EQ(sut.waitEnd(), "exit 1");
    EXPECT_THAT(record(), ElementsAre("deinitialize"));
    EXPECT_THAT(standardError(), Contains(HasSubstr("does not come back")));
}

TEST_F(KilledHost, DriverThatHangsInAFidIsEnded) {
    run("HangsInSendFID");
    writeInput("fid MOVE\n");
    ASSERT_TRUE(waitForRecord("sendFID MOVE"));
    killHost();
    EXPECT_EQ(sut.waitEnd(), "exit 1");
    EXPECT_THAT(record(), ElementsAre("sendFID MOVE"));
}

TEST_F(KilledHost, DriverThatWaitsOnAFullQueueIsReleased) {
    run("FloodsState");
    // The queue takes 16384 messages; once it is full the driver takes no more processor time.
    auto time = sut.processorTime();
    eventually(
        [&] {
            const auto before = std::exchange(time, sut.processorTime());
            return time == before;
        },
        300ms);
    killHost();
    EXPECT_EQ(sut.waitEnd(), "exit 0");
    EXPECT_THAT(record(), ElementsAre("deinitialize"));
}

TEST_F(KilledHost, DeathAfterDeinitLeavesTheGracePeriodAlone) {
    setenv("MFD_STOP_TIMEOUT", "0", 1);
    setenv("MFD_TEST_DEINIT_MS", "60000", 1);
    run("SlowDeinit");
    writeInput("deinit\n");
    ASSERT_TRUE(waitForRecord("deinitialize"));
    writeInput("close\n");
    std::this_thread::sleep_for(2500ms);
    ASSERT_TRUE(sut.alive());
    killHost();
    EXPECT_EQ(sut.waitEnd(), "exit 1");
    EXPECT_THAT(record(), ElementsAre("deinitialize"));
}

}  // namespace
