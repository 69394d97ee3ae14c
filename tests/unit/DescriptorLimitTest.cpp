#include "DescriptorLimit.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>

namespace {

/// How many descriptors the kernel's table of this process has room for.
int roomForDescriptors() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        int room = 0;
        if (word == "FDSize:" && status >> room)
            return room;
    }
    return -1;
}

/// What work returns in a process of its own, whose table is as short as it can be.
template <class Work>
int inNewProcess(Work work) {
    const pid_t process = ::fork();
    if (process == 0)
        ::_exit(work());
    int status = 0;
    ::waitpid(process, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class DescriptorLimitTest : public testing::Test {
protected:
    DescriptorLimitTest() { ::getrlimit(RLIMIT_NOFILE, &m_before); }
    ~DescriptorLimitTest() override { ::setrlimit(RLIMIT_NOFILE, &m_before); }

    struct rlimit m_before {};
};

TEST_F(DescriptorLimitTest, RaisesTheSoftLimitToTheHardOneAndTellsTheFormer) {
    const struct rlimit low { 64, m_before.rlim_max };
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    EXPECT_EQ(raiseDescriptorLimit(), 64u);
    struct rlimit now {};
    ::getrlimit(RLIMIT_NOFILE, &now);
    EXPECT_EQ(now.rlim_cur, m_before.rlim_max);
    EXPECT_EQ(now.rlim_max, m_before.rlim_max);
}

TEST_F(DescriptorLimitTest, MakesRoomForTheDescriptorsOfManyDrivers) {
    EXPECT_EQ(inNewProcess([] {
                  const struct rlimit enough { 8192, 8192 };
                  if (::setrlimit(RLIMIT_NOFILE, &enough) != 0 || roomForDescriptors() >= 4096)
                      return 1;
                  makeRoomForDescriptors();
                  // The table's length is what is left of it: nothing is open that was not before.
                  return roomForDescriptors() >= 4096 && ::dup(0) < 10 ? 0 : 2;
              }),
              0);
}

TEST_F(DescriptorLimitTest, MakesNoMoreRoomThanTheSoftLimitAllows) {
    EXPECT_EQ(inNewProcess([] {
                  const struct rlimit few { 300, 300 };
                  if (::setrlimit(RLIMIT_NOFILE, &few) != 0)
                      return 1;
                  makeRoomForDescriptors();
                  return roomForDescriptors() >= 300 && roomForDescriptors() < 4096 ? 0 : 2;
              }),
              0);
}

}  // namespace
