#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <thread>

#include "FaultyWorkplace.h"
#include "Rounds.h"
#include "SyscallFailer.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

// What the system refuses: one clear line, the rest runs, and nothing is in the way of the next try.
class PlatformFailures : public FaultyWorkplace {
protected:
    void prepare() override {
        FaultyWorkplace::prepare();
        const std::string reason = SyscallFailer::unavailable();
        if (!reason.empty())
            GTEST_SKIP() << reason;
        m_mark = "MFD_TEST_MARK=" + workplace().directory().string();
        workplace().configure(TestWorkplace::entry("FAR", "Faulty", "queue") +
                              TestWorkplace::entry("NEAR", "Faulty", "direct"));
    }

    /// Whether something is said that is not said otherwise.
    static bool complains(const std::string& text) {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            // The configuration is not signed; a reload's new process may be there before the old one's end
            // is known, and before the old one has let go of its queues.
            if (line.find("VERIFY:") != std::string::npos ||
                line.find("invalid signature") != std::string::npos ||
                line.find("ended unexpectedly: exit code 0") != std::string::npos ||
                line.find("not created: the name is still in use by a live process") != std::string::npos)
                continue;
            // The module's own words about a file that it cannot read.
            if (line.starts_with("error: "))
                return true;
            for (const char* word : {" warning ", " error ", " critical ", "mfhost: ", "FAILED!"}) {
                if (line.find(word) != std::string::npos)
                    return true;
            }
        }
        return false;
    }

    /// Asks both drivers until they have answered, the host has ended, or it is said why not.
    static void ask(HostProcess& host, const std::string& number) {
        host.type("sendFID NEAR.PING value=near" + number);
        host.type("sendFID FAR.PING value=far" + number);
        eventually([&] {
            const auto length = host.output().size();
            host.type("state *.PONG");
            std::string output;
            eventually(
                [&] {
                    output = host.output();
                    return output.size() > length || host.waitForEnd(0);
                },
                20ms);
            const bool isAnswered = output.find("near" + number) != std::string::npos &&
                                    output.find("far" + number) != std::string::npos;
            return isAnswered || host.waitForEnd(0) || complains(host.log() + output);
        });
    }

    /// A whole run: both drivers are asked, reloaded, asked again, and the input ends.
    struct Run {
        std::optional<int> exitCode;
        std::string output;
        std::string log;

        bool serves() const {
            const auto answers = {"near1", "far1", "near2", "far2"};
            return exitCode == 0 && std::all_of(answers.begin(), answers.end(), [this](const char* answer) {
                       return output.find(answer) != std::string::npos;
                   });
        }
        /// With 1 where the start failed, with 3 where a FID did.
        bool hasEndedInOrder() const { return exitCode == 0 || exitCode == 1 || exitCode == 3; }
        /// Whether something is said that is not said otherwise.
        bool complains() const { return PlatformFailures::complains(log + output); }
        friend std::ostream& operator<<(std::ostream& stream, const Run& run) {
            return stream << "exit code " << run.exitCode.value_or(-1) << "\n" << run.log << run.output;
        }
    };
    Run run(SyscallFailer* pFailer = nullptr, std::function<void()> beforeExec = {},
            const std::vector<std::string>& options = {"--log-level", "4"}) {
        HostProcess::Start start = call(options);
        start.environment["MFD_TEST_MARK"] = workplace().directory();
        start.beforeExec = [pFailer, beforeExec] {
            if (pFailer)
                pFailer->enter();
            if (beforeExec)
                beforeExec();
        };
        HostProcess& host = this->start(start);
        if (pFailer)
            pFailer->attend(host.pid());
        ask(host, "1");
        host.type("reloadDriver FAR");
        host.type("reloadDriver NEAR");
        ask(host, "2");
        host.closeInput();
        Run run;
        run.exitCode = host.waitForEnd();
        if (!run.exitCode)
            host.signal(SIGKILL);
        run.output = host.output();
        run.log = host.log();
        return run;
    }

    /// Whether all that was started from here is gone, or is so in a while.
    bool allEnd() const {
        return eventually([this] { return !isRunning(); }, 20ms);
    }

    static std::vector<std::string> queues() {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator("/dev/shm"))
            found.push_back(entry.path());
        return found;
    }

    /// On the same directories everything works, and nothing is left behind it.
    void expectPlainRunServes() {
        SyscallFailer quick({{}, 0, -1, false});
        const Run plain = run(&quick);
        EXPECT_TRUE(plain.serves()) << plain;
        EXPECT_TRUE(allEnd());
        EXPECT_EQ(queues(), std::vector<std::string>());
    }

    /// Puts a small file system of its own in place of a directory, with so much room.
    static void mountSmall(const fs::path& directory, const std::string& room, int flags = 0) {
        fs::create_directories(directory);
        ASSERT_EQ(mount("tmpfs", directory.c_str(), "tmpfs", static_cast<unsigned long>(flags), room.c_str()),
                  0);
    }
    static void makeRoom(const fs::path& directory) {
        ASSERT_EQ(mount("tmpfs", directory.c_str(), "tmpfs", MS_REMOUNT, "size=64m,nr_inodes=10000"), 0);
    }

