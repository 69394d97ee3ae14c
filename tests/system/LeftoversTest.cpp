#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "FaultyWorkplace.h"
#include "Rounds.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Whatever ends, and however: no process, queue, descriptor, thread or file is left of it.
class Leftovers : public FaultyWorkplace {
protected:
    void prepare() override {
        FaultyWorkplace::prepare();
        m_mark = "MFD_TEST_MARK=" + workplace().directory().string();
        fs::create_directory(temporary());
        workplace().addModule("Recorder");
        workplace().configure(TestWorkplace::entry("AXIS1", "Recorder", "queue") +
                              TestWorkplace::entry("BAD", "Faulty", "queue") +
                              TestWorkplace::entry("GOOD", "Recorder", "direct"));
    }

    fs::path temporary() { return workplace().directory() / "tmp"; }

    HostProcess& startMarked() {
        HostProcess::Start start = call();
        start.environment = {{"MFD_TEST_MARK", workplace().directory()}, {"TMPDIR", temporary()}};
        return this->start(start);
    }

    /// Processes that were started from here and still run: their environment tells.
    std::set<pid_t> processes() {
        std::set<pid_t> found;
        for (const auto& entry : fs::directory_iterator("/proc")) {
            const pid_t pid = std::atoi(entry.path().filename().c_str());
            if (pid <= 0)
                continue;
            std::ifstream file(entry.path() / "environ", std::ios::binary);
            std::ostringstream text;
            text << file.rdbuf();
            if ((std::string(1, '\0') + text.str()).find(std::string(1, '\0') + m_mark + '\0') !=
                std::string::npos)
                found.insert(pid);
        }
        return found;
    }
    /// Two seconds are the promise; how long a busy machine takes for them is not its.
    bool allEnd() {
        return eventually([this] { return processes().empty(); }, 20ms);
    }

    static std::vector<std::string> filesBelow(const fs::path& directory) {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(directory))
            if (!entry.is_directory())
                found.push_back(entry.path());
        return found;
    }

    /// Without what is recorded, which grows up to its limit.
    static std::vector<std::string> keptBelow(const fs::path& workdir) {
        auto found = filesBelow(workdir);
        std::erase_if(found, [&](const std::string& file) {
            return file.starts_with((workdir / "recording/").string());
        });
        return found;
    }

    /// Queues and their directories.
    static std::vector<std::string> queues() {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator("/dev/shm"))
            found.push_back(entry.path());
        return found;
    }

    static long entriesOf(pid_t pid, const std::string& what) {
        std::error_code ignored;
        return std::distance(fs::directory_iterator("/proc/" + std::to_string(pid) + "/" + what, ignored),
                             fs::directory_iterator());
    }
    static long mappingsOf(pid_t pid, const std::string& file) {
        std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
        long count = 0;
        for (std::string line; std::getline(maps, line);)
            count += line.ends_with(file) ? 1 : 0;
        return count;
    }

    struct Holdings {
        long descriptors = 0;
        long threads = 0;
        std::size_t processes = 0;
        std::size_t queues = 0;

        bool operator==(const Holdings&) const = default;
        friend std::ostream& operator<<(std::ostream& stream, const Holdings& held) {
            return stream << held.descriptors << " descriptors, " << held.threads << " threads, "
                          << held.processes << " processes, " << held.queues << " queues";
        }
    };
    Holdings holdings(const HostProcess& host) {
        return {entriesOf(host.pid(), "fd"), entriesOf(host.pid(), "task"), processes().size(),
                filesBelow("/dev/shm").size()};
    }
    /// What it holds when nothing is being cleared away any more: the same for half a second.
    Holdings restingHoldings(const HostProcess& host) {
        Holdings held = holdings(host);
        int looks = 0;
        eventually(
            [&] {
                const Holdings now = holdings(host);
                looks = now == held ? looks + 1 : 0;
                held = now;
                return looks == 10;
            },
            50ms);
        return held;
    }
    /// What is being cleared away takes its moment.
    Holdings settledHoldings(const HostProcess& host, const Holdings& expected) {
        Holdings held;
        eventually(
            [&] {
                held = holdings(host);
                return held == expected;
            },
            20ms);
        return held;
    }

    /// A host starts, serves and ends in order, and nothing is left then.
    void expectCleanRun() {
        // As long as the processes of a killed host run they have their queues: the first start may fail.
        const bool mustStartAtOnce = processes().empty();
        HostProcess& host = startMarked();
        for (const char* driverID : {"AXIS1", "BAD"})
            ASSERT_TRUE(host.waitForLog(std::string(driverID) + " MFD: Runs ")) << host.log();
        settle(host);
        expectServes(host, "BAD");
        if (mustStartAtOnce) {
            EXPECT_THAT(host.log(), Not(HasSubstr("is started again")));
        } else if (host.log().find("is started again") != std::string::npos) {
            EXPECT_THAT(host.log(),
                        HasSubstr(": the name is still in use by a live process (made by process "));
        }
        EXPECT_EQ(end(), 0);
        for (const char* driverID : {"AXIS1", "BAD", "GOOD"})
            EXPECT_THAT(host.output(),
                        HasSubstr("Deinitializing MF driver ID: " + std::string(driverID) + "...OK\n"));
        EXPECT_TRUE(allEnd());
        EXPECT_THAT(queues(), IsEmpty());
        EXPECT_THAT(filesBelow(temporary()), IsEmpty());
    }

    std::string m_mark;
};

