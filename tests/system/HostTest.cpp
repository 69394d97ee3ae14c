#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <utility>

#include "HostProcess.h"
#include "RefusedCalls.h"
#include "Terminal.h"
#include "TerminalScreen.h"
#include "TestWorkplace.h"

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

/// Of a terminal with 80 columns.
std::string lastRow(const std::string& written) {
    const auto rows = TerminalScreen(80, written).rows();
    return rows.empty() ? std::string() : rows.back();
}

/// Which one it is, whatever its name; nothing where there is none.
std::optional<std::pair<dev_t, ino_t>> fileAt(const fs::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return std::pair(status.st_dev, status.st_ino);
}

/// The value that a driver E was told to set, as "state" shows it.
constexpr const char* s_live = "E.N  int   7      E       [0-9]+ s +yes";

/// The host as a program, in its sandbox, with drivers of one behaviour each.
class HostTest : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string fault = m_workplace.sandboxFault(); !fault.empty())
            GTEST_SKIP() << fault;
        m_workplace.addModule("Echo");
    }

    /// Adds a driver of the module's type under its ID.
    void addDriver(const std::string& driverID, const std::string& module, const std::string& interfaceType) {
        if (!fs::exists(m_workplace.drivers() / (module + ".so")))
            m_workplace.addModule(module);
        m_entries += TestWorkplace::entry(driverID, module, interfaceType);
    }
    HostProcess::Start call(const std::vector<std::string>& options = {}) {
        m_workplace.configure(m_entries);
        HostProcess::Start call = m_workplace.host(options);
        call.arguments.insert(call.arguments.begin(), "--sandbox");
        // An enforced end leaves threads behind on purpose.
        call.environment["TSAN_OPTIONS"] = "report_thread_leaks=0";
        call.environment["MFD_QUEUE_DIR"] = "/dev/shm/queues";
        call.environment["MFD_TEST_RECORD"] = record();
        return call;
    }
    HostProcess& startCall(const HostProcess::Start& call) {
        m_pHost = std::make_unique<HostProcess>(call);
        return *m_pHost;
    }
    HostProcess& start(const std::vector<std::string>& options = {}) { return startCall(call(options)); }
    HostProcess& startAndWait(const std::vector<std::string>& options = {}) {
        HostProcess& host = start(options);
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
        return host;
    }
    /// The same host at a terminal.
    std::unique_ptr<Terminal> startAtATerminal(const std::vector<std::string>& options = {},
                                               const std::map<std::string, std::string>& environment = {}) {
        HostProcess::Start call = this->call(options);
        call.environment["XDG_STATE_HOME"] = m_workplace.directory() / "state";
        call.environment.insert(environment.begin(), environment.end());
        return std::make_unique<Terminal>([&] { becomeProgram(call); });
    }
    static fs::path proc(pid_t pid) { return "/proc/" + std::to_string(pid); }
    fs::path record() const { return m_workplace.directory() / "record"; }
    /// Whether so many drivers of the type HangsInSendFID come to hang in their first FID.
    bool hang(long count) const {
        return eventually([&] {
            const std::string text = readFile(record());
            return std::count(text.begin(), text.end(), '\n') == count;
        });
    }
    std::optional<int> end() {
        m_pHost->closeInput();
        return m_pHost->waitForEnd();
    }
    long countInLog(const std::string& text) {
        long count = 0;
        const std::string log = m_pHost->log();
        for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
            ++count;
        return count;
    }

    TestWorkplace m_workplace;
    std::string m_entries;
    std::unique_ptr<HostProcess> m_pHost;
};

}  // namespace

TEST_F(HostTest, EndOfInputComesBehindTheLinesBeforeIt) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = start();
    for (int i = 0; i < 50; ++i)
        host.type("setStateValue T.N " + std::to_string(i));
    host.type("state T.*");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), ContainsRegex("T.N  string  49     console  [0-9]+ s +yes\n"));
}

TEST_F(HostTest, QuitDropsTheLinesBehindIt) {
    HostProcess& host = start();
    host.type("quit");
    host.type("events");
    EXPECT_EQ(0, host.waitForEnd());
    EXPECT_THAT(host.output(), Not(HasSubstr("no events")));
}

// A second for each of them: longer than a shutdown may take.
TEST_F(HostTest, QuitIsAnsweredWhileTheWorkplaceStartsAndCutsNoStartOff) {
    for (const char* id : {"A", "B", "C", "D", "E", "F", "G"})
        addDriver(id, "Echo", "queue");
    HostProcess& host = start();
    host.type("quit");
    EXPECT_EQ(0, host.waitForEnd());
    const std::string log = host.log();
    const auto answered = log.find("HOST: shutting down: quit\n");
    const auto started = log.find("HOST: the workplace is started\n");
    ASSERT_NE(std::string::npos, answered) << log;
    ASSERT_NE(std::string::npos, started) << log;
    EXPECT_LT(answered, started) << log;
    EXPECT_TRUE(host.waitForOutput("Deinitializing MF driver ID: G...OK\n")) << host.output();
    EXPECT_THAT(log, HasSubstr("HOST: all drivers are stopped\n"));
}

TEST_F(HostTest, QuitBehindAnotherLineWaitsForTheStart) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = start();
    host.type("state NONE.*");
    host.type("quit");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), HasSubstr("no state value matches NONE.*\n"));
    const std::string log = host.log();
    EXPECT_LT(log.find("HOST: the workplace is started\n"), log.find("HOST: shutting down: quit\n")) << log;
}

TEST_F(HostTest, ScriptSeesWhatItSetOffInADriverProcess) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait();
    // It waits for an answer, not for a process that is just coming up.
    ASSERT_TRUE(host.waitForLog("E MFD: Runs ")) << host.log();
    host.type("sendFID E.INT name=N value=7");
    host.type("state E.*");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), ContainsRegex(s_live));
}

TEST_F(HostTest, StateInAScriptWaitsASecondForADriverThatHasMessagesLeft) {
    addDriver("P", "Puppet", "queue");
    HostProcess& host = startAndWait();
    ASSERT_TRUE(host.waitForLog("P MFD: Runs ")) << host.log();
    const fs::path go = m_workplace.directory() / "go";
    host.type("sendFID P.wait name=" + go.string());
    host.type("sendFID P.int name=N value=7");
    const auto begin = std::chrono::steady_clock::now();
    host.type("state P.*");
    ASSERT_TRUE(host.waitForOutput("no state value matches P.*\n")) << host.output();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    writeFile(go, "");
    EXPECT_TRUE(host.repliesWith("state P.*", "P.N  int   7      P ")) << host.output();
    EXPECT_EQ(0, end());
}

