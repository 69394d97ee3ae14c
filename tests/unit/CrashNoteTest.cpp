#include "sal/CrashNote.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>

#include "ErrorPipe.h"
#include "UniqueFd.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

TEST(CrashNote, IsReadFromALineOfTheLog) {
    const auto crash = sal::CrashNote::in("Dies of signal 6 on thread 31415");
    ASSERT_TRUE(crash);
    EXPECT_EQ(crash->signal, SIGABRT);
    EXPECT_EQ(crash->thread, 31415);
}

TEST(CrashNote, OtherLinesAreNone) {
    for (const char* line :
         {"", "Dies", "Dies of signal 6", "Dies of signal  on thread 1", "Dies of signal 6 on thread ",
          "Dies of signal 6 on thread 0", "Dies of signal 6 on thread -5", "Dies of signal 9 on thread 5",
          "Dies of signal 6 on thread 5.", " Dies of signal 6 on thread 5",
          "Dies of signal 99999999999999999999 on thread 5"})
        EXPECT_FALSE(sal::CrashNote::in(line)) << line;
}

/// A process whose standard error is read, as a host reads it.
class CrashNoteOfAProcess : public testing::Test {
protected:
    /// Runs the work in a process of its own that has installed the note.
    template <class Work>
    void run(bool isRead, Work work) {
        std::array<int, 2> ends{};
        ASSERT_EQ(::pipe(ends.data()), 0);
        m_reader = base::UniqueFd(ends[0]);
        m_pid = ::fork();
        ASSERT_GE(m_pid, 0);
        if (m_pid == 0) {
            ::dup2(ends[1], STDERR_FILENO);
            ::close(ends[1]);
            m_reader.reset();
            for (const int signal : {SIGSEGV, SIGABRT})
                ::signal(signal, SIG_DFL);
            const std::string variable = sal::ErrorPipe::variableFor(STDERR_FILENO);
            ::setenv("MFD_ERROR_PIPE", isRead ? variable.substr(variable.find('=') + 1).c_str() : "", 1);
            sal::ErrorPipe::take();
            sal::CrashNote::install("AXIS1");
            work();
            ::_exit(0);
        }
        ::close(ends[1]);
    }
    /// The line, once it is there.
    std::string line() const {
        std::array<char, 512> text{};
        const ssize_t count = ::read(m_reader.get(), text.data(), text.size());
        return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }
    int signalOfItsEnd() {
        int status = 0;
        EXPECT_EQ(::waitpid(m_pid, &status, 0), m_pid);
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

    base::UniqueFd m_reader;
    pid_t m_pid = 0;
};

TEST_F(CrashNoteOfAProcess, SaysItsThreadAndDiesWhenItIsToldTo) {
    run(true, [] { ::raise(SIGSEGV); });
    const std::string pid = std::to_string(m_pid);
    EXPECT_THAT(line(), MatchesRegex("\n\x1e"
                                     "1\x1f[0-9]+\x1f"
                                     "AXIS1 MFD\x1f"
                                     "Dies of signal 11 on thread " +
                                     pid + "\n"));
    ASSERT_EQ(::kill(m_pid, SIGSEGV), 0);
    EXPECT_EQ(signalOfItsEnd(), SIGSEGV);
}

TEST_F(CrashNoteOfAProcess, DiesByItselfOfTheSameSignal) {
    run(true, [] { std::abort(); });
    EXPECT_THAT(line(), HasSubstr("Dies of signal 6 on thread "));
    EXPECT_EQ(signalOfItsEnd(), SIGABRT);
}

TEST_F(CrashNoteOfAProcess, DiesWithoutAHostOfTheSameSignal) {
    std::array<int, 2> go{};
    ASSERT_EQ(::pipe(go.data()), 0);
    run(true, [&go] {
        ::signal(SIGPIPE, SIG_IGN);
        char byte = 0;
        static_cast<void>(::read(go[0], &byte, 1));
        ::raise(SIGSEGV);
    });
    m_reader.reset();
    ASSERT_EQ(::write(go[1], "x", 1), 1);
    EXPECT_EQ(signalOfItsEnd(), SIGSEGV);
    ::close(go[0]);
    ::close(go[1]);
}

TEST_F(CrashNoteOfAProcess, SaysNothingWhereNoHostReads) {
    run(false, [] { ::raise(SIGSEGV); });
    EXPECT_EQ(signalOfItsEnd(), SIGSEGV);
    EXPECT_THAT(line(), IsEmpty());
}

TEST_F(CrashNoteOfAProcess, SaysNothingIntoWhatADriverHasInThePlaceOfStandardError) {
    std::array<int, 2> other{};
    ASSERT_EQ(::pipe2(other.data(), O_NONBLOCK), 0);
    run(true, [&other] {
        ::dup2(other[1], STDERR_FILENO);
        ::raise(SIGSEGV);
    });
    EXPECT_EQ(signalOfItsEnd(), SIGSEGV);
    EXPECT_THAT(line(), IsEmpty());
    char byte = 0;
    EXPECT_EQ(::read(other[0], &byte, 1), -1);
    ::close(other[0]);
    ::close(other[1]);
}

TEST_F(CrashNoteOfAProcess, LeavesAHandlerThatIsThereInItsPlace) {
    run(true, [] {
        ::signal(SIGSEGV, [](int) { ::_exit(3); });
        sal::CrashNote::install("AXIS1");
        ::signal(SIGABRT, SIG_DFL);
        ::raise(SIGSEGV);
    });
    EXPECT_THAT(line(), IsEmpty());
    EXPECT_EQ(signalOfItsEnd(), 0);
}

}  // namespace
