#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "SystemTest.h"
#include "Terminal.h"
#include "UniqueFd.h"

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

// What driver processes log and write to standard error, on its way through the host.
class DriverErrorsOfAHost : public SystemTest {
protected:
    void SetUp() override {
        SystemTest::SetUp();
        if (IsSkipped())
            return;
        giveAdapter();
        workplace().addModule("Talks");
        workplace().configure(TestWorkplace::entry("T", "Talks", "queue") +
                              TestWorkplace::entry("OTHER", "Talks", "queue"));
    }

    HostProcess& startAndWait(const std::vector<std::string>& options = {}) {
        HostProcess& host = start(options);
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
        EXPECT_TRUE(host.waitForLog("T MFD: Runs ")) << host.log();
        return host;
    }
    static void expectServes(HostProcess& host, const std::string& driverID) {
        static int s_number = 0;
        const std::string value = "answer" + std::to_string(++s_number);
        host.type("sendFID " + driverID + ".PING value=" + value);
        EXPECT_TRUE(host.repliesWith("state " + driverID + ".PONG", value)) << host.output() << host.log();
    }
    /// How much is in the pipe that is the driver's standard error; -1 where it is none.
    static int unread(pid_t driver) {
        const base::UniqueFd pipe(
            ::open(("/proc/" + std::to_string(driver) + "/fd/2").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        int count = -1;
        return ::ioctl(pipe.get(), FIONREAD, &count) == 0 ? count : -1;
    }
    static constexpr const char* time = "[0-9-]{10} [0-9:]{8}[.][0-9]{3} ";
};

TEST_F(DriverErrorsOfAHost, LogOfADriverProcessIsInTheHostsLogAsItWasLogged) {
    const std::string file = workplace().directory() / "host.log";
    HostProcess& host = startAndWait({"--log-file", file});
    host.type("sendFID T.LOG value=one");
    EXPECT_TRUE(host.waitForLog("error    T: one\n")) << host.log();
    EXPECT_EQ(end(), 0);
    for (const std::string& text : {host.log(), readFile(file)}) {
        EXPECT_THAT(text, ContainsRegex(std::string("(^|\n)") + time + "info     T MFD: Runs "));
        EXPECT_THAT(text, ContainsRegex(std::string("\n") + time + "error    T: one\n"));
    }
}

TEST_F(DriverErrorsOfAHost, BareLineGetsTheDriverIDAndALevel) {
    HostProcess& host = startAndWait();
    host.type("sendFID T.SAY value=\"out of paper\"");
    EXPECT_TRUE(host.waitForLog("warning  T: out of paper\n")) << host.log();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), Not(HasSubstr("\nout of paper")));
}

TEST_F(DriverErrorsOfAHost, OrderOfADriverIsKept) {
    HostProcess& host = startAndWait();
    for (int i = 0; i < 20; ++i) {
        host.type("sendFID T.SAY value=bare" + std::to_string(i));
        host.type("sendFID T.HALF value=half" + std::to_string(i));
        host.type("sendFID T.SAY value=rest" + std::to_string(i));
    }
    EXPECT_TRUE(host.waitForLog("half19rest19\n"));
    EXPECT_EQ(end(), 0);
    const std::string log = host.log();
    std::size_t at = 0;
    for (int i = 0; i < 20 && at != std::string::npos; ++i) {
        at = log.find("T: bare" + std::to_string(i) + "\n", at);
        at = at == std::string::npos
                 ? at
                 : log.find("T: half" + std::to_string(i) + "rest" + std::to_string(i) + "\n", at);
    }
    EXPECT_NE(at, std::string::npos) << log;
}

TEST_F(DriverErrorsOfAHost, LastWordsAreThereBeforeTheEndIsTold) {
    HostProcess& host = startAndWait();
    host.type("sendFID T.HALF value=unfinished");
    host.type("sendFID T.DIE");
    ASSERT_TRUE(host.waitForLog("ended unexpectedly: signal 6 (Aborted)")) << host.log();
    const std::string log = host.log();
    const auto begin =
        log.find("T: unfinishedterminate called after throwing an instance of 'std::runtime_error'\n");
    const auto what = log.find("T:   what():  no device\n");
    const auto told = log.find("HOST: T: process ");
    EXPECT_LT(begin, what) << log;
    EXPECT_LT(what, told) << log;
    EXPECT_NE(told, std::string::npos);
    EXPECT_TRUE(host.repliesWith("log T", "^last words of the process that ended last:$"));
    EXPECT_TRUE(host.repliesWith("log T", "^      what[(][)]:  no device$"));
    EXPECT_TRUE(host.repliesWith("log T", "error    HOST: T: process [0-9]+ ended unexpectedly: signal 6"));
    EXPECT_THAT(host.output(), Not(HasSubstr("OTHER MFD")));
    EXPECT_EQ(end(), 0);
}

TEST_F(DriverErrorsOfAHost, FloodIsBoundedAndCounted) {
    HostProcess& host = startAndWait();
    host.type("sendFID T.FLOOD value=20000");
    host.type("sendFID T.SAY value=after");
    ASSERT_TRUE(
        host.waitForLog(" of its log and standard error are left out here: more than 2000 in a second\n"));
    expectServes(host, "T");
    expectServes(host, "OTHER");
    EXPECT_EQ(end(), 0);
    const std::string log = host.log();
    const auto sum = [&log](const std::string& pattern) {
        std::size_t total = 0;
        const std::regex expression(pattern);
        for (std::sregex_iterator i(log.begin(), log.end(), expression); i != std::sregex_iterator(); ++i)
            total += i->size() > 1 ? std::stoul((*i)[1]) : 1;
        return total;
    };
    const std::size_t leftOut = sum("HOST: T: ([0-9]+) lines? of its log and standard error");
    // The line after the flood may be among those, and so may the log of the end.
    EXPECT_GE(leftOut + sum("warning  T: [0-9]+[.]"), 20000u);
    EXPECT_LE(leftOut + sum("warning  T: [0-9]+[.]"), 20005u);
}

