#include <signal.h>
#include <sys/syscall.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "FileWatch.h"
#include "SyscallFailer.h"
#include "SystemTest.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

// What was checked and verified is what runs: whoever puts another file in the place of the workplace file
// while the host looks at it comes too late.
class ReadOnce : public SystemTest {
protected:
    void prepare() override {
        if (const std::string reason = SyscallFailer::unavailable(); !reason.empty())
            GTEST_SKIP() << reason;
        giveAdapter();
        for (const char* module : {"Echo", "Recorder"})
            workplace().addModule(module);
        ASSERT_EQ(0, mfctl("keygen " + key()));
        fs::create_directory(trust());
        fs::copy_file(key() + ".pem", trust() / "site.pem");
    }

    std::string file() { return workplace().configuration(); }
    std::string key() { return workplace().directory() / "site"; }
    fs::path trust() { return workplace().directory() / "trust"; }
    static int mfctl(const std::string& arguments) {
        return std::system(
            (TestWorkplace::build().string() + "/bin/mfctl " + arguments + " >/dev/null").c_str());
    }

    /// The signed file: one driver, an Echo.
    void sign() {
        workplace().configure(TestWorkplace::entry("D", "Echo", "queue"));
        ASSERT_EQ(0, mfctl("sign --key " + key() + ".key " + file()));
    }
    /// The same driver in an unsigned file: a Recorder.
    std::string unsignedText() {
        sign();
        const std::string text = readFile(file());
        return std::string(text).replace(text.find("\"Echo\""), 6, "\"Recorder\"");
    }
    /// Once the host has opened the file of this name, and just before it opens the next one, a file with
    /// this text takes the workplace file's place.
    HostProcess& startSwapped(const std::string& name, const std::string& text,
                              const std::vector<std::string>& options = {}, bool isAtOnce = true) {
        sign();
        m_other = file() + ".other";
        writeFile(m_other, text);
        m_last = workplace().directory() / name;
        m_isArmed = isAtOnce;
        m_isOpened = m_isSwapped = false;
        m_pAttendant = std::make_unique<SyscallFailer>(SyscallFailer::Plan{
            .calls = {SYS_openat}, .number = -1, .beforeOpen = [this](const std::string& path) {
                if (m_isOpened && !m_isSwapped) {
                    fs::rename(m_other, file());
                    m_isSwapped = true;
                }
                if (m_isArmed && path == m_last)
                    m_isOpened = true;
            }});
        HostProcess::Start call = workplace().host(required());
        call.arguments.insert(call.arguments.end(), options.begin(), options.end());
        call.beforeExec = [this] { m_pAttendant->enter(); };
        HostProcess& host = start(call);
        m_pAttendant->attend(host.pid());
        return host;
    }
    /// The same for a host that runs by then.
    HostProcess& startAndArm(const std::vector<std::string>& options = {}) {
        HostProcess& host = startSwapped("workplace.xml.sig", unsignedText(), options, false);
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
        m_isArmed = true;
        return host;
    }
    static void killDriver(const HostProcess& host) {
        const pid_t pid = host.driverProcess("D");
        ASSERT_NE(pid, 0);
        ::kill(pid, SIGKILL);
    }
    /// The recorder's thread would open files of its own in between.
    std::vector<std::string> required() {
        return {"--trust", trust(), "--require-signature", "--record-off"};
    }
    std::string loading(const std::string& type) {
        return "Loading MF driver " + (workplace().drivers() / (type + ".so")).string() + " (ID: D)...";
    }

    std::string m_other;
    std::string m_last;
    std::atomic<bool> m_isArmed = false;
    std::atomic<bool> m_isOpened = false;
    std::atomic<bool> m_isSwapped = false;
    std::unique_ptr<SyscallFailer> m_pAttendant;
};

TEST_F(ReadOnce, FileSwappedWhenItsSignatureWasReadIsNotStarted) {
    HostProcess& host = startSwapped("workplace.xml.sig", unsignedText());
    EXPECT_EQ(end(), 0) << host.log();
    ASSERT_TRUE(m_isSwapped);
    EXPECT_THAT(host.output(), HasSubstr(loading("Echo")));
    EXPECT_THAT(host.output(), Not(HasSubstr(loading("Recorder"))));
    EXPECT_THAT(host.log(), Not(HasSubstr("signature")));
}