TEST_F(HostTest, ValueThatADriverSetsWithinACommandIsTheDrivers) {
    addDriver("E", "Echo", "direct");
    HostProcess& host = start();
    host.type("sendFID E.INT name=N value=7");
    host.type("state E.*");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), ContainsRegex(s_live));
}

TEST_F(HostTest, ReloadOfAnUnknownDriverUnloadsNothingAndSaysWhy) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = start();
    host.type("reloadDriver NOPE");
    EXPECT_EQ(3, end());
    EXPECT_THAT(host.output(), HasSubstr("NOPE is not reloaded, nothing is unloaded: " +
                                         m_workplace.configuration().string() + " has no driver \"NOPE\"\n"));
}

/// A control character, ESC, and the same as one character beyond ASCII and as its second byte alone: in
/// keys, values, events, IDs, patterns, commands, all of which somebody else chooses.
TEST_F(HostTest, NothingReachesATerminalAsItIs) {
    const std::string text =
        "\a\x1b[2J\xc2\x9b"
        "2J\x9b";
    const std::string shown = "\\x07\\x1b[2J\\u009b2J\\x9b";
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait({"--follow", "--log-level", "5"});
    host.type("sendFID E.STRING 'name=K" + text + "' 'value=V" + text + "'");
    ASSERT_TRUE(host.waitForOutput("\nE.K" + shown + " = V" + shown + "\n")) << host.output();
    host.type("sendFID E.EVENT 'name=N" + text + "' 'value=V" + text + "'");
    ASSERT_TRUE(host.waitForOutput("\nevent E.N" + shown + " V" + shown + "\n")) << host.output();
    host.type("sendFID E.UNSET 'name=K" + text + "'");
    ASSERT_TRUE(host.waitForOutput("\nE.K" + shown + " unset\n")) << host.output();
    host.type("sendFID E.COMMAND 'name=C" + text + "' value=now");
    ASSERT_TRUE(host.waitForLog("a driver's command \"C" + shown + "\" is refused")) << host.log();
    host.type("state 'X" + text + "'");
    host.type("events");
    host.type("reloadDriver 'R" + text + "'");
    host.type("U" + text);
    host.type("help 'H" + text + "'");
    EXPECT_EQ(3, end());
    EXPECT_THAT(host.output(), HasSubstr("\nno state value matches X" + shown + "\n"));
    EXPECT_THAT(host.output(), HasSubstr("  E.N" + shown + "  V" + shown + "  E\n"));
    EXPECT_THAT(host.output(), HasSubstr("\nR" + shown + " is not reloaded, nothing is unloaded: "));
    EXPECT_THAT(host.output(), HasSubstr(" has no driver \"R" + shown + "\"\n"));
    EXPECT_THAT(host.output(), HasSubstr("\nunknown command \"U" + shown + "\""));
    EXPECT_THAT(host.output(), HasSubstr("\nunknown command \"H" + shown + "\""));
    EXPECT_EQ(std::string::npos, host.output().find_first_of("\a\x1b\xc2\x9b")) << host.output();
    EXPECT_EQ(std::string::npos, host.log().find_first_of("\a\x1b\xc2\x9b")) << host.log();
}

TEST_F(HostTest, DriverIDThatCannotBeShownIsWarnedOfAndOnlyTheModulePrintsItAsItIs) {
    addDriver("A&#27;[2J\xc2\x9b", "Echo", "queue");
    HostProcess& host = startAndWait();
    host.type("drivers");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.log(), HasSubstr("the driver ID \"A\\x1b[2J\\u009b\" holds a character that cannot be "
                                      "shown, and standard output gets it as it is"));
    EXPECT_THAT(host.output(), HasSubstr("\nA\\x1b[2J\\u009b  Echo   1.0      queue "));
    EXPECT_THAT(host.output(), HasSubstr("(ID: A\x1b[2J\xc2\x9b)..."));
    EXPECT_EQ(std::string::npos, host.log().find_first_of("\x1b\xc2\x9b")) << host.log();
}

TEST_F(HostTest, ReloadWithoutAnIDTellsTheUse) {
    HostProcess& host = start();
    host.type("reloadDriver");
    EXPECT_EQ(3, end());
    EXPECT_THAT(host.output(), HasSubstr("reloadDriver <driver ID>\n\treloads an MF driver module"));
}

TEST_F(HostTest, DriversShowsTheEntryThatAReloadHasRead) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait();
    m_workplace.configure(TestWorkplace::entry("E", "Echo", "direct") +
                          TestWorkplace::entry("F", "Echo", "direct"));
    host.type("reloadDriver E");
    host.type("reloadDriver F");
    host.type("drivers");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), ContainsRegex("\nE +Echo +1.0 +direct +- +running "));
    EXPECT_THAT(host.output(), ContainsRegex("\nF +Echo +1.0 +direct +- +running "));
}

TEST_F(HostTest, DriversShowsTheEntryThatARestartHasRead) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait({"--restart-delay", "0.1"});
    m_workplace.configure(TestWorkplace::entry("E", "Echo", "direct"));
    ::kill(host.driverProcess("E"), SIGKILL);
    ASSERT_TRUE(host.waitForLog("HOST: E: is started again\n")) << host.log();
    host.type("drivers");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), ContainsRegex("\nE +Echo +1.0 +direct +- +running "));
}

TEST_F(HostTest, ReloadThatWouldNeverEndIsRefused) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait();
    writeFile(m_workplace.configuration(),
              "<workplaces><workplace id=\"0\">\n<mainframeDriver driverType=\"Echo\" driverID=\"E\"/>\n"
              "</workplace></workplaces>");
    for (const char* line : {"reloadDriver E", "'reloadDriver' E", "reload\\Driver \"E\""})
        host.type(line);
    EXPECT_EQ(3, end());
    const std::string reply =
        "E is not reloaded, nothing is unloaded: " + m_workplace.configuration().string() +
        " line 2: driverID must be the first attribute";
    const std::string output = host.output();
    const auto first = output.find(reply);
    ASSERT_NE(std::string::npos, first) << output;
    EXPECT_NE(std::string::npos, output.find(reply, output.find(reply, first + 1) + 1)) << output;
}

TEST_F(HostTest, ReloadOfAFileThatIsNotFitToBeReadIsRefused) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait();
    fs::remove(m_workplace.configuration());
    fs::create_directory(m_workplace.configuration());
    host.type("reloadDriver E");
    EXPECT_EQ(3, end());
    EXPECT_THAT(host.output(), HasSubstr(m_workplace.configuration().string() + " is no regular file\n"));
}

