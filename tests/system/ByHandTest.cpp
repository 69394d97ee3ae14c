#include <signal.h>

#include <filesystem>

#include "SystemTest.h"

using testing::HasSubstr;

// The host makes the queues only; somebody else starts the driver process.
class ByHand : public SystemTest {
protected:
    void prepare() override {
        giveAdapter();
        workplace().addModule("Echo");
        workplace().configure(TestWorkplace::entry("AXIS1", "Echo", "queue"));
        std::filesystem::create_directory(workplace().directory() / "wrapper");
    }

    /// With what the host tells whoever starts one.
    HostProcess startWrapper(const HostProcess& host) {
        const std::string name = "MFD_QUEUE_DIR=";
        const std::string log = host.log();
        const auto at = log.find(name);
        EXPECT_NE(at, std::string::npos) << log;
        const auto end = log.find('\n', at);
        return HostProcess(
            {.program = TestWorkplace::build() / "bin/mfddllwrap",
             .arguments = {workplace().drivers() / "Echo.so", "AXIS1"},
             .environment = {{"MFD_QUEUE_DIR", log.substr(at + name.size(), end - at - name.size())}},
             .files = workplace().directory() / "wrapper"});
    }
};

TEST_F(ByHand, HostSaysWhatToType) {
    HostProcess& host = start(workplace().host({"--no-start-mfds"}));
    const std::string before = "AXIS1: waits for its process, to be started by hand: ";
    ASSERT_TRUE(host.waitForLog(before)) << host.log();
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    const std::string log = host.log();
    const auto at = log.find(before) + before.size();
    const std::string command = log.substr(at, log.find('\n', at) - at);
    HostProcess wrapper({.program = "/bin/sh",
                         .arguments = {"-c", "exec env " + command},
                         .environment = {},
                         .files = workplace().directory() / "wrapper"});
    EXPECT_TRUE(host.waitForLog("AXIS1: process " + std::to_string(wrapper.pid()) +
                                " was started by hand and serves it"))
        << command << host.log() << wrapper.log();
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(wrapper.waitForEnd(), 0);
}

TEST_F(ByHand, ValuesOfAProcessThatIsKilledAreStale) {
    HostProcess& host = start(workplace().host({"--no-start-mfds"}));
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    HostProcess wrapper = startWrapper(host);
    ASSERT_TRUE(host.waitForLog("AXIS1: process " + std::to_string(wrapper.pid()) +
                                " was started by hand and serves it"))
        << host.log() << wrapper.log();
    host.type("drivers");
    host.type("sendFID AXIS1.INT name=N value=7");
    ASSERT_TRUE(host.repliesWith("state AXIS1.*", "AXIS1.N  int   7      AXIS1   [0-9]+ s +yes"))
        << host.output() << host.log();
    EXPECT_TRUE(host.waitForOutput("running (by hand)")) << host.output();
    wrapper.signal(SIGKILL);
    ASSERT_EQ(wrapper.waitForEnd(), 128 + SIGKILL);
    host.type("state AXIS1.*");
    host.type("drivers");
    EXPECT_TRUE(host.waitForOutput("(its process has ended)\n")) << host.output();
    EXPECT_TRUE(host.waitForOutput("waiting for its process")) << host.output();
    EXPECT_TRUE(host.waitForLog("which was started by hand, ended; 1 value is stale\n")) << host.log();

    HostProcess next = startWrapper(host);
    EXPECT_TRUE(host.waitForLog("AXIS1: process " + std::to_string(next.pid()) +
                                " was started by hand and serves it"))
        << host.log() << next.log();
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(next.waitForEnd(), 0);
}