private:
    bool isRunning() const {
        for (const auto& entry : fs::directory_iterator("/proc")) {
            if (std::atoi(entry.path().filename().c_str()) > 0 &&
                readFile(entry.path() / "environ").find(m_mark) != std::string::npos)
                return true;
        }
        return false;
    }

    std::string m_mark;
};

TEST_F(PlatformFailures, DriverStartsOnceItsQueuesFindRoom) {
    mountSmall("/dev/shm", "size=64k,mode=1777");
    HostProcess& host = start(call());
    ASSERT_TRUE(host.waitForLog("queue FAR_OUTQ: not created: no memory for it in /dev/shm/mfd-0-"))
        << host.log();
    EXPECT_TRUE(host.waitForLog(": No space left on device\n")) << host.log();
    EXPECT_TRUE(host.waitForOutput("\nFailed to create IPC queues\nFAILED!\n"));
    expectServes(host, "NEAR");
    makeRoom("/dev/shm");
    host.type("reloadDriver FAR");
    expectServes(host, "FAR");
    EXPECT_EQ(end(), 0);
}

TEST_F(PlatformFailures, DriverStartsOnceItsLinkFindsRoom) {
    // The directory itself, the host's lock with its directory, and the panel's link.
    mountSmall("/var/data", "nr_inodes=4");
    HostProcess& host = start(call());
    ASSERT_TRUE(host.waitForLog("/var/data/FAR")) << host.log();
    EXPECT_TRUE(host.waitForLog("No space left on device")) << host.log();
    EXPECT_TRUE(host.waitForOutput("Failed to create symlink to file driver working directory "));
    makeRoom("/var/data");
    host.type("reloadDriver FAR");
    host.type("reloadDriver NEAR");
    expectServes(host, "FAR");
    expectServes(host, "NEAR");
    EXPECT_EQ(end(), 0);
}

TEST_F(PlatformFailures, DriverStartsOnceItsDirectoryCanBeMade) {
    fs::create_directory(workplace().workdir() / "data");
    writeFile(workplace().workdir() / "data/FAR", "");
    HostProcess& host = start(call());
    EXPECT_TRUE(host.waitForOutput("Failed to create working directory data/FAR for MF driver FAR\n"))
        << host.log();
    expectServes(host, "NEAR");
    fs::remove(workplace().workdir() / "data/FAR");
    host.type("reloadDriver FAR");
    expectServes(host, "FAR");
    EXPECT_EQ(end(), 0);
}

TEST_F(PlatformFailures, FullLogFileIsSaidOnceAndWrittenAgainWhenThereIsRoom) {
    const fs::path logs = workplace().directory() / "logs";
    mountSmall(logs, "size=4k");
    writeFile(logs / "filler", std::string(4000, 'x'));
    HostProcess& host = start(call({"--log-level", "5", "--log-file", logs / "host.log"}));
    ASSERT_TRUE(host.waitForLog("the log goes on without its file: ")) << host.log();
    expectServes(host, "NEAR");
    makeRoom(logs);
    std::this_thread::sleep_for(1100ms);
    settle(host);
    EXPECT_TRUE(host.waitForLog("the log file is written again, ")) << host.log();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(readFile(logs / "host.log"), HasSubstr("all drivers are stopped"));
    umount2(logs.c_str(), MNT_DETACH);
}

TEST_F(PlatformFailures, AdapterThatVanishesIsSaidAndTheNextReloadFindsItsSuccessor) {
    HostProcess& host = start(call());
    expectServes(host, "FAR");
    ASSERT_TRUE(PrivateMachine::shell("ip link delete eth0"));
    host.type("reloadDriver FAR");
    EXPECT_TRUE(host.waitForOutput("Failed to determine virtual panel IP address\n"));
    EXPECT_TRUE(host.waitForLog("there is no network adapter eth0\n")) << host.log();
    expectServes(host, "NEAR");
    giveAdapter();
    host.type("reloadDriver FAR");
    expectServes(host, "FAR");
    EXPECT_EQ(end(), 0);
}

