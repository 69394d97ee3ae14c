// The host as a service manager starts it.

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "DatagramReceiver.h"
#include "SystemTest.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

/// A user without any right of its own.
constexpr unsigned s_user = 65534;

/// What the kernel says of a process under that name; empty when it is gone.
std::string statusOf(pid_t pid, const std::string& name) {
    std::istringstream lines(readFile("/proc/" + std::to_string(pid) + "/status"));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(name + ":\t"))
            return line.substr(name.size() + 2);
    }
    return {};
}

/// As systemd starts a program with User=, AmbientCapabilities= and CapabilityBoundingSet=CAP_NET_ADMIN. In
/// the new process; false when the system refuses.
bool becomeServiceUser() {
    for (int capability = 0; capability <= CAP_LAST_CAP; ++capability) {
        if (capability != CAP_NET_ADMIN)
            ::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0);
    }
    if (::prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0 || ::setgroups(0, nullptr) != 0 || ::setgid(s_user) != 0 ||
        ::setuid(s_user) != 0)
        return false;
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    auto& set = sets.at(CAP_TO_INDEX(CAP_NET_ADMIN));
    set.effective = set.permitted = set.inheritable = CAP_TO_MASK(CAP_NET_ADMIN);
    return ::syscall(SYS_capset, &header, sets.data()) == 0 &&
           ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_ADMIN, 0, 0) == 0 &&
           ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

/// A workplace of an in-process driver and one in a process of its own.
class ServiceTest : public SystemTest {
protected:
    void SetUp() override {
        SystemTest::SetUp();
        if (IsSkipped())
            return;
        giveAdapter();
        workplace().addModule("Recorder");
        workplace().configure(workplace().entry("NEAR", "Recorder", "direct") +
                              workplace().entry("FAR", "Recorder", "queue"));
    }

    /// Starts it with the variables that a service manager sets.
    HostProcess& startService(std::map<std::string, std::string> environment,
                              std::vector<std::string> options = {}) {
        options.push_back("--no-console");
        HostProcess::Start service = workplace().host(options);
        service.environment.merge(environment);
        return start(service);
    }

    /// As a user that has CAP_NET_ADMIN and nothing else.
    void startAsServiceUser(const std::vector<std::string>& options) {
        const std::string user = std::to_string(s_user);
        ASSERT_TRUE(PrivateMachine::shell("chown -R " + user + " /var/data " +
                                          workplace().directory().string() + " && chmod 1777 /dev/shm"));
        HostProcess::Start service = workplace().host(options);
        service.beforeExec = [] {
            if (!becomeServiceUser())
                ::_exit(99);
        };
        start(service);
    }

    std::string socketPath(const std::string& name) { return (workplace().directory() / name).string(); }
};

}  // namespace

TEST_F(ServiceTest, ServiceManagerHearsOfStartReloadAndStop) {
    const DatagramReceiver manager(socketPath("notify"));
    startService({{"NOTIFY_SOCKET", manager.path()}, {"WATCHDOG_USEC", "3000000"}});
    // A driver process is waited for a second.
    EXPECT_TRUE(manager.receiveWith("EXTEND_TIMEOUT_USEC=60000000\nSTATUS=starting: "));
    EXPECT_TRUE(manager.receiveWith("READY=1\n"));
    EXPECT_TRUE(manager.receiveWith("STATUS=2 of 2 drivers run\n"));
    EXPECT_TRUE(manager.receiveWith("WATCHDOG=1\n"));
    host().signal(SIGHUP);
    EXPECT_TRUE(manager.receiveWith("RELOADING=1\nMONOTONIC_USEC="));
    EXPECT_TRUE(manager.receiveWith("READY=1\n"));
    EXPECT_TRUE(host().waitForLog("apply by signal: no changes"));
    host().signal(SIGTERM);
    EXPECT_TRUE(manager.receiveWith("STOPPING=1\n"));
    EXPECT_EQ(host().waitForEnd(), 0);
}

TEST_F(ServiceTest, StatusTellsOfADriverThatHasEnded) {
    const DatagramReceiver manager(socketPath("notify"));
    startService({{"NOTIFY_SOCKET", manager.path()}}, {"--restart-limit", "0"});
    ASSERT_TRUE(manager.receiveWith("STATUS=2 of 2 drivers run\n"));
    ASSERT_EQ(::kill(host().driverProcess("FAR"), SIGKILL), 0);
    EXPECT_TRUE(manager.receiveWith("STATUS=1 of 2 drivers run; not FAR\n"));
}

TEST_F(ServiceTest, WatchdogIsNotFedWhileACallDoesNotComeBack) {
    workplace().addModule("HangsInSendFID");
    workplace().configure(TestWorkplace::entry("STUCK", "HangsInSendFID", "direct"));
    const DatagramReceiver manager(socketPath("notify"));
    HostProcess::Start service = workplace().host({"--call-limit", "1", "--stop-timeout", "1"});
    service.environment = {{"NOTIFY_SOCKET", manager.path()}, {"WATCHDOG_USEC", "300000"}};
    start(service);
    ASSERT_TRUE(manager.receiveWith("READY=1\n"));
    ASSERT_TRUE(manager.receiveWith("WATCHDOG=1\n"));
    host().type("sendFID STUCK.GO");
    ASSERT_TRUE(
        host().waitForLog("critical HOST: STUCK: sendFID(GO) has held up the host for 1 s; its service "
                          "manager is left to end it"));
    while (manager.receive(0ms))
        continue;
    for (auto datagram = manager.receive(2s); datagram; datagram = manager.receive(2s))
        EXPECT_THAT(*datagram, Not(HasSubstr("WATCHDOG=1")));
}