TEST_F(HostTest, StartWithADriverIDGivenTwiceIsRefused) {
    addDriver("E", "Echo", "queue");
    addDriver("E", "Echo", "direct");
    HostProcess& host = start();
    EXPECT_EQ(1, host.waitForEnd());
    EXPECT_TRUE(host.waitForLog("the driver ID \"E\" stands in line 4 already")) << host.log();
    EXPECT_EQ("", host.output());
}

TEST_F(HostTest, DriverThatTakesNoMessagesIsEndedWhenItHoldsUpTheConsole) {
    addDriver("H", "HangsInSendFID", "queue");
    HostProcess& host = start({"--stop-timeout", "1", "--hang-timeout", "0", "--restart-limit", "0"});
    for (int i = 0; i < 300; ++i)
        host.type("sendFID H.GO");
    // The queue fails its senders a moment before the kernel has the process's end to tell.
    ASSERT_TRUE(host.waitForLog(" ended: ")) << host.log();
    host.type("drivers");
    EXPECT_EQ(3, end());
    EXPECT_THAT(host.log(), HasSubstr("has not taken a message for 1 s and holds up \"sendFID H.GO\""));
    EXPECT_THAT(host.output(), HasSubstr("  ended    20"));
}

TEST_F(HostTest, DriverOfTheHostsProcessThatDoesNotStopCannotKeepTheHost) {
    addDriver("H", "IgnoresDeinit", "direct");
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait({"--stop-timeout", "1"});
    const pid_t healthy = host.driverProcess("E");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.log(),
                HasSubstr("HOST: H: deinitialize() holds up the shutdown for 5 s; the host ends"));
    EXPECT_TRUE(endsInTime(healthy));
}

TEST_F(HostTest, DriversWithFullQueuesCannotHoldUpTheShutdown) {
    const std::vector<std::string> ids{"G", "H"};
    for (const std::string& id : ids)
        addDriver(id, "HangsInSendFID", "queue");
    HostProcess& host = startAndWait({"--hang-timeout", "0", "--stop-timeout", "1"});
    for (const std::string& id : ids) {
        host.type("sendFID " + id + ".GO");
        ASSERT_TRUE(hang(id == "G" ? 1 : 2)) << host.log();
        for (int i = 0; i < 256; ++i)
            host.type("sendFID " + id + ".GO");
    }
    host.type("drivers");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), HasSubstr("256/0"));
    for (const std::string& id : ids) {
        EXPECT_THAT(host.log(), HasSubstr(" leaves its queue full and holds up the shutdown; it is ended\n"));
        EXPECT_THAT(host.log(), HasSubstr("HOST: " + id + ": process "));
    }
    EXPECT_THAT(host.log(), HasSubstr("HOST: all drivers are stopped\n"));
}

TEST_F(HostTest, SignalEndsTheHostThoughACommandHangs) {
    addDriver("H", "HangsInSendFID", "direct");
    HostProcess& host = startAndWait();
    host.type("sendFID H.GO");
    ASSERT_TRUE(hang(1)) << host.log();
    host.signal(SIGTERM);
    EXPECT_EQ(0, host.waitForEnd());
    EXPECT_TRUE(
        host.waitForLog("HOST: H: sendFID(GO) holds up the shutdown for 5 s; the host ends without it\n"))
        << host.log();
}

TEST_F(HostTest, SecondSignalEndsTheHostAtOnce) {
    addDriver("H", "IgnoresDeinit", "direct");
    HostProcess& host = startAndWait();
    host.signal(SIGTERM);
    ASSERT_TRUE(host.waitForLog("shutting down: SIGTERM\n"));
    host.signal(SIGINT);
    EXPECT_EQ(128 + SIGINT, host.waitForEnd());
    EXPECT_TRUE(host.waitForLog("HOST: SIGINT again: the host ends at once\n")) << host.log();
    EXPECT_THAT(host.log(), Not(HasSubstr("holds up the shutdown")));
}

TEST_F(HostTest, EndAtOnceGivesTheTerminalItsModesBack) {
    addDriver("H", "IgnoresDeinit", "direct");
    const auto pTerminal = startAtATerminal();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ::kill(pTerminal->pid(), SIGTERM);
    ASSERT_TRUE(pTerminal->shows("shutting down: SIGTERM")) << pTerminal->screen();
    ::kill(pTerminal->pid(), SIGINT);
    EXPECT_EQ(128 + SIGINT, pTerminal->waitForEnd()) << pTerminal->screen();
    EXPECT_TRUE(pTerminal->takesLines());
    EXPECT_THAT(pTerminal->screen(), HasSubstr("HOST: SIGINT again: the host ends at once\r\n"));
}

TEST_F(HostTest, CtrlCDuringTheShutdownIsASignal) {
    addDriver("H", "IgnoresDeinit", "direct");
    const auto pTerminal = startAtATerminal();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("quit\r"));
    ASSERT_TRUE(pTerminal->shows("shutting down: quit")) << pTerminal->screen();
    ASSERT_TRUE(eventually([&] { return pTerminal->takesLines(); }));
    ASSERT_TRUE(pTerminal->type("\x03"));
    ASSERT_TRUE(pTerminal->shows("shutting down: SIGINT")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("\x03"));
    EXPECT_EQ(128 + SIGINT, pTerminal->waitForEnd()) << pTerminal->screen();
}

TEST_F(HostTest, CtrlCAsksBeforeItShutsTheWorkplaceDown) {
    const auto pTerminal = startAtATerminal();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("nonsense\x03"));
    ASSERT_TRUE(pTerminal->shows("^C")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("\x03"));
    ASSERT_TRUE(pTerminal->shows("To shut down, type quit or press Ctrl-C again.")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("events\r"));
    ASSERT_TRUE(pTerminal->shows("no events")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("\x03\x03"));
    EXPECT_EQ(0, pTerminal->waitForEnd()) << pTerminal->screen();
    EXPECT_THAT(pTerminal->screen(), HasSubstr("HOST: all drivers are stopped"));
    EXPECT_TRUE(pTerminal->takesLines());
}

TEST_F(HostTest, InterruptFromElsewhereShutsDownAtATerminalToo) {
    const auto pTerminal = startAtATerminal();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("sendFID half"));
    ::kill(pTerminal->pid(), SIGINT);
    EXPECT_EQ(0, pTerminal->waitForEnd()) << pTerminal->screen();
    EXPECT_THAT(pTerminal->screen(), HasSubstr("HOST: shutting down: SIGINT"));
    EXPECT_TRUE(pTerminal->takesLines());
}

