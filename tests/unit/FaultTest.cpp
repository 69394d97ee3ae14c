#include "Fault.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace {

using testing::HasSubstr;

Fault fault(const std::string& text) {
    std::string error;
    const auto parsed = Fault::parse(text, error);
    EXPECT_TRUE(parsed) << error;
    return parsed.value();
}

std::string errorOf(const std::string& text) {
    std::string error;
    EXPECT_FALSE(Fault::parse(text, error)) << text;
    return error;
}

/// How a process ends that does it.
int endOf(const std::string& text) {
    const Fault sut = fault(text);
    const pid_t pid = ::fork();
    if (pid == 0) {
        sut.strike();
        ::_exit(77);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

TEST(Fault, CrashIsASegmentationFault) {
    EXPECT_EQ(endOf("crash"), 128 + SIGSEGV);
}

TEST(Fault, AbortAborts) {
    EXPECT_EQ(endOf("abort"), 128 + SIGABRT);
}

TEST(Fault, KillKills) {
    EXPECT_EQ(endOf("kill"), 128 + SIGKILL);
}

TEST(Fault, ExitEndsWithItsCode) {
    EXPECT_EQ(endOf("exit 3"), 3);
    EXPECT_EQ(endOf("exit"), 0);
}

TEST(Fault, ThrowThrowsAnException) {
    EXPECT_THROW(fault("throw").strike(), std::runtime_error);
}

TEST(Fault, ThrowNumberThrowsWhatIsNoException) {
    EXPECT_THROW(fault("thrownumber").strike(), int);
}

TEST(Fault, FailSaysSo) {
    EXPECT_FALSE(fault("fail").strike());
}

TEST(Fault, SleepLastsAsLongAsSaid) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(fault("sleep 50").strike());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
}

TEST(Fault, BusyUsesTheProcessorAllTheTime) {
    rusage before{};
    rusage after{};
    const Fault sut = fault("busy 200");
    ::getrusage(RUSAGE_THREAD, &before);
    EXPECT_TRUE(sut.strike());
    ::getrusage(RUSAGE_THREAD, &after);
    // Others may have had the processor for any part of it, but it was never given up.
    EXPECT_EQ(before.ru_nvcsw, after.ru_nvcsw);
}

/// What the process that does it says of itself afterwards, while whatever it left is there.
std::string afterwards(const std::string& text, const std::function<std::string(pid_t)>& look) {
    const Fault sut = fault(text);
    int begun[2];
    EXPECT_EQ(::pipe(begun), 0);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(begun[1], STDOUT_FILENO);
        sut.strike();
        for (;;)
            ::pause();
    }
    const std::string seen = look(pid);
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    ::close(begun[0]);
    ::close(begun[1]);
    return seen;
}

std::string fileText(const std::string& name) {
    std::ifstream file(name);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// State, parent, group and session of the process.
struct Standing {
    char state = 0;
    pid_t parent = 0;
    pid_t group = 0;
    pid_t session = 0;

    static Standing of(pid_t pid) {
        const std::string text = fileText("/proc/" + std::to_string(pid) + "/stat");
        Standing found;
        if (const auto name = text.rfind(')'); name != std::string::npos)
            std::istringstream(text.substr(name + 1)) >> found.state >> found.parent >> found.group >>
                found.session;
        return found;
    }
};

/// The process called left-behind that has the standard output of that one; 0 when there is none.
pid_t leftBehind(pid_t by) {
    std::error_code ignored;
    const auto output = [&](pid_t pid) {
        return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/fd/1", ignored);
    };
    const auto wanted = output(by);
    for (std::filesystem::directory_iterator entry("/proc", ignored), end; !ignored && entry != end;
         entry.increment(ignored)) {
        const pid_t pid = std::atoi(entry->path().filename().c_str());
        if (pid > 0 && fileText(entry->path() / "comm") == "left-behind\n" && output(pid) == wanted)
            return pid;
    }
    return 0;
}

template <class Condition>
auto eventually(Condition condition) {
    for (int i = 0; i < 2000; ++i) {
        if (const auto found = condition())
            return found;
        ::usleep(5000);
    }
    return condition();
}

TEST(Fault, ForkLeavesAChildBehind) {
    pid_t child = 0;
    const auto parent = [&](pid_t pid) {
        child = eventually([pid] { return leftBehind(pid); });
        return std::to_string(Standing::of(child).parent == pid);
    };
    EXPECT_EQ(afterwards("fork", parent), "1");
    ASSERT_NE(child, 0);
    EXPECT_EQ(::kill(child, 0), 0) << "it outlives its parent";
    ::kill(child, SIGKILL);
}

TEST(Fault, ForkAwayLeavesOneInASessionOfItsOwn) {
    pid_t child = 0;
    const auto isAway = [&](pid_t pid) {
        child = eventually([pid] { return leftBehind(pid); });
        const Standing standing = Standing::of(child);
        return std::to_string(standing.parent != pid && standing.session == standing.group &&
                              standing.session != ::getsid(0));
    };
    EXPECT_EQ(afterwards("forkaway", isAway), "1");
    ASSERT_NE(child, 0);
    ::kill(child, SIGKILL);
}

TEST(Fault, ExecMakesItAnotherProgram) {
    const auto name = [](pid_t pid) {
        const std::string file = "/proc/" + std::to_string(pid) + "/comm";
        eventually([&] { return fileText(file) == "sleep\n"; });
        return fileText(file);
    };
    EXPECT_EQ(afterwards("exec", name), "sleep\n");
}

TEST(Fault, CloseLocksClosesAllButTheStandardDescriptors) {
    const auto others = [](pid_t pid) {
        const auto count = [pid] {
            return std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd"),
                                 std::filesystem::directory_iterator());
        };
        eventually([&] { return count() == 3; });
        return std::to_string(count());
    };
    EXPECT_EQ(afterwards("closelocks", others), "3");
}