TEST_F(ServiceTest, JournalGetsDriverAndOutput) {
    // Nobody else's journal hears of it: this machine is the test's own.
    ASSERT_TRUE(PrivateMachine::shell("mount -t tmpfs tmpfs /run && mkdir -p /run/systemd/journal"));
    const DatagramReceiver journal("/run/systemd/journal/socket");
    HostProcess::Start service = workplace().host({"--no-console", "--start-wait=attached"});
    service.beforeExec = [] {
        struct stat status {};
        ::fstat(STDERR_FILENO, &status);
        ::setenv("JOURNAL_STREAM",
                 (std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)).c_str(), 1);
    };
    start(service);
    const auto started = journal.receiveWith("the workplace is started");
    ASSERT_TRUE(started);
    EXPECT_THAT(*started, HasSubstr("PRIORITY=6\nSYSLOG_IDENTIFIER=mfhost\nMF_OUTPUT=HOST\n"));
    EXPECT_THAT(*started, Not(HasSubstr("MF_DRIVER")));
    ASSERT_EQ(::kill(host().driverProcess("FAR"), SIGKILL), 0);
    const auto ended = journal.receiveWith("ended unexpectedly");
    ASSERT_TRUE(ended);
    EXPECT_THAT(*ended, HasSubstr("MESSAGE=HOST: FAR: process "));
    EXPECT_THAT(*ended, HasSubstr("PRIORITY=3\nSYSLOG_IDENTIFIER=mfhost\nMF_OUTPUT=HOST\nMF_DRIVER=FAR\n"));
    EXPECT_EQ(host().log(), "") << "nothing comes twice";
}

TEST_F(ServiceTest, DriverProcessesHaveNoCapability) {
    startAsServiceUser({"--no-console", "--start-wait=attached"});
    ASSERT_TRUE(host().waitForLog("the workplace is started"));
    EXPECT_EQ(statusOf(host().pid(), "CapEff"), "0000000000001000") << "CAP_NET_ADMIN";
    EXPECT_EQ(statusOf(host().pid(), "CapAmb"), "0000000000000000");
    const pid_t driver = host().driverProcess("FAR");
    ASSERT_GT(driver, 0);
    for (const char* set : {"CapEff", "CapPrm", "CapAmb"})
        EXPECT_EQ(statusOf(driver, set), "0000000000000000") << set;
}

TEST_F(ServiceTest, HostsOwnStackIsReadThoughItHasACapability) {
    if (!fs::exists("/usr/bin/eu-stack"))
        GTEST_SKIP() << "eu-stack is not installed";
    workplace().addModule("HangsInSendFID");
    workplace().configure(TestWorkplace::entry("STUCK", "HangsInSendFID", "direct"));
    startAsServiceUser({});
    ASSERT_TRUE(host().waitForLog("the workplace is started"));
    host().type("sendFID STUCK.GO");
    ASSERT_TRUE(host().waitForLog("STUCK: sendFID(GO) has not come back for "));
    EXPECT_TRUE(host().waitForLog("pause")) << "where it is";
}

TEST_F(ServiceTest, WorkingDirectoryIsOneHosts) {
    start();
    ASSERT_TRUE(host().waitForLog("the workplace is started"));
    // On a machine of its own, so that nothing but the working directory is the same.
    const fs::path files = workplace().directory() / "second";
    fs::create_directory(files);
    HostProcess::Start second = workplace().host({"--sandbox", "--no-console"});
    second.files = files;
    HostProcess other(second);
    EXPECT_EQ(other.waitForEnd(), 1);
    EXPECT_THAT(
        other.log(),
        HasSubstr("critical HOST: another host runs with " + workplace().workdir().string() + " (process " +
                  std::to_string(host().pid()) + "); name another working directory with --workdir\n"));
    EXPECT_EQ(end(), 0);
}

TEST_F(ServiceTest, TwoWorkplacesRunSideBySide) {
    start();
    ASSERT_TRUE(host().waitForLog("the workplace is started"));
    TestWorkplace beside;
    beside.addModule("Recorder");
    beside.configure(TestWorkplace::entry("FAR", "Recorder", "queue"));
    HostProcess other(beside.host({"--sandbox"}));
    ASSERT_TRUE(other.waitForLog("the workplace is started"));
    EXPECT_TRUE(other.repliesWith("drivers", "FAR .*running"));
    EXPECT_TRUE(host().repliesWith("drivers", "FAR .*running"));
    other.closeInput();
    EXPECT_EQ(other.waitForEnd(), 0);
    EXPECT_TRUE(host().repliesWith("drivers", "FAR .*running")) << "the other's end is not its own";
    EXPECT_EQ(end(), 0);
}