TEST_F(HostTest, NothingThatIsLoggedOrPrintedTearsTheLineBeingTyped) {
    addDriver("E", "Echo", "queue");
    const auto pTerminal = startAtATerminal({"--restart-delay", "0.1", "--follow=E.*"});
    ASSERT_TRUE(pTerminal->shows("mfhost> ")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("sendFID E.INT name=N v"));
    // The restart logs, has the module print, and starts a process that logs.
    const pid_t driver = driverProcess(pTerminal->pid(), "E");
    ASSERT_NE(0, driver);
    ::kill(driver, SIGKILL);
    ASSERT_TRUE(pTerminal->shows("HOST: E: is started again")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("alue=7"));
    const std::string line = "mfhost> sendFID E.INT name=N value=7";
    ASSERT_TRUE(pTerminal->comesTo([&](const std::string& written) {
        return lastRow(written).ends_with(line);
    })) << pTerminal->screen();
    const auto rows = TerminalScreen(80, pTerminal->screen()).rows();
    // One line is on the screen, with the alarm that the driver's end was.
    EXPECT_EQ("[1 alarm] " + line, rows.back());
    EXPECT_EQ(1, std::count_if(rows.begin(), rows.end(),
                               [](const auto& row) { return row.find("mfhost> ") != std::string::npos; }))
        << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("\r"));
    EXPECT_TRUE(pTerminal->shows("E.N = 7\r\n")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("quit\r"));
    EXPECT_EQ(0, pTerminal->waitForEnd()) << pTerminal->screen();
}

TEST_F(HostTest, LineTypedWhileADriverIsLoadedAnewIsEditedAsEver) {
    addDriver("E", "Echo", "queue");
    const auto pTerminal = startAtATerminal();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    // The module sleeps for a second in it.
    ASSERT_TRUE(pTerminal->type("reloadDriver E\rnonsenz\x7fse\r"));
    EXPECT_TRUE(pTerminal->shows("unknown command \"nonsense\"")) << pTerminal->screen();
    // Nothing of it was echoed before its prompt was there.
    EXPECT_THAT(pTerminal->screen(), Not(HasSubstr("^?")));
    EXPECT_THAT(pTerminal->screen(), Not(ContainsRegex("reloadDriver E\r\n?\nnonsen")));
    ASSERT_TRUE(pTerminal->type("quit\r"));
    EXPECT_EQ(0, pTerminal->waitForEnd()) << pTerminal->screen();
}

TEST_F(HostTest, HistoryIsKeptOverStarts) {
    for (const char* keys : {"state ONCE.*\r", "\x10\r"}) {
        const auto pTerminal = startAtATerminal();
        ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
        ASSERT_TRUE(pTerminal->type(keys));
        ASSERT_TRUE(pTerminal->shows("no state value matches ONCE.*")) << pTerminal->screen();
        ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
        // What begins with a blank is not kept.
        ASSERT_TRUE(pTerminal->type(" quit\r"));
        EXPECT_EQ(0, pTerminal->waitForEnd()) << pTerminal->screen();
    }
}

TEST_F(HostTest, TablesFitTheTerminal) {
    addDriver("E", "Echo", "queue");
    const auto pTerminal = startAtATerminal();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    pTerminal->resize(80);
    ASSERT_TRUE(pTerminal->type("drivers\r"));
    ASSERT_TRUE(pTerminal->shows("ID     mode    process")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("drivers -l\r"));
    ASSERT_TRUE(pTerminal->shows("values lost")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("drivers E\r"));
    ASSERT_TRUE(pTerminal->shows((m_workplace.drivers() / "Echo.so").string())) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    pTerminal->resize(200);
    ASSERT_TRUE(pTerminal->type("drivers\r"));
    ASSERT_TRUE(pTerminal->shows("values lost")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("quit\r"));
    EXPECT_EQ(0, pTerminal->waitForEnd()) << pTerminal->screen();
}

TEST_F(HostTest, AlarmStaysBeforeThePromptUntilItIsAcknowledged) {
    addDriver("E", "Echo", "queue");
    const auto pTerminal = startAtATerminal({}, {{"NO_COLOR", "1"}});
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("sendFID PANEL.ALARM source=E text=hot\r"));
    ASSERT_TRUE(pTerminal->shows("[1 alarm] mfhost> ")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("sendFID PANEL.ALARM.CLEAR\ralarms\r"));
    ASSERT_TRUE(pTerminal->shows("  over  hot")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("shelve E 2\r"));
    ASSERT_TRUE(pTerminal->comesTo([](const std::string& written) { return lastRow(written) == "mfhost>"; }))
        << pTerminal->screen();
    // It comes back by itself.
    ASSERT_TRUE(pTerminal->comesTo([](const std::string& written) {
        return lastRow(written) == "[1 alarm] mfhost>";
    })) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("acknowledge E\r"));
    ASSERT_TRUE(pTerminal->comesTo([](const std::string& written) { return lastRow(written) == "mfhost>"; }))
        << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("quit\r"));
    EXPECT_EQ(0, pTerminal->waitForEnd()) << pTerminal->screen();
}

TEST_F(HostTest, DriverThatIsParkedRaisesNoAlarm) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait({"--restart-delay", "60"});
    ::kill(host.driverProcess("E"), SIGKILL);
    ASSERT_TRUE(host.waitForLog("it is started again in ")) << host.log();
    host.type("alarms");
    ASSERT_TRUE(host.waitForOutput("  on   ended: signal 9 (Killed)\n")) << host.output();
    host.type("stopDriver E");
    host.type("sendFID PANEL.ALARM source=E text=late");
    host.type("alarms");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), HasSubstr("\nno alarms\n"));
}

TEST_F(HostTest, LinesOfAScriptThatFailAreToldAndEndWithThree) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait();
    for (const char* line : {"drivers", "exit", "", "reloadDriver NOPE", "stopDriver PANEL", "state E.*"})
        host.type(line);
    EXPECT_EQ(3, end());
    EXPECT_THAT(host.output(),
                HasSubstr("there is no command exit; quit stops all drivers and ends the host\n"));
    const std::string log = host.log();
    const auto stopped = log.find("HOST: all drivers are stopped\n");
    ASSERT_NE(std::string::npos, stopped) << log;
    const std::string rest = log.substr(stopped);
    EXPECT_THAT(rest, HasSubstr("warning  HOST: line 2 of the input failed: exit\n"));
    EXPECT_THAT(rest, HasSubstr("warning  HOST: line 4 of the input failed: reloadDriver NOPE\n"));
    EXPECT_THAT(rest, HasSubstr("warning  HOST: line 5 of the input failed: stopDriver PANEL\n"));
    EXPECT_EQ(3, countInLog(" of the input failed: "));
}

