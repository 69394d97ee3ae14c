#include "AmbientCapabilities.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <thread>

namespace {

bool isAmbient(int capability) {
    return ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_IS_SET, capability, 0, 0) == 1;
}

/// As a service manager leaves it to a service; of the calling thread alone.
bool giveAmbient(int capability) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    if (::syscall(SYS_capget, &header, sets.data()) != 0)
        return false;
    sets.at(CAP_TO_INDEX(capability)).inheritable |= CAP_TO_MASK(capability);
    return ::syscall(SYS_capset, &header, sets.data()) == 0 &&
           ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, capability, 0, 0) == 0;
}

}  // namespace

TEST(AmbientCapabilities, AreCleared) {
    bool isGiven = false;
    bool isLeft = true;
    std::thread([&] {
        isGiven = giveAmbient(CAP_NET_ADMIN) && isAmbient(CAP_NET_ADMIN);
        clearAmbientCapabilities();
        isLeft = isAmbient(CAP_NET_ADMIN);
    }).join();
    if (!isGiven)
        GTEST_SKIP() << "this process has no CAP_NET_ADMIN to give";
    EXPECT_FALSE(isLeft);
}
