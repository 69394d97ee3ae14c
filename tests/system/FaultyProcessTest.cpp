#include <algorithm>

#include <string>

#include "FaultyWorkplace.h"

using testing::HasSubstr;

// A driver in a process of its own that fails: the process is gone, the host and the others go on.
class FaultyProcess : public FaultyWorkplace {
protected:
    HostProcess& startServing(const std::string& faults = {}) {
        configure("queue");
        HostProcess& host = startWith(faults);
        settle(host);
        return host;
    }

    void expectHostServes(HostProcess& host) {
        host.type("sendFID GOOD.alive");
        settle(host);
        EXPECT_THAT(readFile(workplace().workdir() / "nvram/GOOD/record.txt"), HasSubstr("sendFID alive\n"));
        EXPECT_EQ(end(), 0);
    }
};

/// FIDs that end the driver's process.
class FaultyProcessEnds : public FaultyProcess, public testing::WithParamInterface<std::string> {};

TEST_P(FaultyProcessEnds, AndTheHostGoesOn) {
    HostProcess& host = startServing();
    expectServes(host, "BAD");
    const pid_t driver = host.driverProcess("BAD");
    ASSERT_NE(driver, 0);
    host.type("sendFID BAD.FAULT." + GetParam());
    EXPECT_TRUE(endsWithin(driver, 10000)) << host.log();
    EXPECT_TRUE(host.waitForLog("BAD: process " + std::to_string(driver) + " ended")) << host.log();
    expectHostServes(host);
}

INSTANTIATE_TEST_SUITE_P(By, FaultyProcessEnds,
                         testing::Values("CRASH", "ABORT", "KILL", "EXIT code=0", "EXIT code=3"),
                         [](const auto& test) {
                             std::string name = test.param;
                             name.erase(std::remove_if(name.begin(), name.end(),
                                                       [](char c) { return c == ' ' || c == '='; }),
                                        name.end());
                             return name;
                         });

/// FIDs that it survives: it still answers.
class FaultyProcessSurvives : public FaultyProcess, public testing::WithParamInterface<std::string> {};

TEST_P(FaultyProcessSurvives, AndServes) {
    HostProcess& host = startServing();
    const pid_t driver = host.driverProcess("BAD");
    host.type("sendFID BAD.FAULT." + GetParam());
    expectServes(host, "BAD");
    EXPECT_EQ(host.driverProcess("BAD"), driver);
    expectHostServes(host);
}

INSTANTIATE_TEST_SUITE_P(It, FaultyProcessSurvives,
                         testing::Values("THROW", "THROWNUMBER", "FAIL", "SLEEP ms=20", "BUSY ms=20",
                                         "GARBAGE count=300 seed=7", "LEAK mib=4 descriptors=20",
                                         "FLOODSTATE count=2000", "FLOODFIDS fid=GOOD.PING count=2000"),
                         [](const auto& test) { return test.param.substr(0, test.param.find(' ')); });

TEST_F(FaultyProcess, DeathWhileItIsMadeLeavesTheHostRunning) {
    HostProcess& host = startServing("load crash");
    EXPECT_TRUE(host.waitForLog("BAD: process ")) << host.log();
    expectHostServes(host);
}

TEST_F(FaultyProcess, DeathInsideDeinitializeLeavesTheShutdownInOrder) {
    HostProcess& host = startServing("deinitialize crash");
    const pid_t driver = host.driverProcess("BAD");
    EXPECT_EQ(end(), 0);
    EXPECT_TRUE(endsWithin(driver, 0));
    EXPECT_THAT(host.output(), HasSubstr("Deinitializing MF driver ID: GOOD...OK\n"));
}

TEST_F(FaultyProcess, SlowStartIsWaitedFor) {
    HostProcess& host = startServing("load sleep 500; start sleep 500");
    expectServes(host, "BAD");
    expectHostServes(host);
}