TEST_F(HostTest, FollowPrintsChangesUntilUnfollow) {
    HostProcess& host = startAndWait();
    host.type("setStateValue T.A 1");
    host.type("follow T.*");
    host.type("setStateValue T.B 2");
    ASSERT_TRUE(host.waitForOutput("\nT.B = 2\n")) << host.output();
    host.type("unfollow");
    host.type("setStateValue T.C 3");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), Not(HasSubstr("T.A = 1")));
    EXPECT_THAT(host.output(), Not(HasSubstr("T.C = 3")));
}

TEST_F(HostTest, EndInOrderGivesTheTerminalItsModesBack) {
    const auto pTerminal = startAtATerminal();
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("quit\r"));
    EXPECT_EQ(0, pTerminal->waitForEnd()) << pTerminal->screen();
    EXPECT_TRUE(pTerminal->takesLines());
}

// Whatever the test itself was started with: nohup ignores the signal.
TEST_F(HostTest, HangUpHasTheFilesTakenOver) {
    HostProcess::Start call = this->call();
    call.beforeExec = [] { ::signal(SIGHUP, SIG_DFL); };
    HostProcess& host = startCall(call);
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
    host.signal(SIGHUP);
    ASSERT_TRUE(host.waitForLog("info     HOST: apply by signal: no changes\n")) << host.log();
    addDriver("E", "Echo", "direct");
    m_workplace.configure(m_entries);
    host.signal(SIGHUP);
    ASSERT_TRUE(host.waitForLog("info     HOST: apply by signal: 1 of 1 change done\n")) << host.log();
    EXPECT_THAT(host.log(), HasSubstr("info     HOST: E: is started by signal (entry is new)\n"));
    EXPECT_EQ(0, end());
}

TEST_F(HostTest, HangUpWhileTheHostStopsChangesNothing) {
    addDriver("H", "IgnoresDeinit", "direct");
    HostProcess::Start call = this->call();
    call.beforeExec = [] { ::signal(SIGHUP, SIG_DFL); };
    HostProcess& host = startCall(call);
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
    host.signal(SIGTERM);
    ASSERT_TRUE(host.waitForLog("shutting down: SIGTERM\n"));
    host.signal(SIGHUP);
    ASSERT_TRUE(host.waitForLog(
        "warning  HOST: apply by signal is refused, nothing is changed: the host is stopping"))
        << host.log();
    host.signal(SIGINT);
    EXPECT_EQ(128 + SIGINT, host.waitForEnd());
}

TEST_F(HostTest, TerminalThatIsGoneEndsTheHost) {
    const auto pTerminal = startAtATerminal({"--no-console", "--log-file", m_workplace.directory() / "log"});
    ASSERT_TRUE(pTerminal->shows("the workplace is started")) << pTerminal->screen();
    pTerminal->hangUp();
    EXPECT_EQ(0, pTerminal->waitForEnd());
    EXPECT_THAT(readFile(m_workplace.directory() / "log"), HasSubstr("HOST: shutting down: SIGHUP\n"));
}

TEST_F(HostTest, WhereNoLinesAreTypedOutputGoesStraightToTheTerminal) {
    const auto pTerminal = startAtATerminal({"--no-console"});
    ASSERT_TRUE(pTerminal->shows("the workplace is started")) << pTerminal->screen();
    const fs::path streams = proc(pTerminal->pid()) / "fd";
    ASSERT_TRUE(fileAt(streams / "0"));
    EXPECT_EQ(fileAt(streams / "0"), fileAt(streams / "1"));
    EXPECT_EQ(fileAt(streams / "0"), fileAt(streams / "2"));
    ::kill(pTerminal->pid(), SIGTERM);
    EXPECT_EQ(0, pTerminal->waitForEnd()) << pTerminal->screen();
}

TEST_F(HostTest, HangUpThatIsIgnoredEndsNothing) {
    HostProcess::Start call = this->call();
    call.beforeExec = [] { ::signal(SIGHUP, SIG_IGN); };
    HostProcess& host = startCall(call);
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
    host.signal(SIGHUP);
    host.type("state NONE.*");
    ASSERT_TRUE(host.waitForOutput("no state value matches NONE.*\n")) << host.output();
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.log(), Not(HasSubstr("SIGHUP")));
}

TEST_F(HostTest, StopTimeoutOfDriverProcessesIsRoundedUpToSeconds) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait({"--stop-timeout", "1.2"});
    std::istringstream variables(readFile(proc(host.driverProcess("E")) / "environ"));
    std::vector<std::string> all;
    for (std::string variable; std::getline(variables, variable, '\0');)
        all.push_back(variable);
    EXPECT_THAT(all, testing::Contains("MFD_STOP_TIMEOUT=2"));
    EXPECT_EQ(0, end());
}

TEST_F(HostTest, StandardStreamsThatTheCallerHasClosedBecomeNothingElse) {
    addDriver("E", "Echo", "queue");
    const fs::path log = m_workplace.directory() / "host.log";
    HostProcess::Start call = this->call({"--no-console", "--log-file", log});
    call.beforeExec = [] {
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            ::close(fd);
    };
    HostProcess& host = startCall(call);
    ASSERT_TRUE(eventually([&] {
        return readFile(log).find("HOST: the workplace is started\n") != std::string::npos;
    })) << readFile(log);
    for (const char* fd : {"fd/0", "fd/1", "fd/2"})
        EXPECT_EQ("/dev/null", fs::read_symlink(proc(host.pid()) / fd)) << fd;
    // Its standard error goes to the host; beside it is that of the host.
    for (const char* fd : {"fd/0", "fd/1", "fd/3"})
        EXPECT_EQ("/dev/null", fs::read_symlink(proc(host.driverProcess("E")) / fd)) << fd;
    host.signal(SIGTERM);
    EXPECT_EQ(0, host.waitForEnd());
}

TEST_F(HostTest, WorkingDirectoryThatCannotBeMadeEndsTheHostWithTheReason) {
    HostProcess::Start call = this->call();
    const fs::path directory = m_workplace.configuration() / "run";
    call.arguments.back() = directory;
    HostProcess& host = startCall(call);
    EXPECT_EQ(1, host.waitForEnd());
    EXPECT_EQ("mfhost: --workdir " + directory.string() + ": Not a directory\n", host.log());
}

TEST_F(HostTest, SandboxThatCannotBeHadEndsTheHostWithTheReason) {
    HostProcess::Start call = this->call();
    const fs::path directory = m_workplace.configuration() / "kept";
    call.arguments.front() = "--sandbox=" + directory.string();
    HostProcess& host = startCall(call);
    EXPECT_EQ(1, host.waitForEnd());
    EXPECT_EQ("mfhost: --sandbox is not possible here: cannot make " + directory.string() +
                  "/data: Not a directory\n",
              host.log());
}

