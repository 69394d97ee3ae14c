#include <string>

#include "ControlledWorkplace.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

/// A real gdb at the process of a driver of a real host.
class Debug : public ControlledWorkplace {};

TEST_F(Debug, BreakpointInTheDriverIsReachedAndTheDriverServesAfterwards) {
    HostProcess& host = startControlled();
    const Answer gdb = mfctl("debug E -batch -ex 'break mfdCreateDriver' -ex continue -ex bt -ex detach");
    EXPECT_EQ(gdb.exitCode, 0) << gdb.text;
    EXPECT_THAT(gdb.text, ContainsRegex("E: process [0-9]+ loads the driver when gdb continues it"));
    EXPECT_THAT(gdb.text, ContainsRegex("hit Breakpoint 1,.*mfdCreateDriver"));
    EXPECT_THAT(gdb.text, HasSubstr("DriverProcess::run"));
    expectSets(host, "E");
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr("HOST: reload of E under a debugger, asked for by root\n"));
}

TEST_F(Debug, ProcessThatADebuggerHoldsIsNotTakenForHung) {
    workplace().addModule("Echo");
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait({"--control", socket(), "--hang-timeout", "2"});
    // What it is sent meanwhile it does not take for thrice as long as it may.
    const Answer gdb = mfctl("debug E -batch -ex 'shell sleep 6' -ex detach");
    EXPECT_EQ(gdb.exitCode, 0) << gdb.text;
    expectSets(host, "E");
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), Not(HasSubstr("hang")));
    EXPECT_THAT(host.log(), Not(HasSubstr("signal 9")));
}

TEST_F(Debug, DriverInTheHostsProcessIsRefused) {
    startControlled();
    const Answer refused = mfctl("debug G");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(
        refused.text,
        ContainsRegex("mfctl: G is not reloaded: it has no process of its own; a debugger takes the host's, "
                      "process [0-9]+\n"));
    EXPECT_EQ(end(), 0);
}

}  // namespace
