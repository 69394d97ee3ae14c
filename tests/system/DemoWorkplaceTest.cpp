#include <signal.h>

#include <chrono>
#include <filesystem>

#include "SystemTest.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

// The demo workplace as a user starts it: in the host's own sandbox, with lines typed into it. PANEL and
// LOCAL run in the host's process, SYS in one of its own.
class DemoWorkplace : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string fault = m_workplace.sandboxFault(); !fault.empty())
            GTEST_SKIP() << fault;
    }

    HostProcess& start(const std::vector<std::string>& options = {}) {
        HostProcess::Start call;
        const fs::path build = TestWorkplace::build();
        call.program = build / "bin/mfhost";
        call.arguments = {"--no-control",
                          "--sandbox",
                          "--drivers",
                          build / "lib/mfdrivers",
                          "--config",
                          m_configuration,
                          "--trust",
                          build / "workplace/trust",
                          "--workdir",
                          m_workplace.workdir(),
                          "--follow",
                          "--log-level",
                          "5"};
        call.arguments.insert(call.arguments.end(), options.begin(), options.end());
        call.files = m_workplace.directory();
        m_pHost.reset();
        m_pHost = std::make_unique<HostProcess>(call);
        return *m_pHost;
    }

    /// The demo's configuration where a test may change it.
    void useOwnConfiguration() {
        m_configuration = m_workplace.configuration();
        fs::copy_file(TestWorkplace::build() / "workplace/demo.xml", m_configuration);
    }

    std::optional<int> end() {
        m_pHost->closeInput();
        return m_pHost->waitForEnd();
    }

    /// Waits until the value has been shown as that.
    bool waitForState(const std::string& key, const std::string& value) {
        return m_pHost->waitForOutput("\n" + key + " = " + value + "\n");
    }

    /// The same, but only what came behind the last time that earlier was shown counts.
    bool waitForStateAfter(const std::string& earlier, const std::string& line) {
        return m_pHost->waitForOutputAfter(earlier, line);
    }

    /// Waits until both system monitors have reported: they run, and FIDs reach them.
    void waitUntilRunning() {
        ASSERT_TRUE(m_pHost->waitForOutput("\nSYS.LOAD = ")) << m_pHost->output() << m_pHost->log();
        ASSERT_TRUE(m_pHost->waitForOutput("\nLOCAL.LOAD = ")) << m_pHost->output() << m_pHost->log();
    }

    const TestWorkplace& workplace() const { return m_workplace; }

private:
    TestWorkplace m_workplace;
    fs::path m_configuration = TestWorkplace::build() / "workplace/demo.xml";
    std::unique_ptr<HostProcess> m_pHost;
};

TEST_F(DemoWorkplace, PipedLinesRunInOrderAndTheHostEndsCleanly) {
    HostProcess& host = start();
    for (const char* line : {"drivers", "sendFID SYS.REPORT", "state SYS.*", "reloadDriver SYS", "quit"})
        host.type(line);
    host.closeInput();
    EXPECT_EQ(host.waitForEnd(), 0) << host.log();
    const std::string output = host.output();
    EXPECT_THAT(output, HasSubstr("(ID: PANEL)...OK\n"));
    // Values may come in between.
    EXPECT_THAT(output, HasSubstr("m_driverID=SYS\n"));
    EXPECT_THAT(output, HasSubstr("\nOK\n"));
    EXPECT_THAT(output, HasSubstr("(ID: LOCAL)...OK\n"));
    EXPECT_TRUE(host.waitForLog("MDM: SYS.REPORT ( ) received.")) << host.log();
    // The reload and the end each deinitialise SYS.
    const auto first = output.find("Deinitializing MF driver ID: SYS...OK\n");
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(output.find("Deinitializing MF driver ID: SYS...OK\n", first + 1), std::string::npos);
}

