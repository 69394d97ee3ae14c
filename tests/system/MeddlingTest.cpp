#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>

#include "FaultyWorkplace.h"

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

// A driver in the host's process that changes what belongs to the process as a whole: the others do not feel
// it.
class Meddling : public FaultyWorkplace {
protected:
    void prepare() override {
        FaultyWorkplace::prepare();
        workplace().addModule("Meddles");
        workplace().addModule("Echo");
        workplace().addModule("Recorder");
        fs::create_directory(elsewhere());
    }
    fs::path elsewhere() { return workplace().directory() / "elsewhere"; }

    /// M meddles, the others are loaded behind it.
    void configure(const std::string& others) {
        workplace().configure(TestWorkplace::entry("M", "Meddles", "direct") + others);
    }
    HostProcess& startMeddling(const std::string& acts, const std::vector<std::string>& options = {},
                               const std::function<void()>& beforeExec = {}) {
        HostProcess::Start start = call({"--log-level", "5"});
        start.arguments.insert(start.arguments.end(), options.begin(), options.end());
        start.environment = {{"MFD_TEST_MEDDLES", acts}};
        start.beforeExec = [beforeExec] {
            ::umask(022);
            if (beforeExec)
                beforeExec();
        };
        HostProcess& host = this->start(start);
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
        return host;
    }
    void meddle(HostProcess& host, const std::string& fid) {
        host.type("sendFID M." + fid);
        settle(host);
    }
    static void expectEcho(HostProcess& host, const std::string& driverID) {
        static int s_number = 0;
        const std::string text = "echo" + std::to_string(++s_number);
        host.type("sendFID " + driverID + ".PRINT value=" + text);
        EXPECT_TRUE(host.waitForOutput(text + "\n")) << host.log();
    }
    static fs::perms modeOf(const fs::path& path) { return fs::symlink_status(path).permissions(); }

    /// "soft hard" of a limit, as the kernel tells it.
    static std::string limitsOf(pid_t pid, const std::string& name) {
        const std::string limits = readFile("/proc/" + std::to_string(pid) + "/limits");
        const auto at = limits.find(name);
        std::istringstream line(limits.substr(at + name.size()));
        std::string soft;
        std::string hard;
        line >> soft >> hard;
        return soft + " " + hard;
    }
};

/// What makes the host learn of no child's end.
class MeddlingWithChildren : public Meddling, public testing::WithParamInterface<std::string> {};

TEST_P(MeddlingWithChildren, EndOfADriverIsUnknownAndTheDriverIsStartedAgain) {
    configure(TestWorkplace::entry("E", "Echo", "queue"));
    HostProcess& host = startMeddling("", {"--restart-delay", "0.1"});
    meddle(host, GetParam());
    const pid_t driver = host.driverProcess("E");
    ASSERT_NE(driver, 0);
    ::kill(driver, SIGKILL);
    EXPECT_TRUE(host.waitForLog("HOST: E: is started again\n")) << host.log();
    expectEcho(host, "E");
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), Not(HasSubstr("signal 0")));
    // The thread that reaps may come too late.
    EXPECT_THAT(host.log(), ContainsRegex("E: process [0-9]+ ended unexpectedly: (unknown end|signal 9)"));
    // Nothing is said to have ended unexpectedly in the shutdown.
    const std::string log = host.log();
    EXPECT_EQ(log.find("ended unexpectedly", log.find("shutting down")), std::string::npos) << log;
}

TEST_P(MeddlingWithChildren, ModuleIsTriedOutAndLoadedAllTheSame) {
    configure(TestWorkplace::entry("E", "Echo", "direct"));
    HostProcess& host = startMeddling("setConfiguration|" + GetParam());
    EXPECT_TRUE(host.waitForOutput("(ID: E)...OK\n")) << host.output();
    expectEcho(host, "E");
    EXPECT_EQ(end(), 0);
}

TEST_P(MeddlingWithChildren, ModuleThatDiesIsStillKeptOut) {
    workplace().addModule("DiesInTrial");
    configure(TestWorkplace::entry("D", "DiesInTrial", "direct"));
    HostProcess& host = startMeddling("setConfiguration|" + GetParam());
    EXPECT_TRUE(host.waitForOutput("(ID: D)...FAILED!\n")) << host.output();
    EXPECT_EQ(end(), 0);
}

