#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>

#include "SystemTest.h"

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

// What an operator sees when something of the workplace is missing or broken: one clear text, and the rest
// runs.
class Failures : public SystemTest {
protected:
    void prepare() override { giveAdapter(); }

    /// One driver of that type beside a healthy one.
    void configure(const std::string& type, const std::string& interfaceType = "direct") {
        workplace().addModule("Recorder");
        workplace().configure(TestWorkplace::entry("BAD", type, interfaceType) +
                              TestWorkplace::entry("GOOD", "Recorder", "direct"));
    }
    std::string loading(const std::string& driverID, const std::string& type) {
        return "Loading MF driver " + (workplace().drivers() / (type + ".so")).string() +
               " (ID: " + driverID + ")...";
    }
};

TEST_F(Failures, MissingDescriptorDirectoryIsNamedAndTheRestRuns) {
    configure("Recorder");
    HostProcess& host = start({"--drivers", workplace().directory() / "absent"});
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr((workplace().directory() / "absent").string() +
                                      " cannot be searched: No such file or directory; no drivers are "
                                      "found there\n"));
    EXPECT_THAT(host.output(), HasSubstr(loading("GOOD", "Recorder") + "OK\n"));
}

TEST_F(Failures, MissingConfigurationLeavesThePanelRunning) {
    HostProcess& host = start();
    host.type("sendFID PANEL.MACRO.STOP");
    // No macro is played, so the panel refuses it.
    EXPECT_EQ(end(), 3);
    EXPECT_THAT(host.log(), HasSubstr(workplace().configuration().string()));
    EXPECT_THAT(host.output(), HasSubstr("(ID: PANEL)...OK\n"));
}

TEST_F(Failures, IllFormedConfigurationIsNamedWithTheReason) {
    writeFile(workplace().configuration(), "<workplaces><workplace id=\"0\"></workplaces>");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr("HOST: " + workplace().configuration().string() +
                                      " line 1: Error reading end tag; only the panel driver is started\n"));
    EXPECT_THAT(host.log(),
                ContainsRegex("Failed to open \"/proc/self/fd/[0-9]+\" \\('Error reading end tag.'\\)"));
}

TEST_F(Failures, WrongElementInTheConfigurationIsNamedWithItsLine) {
    writeFile(workplace().configuration(), "<workplaces>\n<workplace id=\"0\"/>\n<desk/>\n</workplaces>\n");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr("HOST: " + workplace().configuration().string() +
                                      " line 3: an element <desk> may not stand here, only <workplace>; no "
                                      "driver behind it is started\n"));
    EXPECT_THAT(host.log(), ContainsRegex("Parse error in \"/proc/self/fd/[0-9]+\" line 3\n"));
}

TEST_F(Failures, WorkplaceNumberOutOfRangeIsNamedWithItsLine) {
    writeFile(workplace().configuration(), "<workplaces>\n<workplace id=\"8\"/>\n</workplaces>\n");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr("HOST: " + workplace().configuration().string() +
                                      " line 2: the workplace id \"8\" is not a number from 0 to 7"));
    EXPECT_THAT(host.log(),
                ContainsRegex("Workplace ID missing or invalid in \"/proc/self/fd/[0-9]+\" line 2\n"));
}

TEST_F(Failures, DirectoryAsConfigurationIsRefusedAndNamed) {
    fs::create_directory(workplace().configuration());
    HostProcess& host = start();
    EXPECT_EQ(host.waitForEnd(), 1);
    EXPECT_TRUE(host.waitForLog(workplace().configuration().string() +
                                " is no regular file; the workplace is not started\n"))
        << host.log();
}

TEST_F(Failures, PipeAsConfigurationIsRefusedAndHoldsNothingUp) {
    ASSERT_EQ(mkfifo(workplace().configuration().c_str(), 0600), 0);
    HostProcess& host = start();
    EXPECT_EQ(host.waitForEnd(), 1);
    EXPECT_TRUE(host.waitForLog(workplace().configuration().string() +
                                " is no regular file; the workplace is not started\n"))
        << host.log();
}

TEST_F(Failures, PipeAsDescriptorHoldsNothingUp) {
    configure("Recorder");
    ASSERT_EQ(mkfifo((workplace().drivers() / "pipe.xml").c_str(), 0600), 0);
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr(loading("GOOD", "Recorder") + "OK\n"));
}

