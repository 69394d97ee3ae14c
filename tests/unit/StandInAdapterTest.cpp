#include "StandInAdapter.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>

namespace {

/// What is taken on a machine with these adapters, each made by a shell command; a word of its own where
/// there is no such machine to be had.
int takenAfter(const std::string& commands, const std::string& expected) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (::unshare(CLONE_NEWNET) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
            ::_exit(77);
        if (std::system(commands.c_str()) != 0)
            ::_exit(77);
        const std::string taken = standInAdapter();
        if (taken != expected)
            std::cerr << "taken: \"" << taken << "\"" << std::endl;
        ::_exit(taken == expected ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Brings up the pair b0, c0 and waits until the kernel says so.
const std::string bothUp =
    "ip link set b0 up && ip link set c0 up && "
    "for i in $(seq 100); do [ $(ip link | grep -c 'state UP') = 2 ] && exit 0; sleep 0.1; done; exit 1";

}  // namespace

#define EXPECT_TAKEN(commands, expected)                 \
    do {                                                 \
        const int code = takenAfter(commands, expected); \
        if (code == 77)                                  \
            GTEST_SKIP() << "needs a network namespace"; \
        EXPECT_EQ(0, code);                              \
    } while (false)

TEST(StandInAdapter, IsLoWhereThereIsNoOther) {
    EXPECT_TAKEN("ip link set lo up", "lo");
}

TEST(StandInAdapter, IsTheFirstByItsNameThatIsUp) {
    EXPECT_TAKEN(
        "ip link add a1 type veth peer name a0 && ip link add c0 type veth peer name b0 && " + bothUp, "b0");
}

TEST(StandInAdapter, IsNoneWhereThereIsAnEth) {
    EXPECT_TAKEN(
        "ip link add eth7 type veth peer name a0 && ip link add c0 type veth peer name b0 && " + bothUp, "");
}
