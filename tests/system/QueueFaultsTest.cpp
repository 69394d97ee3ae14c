#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include "FaultyWorkplace.h"
#include "QueueLayout.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

// Queues that cannot be made, are damaged, let go of or locked: told with the driver ID, the driver ends and
// is started again as soon as that is possible, and nobody else is held up.
class QueueFaults : public FaultyWorkplace {
protected:
    void prepare() override {
        FaultyWorkplace::prepare();
        m_queues = workplace().directory() / "queues";
        fs::create_directory(m_queues);
        ASSERT_EQ(::mount("tmpfs", m_queues.c_str(), "tmpfs", 0, "mode=0700"), 0);
        workplace().configure(TestWorkplace::entry("FAR", "Faulty", "queue") +
                              TestWorkplace::entry("NEAR", "Faulty", "direct"));
    }
    void TearDown() override {
        if (!m_queues.empty())
            ::umount2(m_queues.c_str(), MNT_DETACH);
    }

    /// A host whose queues stand where the test reaches them.
    HostProcess::Start hostWithQueues(const std::vector<std::string>& options = {},
                                      const std::string& stopTimeout = "1") {
        std::vector<std::string> all{"--log-level",     "5",  "--stop-timeout", stopTimeout,
                                     "--restart-delay", "0.2"};
        all.insert(all.end(), options.begin(), options.end());
        HostProcess::Start start = call(all);
        start.environment["MFD_QUEUE_DIR"] = m_queues;
        return start;
    }

    fs::path queue(const std::string& name) const { return m_queues / name; }

    static long count(const std::string& text, const std::string& part) {
        long found = 0;
        for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
            ++found;
        return found;
    }

    /// Holds a queue's file as an attached process does, and keeps it when its processes have ended.
    class Lock {
    public:
        explicit Lock(const fs::path& file, short type = F_RDLCK, off_t byte = off_t{1} << 40)
            : m_fd(::open(file.c_str(), O_RDWR | O_CLOEXEC)) {
            struct flock lock {};
            lock.l_type = type;
            lock.l_start = byte;
            lock.l_len = 1;
            EXPECT_EQ(::fcntl(m_fd, F_OFD_SETLK, &lock), 0) << file;
        }
        ~Lock() { ::close(m_fd); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        const int m_fd;
    };