TEST_F(Leftovers, KilledHostLeavesNothingEndurance) {
    std::mt19937 random(20);
    std::vector<std::string> files;
    for (int round = 0; round < rounds(); ++round) {
        HostProcess& host = startMarked();
        // Every other one is killed somewhere in its start.
        if (round % 2 == 0) {
            settle(host);
            // What its driver writes is there from the first round on.
            const auto record = workplace().workdir() / "nvram/AXIS1/record.txt";
            ASSERT_TRUE(eventually([&] { return fs::exists(record); })) << host.log();
            host.type("sendFID BAD.FAULT.FLOODSTATE");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 100));
        host.signal(SIGKILL);
        ASSERT_EQ(host.waitForEnd(), 128 + SIGKILL);
        ASSERT_TRUE(allEnd()) << "round " << round << "\n" << host.log();
        if (round == 0)
            files = keptBelow(workplace().workdir());
    }
    EXPECT_EQ(keptBelow(workplace().workdir()), files);
    expectCleanRun();
}

TEST_F(Leftovers, KilledDriverLeavesNothingInTheHostEndurance) {
    HostProcess& host = startMarked();
    settle(host);
    const char* ends[] = {"KILL", "CRASH", "EXIT", "ABORT"};
    const auto oneRound = [&](int round) {
        const pid_t driver = host.driverProcess("BAD");
        ASSERT_NE(driver, 0) << "round " << round << "\n" << host.log();
        host.type(std::string("sendFID BAD.FAULT.") + ends[round % 4]);
        ASSERT_TRUE(endsInTime(driver)) << host.log();
        host.type("reloadDriver BAD");
        settle(host);
    };
    for (int round = 0; round < 4; ++round)
        oneRound(round);
    expectServes(host, "BAD");
    const Holdings before = restingHoldings(host);
    for (int round = 0; round < rounds() && !HasFatalFailure(); ++round)
        oneRound(round);
    expectServes(host, "BAD");
    EXPECT_EQ(settledHoldings(host, before), before);
    EXPECT_EQ(end(), 0);
    EXPECT_TRUE(allEnd());
    EXPECT_THAT(queues(), IsEmpty());
    EXPECT_THAT(filesBelow(temporary()), IsEmpty());
}

TEST_F(Leftovers, ReloadedDriverLeavesNothingInTheHostEndurance) {
    HostProcess& host = startMarked();
    settle(host);
    const auto reload = [&] {
        host.type("reloadDriver GOOD");
        host.type("reloadDriver AXIS1");
        settle(host);
    };
    reload();
    const Holdings before = restingHoldings(host);
    const long mapped = mappingsOf(host.pid(), "Recorder.so");
    ASSERT_GT(mapped, 0);
    for (int round = 0; round < rounds() && !HasFatalFailure(); ++round)
        reload();
    EXPECT_EQ(settledHoldings(host, before), before);
    EXPECT_EQ(mappingsOf(host.pid(), "Recorder.so"), mapped);
    EXPECT_EQ(end(), 0);
}

TEST_F(Leftovers, NextHostTakesOverAtOnce) {
    HostProcess& killed = startMarked();
    settle(killed);
    killed.signal(SIGKILL);
    ASSERT_EQ(killed.waitForEnd(), 128 + SIGKILL);
    expectCleanRun();
}

TEST_F(Leftovers, KilledHostTakesTheTrialOfAModuleAlong) {
    HostProcess::Start start = call();
    workplace().configure(TestWorkplace::entry("BAD", "Faulty", "direct"));
    start.environment = {{"MFD_TEST_MARK", workplace().directory()}, {"MFD_FAULTS", "load sleep"}};
    HostProcess& host = this->start(start);
    const auto isTriedOut = [this] {
        const auto running = processes();
        return std::any_of(running.begin(), running.end(), [](pid_t pid) {
            return readFile("/proc/" + std::to_string(pid) + "/cmdline").find("lib/mfdkit/faulty.so") !=
                   std::string::npos;
        });
    };
    ASSERT_TRUE(eventually(isTriedOut, 20ms)) << host.log();
    host.signal(SIGKILL);
    EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    EXPECT_TRUE(allEnd());
}

/// What the driver is at when its host is killed.
class LeftoversOfABusyDriver : public Leftovers, public testing::WithParamInterface<std::string> {};

TEST_P(LeftoversOfABusyDriver, EndWithTheHost) {
    HostProcess& host = startMarked();
    expectServes(host, "BAD");
    host.type("sendFID BAD." + GetParam());
    settle(host);
    host.signal(SIGKILL);
    EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    EXPECT_TRUE(allEnd());
    expectCleanRun();
}

INSTANTIATE_TEST_SUITE_P(
    With, LeftoversOfABusyDriver,
    testing::Values("FAULT.SLEEP", "FAULT.BUSY", "FAULT.FLOODSTATE", "FAULT.FLOODFIDS fid=BAD.PING",
                    "FAULT.AT stage=deinitialize fault=sleep", "FAULT.AT stage=deinitialize fault=crash",
                    "FAULT.AT stage=delete fault=busy"),
    [](const auto& test) {
        std::string name = test.param;
        std::replace_if(
            name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
        return name;
    });