TEST_F(Failures, DeeplyNestedDescriptorIsLeftOutAndNamed) {
    configure("Recorder");
    std::string text;
    for (int level = 0; level < 101; ++level)
        text += "<mfDriverModule>\n";
    writeFile(workplace().drivers() / "deep.xml", text);
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr("deep.xml line 101: elements nest deeper than 100 levels; the "
                                      "descriptor is left out\n"));
    EXPECT_THAT(host.output(), HasSubstr(loading("GOOD", "Recorder") + "OK\n"));
}

TEST_F(Failures, IllFormedDescriptorIsReportedAndTheOthersAreRead) {
    configure("Recorder");
    writeFile(workplace().drivers() / "a.xml", "<mfDriverModule><module_type></mfDriverModule>");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr("error: Error reading end tag.\n"));
    EXPECT_THAT(host.output(), HasSubstr(loading("GOOD", "Recorder") + "OK\n"));
}

TEST_F(Failures, DescriptorWithoutModuleFileFailsThatDriverAlone) {
    configure("Gone");
    workplace().describe("Gone", "Gone.so");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr(loading("BAD", "Gone") + "FAILED!\n"));
    EXPECT_THAT(host.log(), HasSubstr("Failed to load \"BAD\" mainframe driver"));
    EXPECT_THAT(host.log(), HasSubstr("No such file or directory"));
    EXPECT_THAT(host.output(), HasSubstr(loading("GOOD", "Recorder") + "OK\n"));
}

TEST_F(Failures, MissingSymbolIsNamed) {
    configure("MissingSymbol");
    workplace().addModule("MissingSymbol");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr(loading("BAD", "MissingSymbol") + "FAILED!\n"));
    EXPECT_THAT(host.log(), HasSubstr("undefined symbol"));
    EXPECT_THAT(host.log(), HasSubstr("mfdTestSymbolThatNobodyDefines"));
    EXPECT_THAT(host.output(), HasSubstr(loading("GOOD", "Recorder") + "OK\n"));
}

TEST_F(Failures, ModuleThatCannotBeLoadedIsItsDriversCause) {
    workplace().addModule("NoFactory");
    workplace().addModule("Recorder");
    workplace().configure(TestWorkplace::entry("BAD", "NoFactory", "direct") +
                          TestWorkplace::entry("WORSE", "NoFactory", "direct") +
                          TestWorkplace::entry("GOOD", "Recorder", "direct"));
    HostProcess& host = start();
    const std::string cause = "MFD_DRIVER is missing in it (undefined symbol: mfdDriverAbi)";
    EXPECT_TRUE(
        host.waitForLog("warning  HOST: 1 of 3 drivers run; BAD: " + cause + "; WORSE: " + cause + "\n"))
        << host.log();
    EXPECT_THAT(host.listed("WORSE"), HasSubstr("  not loaded  "));
    EXPECT_THAT(host.listed("WORSE"), HasSubstr(cause));
    fs::copy_file(TestWorkplace::build() / "lib/testmodules/Recorder.so",
                  workplace().drivers() / "NoFactory.so", fs::copy_options::overwrite_existing);
    host.type("reloadDriver BAD");
    EXPECT_TRUE(host.repliesWith("drivers", "^BAD .* running "));
    EXPECT_EQ(end(), 0);
}

TEST_F(Failures, ModuleThatAnswersNothingStaysLoadedAndTakesNoFid) {
    configure("AnswersNothing");
    workplace().addModule("AnswersNothing");
    HostProcess& host = start({"--log-level", "5"});
    host.type("sendFID BAD.x");
    EXPECT_EQ(end(), 3);
    EXPECT_THAT(host.output(), HasSubstr(loading("BAD", "AnswersNothing") + "OK\n"));
    EXPECT_THAT(host.log(), HasSubstr("MDM: BAD.x ( ) received."));
    EXPECT_THAT(host.log(), HasSubstr("MDM:  -> but not dispatched"));
}

