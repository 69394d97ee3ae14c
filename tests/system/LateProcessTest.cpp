#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "FaultyWorkplace.h"
#include "HangGuard.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

// A driver process that comes up later than the host waits for it, or never, as on a busy machine.
class LateProcess : public FaultyWorkplace {
protected:
    void prepare() override {
        FaultyWorkplace::prepare();
        // The wrapper is looked for beside the running program.
        fs::create_directory(workplace().directory() / "bin");
        fs::copy_file(TestWorkplace::build() / "bin/mfhost", workplace().directory() / "bin/mfhost");
        fs::create_symlink(TestWorkplace::build() / "bin/mfdprobe", workplace().directory() / "bin/mfdprobe");
        fs::create_symlink(TestWorkplace::build() / "late/bin/mfddllwrap",
                           workplace().directory() / "bin/mfddllwrap");
        fs::create_directory_symlink(TestWorkplace::build() / "lib", workplace().directory() / "lib");
        configure("queue");
    }

    /// What the next driver processes do before they come up, one line each; see tests/kit/latewrapper.
    void plan(const std::string& lines) { writeFile(workplace().directory() / "starts", lines); }

    HostProcess& startLate(const std::vector<std::string>& options = {"--log-level", "5"}) {
        HostProcess::Start call = this->call(options);
        call.program = workplace().directory() / "bin/mfhost";
        call.environment["MFD_TEST_STARTS"] = workplace().directory() / "starts";
        if (!m_queueDirectory.empty())
            call.environment["MFD_QUEUE_DIR"] = m_queueDirectory;
        return start(call);
    }

    static pid_t waitForProcess(const HostProcess& host, const std::string& driverID, pid_t former) {
        pid_t found = 0;
        for (int i = 0; i < 1000 && (found == 0 || found == former); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            for (const pid_t pid : host.children()) {
                if (pid != former &&
                    readFile("/proc/" + std::to_string(pid) + "/cmdline").rfind(driverID + " MFD", 0) == 0)
                    found = pid;
            }
        }
        return found;
    }

    static void expectNoConfusion(const HostProcess& host) {
        EXPECT_THAT(host.log(), Not(HasSubstr("another reader")));
        EXPECT_THAT(host.log(), Not(HasSubstr("unexpectedly")));
    }

    std::string m_queueDirectory;

    static std::string process(pid_t pid) { return "BAD: process " + std::to_string(pid); }
};

/// Two processes that find the same names: of a driver before and after its reload, or of a killed host and
/// the next.
class LateProcessAndSuccessor : public LateProcess {
protected:
    HostProcess& reloadEarly(const std::string& lines) {
        plan(lines);
        HostProcess& host = startLate();
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
        late = host.driverProcess("BAD");
        host.type("reloadDriver BAD");
        fresh = waitForProcess(host, "BAD", late);
        return host;
    }
    HostProcess& startNextHost(const std::string& lines) {
        plan(lines);
        // Hosts with directories of their own never meet.
        m_queueDirectory = "/dev/shm/of-both-hosts";
        HostProcess& killed = startLate();
        EXPECT_TRUE(killed.waitForLog("HOST: the workplace is started")) << killed.log();
        late = killed.driverProcess("BAD");
        killed.signal(SIGKILL);
        EXPECT_EQ(killed.waitForEnd(), 128 + SIGKILL);
        HostProcess& host = startLate();
        fresh = waitForProcess(host, "BAD", 0);
        return host;
    }

    /// The late one goes on first.
    void continueBoth() const {
        ASSERT_NE(late, 0);
        ASSERT_NE(fresh, 0);
        // One that has not stopped yet would stop after it was continued, and the host may not know of it
        // yet.
        EXPECT_TRUE(eventually([this] { return isStopped(fresh); }));
        ::kill(late, SIGCONT);
        EXPECT_TRUE(endsWithin(late, 10000));
        ::kill(fresh, SIGCONT);
    }
    void expectTheSuccessorServes(HostProcess& host) {
        ASSERT_NE(late, 0);
        ASSERT_NE(fresh, 0);
        expectServes(host, "BAD");
        EXPECT_TRUE(endsWithin(late, 10000));
        EXPECT_FALSE(endsWithin(fresh, 0)) << host.log();
        expectNoConfusion(host);
        EXPECT_EQ(end(), 0);
    }

    pid_t late = 0;
    pid_t fresh = 0;
};

TEST_F(LateProcessAndSuccessor, OfAReloadAreNotTakenForEachOther) {
    HostProcess& host = reloadEarly("stop\nstop\n");
    continueBoth();
    EXPECT_TRUE(
        host.waitForLog("QUEUE: queue BAD_INQ: not opened: it was made for a process that was "
                        "started later than this one"))
        << host.log();
    EXPECT_TRUE(host.waitForLog(process(late) + " ended: exit code 1; a newer process had replaced it\n"))
        << host.log();
    expectTheSuccessorServes(host);
}

