#include <signal.h>

#include <algorithm>
#include <filesystem>

#include "SystemTest.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

// How drivers and their processes end: in order, when they hold things up, and when the host is killed.
class Shutdown : public SystemTest {
protected:
    void prepare() override { giveAdapter(); }

    HostProcess& startWith(const std::string& type, const std::string& interfaceType,
                           const std::vector<std::string>& options = {}) {
        workplace().addModule(type);
        workplace().configure(TestWorkplace::entry("AXIS1", type, interfaceType));
        HostProcess& host = start(options);
        EXPECT_TRUE(host.waitForOutput("(ID: AXIS1)...")) << host.log();
        return host;
    }

    /// Waits until the command thread has come past the start.
    static void waitUntilStarted(HostProcess& host) { ASSERT_TRUE(host.passMark()) << host.log(); }

    /// The same, and until the driver process of a Recorder has come up.
    void waitUntilItServes(HostProcess& host) {
        waitUntilStarted(host);
        ASSERT_TRUE(eventually([this] {
            return recorded().find("initializationCompleted\n") != std::string::npos;
        })) << host.log();
    }
    std::string recorded() { return readFile(workplace().workdir() / "nvram/AXIS1/record.txt"); }

    /// What a killed host has recorded stays for the next start, and is none.
    static bool queuesAreLeft() {
        const auto isQueues = [](const fs::directory_entry& entry) {
            return entry.path().string().find("-ring-") == std::string::npos;
        };
        const fs::directory_iterator entries("/dev/shm");
        return std::any_of(begin(entries), fs::directory_iterator(), isQueues);
    }
};

TEST_F(Shutdown, LeavesNoProcessAndNoQueue) {
    HostProcess& host = startWith("Recorder", "queue", {"--log-level", "5"});
    waitUntilItServes(host);
    const pid_t driver = host.driverProcess("AXIS1");
    ASSERT_NE(driver, 0);
    ASSERT_TRUE(queuesAreLeft());
    EXPECT_EQ(end(), 0);
    EXPECT_TRUE(endsWithin(driver, 0));
    EXPECT_FALSE(queuesAreLeft());
}

TEST_F(Shutdown, LeavesTheLinksOfTheDrivers) {
    startWith("Recorder", "direct");
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(fs::read_symlink("/var/data/AXIS1"), workplace().workdir() / "data/AXIS1");
    EXPECT_EQ(fs::read_symlink("/var/data/PANEL"), workplace().workdir() / "data/PANEL");
}

TEST_F(Shutdown, TerminationSignalShutsDownInOrder) {
    HostProcess& host = startWith("Recorder", "queue", {"--log-level", "5"});
    waitUntilItServes(host);
    host.signal(SIGTERM);
    EXPECT_EQ(host.waitForEnd(), 0);
    EXPECT_TRUE(host.waitForOutput("Deinitializing MF driver ID: AXIS1...OK\n")) << host.output();
    EXPECT_THAT(recorded(), HasSubstr("deinitialize\n"));
}

TEST_F(Shutdown, DriverThatIgnoresItsEndIsKilledByAReloadAndStartsAgain) {
    HostProcess& host = startWith("IgnoresDeinit", "queue", {"--log-level", "5", "--stop-timeout", "1"});
    waitUntilStarted(host);
    const pid_t old = host.driverProcess("AXIS1");
    ASSERT_NE(old, 0);
    host.type("reloadDriver AXIS1");
    ASSERT_TRUE(host.passMark()) << host.log();
    EXPECT_TRUE(endsWithin(old, 0));
    const pid_t fresh = host.driverProcess("AXIS1");
    EXPECT_NE(fresh, 0);
    EXPECT_NE(fresh, old);
    EXPECT_TRUE(host.waitForLog("AXIS1")) << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(Shutdown, DriverThatIgnoresItsEndIsKilledAtTheEndOfTheHost) {
    HostProcess& host = startWith("IgnoresDeinit", "queue", {"--log-level", "5", "--stop-timeout", "1"});
    waitUntilStarted(host);
    const pid_t driver = host.driverProcess("AXIS1");
    ASSERT_NE(driver, 0);
    EXPECT_EQ(end(), 0);
    EXPECT_TRUE(endsWithin(driver, 0));
    EXPECT_FALSE(queuesAreLeft());
}

TEST_F(Shutdown, KilledHostTakesItsDriverProcessesAlong) {
    HostProcess& host = startWith("Recorder", "queue", {"--log-level", "5"});
    waitUntilItServes(host);
    const pid_t driver = host.driverProcess("AXIS1");
    ASSERT_NE(driver, 0);
    host.signal(SIGKILL);
    EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    EXPECT_TRUE(endsInTime(driver));
    EXPECT_THAT(recorded(), HasSubstr("deinitialize\n"));
    EXPECT_FALSE(queuesAreLeft());
}

TEST_F(Shutdown, KilledHostTakesAlongEvenADriverThatIgnoresItsEnd) {
    HostProcess& host = startWith("IgnoresDeinit", "queue", {"--log-level", "5"});
    waitUntilStarted(host);
    const pid_t driver = host.driverProcess("AXIS1");
    ASSERT_NE(driver, 0);
    host.signal(SIGKILL);
    EXPECT_TRUE(endsInTime(driver));
}

TEST_F(Shutdown, AfterAKilledHostTheNextOneStarts) {
    HostProcess& killed = startWith("Recorder", "queue", {"--log-level", "5"});
    waitUntilItServes(killed);
    const pid_t driver = killed.driverProcess("AXIS1");
    killed.signal(SIGKILL);
    ASSERT_TRUE(endsInTime(driver));
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr("m_driverID=AXIS1\nOK\n"));
}
