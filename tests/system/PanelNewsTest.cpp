#include <signal.h>

#include <chrono>
#include <string>

#include "FaultyWorkplace.h"

using testing::HasSubstr;
using testing::Not;

/// The panel driver is told how the others are, where the workplace asks for it.
class PanelNews : public FaultyWorkplace {
protected:
    HostProcess& startTold() {
        HostProcess& host = start(call({"--tell-panel", "--follow=PANEL.DRIVER.*", "--restart-limit", "0"}));
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
        return host;
    }
};

TEST_F(PanelNews, TellOfTheDriversThatRunAndOfOneThatIsKilled) {
    configure("queue");
    HostProcess& host = startTold();
    EXPECT_TRUE(host.waitForOutput("PANEL.DRIVER.BAD = running\n")) << host.output();
    EXPECT_TRUE(host.waitForOutput("PANEL.DRIVER.GOOD = running\n")) << host.output();
    ::kill(host.driverProcess("BAD"), SIGKILL);
    EXPECT_TRUE(host.waitForOutput("PANEL.DRIVER.BAD = ended: signal 9 (Killed)\n")) << host.output();
    host.type("startDriver BAD");
    EXPECT_TRUE(host.repliesWith("state PANEL.DRIVER.BAD", "PANEL.DRIVER.BAD +string +running "))
        << host.output();
    host.type("stopDriver BAD");
    EXPECT_TRUE(host.waitForOutput("PANEL.DRIVER.BAD = parked: parked at the console\n")) << host.output();
    EXPECT_EQ(end(), 0);
}

TEST_F(PanelNews, TellOfADriverOfTheHostsProcessThatIsReloaded) {
    configure("direct");
    HostProcess& host = startTold();
    EXPECT_TRUE(host.waitForOutput("PANEL.DRIVER.GOOD = running\n")) << host.output();
    host.type("reloadDriver BAD");
    EXPECT_TRUE(host.waitForOutput("PANEL.DRIVER.BAD = ended: unloaded\n")) << host.output();
    EXPECT_EQ(end(), 0);
}

TEST_F(PanelNews, AreOffUnlessTheWorkplaceAsksForThem) {
    configure("queue");
    HostProcess& host = start(call({"--follow=PANEL.DRIVER*", "--restart-limit", "0"}));
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    ::kill(host.driverProcess("BAD"), SIGKILL);
    EXPECT_TRUE(host.waitForLog("ended unexpectedly: signal 9 (Killed)")) << host.log();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), Not(HasSubstr("PANEL.DRIVER")));
}