TEST_F(PlatformFailures, AnyNumberOfDescriptorsGivesAServingHostOrALine) {
    // Below five the program's own libraries cannot be opened.
    for (const rlim_t descriptors : {5, 6, 7, 8, 10, 12, 14, 16, 20}) {
        SyscallFailer quick({{}, 0, -1, false});
        const Run limited = run(&quick, [descriptors] {
            const rlimit limit{descriptors, descriptors};
            setrlimit(RLIMIT_NOFILE, &limit);
        });
        EXPECT_TRUE(limited.hasEndedInOrder()) << descriptors << ": " << limited;
        EXPECT_TRUE(limited.serves() || limited.complains()) << descriptors << ": " << limited;
        EXPECT_TRUE(allEnd());
    }
    expectPlainRunServes();
}

namespace {

/// System calls that ask the same of the system, and what it answers when it is short of it.
struct Kind {
    const char* name;
    std::vector<int> calls;
    int error;

    friend std::ostream& operator<<(std::ostream& stream, const Kind& kind) { return stream << kind.name; }
};

const Kind c_kinds[] = {
    {"open", {SYS_openat}, EMFILE},
    {"map", {SYS_mmap}, ENOMEM},
    {"protect", {SYS_mprotect}, ENOMEM},
    {"allocate", {SYS_fallocate, SYS_ftruncate}, ENOSPC},
    {"write", {SYS_write, SYS_writev, SYS_pwrite64}, ENOSPC},
    {"read", {SYS_read, SYS_pread64, SYS_getdents64}, EIO},
    {"look", {SYS_newfstatat, SYS_fstat, SYS_statx, SYS_faccessat, SYS_faccessat2}, ENOMEM},
    {"lock", {SYS_fcntl, SYS_flock}, ENOLCK},
    {"name",
     {SYS_mkdirat, SYS_symlinkat, SYS_linkat, SYS_renameat, SYS_unlinkat,
#ifdef SYS_mkdir
      SYS_mkdir, SYS_symlink, SYS_link, SYS_rename, SYS_unlink, SYS_rmdir
#endif
     },
     ENOSPC},
    {"walk",
     {SYS_chdir, SYS_fchdir, SYS_getcwd, SYS_readlinkat,
#ifdef SYS_readlink
      SYS_readlink
#endif
     },
     ENOMEM},
    {"start",
     {SYS_clone, SYS_clone3, SYS_execve,
#ifdef SYS_vfork
      SYS_fork, SYS_vfork
#endif
     },
     EAGAIN},
    {"descriptor",
     {SYS_eventfd2, SYS_signalfd4, SYS_pidfd_open, SYS_pipe2, SYS_memfd_create, SYS_epoll_create1, SYS_dup,
      SYS_dup3,
#ifdef SYS_dup2
      SYS_dup2
#endif
     },
     EMFILE},
    {"network",
     {SYS_socket, SYS_bind, SYS_connect, SYS_sendmsg, SYS_sendto, SYS_recvmsg, SYS_recvfrom, SYS_setsockopt,
      SYS_getsockname},
     ENOBUFS},
    {"control", {SYS_ioctl}, EIO},
};

}  // namespace

// One system call is refused, once: of the host, or of the processes that it starts.
class PlatformFailuresOfOneCall : public PlatformFailures,
                                  public testing::WithParamInterface<std::tuple<Kind, bool>> {
protected:
    /// How many of the calls are tried, evenly spaced: a few in passing, all with many rounds.
    static int tries() { return rounds() <= 20 ? 2 : rounds() / 4; }
};

TEST_P(PlatformFailuresOfOneCall, AreSaidOrHarmlessEndurance) {
    const auto& [kind, inChildren] = GetParam();
    SyscallFailer counter({kind.calls, kind.error, -1, inChildren});
    // Each call goes through this process, however long that takes on a busy machine.
    const Run whole = run(&counter, {}, {"--log-level", "4", "--stop-timeout", "60", "--hang-timeout", "0"});
    ASSERT_TRUE(whole.serves()) << whole;
    ASSERT_FALSE(whole.complains()) << whole;
    const int count = counter.count();
    const int rounds = std::min(count, tries());
    for (int round = 0; round < rounds; ++round) {
        const int number = round * count / rounds;
        SyscallFailer failer({kind.calls, kind.error, number, inChildren});
        const Run limited = run(&failer);
        const std::string what = std::string(kind.name) + " " + std::to_string(number) + " of " +
                                 std::to_string(count) + ", " + failer.failed().value_or("nobody") + ": ";
        EXPECT_TRUE(limited.hasEndedInOrder()) << what << limited;
        EXPECT_TRUE(limited.serves() || limited.complains()) << what << limited;
        EXPECT_TRUE(allEnd()) << what << limited;
        if (HasFailure())
            break;
    }
    expectPlainRunServes();
}

INSTANTIATE_TEST_SUITE_P(Of, PlatformFailuresOfOneCall,
                         testing::Combine(testing::ValuesIn(c_kinds), testing::Bool()), [](const auto& test) {
                             return std::string(std::get<0>(test.param).name) +
                                    (std::get<1>(test.param) ? "_of_children" : "_of_the_host");
                         });