TEST(Fault, CloseLocksGivesUpWhatAMappingWouldKeep) {
    std::FILE* const pFile = std::tmpfile();
    ASSERT_NE(pFile, nullptr);
    ASSERT_EQ(::ftruncate(::fileno(pFile), 4096), 0);
    const std::string path = "/proc/self/fd/" + std::to_string(::fileno(pFile));
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    const pid_t pid = ::fork();
    if (pid == 0) {
        const int fd = ::open(path.c_str(), O_RDWR);
        struct flock own = lock;
        if (::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0) == MAP_FAILED ||
            ::fcntl(fd, F_OFD_SETLK, &own) != 0)
            ::_exit(1);
        fault("closelocks").strike();
        for (;;)
            ::pause();
    }
    const auto areClosed = [pid] {
        std::error_code ignored;
        return std::distance(
                   std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ignored),
                   std::filesystem::directory_iterator()) == 3;
    };
    EXPECT_TRUE(eventually(areClosed));
    EXPECT_EQ(::fcntl(::fileno(pFile), F_OFD_GETLK, &lock), 0);
    EXPECT_EQ(lock.l_type, F_UNLCK);
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    std::fclose(pFile);
}

TEST(Fault, IgnoreSignalsIgnoresTermination) {
    const auto ignored = [](pid_t pid) {
        const auto line = [pid] {
            const std::string status = fileText("/proc/" + std::to_string(pid) + "/status");
            const auto at = status.find("SigIgn:");
            return at == std::string::npos ? 0 : std::stoull(status.substr(at + 7), nullptr, 16);
        };
        eventually([&] { return (line() >> (SIGTERM - 1) & 1) != 0; });
        return std::to_string(line() >> (SIGTERM - 1) & 1);
    };
    EXPECT_EQ(afterwards("ignoresignals", ignored), "1");
}

TEST(Fault, PrintWaitsForWhoeverReads) {
    // Nobody does: the pipe fills up, and it sleeps.
    const auto state = [](pid_t pid) {
        const auto standing = [pid] {
            const std::string output = "/proc/" + std::to_string(pid) + "/fd/1";
            const int fd = ::open(output.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
            int count = 0;
            ::ioctl(fd, FIONREAD, &count);
            ::close(fd);
            return count > 60000 ? Standing::of(pid).state : '-';
        };
        eventually([&] { return standing() == 'S'; });
        return std::string(1, standing());
    };
    EXPECT_EQ(afterwards("print 1", state), "S");
}

TEST(Fault, TextNamesIt) {
    EXPECT_EQ(fault(" sleep  20 ").text(), "sleep 20");
    EXPECT_EQ(fault("crash").text(), "crash");
}

TEST(Fault, UnknownWordIsNamedWithTheKnownOnes) {
    EXPECT_EQ(
        errorOf("explode"),
        "\"explode\" is no fault; there are crash, abort, exit (exit code), kill, busy (milliseconds, 0 "
        "for ever), sleep (milliseconds, 0 for ever), throw, thrownumber, fail, fork, forkaway, exec, "
        "closelocks, "
        "ignoresignals, print (mebibytes, 0 for ever), printlog (mebibytes, 0 for ever)");
}

TEST(Fault, NumberOutOfItsRangeIsNamed) {
    EXPECT_EQ(errorOf("exit 256"), "\"exit 256\": exit takes a number from 0 to 255");
    EXPECT_EQ(errorOf("sleep -1"), "\"sleep -1\": sleep takes a number from 0 to 86400000");
    EXPECT_EQ(errorOf("sleep 1s"), "\"sleep 1s\": sleep takes a number from 0 to 86400000");
}

TEST(Fault, NumberTooManyIsNamed) {
    EXPECT_EQ(errorOf("crash 1"), "\"crash 1\": crash takes nothing");
    EXPECT_THAT(errorOf("exit 1 2"), HasSubstr("exit takes a number"));
}

}  // namespace