    template <class T>
    void write(const std::string& name, std::size_t offset, T value) const {
        const int fd = ::open(queue(name).c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(::pwrite(fd, &value, sizeof value, static_cast<off_t>(offset)), ssize_t{sizeof value});
        ::close(fd);
    }

    /// Leaves the senders' lock of a queue with the ticket of who attached last: of the driver process.
    void lockForTheDriver(const std::string& name) const {
        const int fd = ::open(queue(name).c_str(), O_RDWR | O_CLOEXEC);
        std::uint32_t ticket = 0;
        ASSERT_EQ(::pread(fd, &ticket, sizeof ticket, offsetof(sal::QueueHeader, nextTicket)),
                  ssize_t{sizeof ticket});
        ::close(fd);
        write(name, offsetof(sal::QueueHeader, senderLock) + offsetof(sal::SenderLockWords, holder),
              ticket - 1);
    }

    void startAgainAfter(HostProcess& host, const std::string& line) {
        ASSERT_TRUE(host.waitForLog(line)) << host.log();
        ASSERT_TRUE(host.waitForLog("HOST: FAR: is started again\n")) << host.log();
        expectServes(host, "FAR");
    }

    /// In order, and not by the enforced end.
    void expectQuits(HostProcess& host, int exitCode = 0) {
        expectQuits(host, [exitCode] { return exitCode; });
    }

    void expectQuits(HostProcess& host, const std::function<int()>& exitCode) {
        host.type("quit");
        const std::optional<int> code = host.waitForEnd();
        EXPECT_EQ(code, exitCode());
        EXPECT_TRUE(host.waitForLog("all drivers are stopped\n")) << host.log();
        EXPECT_THAT(host.log(), Not(HasSubstr("the host ends without it")));
    }

    fs::path m_queues;
};

TEST_F(QueueFaults, DirectoryThatIsOpenedHoldsUpNobody) {
    HostProcess& host = start(hostWithQueues());
    expectServes(host, "FAR");
    ASSERT_EQ(::chmod(m_queues.c_str(), 0777), 0);
    ::kill(host.driverProcess("FAR"), SIGKILL);
    const std::string reason = "queue directory " + m_queues.string() + " is open to other users (mode 0777)";
    ASSERT_TRUE(host.waitForLog("FAR: no process runs: queue FAR_INQ cannot be made: " + reason))
        << host.log();
    expectServes(host, "NEAR");
    host.type("reloadDriver FAR");
    EXPECT_TRUE(host.waitForOutput(
        "FAR is not reloaded, nothing is unloaded: queue FAR_INQ cannot be made: " + reason))
        << host.output();
    // Several tries fail alike.
    std::this_thread::sleep_for(2s);
    EXPECT_EQ(count(host.log(), reason), 1) << host.log();
    ASSERT_EQ(::chmod(m_queues.c_str(), 0700), 0);
    ASSERT_TRUE(host.waitForLog("HOST: FAR: is started again\n")) << host.log();
    expectServes(host, "FAR");
    expectQuits(host, 3);
}

TEST_F(QueueFaults, DirectoryOfAnotherUserHoldsUpNobody) {
    if (::chown(m_queues.c_str(), 1, 1) != 0)
        GTEST_SKIP() << "needs the right to give a directory away";
    HostProcess& host = start(hostWithQueues());
    const std::string reason = "queue directory " + m_queues.string() + " belongs to user 1, not to user 0";
    ASSERT_TRUE(host.waitForLog("FAR: no process runs: queue FAR_INQ cannot be made: " + reason))
        << host.log();
    expectServes(host, "NEAR");
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(count(host.log(), "FAR: no process runs: "), 1) << host.log();
    ASSERT_EQ(::chown(m_queues.c_str(), 0, 0), 0);
    ASSERT_TRUE(host.waitForLog("HOST: FAR: is started again\n")) << host.log();
    expectServes(host, "FAR");
    expectQuits(host);
}

TEST_F(QueueFaults, DirectoryOfAnotherUserIsNoReasonNotToQuit) {
    if (::chown(m_queues.c_str(), 1, 1) != 0)
        GTEST_SKIP() << "needs the right to give a directory away";
    HostProcess& host = start(hostWithQueues());
    ASSERT_TRUE(host.waitForLog("FAR: no process runs")) << host.log();
    std::this_thread::sleep_for(1s);
    expectQuits(host);
}

TEST_F(QueueFaults, SecondHostWithTheSameDriversHoldsUpNeither) {
    const TestWorkplace other;
    other.configure(TestWorkplace::entry("FAR", "Faulty", "queue") +
                    TestWorkplace::entry("NEAR", "Faulty", "direct"));
    HostProcess& host = start(hostWithQueues());
    expectServes(host, "FAR");
    const pid_t driver = host.driverProcess("FAR");
    HostProcess::Start call = other.host({"--log-level", "5", "--stop-timeout", "1", "--restart-delay", "0.2",
                                          "--sandbox", "--drivers", TestWorkplace::build() / "lib/mfdkit"});
    call.environment["MFD_QUEUE_DIR"] = m_queues;
    HostProcess second(call);
    const std::string reason =
        "FAR: no process runs: queue FAR_INQ cannot be made: the name is still in use by "
        "a live process (made by process " +
        std::to_string(host.pid()) + ", read by process " + std::to_string(driver) + ")";
    ASSERT_TRUE(second.waitForLog(reason)) << second.log();
    expectServes(second, "NEAR");
    // Longer than it waits for the driver process of a host that has died.
    std::this_thread::sleep_for(2500ms);
    EXPECT_EQ(count(second.log(), "FAR: no process runs: "), 1) << second.log();
    EXPECT_EQ(host.driverProcess("FAR"), driver);
    expectServes(host, "FAR");
    EXPECT_EQ(end(), 0);
    ASSERT_TRUE(second.waitForLog("HOST: FAR: is started again\n")) << second.log();
    expectServes(second, "FAR");
    expectQuits(second);
}

TEST_F(QueueFaults, ProcessThatKeepsTheLocksLosesTheNames) {
    HostProcess& host = start(hostWithQueues());
    expectServes(host, "FAR");
    const Lock input(queue("FAR_INQ"));
    const Lock output(queue("FAR_OUTQ"));
    ::kill(host.driverProcess("FAR"), SIGKILL);
    startAgainAfter(host, "FAR: queue FAR_INQ does not become free: the name is still in use");
    EXPECT_EQ(count(host.log(), "its name is taken away\n"), 2) << host.log();
    expectQuits(host);
    EXPECT_THAT(fs::directory_iterator(m_queues), testing::Eq(fs::directory_iterator()));
}

TEST_F(QueueFaults, ProcessThatKeepsTheLocksDoesNotKeepTheHost) {
    HostProcess& host = start(hostWithQueues({}, "4"));
    expectServes(host, "FAR");
    const Lock lock(queue("FAR_INQ"));
    host.type("reloadDriver FAR");
    ASSERT_TRUE(host.waitForLog("queue FAR_INQ: not created: the name is still in use")) << host.log();
    expectQuits(host);
}

TEST_F(QueueFaults, DirectoryThatIsOpenedDuringAReloadFailsTheReload) {
    HostProcess& host = start(hostWithQueues());
    expectServes(host, "FAR");
    const std::string reason = "queue directory " + m_queues.string() + " is open to other users (mode 0777)";
    {
        const Lock lock(queue("FAR_INQ"));
        host.type("reloadDriver FAR");
        ASSERT_TRUE(host.waitForLog("queue FAR_INQ: not created: the name is still in use")) << host.log();
        ASSERT_EQ(::chmod(m_queues.c_str(), 0777), 0);
        ASSERT_TRUE(host.waitForOutput("\nFailed to create IPC queues\n")) << host.log();
    }
    expectServes(host, "NEAR");
    ASSERT_TRUE(host.waitForLog("FAR: no process runs: queue FAR_INQ cannot be made: " + reason))
        << host.log();
    ASSERT_EQ(::chmod(m_queues.c_str(), 0700), 0);
    ASSERT_TRUE(host.waitForLog("HOST: FAR: is started again\n")) << host.log();
    expectServes(host, "FAR");
    expectQuits(host);
}

TEST_F(QueueFaults, DamagedOutputQueueIsAnEndOfTheDriver) {
    HostProcess& host = start(hostWithQueues());
    expectServes(host, "FAR");
    write("FAR_OUTQ", offsetof(sal::QueueHeader, tail), std::uint64_t{0x1234567890abcdef});
    startAgainAfter(host, " cannot be reached any more: its output queue is damaged; it is ended\n");
    expectQuits(host);
}

TEST_F(QueueFaults, ProcessThatBecomesAnotherProgramIsAnEndOfTheDriver) {
    workplace().addModule("BecomesAnother");
    workplace().configure(TestWorkplace::entry("AXIS1", "BecomesAnother", "queue"));
    HostProcess& host = start(hostWithQueues());
    ASSERT_TRUE(host.waitForLog("the workplace is started")) << host.log();
    const pid_t driver = host.driverProcess("AXIS1");
    host.type("sendFID AXIS1.GO");
    ASSERT_TRUE(
        host.waitForLog("AXIS1: process " + std::to_string(driver) +
                        " cannot be reached any more: it has let go of its input queue; it is ended\n"))
        << host.log();
    ASSERT_TRUE(host.waitForLog("HOST: AXIS1: is started again\n")) << host.log();
    EXPECT_TRUE(host.waitForLog(" ended: it has let go of its input queue, signal 15 (Terminated); "))
        << host.log();
    EXPECT_TRUE(endsWithin(driver, 0));
    expectQuits(host);
}

TEST_F(QueueFaults, ProcessThatLetsGoOfItsOutputQueueIsAnEndOfTheDriver) {
    workplace().addModule("LetsGoOfItsOutput");
    workplace().configure(TestWorkplace::entry("AXIS1", "LetsGoOfItsOutput", "queue"));
    HostProcess& host = start(hostWithQueues());
    ASSERT_TRUE(host.waitForLog("the workplace is started")) << host.log();
    host.type("sendFID AXIS1.GO");
    ASSERT_TRUE(
        host.waitForLog(" cannot be reached any more: it has let go of its output queue; it is ended\n"))
        << host.log();
    ASSERT_TRUE(host.waitForLog("HOST: AXIS1: is started again\n")) << host.log();
    expectQuits(host);
}

TEST_F(QueueFaults, SenderThatStaysInAQueueDoesNotHoldUpTheConsole) {
    HostProcess& host = start(hostWithQueues());
    expectServes(host, "FAR");
    lockForTheDriver("FAR_INQ");
    host.type("sendFID FAR.PING value=lost");
    startAgainAfter(host,
                    " cannot be sent to, since a sender has not left its input queue for 1 s and holds up "
                    "\"sendFID FAR.PING value=lost\"; it is ended\n");
    expectQuits(host);
}

TEST_F(QueueFaults, ProcessThatIsStoppedInsideItsSendDoesNotHoldUpTheConsole) {
    HostProcess& host = start(hostWithQueues());
    expectServes(host, "FAR");
    lockForTheDriver("FAR_INQ");
    ::kill(host.driverProcess("FAR"), SIGSTOP);
    host.type("sendFID FAR.PING value=lost");
    startAgainAfter(host,
                    " cannot be sent to, since a sender has not left its input queue for 1 s and holds up "
                    "\"sendFID FAR.PING value=lost\"; it is ended\n");
    EXPECT_THAT(host.log(), HasSubstr(" did not heed SIGTERM and is killed\n"));
    // The killed process leaves the lock a moment before its queue is closed: the FID may still be written.
    expectQuits(host, [&] {
        return host.log().find("of the input failed: sendFID FAR.PING") == std::string::npos ? 0 : 3;
    });
}

TEST_F(QueueFaults, SenderThatOutlivesTheDriverDoesNotHoldUpTheConsole) {
    HostProcess& host = start(hostWithQueues());
    expectServes(host, "FAR");
    const std::uint32_t ticket = 12345;
    const Lock sender(queue("FAR_INQ"), F_WRLCK, (off_t{1} << 41) + ticket);
    write("FAR_INQ", offsetof(sal::QueueHeader, senderLock) + offsetof(sal::SenderLockWords, holder), ticket);
    host.type("sendFID FAR.PING value=lost");
    startAgainAfter(host,
                    " cannot be sent to, since a sender has not left its input queue for 1 s and holds up ");
    EXPECT_TRUE(host.waitForLog("queue FAR_INQ: locked by another sender, and its reader (process "))
        << host.log();
    expectQuits(host, 3);
}

TEST_F(QueueFaults, SenderThatStaysInAQueueIsAHangOfTheDriver) {
    workplace().addModule("Echo");
    workplace().configure(TestWorkplace::entry("FAR", "Faulty", "queue") +
                          TestWorkplace::entry("ASKS", "Echo", "queue"));
    HostProcess& host = start(hostWithQueues({"--hang-timeout", "1"}));
    expectServes(host, "FAR");
    lockForTheDriver("FAR_INQ");
    // From here on nobody but the thread that receives from ASKS waits.
    host.type("sendFID ASKS.PING fid=FAR.PING value=lost");
    ASSERT_TRUE(host.waitForLog(" hangs: a sender has not left its input queue for ")) << host.log();
    ASSERT_TRUE(host.waitForLog("HOST: FAR: is started again\n")) << host.log();
    expectServes(host, "FAR");
    EXPECT_THAT(host.log(), Not(HasSubstr("ASKS: process")));
    expectQuits(host);
}

TEST_F(QueueFaults, SenderThatStaysInAQueueDoesNotKeepTheHost) {
    HostProcess& host = start(hostWithQueues({"--hang-timeout", "0"}));
    expectServes(host, "FAR");
    lockForTheDriver("FAR_INQ");
    expectQuits(host);
    EXPECT_TRUE(
        host.waitForLog(" cannot be sent to, since a sender has not left its input queue for 1 s and "
                        "holds up \"shutdown\"; it is ended\n"))
        << host.log();
}

TEST_F(QueueFaults, IDThatMakesNoQueueNameIsRefusedWithItsLine) {
    const std::string id(251, 'x');
    workplace().configure(TestWorkplace::entry(id, "Faulty", "queue"));
    HostProcess& host = start(hostWithQueues());
    EXPECT_EQ(host.waitForEnd(), 1);
    EXPECT_TRUE(host.waitForLog(workplace().configuration().string() + " line 4: the driver ID \"xxx"))
        << host.log();
    EXPECT_TRUE(
        host.waitForLog("makes no name for its queues: the name is too long: its file name would "
                        "have 256 bytes, at most 255 are possible"))
        << host.log();
}

/// Without MFD_QUEUE_DIR: each host has a directory of its own.
class QueueFaultsOfTheDirectory : public QueueFaults {
protected:
    void prepare() override {
        QueueFaults::prepare();
        ASSERT_THAT(entries(), IsEmpty());
    }
    /// Without what is recorded: that of a killed host stays for the next start.
    static std::vector<fs::path> entries() {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator("/dev/shm")) {
            if (entry.path().string().find("-ring-") == std::string::npos)
                found.push_back(entry.path());
        }
        return found;
    }
    /// Two seconds are the promise; a loaded machine gets more.
    static void expectBecomesEmpty() {
        for (int i = 0; i < 500 && !entries().empty(); ++i)
            std::this_thread::sleep_for(20ms);
        for (const fs::path& left : entries())
            ADD_FAILURE() << left << " is left with " << std::distance(fs::directory_iterator(left), {})
                          << " files";
    }
    HostProcess& startServing(const std::vector<std::string>& options = {"--log-level", "5"}) {
        HostProcess& host = start(call(options));
        expectServes(host, "NEAR");
        expectServes(host, "FAR");
        return host;
    }
};

TEST_F(QueueFaultsOfTheDirectory, IsItsHostsAloneAndGoneWithIt) {
    startServing();
    ASSERT_EQ(entries().size(), 1U);
    const fs::path directory = entries().front();
    EXPECT_THAT(directory.string(), MatchesRegex("/dev/shm/mfd-0-[A-Za-z0-9]+"));
    EXPECT_EQ(fs::status(directory).permissions(), fs::perms::owner_all);
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(QueueFaultsOfTheDirectory, CannotBeTakenBeforehand) {
    fs::create_directory("/dev/shm/mfd-0");
    if (::chown("/dev/shm/mfd-0", 1, 1) != 0)
        GTEST_SKIP() << "needs the right to give a directory away";
    startServing();
    EXPECT_EQ(end(), 0);
    fs::remove("/dev/shm/mfd-0");
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(QueueFaultsOfTheDirectory, GoesWithTheLastDriverProcessOfAKilledHost) {
    HostProcess& host = startServing();
    host.signal(SIGKILL);
    EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    expectBecomesEmpty();
}

TEST_F(QueueFaultsOfTheDirectory, GoesWithADriverProcessThatIgnoresTheEndOfItsHost) {
    HostProcess& host = startServing();
    host.type("sendFID FAR.FAULT.SLEEP");
    settle(host);
    host.signal(SIGKILL);
    EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    expectBecomesEmpty();
}

TEST_F(QueueFaultsOfTheDirectory, OfAKilledHostGoesAtTheNextStart) {
    workplace().configure(TestWorkplace::entry("NEAR", "Faulty", "direct"));
    HostProcess& host = start(call());
    expectServes(host, "NEAR");
    host.signal(SIGKILL);
    EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    ASSERT_EQ(entries().size(), 1U);
    const fs::path left = entries().front();
    HostProcess& next = start(call());
    expectServes(next, "NEAR");
    EXPECT_FALSE(fs::exists(left));
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(entries(), IsEmpty());
}

// Two processes would serve one device.
TEST_F(QueueFaultsOfTheDirectory, OfAKilledHostKeepsItsDriversNamesWhileTheyRun) {
    HostProcess& host = startServing();
    const pid_t driver = host.driverProcess("FAR");
    host.type("sendFID FAR.FAULT.SLEEP");
    settle(host);
    host.signal(SIGKILL);
    const std::string killed = std::to_string(host.pid());
    EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    HostProcess& next = start(call({"--log-level", "5", "--restart-delay", "0.2"}));
    ASSERT_TRUE(
        next.waitForLog("FAR: no process runs: queue FAR_INQ cannot be made: the name is still in use by a "
                        "live process (made by process " +
                        killed + ", read by process " + std::to_string(driver) + "); "))
        << next.log();
    expectServes(next, "NEAR");
    ASSERT_TRUE(next.waitForLog("HOST: FAR: is started again\n")) << next.log();
    EXPECT_TRUE(endsInTime(driver));
    EXPECT_EQ(end(), 0);
    expectBecomesEmpty();
}

TEST_F(QueueFaultsOfTheDirectory, OfAKilledHostIsLeftByADriverThatWasStopped) {
    HostProcess& host = startServing();
    const pid_t driver = host.driverProcess("FAR");
    ::kill(driver, SIGSTOP);
    // A thread of it that is not stopped yet would see the host's end.
    ASSERT_TRUE(eventually([&] { return isStopped(driver); }));
    host.signal(SIGKILL);
    EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    HostProcess& next = start(call({"--log-level", "5", "--restart-delay", "0.2"}));
    ASSERT_TRUE(
        next.waitForLog("process " + std::to_string(driver) +
                        " (mfddllwrap) of a host that is gone was stopped and is continued, so that it "
                        "sees that"))
        << next.log();
    expectServes(next, "NEAR");
    // The old process has the names until it has ended, which may be after the first start.
    ASSERT_TRUE(next.waitForLog("FAR MFD: Runs ")) << next.log();
    settle(next);
    expectServes(next, "FAR");
    EXPECT_TRUE(endsInTime(driver));
    EXPECT_EQ(end(), 0);
    expectBecomesEmpty();
}

TEST_F(QueueFaultsOfTheDirectory, GoesAtAnEnforcedEndWithABlockedLog) {
    workplace().configure(TestWorkplace::entry("FAR", "Faulty", "queue") +
                          TestWorkplace::entry("NEAR", "Faulty", "direct"));
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    ASSERT_GT(::fcntl(ends[1], F_SETPIPE_SZ, 4096), 0);
    HostProcess::Start start = call({"--log-level", "5", "--stop-timeout", "1"});
    // Nobody reads the log.
    start.beforeExec = [&] {
        ::dup2(ends[1], STDERR_FILENO);
        ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
        const std::string filling(65536, 'x');
        while (::write(ends[1], filling.data(), filling.size()) > 0) {
        }
        ::fcntl(ends[1], F_SETFL, 0);
    };
    HostProcess& host = this->start(start);
    host.type("sendFID FAR.PING value=here");
    host.type("state FAR.PONG");
    ASSERT_TRUE(host.waitForOutput("here"));
    host.type("sendFID NEAR.FAULT.AT stage=deinitialize fault=sleep");
    host.type("sendFID FAR.FAULT.SLEEP");
    host.type("quit");
    EXPECT_EQ(host.waitForEnd(), 0);
    expectBecomesEmpty();
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(QueueFaultsOfTheDirectory, IsToldToWhoStartsDriversByHand) {
    HostProcess& host = start(call({"--no-start-mfds"}));
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    ASSERT_EQ(entries().size(), 1U);
    EXPECT_TRUE(host.waitForLog("HOST: driver processes that are started by hand need MFD_QUEUE_DIR=" +
                                entries().front().string() + "\n"))
        << host.log();
    EXPECT_EQ(end(), 0);
}
