#include "DriverErrors.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <ctime>
#include <future>
#include <mutex>
#include <thread>

#include "HangGuard.h"
#include "NoDescriptors.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class DriverErrorsTest : public testing::Test {
protected:
    explicit DriverErrorsTest(std::chrono::milliseconds patience = 50ms)
        : m_sut([this](const std::string& driverID, const sal::LogManager::Line& line,
                       bool) { take(driverID, line); },
                {.patience = patience}) {}

    /// The writing end of the standard error of a new process.
    base::UniqueFd add(const std::string& driverID, int pid) {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
        m_lastReader = ends[0];
        m_sut.add(driverID, pid, ends[0]);
        return base::UniqueFd(ends[1]);
    }
    static void write(const base::UniqueFd& pipe, const std::string& text) {
        ASSERT_EQ(static_cast<ssize_t>(text.size()), ::write(pipe.get(), text.data(), text.size()));
    }
    std::vector<std::string> lines() {
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }
    bool has(const std::string& line) {
        return eventually([&] {
            const auto all = lines();
            return std::find(all.begin(), all.end(), line) != all.end();
        });
    }

    int m_lastReader = -1;

private:
    void take(const std::string& driverID, const sal::LogManager::Line& line) {
        const std::lock_guard lock(m_mutex);
        m_lines.push_back(driverID + " " + line.text);
    }

    std::mutex m_mutex;
    std::vector<std::string> m_lines;

protected:
    DriverErrors m_sut;
};

class DriverErrorsTestOfPatience : public DriverErrorsTest {
protected:
    DriverErrorsTestOfPatience() : DriverErrorsTest(1h) {}
};

bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) != -1;
}

}  // namespace

TEST(DriverErrors, SaysThatNoDescriptorIsLeft) {
    std::string reason;
    try {
        const NoDescriptors none;
        DriverErrors sut([](const auto&, const auto&, bool) {});
    } catch (const std::runtime_error& error) {
        reason = error.what();
    }
    EXPECT_EQ("no descriptor can be had for the drivers' errors: Too many open files", reason);
}

TEST_F(DriverErrorsTest, LinesOfAllProcessesCome) {
    m_sut.start();
    const auto first = add("A", 1);
    const auto second = add("B", 2);
    write(first, "one\n");
    write(second, "two\n");
    EXPECT_TRUE(has("A one"));
    EXPECT_TRUE(has("B two"));
    write(first, "three\n");
    EXPECT_TRUE(has("A three"));
}

