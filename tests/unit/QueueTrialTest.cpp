#include "QueueTrial.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

#include "LogCapture.h"
#include "sal/MessageQueue.h"

namespace {

using namespace std::chrono_literals;

/// With queues in a directory of the test's own.
class QueueTrialTest : public testing::Test {
protected:
    QueueTrialTest() {
        std::string path = "/dev/shm/mfd-queue-trial-XXXXXX";
        EXPECT_NE(nullptr, ::mkdtemp(path.data()));
        m_directory = path;
        ::setenv("MFD_QUEUE_DIR", m_directory.c_str(), 1);
    }
    ~QueueTrialTest() override {
        ::unsetenv("MFD_QUEUE_DIR");
        std::filesystem::remove_all(m_directory);
    }

    /// Leaves a queue to a process that has its locks and is not its creator: a child by clone alone.
    void leave(const std::string& name) {
        const int fd = ::open((m_directory + "/" + name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        struct flock lock {};
        lock.l_type = F_RDLCK;
        lock.l_start = off_t{1} << 40;
        lock.l_len = 1;
        ASSERT_EQ(0, ::fcntl(fd, F_OFD_SETLK, &lock));
        m_left = fd;
    }

    LogCapture m_log;
    std::string m_directory;
    int m_left = -1;
    QueueTrial m_sut{300ms};
};

}  // namespace

TEST_F(QueueTrialTest, FindsNothingWrongAndLeavesNothing) {
    EXPECT_EQ("", m_sut.fault("A"));
    EXPECT_TRUE(std::filesystem::is_empty(m_directory));
    EXPECT_EQ("", m_log.finish());
}

TEST_F(QueueTrialTest, NamesTheQueueAndTheReason) {
    std::filesystem::permissions(m_directory, std::filesystem::perms::all);
    const std::string reason =
        "queue directory " + m_directory + " is open to other users (mode 0777); it must be 0700";
    EXPECT_EQ("queue A_INQ cannot be made: " + reason, m_sut.fault("A"));
    std::filesystem::permissions(m_directory, std::filesystem::perms::owner_all);
    EXPECT_EQ("", m_sut.fault("A"));
    EXPECT_EQ("", m_log.finish());
}

TEST_F(QueueTrialTest, FindsNothingWrongWithManyAtOnceAndLeavesNothing) {
    EXPECT_TRUE(m_sut.faults({"A", "B"}).empty());
    EXPECT_TRUE(m_sut.faults({}).empty());
    EXPECT_TRUE(std::filesystem::is_empty(m_directory));
    EXPECT_EQ("", m_log.finish());
}

TEST_F(QueueTrialTest, OfManyItSaysWhichCannotBeMade) {
    leave("B_OUTQ");
    const auto faults = m_sut.faults({"A", "B", "C"});
    ASSERT_EQ(1U, faults.size());
    EXPECT_EQ("queue B_OUTQ cannot be made: the name is still in use by a live process", faults.at("B"));
    ::close(m_left);
    m_log.finish();
}

TEST_F(QueueTrialTest, OfManyEachIsWrongInADirectoryOpenToOthers) {
    std::filesystem::permissions(m_directory, std::filesystem::perms::all);
    const auto faults = m_sut.faults({"A", "B"});
    ASSERT_EQ(2U, faults.size());
    EXPECT_EQ("queue B_INQ cannot be made: queue directory " + m_directory +
                  " is open to other users (mode 0777); it must be 0700",
              faults.at("B"));
}

TEST_F(QueueTrialTest, OfManyOneWhoseIdMakesNoNameIsWrong) {
    const std::string longest(255, 'x');
    const auto faults = m_sut.faults({"A", longest});
    ASSERT_EQ(1U, faults.size());
    EXPECT_TRUE(faults.contains(longest));
}

TEST_F(QueueTrialTest, TriesTheDirectoryWhereTheDriverHasItsQueues) {
    sal::MessageQueue input;
    sal::MessageQueue output;
    ASSERT_TRUE(input.create("A_INQ", 4, 1024, 0));
    ASSERT_TRUE(output.create("A_OUTQ", 4, 1024, 0));
    EXPECT_EQ("", m_sut.fault("A"));
    std::filesystem::permissions(m_directory, std::filesystem::perms::all);
    EXPECT_NE("", m_sut.fault("A"));
    m_log.finish();
}

TEST_F(QueueTrialTest, NameThatNobodyWithAHostHasIsTakenAfterAWhile) {
    leave("A_OUTQ");
    EXPECT_EQ("queue A_OUTQ cannot be made: the name is still in use by a live process", m_sut.fault("A"));
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ("", m_sut.fault("A"));
    EXPECT_FALSE(std::filesystem::exists(m_directory + "/A_OUTQ"));
    ::close(m_left);
    m_log.finish();
}

TEST_F(QueueTrialTest, NameOfAnotherHostIsNotTaken) {
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    const pid_t host = ::fork();
    if (host == 0) {
        sal::MessageQueue queue;
        static_cast<void>(!::write(ends[1], queue.create("A_INQ", 4, 1024, 0) ? "y" : "n", 1));
        for (;;)
            ::pause();
    }
    char letter = 0;
    ASSERT_EQ(1, ::read(ends[0], &letter, 1));
    ASSERT_EQ('y', letter);
    const std::string fault =
        "queue A_INQ cannot be made: the name is still in use by a live process (made by process " +
        std::to_string(host) + ")";
    EXPECT_EQ(fault, m_sut.fault("A"));
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(fault, m_sut.fault("A"));
    ::kill(host, SIGKILL);
    ::waitpid(host, nullptr, 0);
    EXPECT_EQ("", m_sut.fault("A"));
    ::close(ends[0]);
    ::close(ends[1]);
    m_log.finish();
}