TEST_F(Failures, MissingWrapperFailsTheDriversInProcessesAlone) {
    workplace().addModule("Recorder");
    workplace().configure(TestWorkplace::entry("BAD", "Recorder", "queue") +
                          TestWorkplace::entry("GOOD", "Recorder", "direct"));
    // The wrapper is looked for beside the running program.
    fs::create_directory(workplace().directory() / "bin");
    fs::copy_file(TestWorkplace::build() / "bin/mfhost", workplace().directory() / "bin/mfhost");
    fs::create_directory_symlink(TestWorkplace::build() / "lib", workplace().directory() / "lib");
    HostProcess::Start call = workplace().host();
    call.program = workplace().directory() / "bin/mfhost";
    HostProcess& host = start(call);
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr("\nFailed to create MFD process.\n"));
    EXPECT_THAT(host.log(), HasSubstr((workplace().directory() / "bin/mfddllwrap").string()));
    EXPECT_THAT(host.log(),
                testing::ContainsRegex(
                    "BAD: no process runs: cannot be started: No such file or directory; it is started again "
                    "in (0.9|1|1.1) s\n"));
    EXPECT_THAT(host.log(), HasSubstr("Failed to load \"BAD\" mainframe driver"));
    EXPECT_THAT(host.output(), HasSubstr(loading("GOOD", "Recorder") + "OK\n"));
}

TEST_F(Failures, FullDiskFailsTheDriverWhoseDirectoryDoesNotFit) {
    configure("Recorder");
    // A small disk with room for what the panel needs and not one file more.
    ASSERT_EQ(mount("tmpfs", workplace().workdir().c_str(), "tmpfs", 0, "size=64k,nr_inodes=9"), 0);
    for (const char* name : {"data", "data/PANEL", "nvram", "nvram/PANEL", "data/GOOD", "nvram/GOOD"})
        fs::create_directory(workplace().workdir() / name);
    while (!fs::exists(workplace().workdir() / "full")) {
        std::error_code error;
        static int s_number = 0;
        if (!fs::create_directory(workplace().workdir() / ("filler" + std::to_string(s_number++)), error))
            break;
    }
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr("Failed to create working directory data/BAD for MF driver BAD\n"));
    EXPECT_THAT(host.log(), HasSubstr("No space left on device"));
    EXPECT_THAT(host.output(), HasSubstr(loading("GOOD", "Recorder") + "OK\n"));
}

TEST_F(Failures, FileWhereAWorkingDirectoryBelongsIsNamed) {
    configure("Recorder");
    fs::create_directory(workplace().workdir() / "data");
    writeFile(workplace().workdir() / "data/BAD", "");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr("Failed to create working directory data/BAD for MF driver BAD\n"));
    EXPECT_THAT(host.output(), HasSubstr(loading("GOOD", "Recorder") + "OK\n"));
}

TEST_F(Failures, DirectoryWhereALinkBelongsIsNamed) {
    configure("Recorder");
    fs::create_directories("/var/data/BAD/full");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr("Failed to create symlink to file driver working directory " +
                                         (workplace().workdir() / "data/BAD").string() +
                                         " -> /var/data/BAD for MF driver BAD\n"));
    EXPECT_THAT(host.output(), HasSubstr(loading("GOOD", "Recorder") + "OK\n"));
}

TEST_F(Failures, MissingPanelModuleEndsTheHost) {
    workplace().configure("");
    HostProcess::Start call = workplace().host();
    call.arguments = {"--drivers", workplace().drivers(), "--config", workplace().configuration(),
                      "--workdir", workplace().workdir()};
    workplace().describe("Panel", "Panel.so");
    HostProcess& host = start(call);
    EXPECT_EQ(host.waitForEnd(), 1);
    EXPECT_TRUE(host.waitForOutput("(ID: PANEL)...FAILED!\n")) << host.output();
    EXPECT_TRUE(host.waitForLog("Failed to start panel driver")) << host.log();
}

TEST_F(Failures, SecondHostOnTheSameDataDirectoryIsKeptOut) {
    configure("Recorder");
    HostProcess& first = start();
    ASSERT_TRUE(first.waitForOutput(loading("GOOD", "Recorder") + "OK\n"));
    const TestWorkplace other;
    other.configure("");
    HostProcess second(other.host());
    EXPECT_EQ(second.waitForEnd(), 1);
    EXPECT_THAT(second.log(),
                HasSubstr("another host runs with /var/data (process " + std::to_string(first.pid()) + ")"));
    EXPECT_TRUE(fs::is_symlink("/var/data/GOOD"));
    EXPECT_EQ(end(), 0);
}