TEST_F(HostTest, HostThatCannotGoOnSaysWhy) {
    HostProcess::Start call = this->call();
    call.beforeExec = [] { refuseCall(SYS_signalfd4, EMFILE); };
    HostProcess& host = startCall(call);
    EXPECT_EQ(1, host.waitForEnd());
    EXPECT_EQ("mfhost: no descriptor can be had for signals: Too many open files\n", host.log());
}

TEST_F(HostTest, LettersBeyondAsciiAreTypedAsTheyAre) {
    const auto pTerminal = startAtATerminal({}, {{"LC_ALL", "C.UTF-8"}});
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("\xc3\xa4"));
    EXPECT_TRUE(pTerminal->shows("\xc3\xa4")) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("\x15quit\r"));
    EXPECT_EQ(0, pTerminal->waitForEnd()) << pTerminal->screen();
}

TEST_F(HostTest, SignalDuringTheStartShutsDown) {
    for (const char* id : {"A", "B", "C", "D"})
        addDriver(id, "Echo", "queue");
    HostProcess& host = start();
    ASSERT_TRUE(host.waitForOutput("(ID: PANEL)...OK\n"));
    host.signal(SIGTERM);
    EXPECT_EQ(0, host.waitForEnd());
}

TEST_F(HostTest, ProcessThatEndsByItselfIsShownWithItsCause) {
    addDriver("X", "ExitsAtOnce", "queue");
    HostProcess& host = startAndWait({"--restart-limit", "0"});
    ASSERT_TRUE(host.waitForLog(
        " ended unexpectedly: exit code 7; it is not started again: 0 restarts in a row are the limit\n"))
        << host.log();
    host.type("drivers");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), HasSubstr("  exit code 7"));
    EXPECT_EQ(1, countInLog("X: process"));
}

TEST_F(HostTest, DriverThatWasKilledIsStartedAgain) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait({"--restart-delay", "0.1"});
    ASSERT_NE(0, host.driverProcess("E"));
    ::kill(host.driverProcess("E"), SIGKILL);
    ASSERT_TRUE(host.waitForLog("HOST: E: is started again\n")) << host.log();
    EXPECT_THAT(host.log(),
                HasSubstr(" ended unexpectedly: signal 9 (Killed); it is started again in 0.1 s\n"));
    host.type("sendFID E.INT name=N value=7");
    EXPECT_TRUE(host.repliesWith("state E.*", s_live)) << host.output();
    host.type("drivers");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), HasSubstr("  1         signal 9 (Killed)  -  "));
}

TEST_F(HostTest, DriverThatKeepsEndingIsTriedUpToTheLimit) {
    addDriver("X", "ExitsAtOnce", "queue");
    HostProcess& host = startAndWait({"--restart-delay", "0.1", "--restart-limit", "2"});
    ASSERT_TRUE(host.waitForLog("it is not started again: 2 restarts in a row are the limit\n"))
        << host.log();
    EXPECT_EQ(0, end());
    EXPECT_EQ(3, countInLog("X: process"));
}

TEST_F(HostTest, DriverThatLeftTheConfigurationIsNotTriedAgain) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait({"--restart-delay", "0.1"});
    m_workplace.configure("");
    ::kill(host.driverProcess("E"), SIGKILL);
    ASSERT_TRUE(host.waitForLog("HOST: E: is not started again: " + m_workplace.configuration().string() +
                                " has no driver \"E\"\n"))
        << host.log();
    EXPECT_EQ(0, end());
    EXPECT_EQ(1, countInLog("is not started again"));
}

TEST_F(HostTest, ReloadByHandComesBeforeAPlannedStart) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait({"--restart-delay", "60"});
    ::kill(host.driverProcess("E"), SIGKILL);
    ASSERT_TRUE(host.waitForLog("it is started again in ")) << host.log();
    // Put off by up to a tenth either way.
    EXPECT_THAT(host.log(), ContainsRegex("it is started again in (5[4-9]|6[0-6]) s\n"));
    host.type("reloadDriver E");
    host.type("drivers");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), HasSubstr("  0         signal 9 (Killed)  -  "));
    EXPECT_THAT(host.log(), Not(HasSubstr("is started again\n")));
}

TEST_F(HostTest, DriverThatHangsIsEndedAndStartedAgain) {
    addDriver("H", "HangsInSendFID", "queue");
    HostProcess& host = startAndWait({"--hang-timeout", "0.5", "--restart-delay", "0.1"});
    host.type("sendFID H.GO");
    ASSERT_TRUE(hang(1)) << host.log();
    host.type("sendFID H.GO");
    ASSERT_TRUE(host.waitForLog(" hangs: it has taken none of 1 message for ")) << host.log();
    ASSERT_TRUE(host.waitForLog("HOST: H: is started again\n")) << host.log();
    host.type("drivers");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), ContainsRegex("  hung for [0-9.]+ s"));
}

TEST_F(HostTest, WithoutAHangTimeoutNobodyIsTakenForHung) {
    addDriver("H", "HangsInSendFID", "queue");
    HostProcess& host = startAndWait({"--hang-timeout", "0", "--stop-timeout", "0.5"});
    host.type("sendFID H.GO");
    ASSERT_TRUE(hang(1)) << host.log();
    host.type("sendFID H.GO");
    EXPECT_EQ(std::nullopt, host.waitForEnd(2));
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.log(), Not(HasSubstr(" hangs: ")));
}

TEST_F(HostTest, DriversThatWaitForEachOtherForEverAreParted) {
    addDriver("A", "FloodsWithinSendFID", "queue");
    addDriver("B", "FloodsWithinSendFID", "queue");
    HostProcess& host = startAndWait({"--hang-timeout", "3", "--restart-delay", "0.1"});
    // Some more than the queues on the way hold: whoever is let go is soon done.
    host.type("sendFID A.GO to=B count=17000");
    host.type("sendFID B.GO to=A count=17000");
    ASSERT_TRUE(host.waitForLog(" hangs: ")) << host.log();
    ASSERT_TRUE(host.waitForLog("is started again\n")) << host.log();
    // On a machine that is slow enough the new process takes nothing for that time either and is ended, with
    // the FIDs in its queue. That one end parts the two HangDetectorTest shows.
    for (const std::string id : {"A", "B"})
        EXPECT_TRUE(host.repliesWith("sendFID " + id + ".PING\nstate *.PONG", id + ".PONG  int   1"))
            << host.output() << host.log();
    EXPECT_EQ(0, end());
}