TEST_F(DriverErrorsOfAHost, DriverIsNotHeldUpByALogThatIsStuck) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    HostProcess::Start start = workplace().host();
    // Nobody reads the log.
    start.beforeExec = [&] {
        ::dup2(ends[1], STDERR_FILENO);
        ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
        const std::string filling(65536, 'x');
        while (::write(ends[1], filling.data(), filling.size()) > 0) {
        }
        ::fcntl(ends[1], F_SETFL, 0);
    };
    HostProcess& host = this->start(start);
    host.type("sendFID T.FLOOD value=20000");
    expectServes(host, "T");
    EXPECT_EQ(end(), 0);
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(DriverErrorsOfAHost, DriverOfAKilledHostSaysItsLastLinesWhereTheHostDid) {
    HostProcess& host = startAndWait();
    const pid_t driver = host.driverProcess("T");
    ASSERT_NE(driver, 0);
    host.signal(SIGKILL);
    EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    EXPECT_TRUE(host.waitForLog("info     T MFD: The host has let go of the queues: stops the driver\n"))
        << host.log();
    EXPECT_TRUE(endsInTime(driver));
    EXPECT_THAT(host.log(), ContainsRegex(std::string("\n") + time + "info     T MFD: The host has"));
}

TEST_F(DriverErrorsOfAHost, DriverOfAHostKilledAtATerminalSaysItsLastLinesThere) {
    const HostProcess::Start call = workplace().host();
    Terminal terminal([&] {
        // As under a shell, which has the session: its end would take the terminal along.
        if (::fork() == 0)
            becomeProgram(call);
        for (;;)
            ::pause();
    });
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    const auto hosts = childrenOf(terminal.pid());
    ASSERT_EQ(hosts.size(), 1u);
    const pid_t driver = driverProcess(hosts[0], "T");
    ASSERT_NE(driver, 0);
    ::kill(hosts[0], SIGKILL);
    EXPECT_TRUE(terminal.shows("T MFD: The host has let go of the queues: stops the driver\r\n"))
        << terminal.screen();
    EXPECT_TRUE(endsInTime(driver));
}

TEST_F(DriverErrorsOfAHost, WhatAKilledHostHasNotReadIsNotLost) {
    HostProcess& host = startAndWait();
    const pid_t driver = host.driverProcess("T");
    ASSERT_NE(driver, 0);
    const std::string sign = workplace().directory() / "sign";
    host.type("sendFID T.LATER value=" + sign);
    // It is in the driver's hands, and the pipe is empty, when the next command is done.
    ASSERT_TRUE(host.repliesWith("queues", "^T_INQ +0 ")) << host.output();
    host.signal(SIGSTOP);
    ASSERT_TRUE(eventually([&] { return isStopped(host.pid()); }));
    const int before = unread(driver);
    std::ofstream{sign};
    ASSERT_TRUE(eventually([&] { return unread(driver) > before + 30; }));
    host.signal(SIGKILL);
    EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
    EXPECT_TRUE(endsInTime(driver));
    EXPECT_THAT(host.log(), ContainsRegex(std::string("\n") + time + "warning  T: a bare one\n"));
    EXPECT_THAT(host.log(), ContainsRegex(std::string("\n") + time + "error    T: a logged one\n"));
}

TEST_F(DriverErrorsOfAHost, DriverOfAKilledHostDoesNotDieOfAPipeThatNobodyReads) {
    HostProcess& host = startAndWait();
    const std::string status = readFile("/proc/" + std::to_string(host.driverProcess("T")) + "/status");
    std::smatch ignored;
    ASSERT_TRUE(std::regex_search(status, ignored, std::regex("\nSigIgn:\t([0-9a-f]+)\n"))) << status;
    EXPECT_TRUE(std::stoull(ignored[1], nullptr, 16) & (1ull << (SIGPIPE - 1))) << status;
    EXPECT_EQ(end(), 0);
}

TEST_F(DriverErrorsOfAHost, ModuleThatCannotBeLoadedIsTheCauseOfItsProcess) {
    workplace().addModule("NoFactory");
    workplace().configure(TestWorkplace::entry("T", "NoFactory", "queue"));
    HostProcess& host = start({"--restart-delay", "60"});
    const std::string cause =
        "exit code 1, cannot be loaded: MFD_DRIVER is missing in it (undefined symbol: mfdDriverAbi)";
    ASSERT_TRUE(host.waitForLog(" ended unexpectedly: " + cause + "; it is started again in ")) << host.log();
    EXPECT_THAT(host.listed("T"), HasSubstr(cause));
    EXPECT_EQ(end(), 0);
}

TEST_F(DriverErrorsOfAHost, ProcessHasNothingOpenOfTheHostsBesideItsFormerStandardError) {
    HostProcess& host = startAndWait();
    const fs::path place = "/proc/" + std::to_string(host.driverProcess("T")) + "/fd";
    EXPECT_THAT(fs::read_symlink(place / "2").string(), testing::StartsWith("pipe:"));
    EXPECT_EQ(workplace().directory() / "log.txt", fs::read_symlink(place / "3"));
    EXPECT_EQ(workplace().directory() / "output.txt", fs::read_symlink(place / "1"));
    EXPECT_EQ(end(), 0);
}