TEST_F(ReadOnce, FileSwappedWhenItWasReadIsNotStarted) {
    HostProcess& host = startSwapped("workplace.xml", unsignedText());
    EXPECT_EQ(end(), 0) << host.log();
    ASSERT_TRUE(m_isSwapped);
    EXPECT_THAT(host.output(), HasSubstr(loading("Echo")));
    EXPECT_THAT(host.output(), Not(HasSubstr(loading("Recorder"))));
}

TEST_F(ReadOnce, FileSwappedWhenItsSignatureWasReadIsNotReloaded) {
    HostProcess& host = startAndArm();
    host.type("reloadDriver D");
    EXPECT_EQ(end(), 0) << host.log();
    ASSERT_TRUE(m_isSwapped);
    const std::string output = host.output();
    EXPECT_NE(output.find(loading("Echo")), output.rfind(loading("Echo"))) << output;
    EXPECT_THAT(output, Not(HasSubstr(loading("Recorder"))));
}

TEST_F(ReadOnce, FileSwappedWhenItsSignatureWasReadIsNotStartedAgain) {
    HostProcess& host = startAndArm({"--restart-delay", "0.1"});
    killDriver(host);
    ASSERT_TRUE(host.waitForLog("HOST: D: is started again\n")) << host.log();
    EXPECT_TRUE(m_isSwapped);
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), Not(HasSubstr(loading("Recorder"))));
}

TEST_F(ReadOnce, FileSwappedDuringACheckIsNotTheOneOfTheReport) {
    HostProcess& host = startSwapped("workplace.xml.sig", "<desk/>", {"--check"});
    EXPECT_EQ(end(), 0);
    ASSERT_TRUE(m_isSwapped);
    EXPECT_EQ(host.output(), file() + ": 0 errors, 0 warnings\n");
}

TEST_F(ReadOnce, EachDecisionOpensFileAndSignatureOnce) {
    sign();
    FileWatch watch(workplace().directory());
    const auto expectOneOpening = [&](const char* decision) {
        EXPECT_EQ(1, watch.opened("workplace.xml")) << decision;
        EXPECT_EQ(1, watch.opened("workplace.xml.sig")) << decision;
    };
    std::vector<std::string> options = required();
    options.insert(options.end(), {"--restart-delay", "0.1"});
    HostProcess& host = start(options);
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
    expectOneOpening("start");

    host.type("reloadDriver D");
    host.type("state AFTER");
    ASSERT_TRUE(host.waitForOutput("no state value matches AFTER\n"));
    expectOneOpening("reload");

    killDriver(host);
    ASSERT_TRUE(host.waitForLog("HOST: D: is started again\n")) << host.log();
    expectOneOpening("restart");

    host.type("drivers");
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(0, watch.opened("workplace.xml"));

    options = required();
    options.push_back("--check");
    start(options);
    EXPECT_EQ(end(), 0);
    expectOneOpening("check");
}

TEST_F(ReadOnce, FileThatDoesNotFitItsSignatureIsOpenedOnceAsWell) {
    sign();
    writeFile(file(), readFile(file()) + "\n");
    FileWatch watch(workplace().directory());
    HostProcess& host = start(required());
    EXPECT_EQ(end(), 1);
    EXPECT_THAT(host.log(),
                HasSubstr(file() +
                          " is not signed by a trusted key, and --require-signature asks for it: the "
                          "file is not the one that was signed: it was changed or swapped after " +
                          file() + ".sig was made; the workplace is not started\n"));
    EXPECT_EQ(1, watch.opened("workplace.xml"));
    EXPECT_EQ(1, watch.opened("workplace.xml.sig"));
}

TEST_F(ReadOnce, CopyIsNamedOnceBesideTheFile) {
    workplace().configure(TestWorkplace::entry("D", "Echo", "direct"));
    HostProcess& host = start();
    host.type("reloadDriver D");
    EXPECT_EQ(end(), 0);
    const std::string log = host.log();
    const std::string line = "HOST: what was checked of " + file() + " is loaded from /proc/self/fd/";
    const auto at = log.find(line);
    ASSERT_NE(at, std::string::npos) << log;
    EXPECT_EQ(log.rfind(line), at);
    const std::string number = log.substr(at + line.size(), log.find('\n', at) - at - line.size());
    EXPECT_THAT(log, HasSubstr("VERIFY: " + file() + ": it is not signed, there is no " + file() + ".sig\n"));
    EXPECT_THAT(log, HasSubstr("MDM: \"/proc/self/fd/" + number + "\" has invalid signature\n"));
}