TEST_F(DriverErrorsTest, NothingIsLookedAtWhileNoProcessWrites) {
    const auto usedTime = [] {
        timespec time{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    m_sut.start();
    const auto pipe = add("A", 1);
    write(pipe, "one\n");
    ASSERT_TRUE(has("A one"));
    const auto before = usedTime();
    std::this_thread::sleep_for(500ms);
    EXPECT_LT(usedTime() - before, 20ms);
}

TEST_F(DriverErrorsTest, ProcessThatHasEndedHasSaidAllWhenThatIsTold) {
    // Without its thread, so that nothing else reads.
    auto pipe = add("A", 1);
    write(pipe, "one\nlast word");
    pipe.reset();
    const auto words = m_sut.ended(1);
    EXPECT_THAT(lines(), ElementsAre("A one", "A last word"));
    EXPECT_THAT(words.last, ElementsAre("one", "last word"));
}

TEST_F(DriverErrorsTest, FaultOfTheModuleIsToldAtTheEnd) {
    auto pipe = add("A", 1);
    write(pipe,
          "\x1e"
          "2\x1f"
          "1\x1f"
          "A MODULE\x1f"
          "cannot load the driver module /a.so: file too short\n");
    pipe.reset();
    EXPECT_EQ("file too short", m_sut.ended(1).loadFault);
}

TEST_F(DriverErrorsTest, StackOfAProcessComesAfterItsLastWords) {
    auto pipe = add("A", 1);
    write(pipe, "terminate called\n");
    m_sut.noteStack(2, {"#0 other"});
    m_sut.noteStack(1, {"#0 abort", "#1 strike"});
    pipe.reset();
    EXPECT_THAT(m_sut.ended(1).last, ElementsAre("terminate called", "#0 abort", "#1 strike"));
}

TEST_F(DriverErrorsTest, CrashIsToldWithItsProcess) {
    std::promise<std::string> told;
    DriverErrors sut([](const auto&, const auto&, bool) {},
                     {.onCrash = [&told](int pid, const sal::CrashNote::Crash& crash) {
                         told.set_value(std::to_string(pid) + " " + std::to_string(crash.signal) + " " +
                                        std::to_string(crash.thread));
                     }});
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    const base::UniqueFd pipe(ends[1]);
    sut.add("A", 7, ends[0]);
    sut.start();
    write(pipe,
          "\n\x1e"
          "1\x1f"
          "1\x1f"
          "A MFD\x1f"
          "Dies of signal 11 on thread 9\n");
    auto crash = told.get_future();
    ASSERT_EQ(crash.wait_for(c_hangGuard), std::future_status::ready);
    EXPECT_EQ(crash.get(), "7 11 9");
}

TEST_F(DriverErrorsTest, ProcessThatIsNotKnownHasSaidNothing) {
    EXPECT_THAT(m_sut.ended(7).last, IsEmpty());
}

TEST_F(DriverErrorsTest, ProcessWithTheNumberOfAFormerOneIsAnother) {
    auto former = add("A", 1);
    write(former, "former\n");
    EXPECT_THAT(m_sut.ended(1).last, ElementsAre("former"));
    auto next = add("A", 1);
    write(next, "next\n");
    EXPECT_THAT(m_sut.ended(1).last, ElementsAre("next"));
}

TEST_F(DriverErrorsTest, PipeIsClosedWhenItsProcessHasEnded) {
    m_sut.start();
    auto pipe = add("A", 1);
    const int reader = m_lastReader;
    pipe.reset();
    m_sut.ended(1);
    EXPECT_TRUE(eventually([&] { return !isOpen(reader); }));
}

TEST_F(DriverErrorsTest, PipeThatOthersKeepIsReadForAWhileAndThenClosed) {
    m_sut.start();
    const auto kept = add("A", 1);
    const int reader = m_lastReader;
    write(kept, "begun");
    m_sut.ended(1);
    EXPECT_TRUE(has("A begun"));
    EXPECT_TRUE(eventually([&] { return !isOpen(reader); }));
}

TEST_F(DriverErrorsTestOfPatience, PipeThatOthersKeepIsReadAfterTheEndOfItsProcess) {
    m_sut.start();
    const auto kept = add("A", 1);
    m_sut.ended(1);
    write(kept, "late\n");
    EXPECT_TRUE(has("A late"));
}

TEST_F(DriverErrorsTest, ProcessThatHasClosedItsStandardErrorIsAskedForItsLastWordsAtItsEnd) {
    m_sut.start();
    auto pipe = add("A", 1);
    write(pipe, "one\n");
    pipe.reset();
    EXPECT_TRUE(has("A one"));
    EXPECT_THAT(m_sut.ended(1).last, ElementsAre("one"));
}

TEST_F(DriverErrorsTest, NothingIsLostAtTheEnd) {
    m_sut.start();
    const auto pipe = add("A", 1);
    write(pipe, "one\ntwo");
    m_sut.stop();
    EXPECT_THAT(lines(), ElementsAre("A one", "A two"));
}

TEST_F(DriverErrorsTest, DrainTellsWhatIsThere) {
    const auto pipe = add("A", 1);
    write(pipe, "one\ntwo");
    m_sut.drain();
    EXPECT_THAT(lines(), ElementsAre("A one"));
}

TEST_F(DriverErrorsTest, WriterThatNeverCeasesHoldsUpNeitherOthersNorTheEnd) {
    m_sut.start();
    auto noisy = add("NOISY", 1);
    const auto quiet = add("QUIET", 2);
    std::atomic<bool> isDone = false;
    std::thread writer([&] {
        const std::string text(10'000, '\n');
        while (!isDone)
            static_cast<void>(!::write(noisy.get(), text.data(), text.size()));
    });
    write(quiet, "one\n");
    EXPECT_TRUE(has("QUIET one"));
    m_sut.ended(2);
    isDone = true;
    writer.join();
    m_sut.stop();
}