TEST_F(LateProcessAndSuccessor, LateByASecondAndAHalfAndReloadedAfterASecond) {
    expectTheSuccessorServes(reloadEarly("wait 1500\nwait 1500\n"));
}

TEST_F(LateProcessAndSuccessor, OfAKilledHostAndTheNextAreNotTakenForEachOther) {
    HostProcess& host = startNextHost("stop\nstop\n");
    continueBoth();
    EXPECT_TRUE(
        host.waitForLog("QUEUE: queue BAD_INQ: not opened: it was made by another host than the one "
                        "that started this process"))
        << host.log();
    expectTheSuccessorServes(host);
}

TEST_F(LateProcessAndSuccessor, LateByASecondAndAHalfOfAHostKilledAfterASecond) {
    expectTheSuccessorServes(startNextHost("wait 1500\nwait 1500\n"));
}

/// However long a start waits.
class LateProcessAtStart : public LateProcess, public testing::WithParamInterface<std::string> {
protected:
    HostProcess& startPlanned(const std::string& lines, const std::vector<std::string>& more = {}) {
        plan(lines);
        std::vector<std::string> options{"--log-level", "5", "--start-wait", GetParam()};
        options.insert(options.end(), more.begin(), more.end());
        HostProcess& host = startLate(options);
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
        return host;
    }

    /// The lines by the time in each: each process writes its own.
    static std::string inOrder(const std::string& unsorted) {
        std::vector<std::string> lines;
        std::istringstream stream(unsorted);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line + "\n");
        std::stable_sort(lines.begin(), lines.end(), [](const auto& a, const auto& b) {
            return a.substr(0, timeLength) < b.substr(0, timeLength);
        });
        std::string log;
        for (const std::string& line : lines)
            log += line;
        return log;
    }

    /// Waits for what comes last: a process that has come up logs its module after the host knows of it.
    static void expectOrder(const HostProcess& host, const std::vector<std::string>& texts) {
        std::string log;
        const auto missing = [&] {
            log = inOrder(host.log());
            std::size_t at = 0;
            for (const std::string& text : texts) {
                at = log.find(text, at);
                if (at == std::string::npos)
                    return text;
            }
            return std::string();
        };
        EXPECT_TRUE(eventually([&] { return missing().empty(); })) << missing() << "\n" << log;
    }

    /// Of the first line with that text, as "2026-11-22 08:49:35.561" in it.
    static std::chrono::milliseconds timeOf(const HostProcess& host, const std::string& text) {
        const std::string log = host.log();
        const std::string line = log.substr(log.rfind('\n', log.find(text)) + 1, timeLength);
        std::tm time{};
        const char* pRest = ::strptime(line.c_str(), "%Y-%m-%d %H:%M:%S.", &time);
        EXPECT_TRUE(pRest) << line;
        return std::chrono::seconds(::timegm(&time)) +
               std::chrono::milliseconds(pRest ? std::atoi(pRest) : 0);
    }

    static constexpr std::size_t timeLength = 23;
};

TEST_P(LateProcessAtStart, ServesWhatWasSentMeanwhile) {
    HostProcess& host = startPlanned("wait 1500\n", {"--follow=BAD.*"});
    host.type("sendFID BAD.PING value=early");
    EXPECT_TRUE(host.waitForOutput("BAD.PONG = early\n")) << host.log();
    expectNoConfusion(host);
    EXPECT_EQ(end(), 0);
}

TEST_P(LateProcessAtStart, IsStartedAgainWhenItWasKilledBefore) {
    HostProcess& host = startPlanned("kill\n", {"--restart-delay", "0.1"});
    ASSERT_TRUE(host.waitForLog("BAD: is started again\n")) << host.log();
    const std::string ended = " ended unexpectedly: signal 9 (Killed); it is started again in 0.1 s\n";
    expectOrder(host, {ended, "BAD: is started again\n"});
    expectOrder(host, {ended, "BAD MFD: Runs "});
    expectServes(host, "BAD");
    EXPECT_EQ(end(), 0);
}

TEST_P(LateProcessAtStart, IsEndedAndStartedAgainWhenItIsStopped) {
    HostProcess& host = startPlanned("stop\n", {"--restart-delay", "0.1", "--hang-timeout", "0.5"});
    const pid_t stopped = host.driverProcess("BAD");
    ASSERT_TRUE(host.waitForLog("BAD: is started again\n")) << host.log();
    const std::string ended = process(stopped) + " ended: hung for ";
    expectOrder(host, {process(stopped) + " hangs: it has taken none of 2 messages for ", ended,
                       "BAD: is started again\n"});
    expectOrder(host, {ended, "BAD MFD: Runs "});
    expectServes(host, "BAD");
    EXPECT_EQ(end(), 0);
}

