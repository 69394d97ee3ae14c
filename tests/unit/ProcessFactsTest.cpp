#include "ProcessFacts.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "HangGuard.h"
#include "TemporaryDirectory.h"

namespace {

/// A process of a made-up /proc.
class ProcessFactsTest : public testing::Test {
protected:
    ProcessFactsTest() {
        m_proc.write("uptime", "1000.00 1.0\n");
        m_proc.write("77/stat", "77 (a) b (c) T 5 " + fields(30, 12, 40000));
        m_proc.write("77/comm", "mfddllwrap\n");
        m_proc.write("77/cmdline", std::string("SYS MFD Console\0two\0", 20));
        m_proc.write("77/environ", std::string("HOME=/x\0MFD_QUEUE_DIR=/q\0MFD_X=a=b\0", 36));
        m_proc.write("77/status", "Name:\tx\nVmRSS:\t   2048 kB\n");
        m_proc.write("77/maps",
                     "7f00-7f01 rw-s 0 0:1 5  /q/SYS_INQ\n7f02-7f03 rw-s 0 0:1 5  /q/SYS_INQ\n"
                     "7f04-7f05 r--p 0 0:1 5  /lib/x.so\n7f04-7f05 rw-s 0 0:1 5  /dev/shm/mfd-0-a/OUT\n"
                     "7f05-7f06 rw-s 0 0:1 5  /q/stream.ring\n"
                     "7f06-7f07 rw-s 0 0:1 5  /dev/shm/mfd-0-a/#4 (deleted)\n");
        m_proc.write("77/fd/0", "");
        m_proc.write("77/task/77/stat", "77 (mfddllwrap) S 5 " + fields(30, 12, 40000));
        m_proc.write("77/task/77/comm", "mfddllwrap\n");
        m_proc.write("77/task/77/wchan", "futex_wait_queue");
        m_proc.write("77/task/78/stat", "78 (SYS receive) D 5 " + fields(3, 1, 40000));
        m_proc.write("77/task/78/comm", "SYS receive\n");
        m_proc.write("77/task/78/wchan", "0");
        std::filesystem::create_symlink("/opt/mf/bin/mfddllwrap (deleted)", m_proc.path("77/exe"));
    }

    /// What stands in "stat" after the parent.
    static std::string fields(int user, int system, int begin) {
        return "0 0 0 0 0 0 0 0 0 " + std::to_string(user) + " " + std::to_string(system) + " 0 0 0 0 0 0 " +
               std::to_string(begin) + " 0 0\n";
    }

    TemporaryDirectory m_proc;
};

}  // namespace

TEST_F(ProcessFactsTest, HasWhatTheKernelTells) {
    const auto sut = ProcessFacts::read(77, m_proc.path());
    ASSERT_TRUE(sut);
    EXPECT_EQ(77, sut->pid);
    EXPECT_EQ(5, sut->parent);
    EXPECT_EQ('T', sut->state);
    EXPECT_EQ("mfddllwrap", sut->name);
    EXPECT_EQ((std::vector<std::string>{"SYS MFD Console", "two"}), sut->command);
    EXPECT_EQ(2048u, sut->memoryKb);
    EXPECT_EQ(1u, sut->descriptors);
    EXPECT_EQ(::getuid(), sut->user);
    EXPECT_EQ(1000 - 40000 / ::sysconf(_SC_CLK_TCK), sut->age.count());
    EXPECT_EQ((std::map<std::string, std::string>{{"MFD_QUEUE_DIR", "/q"}, {"MFD_X", "a=b"}}), sut->settings);
}

TEST_F(ProcessFactsTest, KnowsTheQueuesThatItHasMapped) {
    EXPECT_EQ((std::vector<std::string>{"/dev/shm/mfd-0-a/OUT", "/q/SYS_INQ"}),
              ProcessFacts::read(77, m_proc.path())->queues);
}

TEST_F(ProcessFactsTest, KnowsTheMemoryOfARecordingApartFromQueues) {
    EXPECT_EQ((std::vector<std::string>{"/q/stream.ring"}), ProcessFacts::read(77, m_proc.path())->rings);
}

TEST_F(ProcessFactsTest, KnowsItsThreads) {
    const auto sut = ProcessFacts::read(77, m_proc.path());
    ASSERT_EQ(2u, sut->threads.size());
    EXPECT_EQ("futex_wait_queue", sut->threads[0].waitsIn);
    EXPECT_EQ(42u, sut->threads[0].cpuTicks);
    EXPECT_EQ("SYS receive", sut->threads[1].name);
    EXPECT_EQ('D', sut->threads[1].state);
    EXPECT_EQ("", sut->threads[1].waitsIn);
}

TEST_F(ProcessFactsTest, DriverIsThatOfTheTitleAndProgramThatOfTheFile) {
    const auto sut = ProcessFacts::read(77, m_proc.path());
    EXPECT_EQ("SYS", sut->driverID());
    EXPECT_EQ("mfddllwrap", sut->programName());
    EXPECT_EQ("", ProcessFacts().driverID());
}

TEST_F(ProcessFactsTest, ListsProcesses) {
    m_proc.write("5/stat", "");
    EXPECT_EQ((std::vector<int>{5, 77}), ProcessFacts::all(m_proc.path()));
    EXPECT_FALSE(ProcessFacts::read(5, m_proc.path()));
    EXPECT_FALSE(ProcessFacts::read(6, m_proc.path()));
}

TEST_F(ProcessFactsTest, ReadsARealProcessThatIsStopped) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        for (;;)
            ::pause();
    }
    ::kill(pid, SIGSTOP);
    EXPECT_TRUE(eventually([&] { return ProcessFacts::read(pid)->state == 'T'; }));
    const auto sut = ProcessFacts::read(pid);
    EXPECT_EQ(::getpid(), sut->parent);
    EXPECT_EQ("unit_mfctl", sut->programName());
    EXPECT_EQ(1u, sut->threads.size());
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}

TEST_F(ProcessFactsTest, StatesAreInWords) {
    EXPECT_STREQ("is stopped", stateInWords('T'));
    EXPECT_STREQ("is held in the kernel", stateInWords('D'));
    EXPECT_STREQ("sleeps", stateInWords('S'));
    EXPECT_STREQ("is in an unknown state", stateInWords('?'));
}