/// Runs what in a process of its own, as another user, and keeps that process.
class Stranger {
public:
    explicit Stranger(const std::function<bool()>& what) {
        int ends[2] = {-1, -1};
        if (::pipe2(ends, O_CLOEXEC) != 0)
            return;
        m_pid = ::fork();
        if (m_pid == 0) {
            const bool hasDone = ::setgid(65534) == 0 && ::setuid(65534) == 0 && what();
            static_cast<void>(!::write(ends[1], hasDone ? "y" : "n", 1));
            for (;;)
                ::pause();
        }
        char answer = 0;
        m_hasDone = ::read(ends[0], &answer, 1) == 1 && answer == 'y';
        ::close(ends[0]);
        ::close(ends[1]);
    }
    ~Stranger() {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    Stranger(const Stranger&) = delete;
    Stranger& operator=(const Stranger&) = delete;
    bool hasDone() const { return m_hasDone; }

private:
    pid_t m_pid = -1;
    bool m_hasDone = false;
};

TEST_F(Failures, LockOfTheDataDirectoryByAnotherUserKeepsNoHostOut) {
    const Stranger stranger([] {
        const int fd = ::open("/var/data", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        return fd >= 0 && ::flock(fd, LOCK_SH) == 0;
    });
    if (!stranger.hasDone())
        GTEST_SKIP() << "needs a second user";
    configure("Recorder");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr(loading("GOOD", "Recorder") + "OK\n"));
}

/// How the child of a driver in the host's process came about.
class FailuresBeforeAChild : public Failures, public testing::WithParamInterface<std::string> {
protected:
    pid_t startHostWithChild() {
        workplace().addModule("StartsProcesses");
        workplace().configure(TestWorkplace::entry("S", "StartsProcesses", "direct"));
        HostProcess& host = start();
        const fs::path file = workplace().directory() / "child";
        host.type("sendFID S." + GetParam() + " file=" + file.string());
        for (int i = 0; i < 1000 && !fs::exists(file); ++i)
            ::usleep(20000);
        return std::atoi(readFile(file).c_str());
    }
    void expectNextHostStarts(pid_t child) {
        ASSERT_GT(child, 0);
        ASSERT_FALSE(endsWithin(child, 0));
        const TestWorkplace other;
        other.configure("");
        HostProcess next(other.host());
        next.closeInput();
        EXPECT_EQ(next.waitForEnd(), 0) << next.log();
        ::kill(child, SIGKILL);
    }
};

TEST_P(FailuresBeforeAChild, KilledHostLeavesTheDataDirectoryToTheNext) {
    const pid_t child = startHostWithChild();
    HostProcess& host = this->host();
    host.signal(SIGKILL);
    host.waitForEnd();
    expectNextHostStarts(child);
}

TEST_P(FailuresBeforeAChild, HostThatEndsInOrderLeavesTheDataDirectoryToTheNext) {
    const pid_t child = startHostWithChild();
    EXPECT_EQ(end(), 0);
    expectNextHostStarts(child);
}

INSTANTIATE_TEST_SUITE_P(MadeBy, FailuresBeforeAChild, testing::Values("FORK", "CLONE"));

TEST_F(Failures, FileWhereTheDataDirectoryBelongsEndsTheHost) {
    configure("Recorder");
    fs::remove("/var/data");
    writeFile("/var/data", "");
    HostProcess& host = start();
    EXPECT_EQ(host.waitForEnd(), 1);
    EXPECT_TRUE(host.waitForLog("/var/data is not a directory")) << host.log();
}

// Wrong usage needs no private machine: nothing is touched.
TEST(Usage, MissingOptionsAreWrongUsage) {
    const TestWorkplace workplace;
    HostProcess::Start call = workplace.host();
    call.arguments.clear();
    HostProcess host(call);
    EXPECT_EQ(host.waitForEnd(), 2);
    EXPECT_TRUE(host.waitForLog("--drivers is required")) << host.log();
    EXPECT_EQ(host.output(), "");
}

TEST(Usage, UnknownOptionIsWrongUsage) {
    const TestWorkplace workplace;
    HostProcess host(workplace.host({"--frobnicate"}));
    EXPECT_EQ(host.waitForEnd(), 2);
    EXPECT_TRUE(host.waitForLog("--frobnicate")) << host.log();
}

TEST(Usage, LogLevelOutOfRangeIsWrongUsage) {
    const TestWorkplace workplace;
    HostProcess host(workplace.host({"--log-level", "6"}));
    EXPECT_EQ(host.waitForEnd(), 2);
    EXPECT_TRUE(host.waitForLog("--log-level")) << host.log();
}