INSTANTIATE_TEST_SUITE_P(By, MeddlingWithChildren, testing::Values("IGNORE", "REAP"));

TEST_F(Meddling, WorkingDirectoryOfTheNextDriverIsTheHosts) {
    configure(TestWorkplace::entry("R", "Recorder", "direct"));
    const HostProcess& host = startMeddling("initializationCompleted|CHDIR|" + elsewhere().string());
    EXPECT_EQ(fs::read_symlink("/var/data/R"), workplace().workdir() / "data/R");
    EXPECT_TRUE(fs::is_empty(elsewhere()));
    EXPECT_TRUE(
        host.waitForLog("HOST: M: initializationCompleted() has changed the working directory of "
                        "the host's process to " +
                        elsewhere().string() + "; it is put back\n"))
        << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(Meddling, WorkingDirectoryIsTheHostsAfterADriverThatChangesItWhileItIsMade) {
    configure(TestWorkplace::entry("R", "Recorder", "direct"));
    startMeddling("made|CHDIR|" + elsewhere().string());
    EXPECT_EQ(fs::read_symlink("/var/data/R"), workplace().workdir() / "data/R");
    EXPECT_EQ(end(), 0);
}

TEST_F(Meddling, EveryCommandBeginsInTheHostsDirectory) {
    configure(TestWorkplace::entry("R", "Recorder", "direct"));
    HostProcess& host = startMeddling("");
    fs::remove_all(workplace().workdir() / "data/R");
    meddle(host, "CHDIR value=" + elsewhere().string());
    host.type("reloadDriver R");
    settle(host);
    EXPECT_EQ(fs::read_symlink("/var/data/R"), workplace().workdir() / "data/R");
    EXPECT_TRUE(fs::is_directory(workplace().workdir() / "data/R"));
    EXPECT_TRUE(fs::is_empty(elsewhere()));
    EXPECT_TRUE(
        host.waitForLog("HOST: a driver in the host's process has changed the working directory "
                        "of the host's process to " +
                        elsewhere().string() + "; it is put back\n"))
        << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(Meddling, RestartBeginsInTheHostsDirectory) {
    configure(TestWorkplace::entry("E", "Echo", "queue"));
    HostProcess& host = startMeddling("", {"--restart-delay", "0.1"});
    meddle(host, "CHDIR value=" + elsewhere().string());
    ::kill(host.driverProcess("E"), SIGKILL);
    EXPECT_TRUE(host.waitForLog("HOST: E: is started again\n")) << host.log();
    EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(host.driverProcess("E")) + "/cwd"),
              workplace().workdir());
    EXPECT_EQ(end(), 0);
}