TEST_P(LateProcessAtStart, HoldsUpNoOtherDriverWhenItIsStopped) {
    HostProcess& host = startPlanned("stop\n", {"--hang-timeout", "0"});
    host.type("sendFID GOOD.alive");
    settle(host);
    EXPECT_THAT(readFile(workplace().workdir() / "nvram/GOOD/record.txt"), HasSubstr("sendFID alive\n"));
    // One alone is not waited for at all where the processes are looked at.
    EXPECT_THAT(host.log(), Not(HasSubstr("has not come up")));
    // The shutdown ends it.
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr(" still runs and holds up the shutdown; it is ended\n"));
}

TEST_P(LateProcessAtStart, IsReplacedByAReloadWhenItIsStopped) {
    HostProcess& host = startPlanned("stop\n", {"--hang-timeout", "0"});
    const pid_t stopped = host.driverProcess("BAD");
    host.type("reloadDriver BAD");
    expectServes(host, "BAD");
    ::kill(stopped, SIGCONT);
    EXPECT_TRUE(host.waitForLog(process(stopped) + " ended: exit code 1; a newer process had replaced it\n"))
        << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_P(LateProcessAtStart, IsSaidToBeStartedAgainOnlyWhenItHasComeUp) {
    HostProcess& host = startPlanned("wait 0\nwait 1500\n", {"--restart-delay", "0.1"});
    expectServes(host, "BAD");
    ::kill(host.driverProcess("BAD"), SIGKILL);
    ASSERT_TRUE(host.waitForLog("BAD: is started again\n")) << host.log();
    const std::string ended = " ended unexpectedly: signal 9 (Killed); ";
    expectOrder(host, {"BAD MFD: Runs ", ended, "BAD: is started again\n"});
    expectOrder(host, {ended, "BAD MFD: Runs "});
    // It lets that long pass before it comes up.
    EXPECT_GE(timeOf(host, "BAD: is started again\n") - timeOf(host, ended), std::chrono::milliseconds(1500));
    expectServes(host, "BAD");
    EXPECT_EQ(end(), 0);
}

TEST_P(LateProcessAtStart, IsNoSurpriseWhenTheHostEndsBefore) {
    HostProcess& host = startPlanned("stop\n");
    const pid_t late = host.driverProcess("BAD");
    host.closeInput();
    const auto isClosed = [] {
        for (const auto& entry : fs::recursive_directory_iterator("/dev/shm"))
            if (entry.path().filename() == "BAD_INQ")
                return false;
        return true;
    };
    for (int i = 0; i < 1000 && !isClosed(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ::kill(late, SIGCONT);
    EXPECT_EQ(end(), 0);
    EXPECT_TRUE(endsWithin(late, 0));
    EXPECT_THAT(host.log(), HasSubstr(process(late) + " ended: exit code 1\n"));
    expectNoConfusion(host);
}

INSTANTIATE_TEST_SUITE_P(Waits, LateProcessAtStart, testing::Values("second", "attached"),
                         [](const auto& test) { return test.param; });

TEST_F(LateProcess, OthersAreStartedMeanwhile) {
    std::string entries;
    for (int i = 0; i < 40; ++i)
        entries += TestWorkplace::entry("D" + std::to_string(i), "Recorder", "queue");
    workplace().configure(entries);
    plan("wait 1500\n");
    HostProcess& host = startLate({"--log-level", "5", "--start-wait=attached"});
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    for (int i = 0; i < 40; ++i)
        host.type("sendFID D" + std::to_string(i) + ".GO");
    settle(host);
    for (int i = 0; i < 40; ++i) {
        const auto record = workplace().workdir() / ("nvram/D" + std::to_string(i)) / "record.txt";
        for (int turn = 0; turn < 1000 && readFile(record).find("sendFID GO\n") == std::string::npos; ++turn)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_THAT(readFile(record), HasSubstr("sendFID GO\n")) << i;
    }
    EXPECT_EQ(end(), 0);
}

TEST_F(LateProcess, ThatHoldsUpAStartIsNamedAndTheStartGoesOn) {
    const unsigned int most = 2 * std::max(std::thread::hardware_concurrency(), 1U);
    std::string entries;
    std::string lines;
    for (unsigned int i = 0; i < most; ++i) {
        entries += TestWorkplace::entry("D" + std::to_string(i), "Recorder", "queue");
        lines += "stop\n";
    }
    workplace().configure(entries + TestWorkplace::entry("GOOD", "Recorder", "direct"));
    plan(lines);
    HostProcess& host = startLate({"--log-level", "5", "--start-wait=attached", "--stop-timeout", "0.5"});
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    for (unsigned int i = 0; i < most; ++i) {
        const std::string id = "D" + std::to_string(i);
        EXPECT_TRUE(host.waitForLog("HOST: " + id + ": process " + std::to_string(host.driverProcess(id)) +
                                    " has not come up within 1 s; the start goes on without it\n"))
            << host.log();
    }
    EXPECT_EQ(end(), 0);
}
