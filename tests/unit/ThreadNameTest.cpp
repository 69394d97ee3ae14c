#include "ThreadName.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <thread>

namespace {

std::string ownName() {
    std::string name;
    std::getline(std::ifstream("/proc/thread-self/comm"), name);
    return name;
}

/// What a new thread is called that names itself so.
template <class... Words>
std::string named(Words... words) {
    std::string shown;
    std::thread([&] {
        base::nameThread(words...);
        shown = ownName();
    }).join();
    return shown;
}

TEST(ThreadName, IsShownByTheKernel) {
    EXPECT_EQ("SYS receive", named("SYS", "receive"));
    EXPECT_EQ("commands", named("commands"));
}

TEST(ThreadName, IsCutAfterFifteenBytes) {
    EXPECT_EQ("A_DRIVER_ID rec", named("A_DRIVER_ID", "receive"));
    EXPECT_EQ("A_DRIVER_OF_MAN", named("A_DRIVER_OF_MANY", "receive"));
    EXPECT_EQ("A_DRIVER_OF_15 ", named("A_DRIVER_OF_15", "receive"));
    EXPECT_EQ("123456789012345", named("1234567890123456"));
}

TEST(ThreadName, IsTheCallingThreadsAlone) {
    const std::string before = ownName();
    named("another");
    EXPECT_EQ(before, ownName());
}

}  // namespace