TEST_F(DemoWorkplace, FidGoesFromTheHostsProcessToADriverInItsOwn) {
    HostProcess& host = start();
    waitUntilRunning();
    host.type("sendFID LOCAL.FORWARD fid=SYS.MARK text=over");
    EXPECT_TRUE(waitForState("SYS.MARK", "over")) << host.output() << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(DemoWorkplace, FidGoesFromADriverInItsOwnProcessToOneInTheHosts) {
    HostProcess& host = start();
    waitUntilRunning();
    host.type("sendFID SYS.FORWARD fid=LOCAL.MARK text=back");
    EXPECT_TRUE(waitForState("LOCAL.MARK", "back")) << host.output() << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(DemoWorkplace, WhatADriverProcessSaysOfItselfNamesIt) {
    HostProcess& host = start();
    waitUntilRunning();
    host.type("modules");
    EXPECT_TRUE(host.waitForOutput("\nSYS: load ")) << host.output();
    EXPECT_EQ(end(), 0);
}

TEST_F(DemoWorkplace, HighLoadRaisesAnAlarmAtThePanel) {
    HostProcess& host = start();
    waitUntilRunning();
    host.type("sendFID SYS.THRESHOLD load=0.001");
    // Any load at all is above this one, and while the test waits without a pause there is some.
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    const auto alarmed = [&] { return host.output().find("event PANEL.ALARM ") != std::string::npos; };
    while (!alarmed() && std::chrono::steady_clock::now() < patience) {
    }
    if (!alarmed() && readFile("/proc/loadavg").rfind("0.00 ", 0) == 0)
        GTEST_SKIP() << "needs a machine that shows its load in /proc/loadavg";
    EXPECT_TRUE(host.waitForOutput("event PANEL.ALARM SYS: load ")) << host.output();
    EXPECT_TRUE(host.waitForOutput("event SYS.LOADHIGH "));
    EXPECT_EQ(end(), 0);
}

TEST_F(DemoWorkplace, MacroPlaysTheFidsThatWereRecorded) {
    HostProcess& host = start();
    waitUntilRunning();
    host.type("sendFID PANEL.MACRO.RECORD name=m1");
    ASSERT_TRUE(waitForState("PANEL.MACRO.STATE", "recording")) << host.output();
    host.type("sendFID SYS.MARK text=one");
    ASSERT_TRUE(waitForState("SYS.MARK", "one"));
    host.type("sendFID PANEL.MACRO.STOP");
    ASSERT_TRUE(waitForState("PANEL.MACRO.NAMES", "m1")) << host.output();
    host.type("sendFID SYS.MARK text=two");
    ASSERT_TRUE(waitForState("SYS.MARK", "two"));
    host.type("sendFID PANEL.MACRO.PLAY name=m1");
    EXPECT_TRUE(waitForStateAfter("SYS.MARK = two\n", "SYS.MARK = one\n")) << host.output();
    EXPECT_EQ(end(), 0);
}

TEST_F(DemoWorkplace, MacroIsKeptOverARestart) {
    HostProcess& first = start();
    waitUntilRunning();
    first.type("sendFID PANEL.MACRO.RECORD name=kept");
    first.type("sendFID LOCAL.MARK text=kept");
    first.type("sendFID PANEL.MACRO.STOP");
    ASSERT_TRUE(waitForState("PANEL.MACRO.NAMES", "kept")) << first.output();
    ASSERT_EQ(end(), 0);
    HostProcess& second = start();
    waitUntilRunning();
    second.type("sendFID PANEL.MACRO.PLAY name=kept");
    EXPECT_TRUE(waitForState("LOCAL.MARK", "kept")) << second.output() << second.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(DemoWorkplace, ReloadOfADriverInItsOwnProcessGivesItANewOne) {
    HostProcess& host = start();
    waitUntilRunning();
    const pid_t old = host.driverProcess("SYS");
    ASSERT_NE(old, 0);
    host.type("reloadDriver SYS");
    host.type("sendFID SYS.MARK text=again");
    EXPECT_TRUE(waitForState("SYS.MARK", "again")) << host.output() << host.log();
    EXPECT_TRUE(endsWithin(old, 0));
    EXPECT_NE(host.driverProcess("SYS"), old);
    EXPECT_EQ(end(), 0);
}

TEST_F(DemoWorkplace, ReloadOfADriverInTheHostsProcessStartsItAfresh) {
    HostProcess& host = start();
    waitUntilRunning();
    host.type("sendFID LOCAL.INTERVAL ms=777");
    ASSERT_TRUE(waitForState("LOCAL.INTERVAL", "777"));
    host.type("reloadDriver LOCAL");
    EXPECT_TRUE(host.waitForOutput("Deinitializing MF driver ID: LOCAL...OK\n"));
    EXPECT_TRUE(waitForStateAfter("LOCAL.INTERVAL = 777\n", "LOCAL.INTERVAL = 1000\n")) << host.output();
    EXPECT_EQ(end(), 0);
}

TEST_F(DemoWorkplace, ReloadOfThePanelKeepsMacrosWorking) {
    useOwnConfiguration();
    HostProcess& host = start();
    waitUntilRunning();
    // The panel starts without an entry of its own; for a reload it needs one.
    std::string text = readFile(workplace().configuration());
    text.insert(text.find("<mainframeDriver"), TestWorkplace::entry("PANEL", "Panel", "direct"));
    writeFile(workplace().configuration(), text);
    host.type("reloadDriver PANEL");
    ASSERT_TRUE(host.waitForOutput("Deinitializing MF driver ID: PANEL...OK\n")) << host.output();
    host.type("sendFID PANEL.MACRO.RECORD name=after");
    host.type("sendFID LOCAL.MARK text=recorded");
    host.type("sendFID PANEL.MACRO.STOP");
    ASSERT_TRUE(waitForState("PANEL.MACRO.NAMES", "after")) << host.output() << host.log();
    host.type("sendFID LOCAL.MARK text=other");
    ASSERT_TRUE(waitForState("LOCAL.MARK", "other"));
    host.type("sendFID PANEL.MACRO.PLAY name=after");
    EXPECT_TRUE(waitForStateAfter("LOCAL.MARK = other\n", "LOCAL.MARK = recorded\n")) << host.output();
    EXPECT_EQ(end(), 0);
}

TEST_F(DemoWorkplace, KilledDriverProcessLeavesItsValuesStaleAndCanBeReloaded) {
    HostProcess& host = start();
    waitUntilRunning();
    const pid_t driver = host.driverProcess("SYS");
    ASSERT_NE(driver, 0);
    ::kill(driver, SIGKILL);
    EXPECT_TRUE(host.waitForOutput("values stale: ")) << host.output() << host.log();
    host.type("reloadDriver SYS");
    host.type("sendFID SYS.MARK text=revived");
    EXPECT_TRUE(waitForState("SYS.MARK", "revived")) << host.output() << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(DemoWorkplace, SandboxTouchesNothingOfTheMachine) {
    const auto entries = [] {
        std::string names;
        std::error_code none;
        for (const auto& entry : fs::directory_iterator("/var/data", none))
            names += entry.path().filename().string() + "\n";
        return names;
    };
    const bool existed = fs::exists("/var/data");
    const std::string before = entries();
    const std::string addresses = PrivateMachine::addresses("eth0");
    start();
    waitUntilRunning();
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(fs::exists("/var/data"), existed);
    EXPECT_EQ(entries(), before);
    EXPECT_EQ(PrivateMachine::addresses("eth0"), addresses);
}

TEST_F(DemoWorkplace, SignedConfigurationIsAcceptedWhereASignatureIsRequired) {
    HostProcess& host = start({"--require-signature"});
    waitUntilRunning();
    EXPECT_EQ(end(), 0) << host.log();
}

TEST_F(DemoWorkplace, ChangedConfigurationIsRefusedWhereASignatureIsRequired) {
    useOwnConfiguration();
    fs::copy_file(TestWorkplace::build() / "workplace/demo.xml.sig",
                  workplace().configuration().string() + ".sig");
    writeFile(workplace().configuration(), readFile(workplace().configuration()) + "<!-- changed -->\n");
    HostProcess& host = start({"--require-signature"});
    EXPECT_EQ(host.waitForEnd(), 1);
    EXPECT_TRUE(host.waitForLog(workplace().configuration().string())) << host.log();
    EXPECT_EQ(host.output().find("Loading MF driver"), std::string::npos) << host.output();
}