TEST_F(HostTest, NoReaderSeesAValueOfADeadDriverAsLive) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait({"--restart-delay", "0.1", "--follow=E.*"});
    for (int round = 1; round <= 3; ++round) {
        const std::string number = std::to_string(round);
        host.type("sendFID E.INT name=N value=" + number);
        const std::string shown = "E.N  int   " + number + "      E       [0-9]+ s +";
        ASSERT_TRUE(host.repliesWith("state E.N", shown + "yes")) << host.output();
        const pid_t pid = host.driverProcess("E");
        ASSERT_NE(0, pid);
        ::kill(pid, SIGKILL);
        ASSERT_TRUE(endsInTime(pid));
        const auto length = host.output().size();
        ASSERT_TRUE(host.repliesWith("state E.N", shown + "stale for [0-9]+ s \\(signal 9 \\(Killed\\)\\)"))
            << host.output();
        EXPECT_THAT(host.output().substr(length), Not(ContainsRegex(shown + "yes")));
        ASSERT_TRUE(host.waitForOutput("E: 1 value stale: signal 9 (Killed)\n")) << host.output();
        host.type("sendFID E.BOOL name=UP value=true");
        while (countInLog("is started again\n") < round)
            ASSERT_EQ(std::nullopt, host.waitForEnd(0));
    }
    // 3 where a FID has met no driver.
    EXPECT_THAT(end(), testing::AnyOf(0, 3));
}

TEST_F(HostTest, ValuesOfAKilledDriverAreStaleAndLiveAgainAfterItsReload) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait();
    host.type("sendFID E.INT name=N value=7");
    ASSERT_NE(0, host.driverProcess("E"));
    ASSERT_TRUE(host.repliesWith("state E.*", s_live)) << host.output();
    ::kill(host.driverProcess("E"), SIGKILL);
    ASSERT_TRUE(host.waitForLog("ended unexpectedly: signal 9 (Killed); 1 value is stale; it is started"))
        << host.log();
    host.type("state E.*");
    ASSERT_TRUE(host.waitForOutput(" s (signal 9 (Killed))\n")) << host.output();
    host.type("reloadDriver E");
    host.type("sendFID E.INT name=N value=7");
    EXPECT_TRUE(host.repliesWith("state E.*", s_live)) << host.output();
    EXPECT_EQ(0, end());
}

TEST_F(HostTest, FollowPrintsEachChange) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = start({"--follow=E.*"});
    host.type("sendFID E.STRING name=NAME value=on");
    host.type("sendFID E.EVENT name=DONE value=yes");
    ASSERT_TRUE(host.waitForOutput("\nE.NAME = on\n")) << host.output();
    ASSERT_TRUE(host.waitForOutput("\nevent E.DONE yes\n")) << host.output();
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), Not(HasSubstr("MFDDEF")));
}

TEST_F(HostTest, DriverMayGiveAnAllowedCommand) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait({"--allow-command", "setStateValue", "--follow=T.*"});
    host.type("sendFID E.COMMAND name=setStateValue 'value=T.N 5'");
    ASSERT_TRUE(host.waitForOutput("\nT.N = 5\n")) << host.output() << host.log();
    host.type("state T.*");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), HasSubstr("T.N  string  5      console"));
}

TEST_F(HostTest, WhatADriversCommandAnswersIsLogged) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait({"--allow-command", "help"});
    host.type("sendFID E.COMMAND name=help value=quit");
    EXPECT_TRUE(host.waitForLog("info     HOST: a driver's command \"help quit\": quit\n")) << host.log();
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.log(), HasSubstr("stops all drivers and ends the host.\n"));
}

TEST_F(HostTest, CommandOfADriverThatIsNotAllowedIsRefusedByName) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = startAndWait();
    host.type("sendFID E.COMMAND name=quit value=now");
    ASSERT_TRUE(host.waitForLog("a driver's command \"quit\" is refused")) << host.log();
    EXPECT_EQ(0, end());
}

TEST_F(HostTest, DriverInTheHostsProcessSendsFidsThroughTheHost) {
    addDriver("E", "Echo", "queue");
    addDriver("D", "Echo", "direct");
    HostProcess& host = startAndWait();
    host.type("sendFID D.SYSPING fid=E.INT name=N value=7");
    EXPECT_TRUE(host.repliesWith("state E.*", s_live)) << host.output();
    EXPECT_EQ(0, end());
}

TEST_F(HostTest, ThreadThatADriverHasLeftBehindSendsNothingWithoutTheManager) {
    addDriver("S", "SendsLate", "direct");
    addDriver("P", "IgnoresDeinit", "queue");
    const fs::path log = m_workplace.directory() / "host.log";
    HostProcess::Start call = this->call({"--log-file", log, "--stop-timeout", "1"});
    call.environment["MFD_TEST_LOG"] = log;
    // What is freed holds nothing that could still be called.
    call.environment["MALLOC_PERTURB_"] = "85";
    startCall(call);
    EXPECT_EQ(0, end());
    EXPECT_EQ("deinitialize\nrefused\n", readFile(record())) << readFile(log);
}

TEST_F(HostTest, DriverThatFillsTheStateStoreTakesNoRoomFromOthers) {
    addDriver("E", "Echo", "queue");
    addDriver("F", "Echo", "queue");
    HostProcess& host = startAndWait({"--follow=?.[FN]*"});
    host.type("sendFID F.FILL value=70000");
    ASSERT_TRUE(
        host.waitForLog("HOST: F: 16384 state values are kept at most; \"F.K16384\" and further new "
                        "ones are dropped\n"))
        << host.log();
    host.type("sendFID F.EVENT name=FILLED");
    ASSERT_TRUE(host.waitForOutput("event F.FILLED")) << host.output();
    host.type("sendFID E.INT name=N value=7");
    ASSERT_TRUE(host.waitForOutput("\nE.N = 7\n")) << host.output();
    host.type("setStateValue G.N 8");
    host.type("state --now E.*");
    host.type("state --now G.*");
    host.type("drivers");
    ASSERT_TRUE(host.waitForOutput("\nPANEL ")) << host.output();
    EXPECT_TRUE(host.waitForOutput("\nE.N  int   7      E       ")) << host.output();
    EXPECT_TRUE(host.waitForOutput("\nG.N  string  8      console ")) << host.output();
    EXPECT_TRUE(host.waitForOutput("\nF: 53616 new values dropped, at most 16384 are kept\n"))
        << host.output();
    EXPECT_THAT(host.output(), testing::ContainsRegex("\nF +Echo [^\n]* 53616\n"));
    EXPECT_EQ(1, countInLog("state values are kept at most"));

    // What the next instance reports has room at once.
    ::kill(host.driverProcess("F"), SIGKILL);
    ASSERT_TRUE(host.waitForLog("16384 values are stale")) << host.log();
    ASSERT_TRUE(host.waitForLog("HOST: F: is started again\n")) << host.log();
    host.type("sendFID F.INT name=NEW value=1");
    EXPECT_TRUE(host.waitForOutput("\nF.NEW = 1\n")) << host.output();
    EXPECT_EQ(0, end());
}