TEST_F(Meddling, NothingThatTheHostMakesIsOpenToOthersForWriting) {
    configure(TestWorkplace::entry("R", "Recorder", "direct") + TestWorkplace::entry("E", "Echo", "queue"));
    HostProcess& host = startMeddling("made|UMASK|0;setConfiguration|UMASK|0;initializationCompleted|UMASK|0",
                                      {"--log-file", workplace().directory() / "logs/host.log"});
    meddle(host, "UMASK value=0");
    fs::remove_all(workplace().workdir() / "data/R");
    host.type("reloadDriver R");
    host.type("reloadDriver M");
    settle(host);
    const auto others = fs::perms::group_write | fs::perms::others_write;
    for (const auto& entry : fs::recursive_directory_iterator(workplace().workdir())) {
        // What the drivers make is theirs.
        if (entry.is_directory()) {
            EXPECT_EQ(modeOf(entry.path()) & others, fs::perms::none) << entry.path();
        }
    }
    EXPECT_EQ(modeOf(workplace().directory() / "logs/host.log") & others, fs::perms::none);
    // The process of a driver gets the umask that the host was started with.
    EXPECT_THAT(readFile("/proc/" + std::to_string(host.driverProcess("E")) + "/status"),
                HasSubstr("Umask:\t0022\n"));
    EXPECT_TRUE(
        host.waitForLog("has changed the umask of the host's process from 0022 to 0000; it is "
                        "put back\n"))
        << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(Meddling, NothingIsOpenToOthersForWritingThatAHostWithAWideUmaskMakes) {
    configure(TestWorkplace::entry("R", "Recorder", "direct"));
    HostProcess::Start start = call({"--log-file", workplace().directory() / "logs/host.log"});
    const fs::path workdir = workplace().directory() / "fresh/work";
    std::replace(start.arguments.begin(), start.arguments.end(), workplace().workdir().string(),
                 workdir.string());
    start.beforeExec = [] { ::umask(0); };
    HostProcess& host = this->start(start);
    EXPECT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    EXPECT_EQ(end(), 0);
    for (const fs::path& made : {workdir.parent_path(), workdir, workdir / "data", workdir / "data/R",
                                 workdir / "nvram/R", workplace().directory() / "logs"})
        EXPECT_EQ(modeOf(made), fs::perms(0755)) << made;
    EXPECT_EQ(modeOf(workplace().directory() / "logs/host.log"), fs::perms(0644));
}

TEST_F(Meddling, NarrowUmaskBreaksNothing) {
    configure(TestWorkplace::entry("R", "Recorder", "direct") + TestWorkplace::entry("E", "Echo", "queue"));
    HostProcess& host = startMeddling("setConfiguration|UMASK|777;initializationCompleted|UMASK|777");
    meddle(host, "UMASK value=777");
    fs::remove_all(workplace().workdir() / "data");
    host.type("reloadDriver R");
    host.type("reloadDriver E");
    settle(host);
    EXPECT_EQ(modeOf(workplace().workdir() / "data/R"), fs::perms(0755));
    expectEcho(host, "E");
    EXPECT_EQ(end(), 0);
}

TEST_F(Meddling, FilesThatMayNotGrowFailTheDriverAndNotTheHost) {
    configure(TestWorkplace::entry("E", "Echo", "queue") + TestWorkplace::entry("R", "Recorder", "direct"));
    HostProcess& host = startMeddling("initializationCompleted|FILESIZE|4096", {"--restart-limit", "0"});
    EXPECT_TRUE(host.waitForLog("queue E_INQ: not created: ")) << host.log();
    EXPECT_TRUE(
        host.waitForLog(": File too large; files of this process are limited to 4096 bytes (RLIMIT_FSIZE, "
                        "ulimit -f), and this one needs "))
        << host.log();
    EXPECT_TRUE(host.waitForOutput("(ID: R)...OK\n")) << host.output();
    host.type("sendFID R.alive");
    settle(host);
    EXPECT_EQ(end(), 0);
    std::size_t left = 0;
    for (const auto& entry : fs::recursive_directory_iterator("/dev/shm"))
        left += entry.is_directory() ? 0 : 1;
    EXPECT_EQ(left, 0u);
}

TEST_F(Meddling, OutputThatMayNotGrowEndsNeitherHostNorDriverProcess) {
    configure(TestWorkplace::entry("E", "Echo", "queue") + TestWorkplace::entry("D", "Echo", "direct"));
    HostProcess& host = start(call({"--log-level", "4"}));
    // Standard output of both is the file that the test reads. Longer than the log, which is to go on.
    for (int i = 0; i < 20; ++i)
        host.type("sendFID D.PRINT value=" + std::string(900, 'x'));
    expectEcho(host, "D");
    expectEcho(host, "E");
    const pid_t driver = host.driverProcess("E");
    ASSERT_NE(driver, 0);
    const std::string limit = std::to_string(host.output().size() + 10);
    host.type("sendFID M.FILESIZE value=" + limit);
    for (int i = 0; i < 20; ++i)
        host.type("sendFID D.PRINT value=0123456789");
    EXPECT_TRUE(host.waitForLog("HOST: standard output could not be written; what was printed is lost"))
        << host.log();
    host.type("sendFID M.FILESIZE value=1000000000");
    expectEcho(host, "D");
    expectEcho(host, "E");
    EXPECT_EQ(host.driverProcess("E"), driver);
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), Not(HasSubstr("unexpectedly")));
}

TEST_F(Meddling, HostHasAsManyDescriptorsAsItMayAndItsDriverProcessesHaveAsManyAsBefore) {
    configure(TestWorkplace::entry("E", "Echo", "queue"));
    HostProcess& host = startMeddling("", {}, [] {
        const struct rlimit limit { 256, 2048 };
        ::setrlimit(RLIMIT_NOFILE, &limit);
    });
    EXPECT_EQ(limitsOf(host.pid(), "Max open files"), "2048 2048");
    expectEcho(host, "E");
    EXPECT_EQ(limitsOf(host.driverProcess("E"), "Max open files"), "256 2048");
    EXPECT_EQ(end(), 0);
}