TEST_F(HostTest, WithoutAConsoleTheHostRunsUntilASignal) {
    HostProcess& host = startAndWait({"--no-console"});
    host.closeInput();
    EXPECT_EQ(std::nullopt, host.waitForEnd(1));
    host.signal(SIGTERM);
    EXPECT_EQ(0, host.waitForEnd());
}

TEST_F(HostTest, ProcessesStartedByHandAreWaitedFor) {
    addDriver("E", "Echo", "queue");
    HostProcess& host = start({"--no-start-mfds"});
    host.type("drivers");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), HasSubstr("waiting for its process"));
    EXPECT_THAT(host.log(), Not(HasSubstr("MFD: Runs")));
}

TEST_F(HostTest, DirectoryWithoutAReadableDescriptorIsWarnedOf) {
    const fs::path directory = m_workplace.directory() / "broken";
    fs::create_directory(directory);
    writeFile(directory / "broken.xml", "<mfDriverModule>");
    HostProcess& host = startAndWait({"--drivers", directory});
    EXPECT_TRUE(host.waitForLog("warning  HOST: " + directory.string() +
                                ": none of its descriptors could be read; no drivers are found there\n"))
        << host.log();
    EXPECT_EQ(0, end());
}

TEST_F(HostTest, WorkplaceThatIsNotSignedIsNotStartedWhereItMustBe) {
    HostProcess& host = start({"--require-signature", "--trust", m_workplace.workdir()});
    EXPECT_EQ(1, host.waitForEnd());
    EXPECT_THAT(host.log(), ContainsRegex("critical HOST: .*; the workplace is not started\n"));
}

TEST_F(HostTest, StartThatBreaksOffIsWarnedOf) {
    addDriver("E", "Echo", "direct");
    const HostProcess::Start call = this->call();
    writeFile(m_workplace.configuration(),
              "<workplaces><workplace id=\"0\">\n" + m_entries + "</workplace><workplace>" +
                  TestWorkplace::entry("N", "Echo", "direct") + "</workplace></workplaces>\n");
    startCall(call);
    EXPECT_EQ(0, end());
    EXPECT_THAT(m_pHost->log(),
                HasSubstr("warning  HOST: 1 of 2 drivers run; N: " + m_workplace.configuration().string() +
                          " line 3: the workplace has no id; give it a number from 0 to 7\n"));
    EXPECT_THAT(m_pHost->output(), HasSubstr("(ID: E)...OK\n"));
}

TEST_F(HostTest, TabCompletesCommandsDriversAndKeys) {
    addDriver("ECHO1", "Echo", "queue");
    const auto pTerminal = startAtATerminal({"--follow=ECHO1.*"});
    // What is answered has been completed.
    for (const auto& [keys, reply] : {std::pair{"help relo\t\r", "reloads an MF driver module"},
                                      {"sendF\tEC\tINT name=N value=7\r", "ECHO1.N = 7"},
                                      {"state PANEL.MFDDEF.C\t\r", "PANEL.MFDDEF.COUNT  int "},
                                      {"setStateV\tECHO1.\t 8\r", "ECHO1.N = 8"},
                                      {"unsetStateV\tECHO1.\t\r", "alue "},
                                      {"state ECHO1.*\r", "no state value matches ECHO1.*"},
                                      {"relo\tEC\t\r", "(ID: ECHO1)..."}}) {
        ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
        ASSERT_TRUE(pTerminal->type(keys));
        ASSERT_TRUE(pTerminal->shows(reply)) << keys << ": " << pTerminal->screen();
    }
    ASSERT_TRUE(pTerminal->awaitPrompt()) << pTerminal->screen();
    ASSERT_TRUE(pTerminal->type("quit\r"));
    EXPECT_EQ(0, pTerminal->waitForEnd()) << pTerminal->screen();
}

TEST_F(HostTest, DirectoryGivenTwiceIsSearchedOnce) {
    HostProcess& host = start({"--drivers", m_workplace.drivers().string() + "/."});
    host.type("state PANEL.MFDDEF.COUNT");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), HasSubstr("PANEL.MFDDEF.COUNT  int   4      host"));
}

// A search changes the working directory and goes back by its path, which leads elsewhere here.
TEST_F(HostTest, WorkingDirectoryIsEnteredAgainAfterASearch) {
    addDriver("E", "Echo", "direct");
    HostProcess::Start call = this->call();
    const auto option = std::find(call.arguments.begin(), call.arguments.end(), "--workdir");
    call.arguments.erase(option, option + 2);
    const fs::path directory = m_workplace.workdir();
    call.beforeExec = [&] {
        const bool isCovered = ::chdir(directory.c_str()) == 0 && ::unshare(CLONE_NEWNS) == 0 &&
                               ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                               ::mount("tmpfs", directory.c_str(), "tmpfs", 0, nullptr) == 0;
        if (!isCovered)
            ::_exit(126);
    };
    HostProcess& host = startCall(call);
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.output(), HasSubstr("(ID: E)...OK\n"));
    // No driver is said to have left the directory.
    EXPECT_THAT(host.log(), Not(HasSubstr("working directory")));
}

TEST_F(HostTest, WorkingDirectoryThatCannotBeEnteredAgainEndsTheStart) {
    HostProcess::Start call = this->call();
    call.beforeExec = [] { refuseCall(SYS_fchdir, EACCES); };
    HostProcess& host = startCall(call);
    EXPECT_EQ(1, host.waitForEnd());
    EXPECT_THAT(
        host.log(),
        HasSubstr("critical HOST: the working directory cannot be entered again: Permission denied\n"));
}

TEST_F(HostTest, ManyDriversThatFloodDoNotHoldUpTheEnd) {
    addDriver("F", "FloodsState", "queue");
    addDriver("G", "FloodsState", "direct");
    HostProcess& host = startAndWait({"--follow"});
    host.type("state F.*");
    EXPECT_EQ(0, end());
    EXPECT_THAT(host.log(), HasSubstr("HOST: all drivers are stopped\n"));
}
