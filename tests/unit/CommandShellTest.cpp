#include "CommandShell.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <future>
#include <iostream>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "FidTap.h"
#include "HangGuard.h"
#include "LogCapture.h"
#include "ProcessSupervisor.h"
#include "TemporaryDirectory.h"
#include "sal/CmdRegisterImpl.h"
#include "sal/MessageQueue.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// What std::cout is given, and a standard input that is no terminal.
class ScriptStreams {
public:
    ScriptStreams() : m_pBefore(std::cout.rdbuf(&m_buffer)), m_input(::dup(STDIN_FILENO)) {
        const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ::dup2(nothing, STDIN_FILENO);
        ::close(nothing);
    }
    ~ScriptStreams() {
        std::cout.rdbuf(m_pBefore);
        ::dup2(m_input, STDIN_FILENO);
        ::close(m_input);
    }
    ScriptStreams(const ScriptStreams&) = delete;
    ScriptStreams& operator=(const ScriptStreams&) = delete;

    /// Only while nobody writes.
    std::string text() const { return m_buffer.str(); }

private:
    std::stringbuf m_buffer;
    std::streambuf* const m_pBefore;
    const int m_input;
};

/// A shell with its command thread, a workplace that is not started, and commands in place of the module's.
class CommandShellTest : public testing::Test {
protected:
    CommandShellTest() {
        add("setStateValue", &CommandShellTest::setStateValue);
        add("reloadDriver", &CommandShellTest::reloadDriver);
        add("fail", &CommandShellTest::fail);
        add("note", &CommandShellTest::note);
        add("sendFID", &CommandShellTest::sendFid);
        add("hold", &CommandShellTest::hold);
        m_sut.begin();
        m_commands.start([] {}, [] {}, [this] { m_end.set_value(); });
    }

    void open() {
        m_sut.open();
        m_sut.endStart();
    }
    /// Has all run that was posted, and the thread end.
    std::string finish() {
        m_commands.stopWhenDone();
        EXPECT_EQ(std::future_status::ready, m_end.get_future().wait_for(c_hangGuard));
        m_commands.join();
        return m_streams.text();
    }
    /// Waits until the command thread is held up by a command.
    void awaitHold() {
        std::unique_lock lock(m_mutex);
        ASSERT_TRUE(m_changed.wait_for(lock, c_hangGuard, [this] { return m_isHeld; }));
    }
    void goOn() {
        const std::lock_guard lock(m_mutex);
        m_mayGoOn = true;
        m_changed.notify_all();
    }
    void runAxis() {
        m_drivers.callBegins("AXIS1", "setConfiguration");
        m_drivers.callEnded("AXIS1", "setConfiguration");
    }
    /// What these lines of a script print.
    std::string output(const std::vector<std::string>& lines) {
        open();
        for (const std::string& line : lines)
            m_sut.readLine(line);
        return finish();
    }

    TemporaryDirectory m_directory;
    LogCapture m_log;
    ScriptStreams m_streams;
    CommandThread m_commands;
    StateStore m_store;
    DriverTable m_drivers{m_store};
    ProcessSupervisor m_supervisor{m_drivers,
                                   {},
                                   {.activity = [] { return CommandActivity(); },
                                    .queues = [] { return std::vector<sal::MessageQueue::Status>(); },
                                    .receiverGone = [](const std::string&, auto) {},
                                    .exitNow = [](int) {},
                                    .restart = {}}};
    Workplace m_workplace{{.file = {}, .driverDirectories = {}, .parkMarks = m_directory.path("marks")},
                          m_drivers,
                          m_supervisor,
                          {.concerns = [](const std::string&) {}, .tellPanel = [] {}}};
    AlarmList m_alarms;
    LogMemory m_memory{[] { return std::set<std::string>(); }};
    FidTap m_tap{m_drivers, m_drivers, m_memory};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isHeld = false;
    bool m_mayGoOn = false;
    int m_looks = 0;
    int m_quits = 0;
    std::vector<std::string> m_notes;
    std::vector<std::string> m_fids;  ///< what each has come to
    std::promise<void> m_end;
    CommandShell m_sut{{.commands = m_commands,
                        .store = m_store,
                        .drivers = m_drivers,
                        .workplace = m_workplace,
                        .alarms = m_alarms,
                        .log = m_memory,
                        .lookForEnds = [this] { ++m_looks; },
                        .quit = [this] { ++m_quits; },
                        .showModules = [] {},
                        .fidSent =
                            [this](const auto& driverID, const auto& outcome) {
                                m_fids.push_back(driverID + " " + inWords(outcome.reason));
                            },
                        .queuePatience = 300ms}};

private:
    using Handler = bool (CommandShellTest::*)(sal::CmdParameters&);
    void add(const char* name, Handler handler) {
        sal::CmdProcessor::getInstance()->registerCmd(
            new sal::CmdRegisterImpl<CommandShellTest>(name, "use\n\tof it.", this, handler));
    }
    bool setStateValue(sal::CmdParameters& parameters) {
        m_store.setStateValue(parameters.argument(0), parameters.argument(1));
        return true;
    }
    bool reloadDriver(sal::CmdParameters& parameters) {
        m_notes.push_back("reload " + parameters.argument(0));
        return true;
    }
    bool fail(sal::CmdParameters&) { throw std::runtime_error("no memory"); }
    /// The driver AXIS1 takes all but the FID NO.
    bool sendFid(sal::CmdParameters& parameters) {
        if (!parameters.argument(0).starts_with("AXIS1."))
            return true;
        const std::string function = parameters.argument(0).substr(6);
        m_tap.fidBegins("AXIS1", function, {});
        if (function == "HOLD")
            hold(parameters);
        m_tap.fidEnded("AXIS1", function != "NO", nullptr);
        return true;
    }
    bool hold(sal::CmdParameters&) {
        std::unique_lock lock(m_mutex);
        m_isHeld = true;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_mayGoOn; });
        return true;
    }
    bool note(sal::CmdParameters& parameters) {
        m_notes.push_back(parameters.argument(0));
        return true;
    }
};

/// Lines of a script and of the driver A, which wait for room in AXIS1's input queue of two messages.
class CommandShellAtAFullQueue : public CommandShellTest {
protected:
    CommandShellAtAFullQueue() {
        ::setenv("MFD_QUEUE_DIR", m_directory.path().c_str(), 1);
        EXPECT_TRUE(m_queue.create("AXIS1_INQ", 2, 64, 0));
        const unsigned char message = 1;
        for (int i = 0; i < 2; ++i)
            EXPECT_TRUE(m_queue.send(&message, 1, 0));
    }
    ~CommandShellAtAFullQueue() override { ::unsetenv("MFD_QUEUE_DIR"); }

    void takeOne() {
        unsigned char buffer[64];
        EXPECT_EQ(1, m_queue.receive(buffer, sizeof(buffer), 0));
    }
    /// Of the line that waits; nothing when none does.
    std::optional<CommandWait> wait() const {
        const auto waits = m_commands.waits();
        return waits.empty() ? std::nullopt : std::optional(waits.front());
    }

    sal::MessageQueue m_queue;
};

}  // namespace

TEST_F(CommandShellTest, LinesOfAScriptRunInTheirOrder) {
    EXPECT_EQ("", output({"note 1", "", "# note 2", "note 3"}));
    EXPECT_THAT(m_notes, ElementsAre("1", "3"));
}

TEST_F(CommandShellTest, ScriptWaitsForTheEndOfTheStart) {
    m_sut.open();
    auto reading = std::async(std::launch::async, [this] { m_sut.readLine("note 1"); });
    EXPECT_EQ(std::future_status::timeout, reading.wait_for(50ms));
    m_sut.endStart();
    EXPECT_EQ(std::future_status::ready, reading.wait_for(c_hangGuard));
    finish();
    EXPECT_THAT(m_notes, ElementsAre("1"));
}

TEST_F(CommandShellTest, QuitOfAScriptDoesNotWaitForTheStart) {
    m_sut.open();
    m_sut.readLine(" 'quit' ");
    ASSERT_EQ(std::future_status::ready, m_end.get_future().wait_for(c_hangGuard));
    EXPECT_EQ(0, m_quits);
    EXPECT_THAT(m_log.text(), HasSubstr("info     HOST: shutting down: quit\n"));
    m_sut.endStart();
    m_commands.join();
}

TEST_F(CommandShellTest, QuitAfterTheStartIsACommand) {
    EXPECT_EQ("", output({"quit"}));
    EXPECT_EQ(1, m_quits);
    EXPECT_THAT(m_log.text(), Not(HasSubstr("shutting down")));
}

TEST_F(CommandShellTest, NothingIsExecutedOfAWorkplaceThatIsNotStarted) {
    m_sut.endStart();
    m_sut.readLine("note 1");
    EXPECT_TRUE(m_sut.postDriverCommand("note 2"));
    EXPECT_EQ("", finish());
    EXPECT_TRUE(m_notes.empty());
}

TEST_F(CommandShellTest, EndOfAScriptWaitsForTheStartAndForItsLines) {
    m_sut.open();
    auto reading = std::async(std::launch::async, [this] {
        m_sut.readLine("note 1");
        m_sut.endInput();
    });
    EXPECT_EQ(std::future_status::timeout, m_end.get_future().wait_for(50ms));
    m_sut.endStart();
    EXPECT_EQ(std::future_status::ready, reading.wait_for(c_hangGuard));
    m_commands.join();
    EXPECT_THAT(m_notes, ElementsAre("1"));
}

TEST_F(CommandShellTest, UnknownCommandIsSaidAtTheConsole) {
    EXPECT_THAT(output({"nonsense"}), HasSubstr("nonsense"));
}

TEST_F(CommandShellTest, ReplyToADriverGoesIntoTheLog) {
    open();
    EXPECT_TRUE(m_sut.postDriverCommand("help note"));
    EXPECT_EQ("", finish());
    EXPECT_THAT(m_log.text(), HasSubstr("info     HOST: a driver's command \"help note\": use\n"));
    EXPECT_THAT(m_log.text(), HasSubstr("info     HOST: a driver's command \"help note\": \\tof it.\n"));
}

TEST_F(CommandShellTest, DriverIsToldThatThereIsNoRoom) {
    open();
    finish();
    EXPECT_FALSE(m_sut.postDriverCommand("note 1"));
    EXPECT_TRUE(m_notes.empty());
}

TEST_F(CommandShellTest, CommandThatFailsSaysSoAndLeavesTheNextOneAlone) {
    EXPECT_EQ("fail failed: std::runtime_error: no memory\nuse\n\tof it.\n", output({"fail", "help note"}));
}

TEST_F(CommandShellTest, FidThatReachesNobodySaysSo) {
    runAxis();
    EXPECT_EQ(
        "\"AXSI1.MOVE\" has reached nobody: there is no driver AXSI1; did you mean \"AXIS1\"?\n"
        "\"NOBODY.MOVE\" has reached nobody: there is no driver NOBODY\n",
        output({"sendFID AXSI1.MOVE", "sendFID NOBODY.MOVE to=5", "sendFID AXIS1.MOVE"}));
}

TEST_F(CommandShellTest, WhatFidsHaveComeToIsTold) {
    runAxis();
    output({"sendFID AXIS1.MOVE", "sendFID AXIS1.NO", "sendFID NOBODY.MOVE", "note 1"});
    EXPECT_THAT(m_fids, ElementsAre("AXIS1 none", "AXIS1 refused", "NOBODY no-such-driver"));
}

TEST_F(CommandShellTest, FidThatTheDriverRefusesSaysSo) {
    runAxis();
    EXPECT_EQ("\"AXIS1.NO\": AXIS1 has refused it\n", output({"sendFID AXIS1.NO"}));
}

TEST_F(CommandShellTest, FidWithAStrayWordSaysWhatWasSent) {
    runAxis();
    EXPECT_EQ(
        "sent \"AXIS1.TEXT\" with \"text\"=\"hello\" \"world\"=\"\"; a value with blanks stands in quotes\n",
        output({"sendFID AXIS1.TEXT text=hello world", "sendFID AXIS1.TEXT 'text=hello world'"}));
}

TEST_F(CommandShellTest, FidOfADriversCommandThatReachesNobodyIsInTheLog) {
    open();
    EXPECT_TRUE(m_sut.postDriverCommand("sendFID NOBODY.MOVE"));
    EXPECT_EQ("", finish());
    EXPECT_THAT(m_log.text(), HasSubstr("info     HOST: a driver's command \"sendFID NOBODY.MOVE\": "
                                        "\"NOBODY.MOVE\" has reached nobody: there is no driver NOBODY\n"));
}

TEST_F(CommandShellTest, FidThatDoesNotComeBackIsACallOfTheCommandThread) {
    runAxis();
    open();
    m_sut.readLine("sendFID AXIS1.HOLD");
    awaitHold();
    ASSERT_EQ(1u, m_drivers.innermostCalls().size());
    EXPECT_EQ("sendFID(HOLD)", m_drivers.innermostCalls().front().operation);
    EXPECT_EQ(m_commands.activity().thread, m_drivers.innermostCalls().front().thread);
    goOn();
    finish();
}

TEST_F(CommandShellTest, ScriptsLinesOvertakeAFidThatHasNotComeBackForLong) {
    runAxis();
    open();
    m_sut.readLine("sendFID AXIS1.HOLD");
    awaitHold();
    std::this_thread::sleep_for(5100ms);
    m_sut.readLine("state --now");
    m_sut.readLine("help note");
    m_sut.readLine("acknowledge NOTHING");
    m_sut.readLine("quit");
    m_sut.readLine("note 1");
    // Nobody else writes: the command thread is held up.
    const std::string text = m_streams.text();
    EXPECT_THAT(text,
                HasSubstr("\"sendFID AXIS1.HOLD\" has not come back yet; meanwhile:\nno state values\n"));
    EXPECT_THAT(text, HasSubstr("meanwhile:\nuse\n\tof it.\n"));
    EXPECT_THAT(text, HasSubstr("meanwhile:\nthere is no alarm NOTHING; alarms lists them\n"));
    EXPECT_EQ(1, m_quits);
    EXPECT_TRUE(m_notes.empty());
    goOn();
    finish();
    EXPECT_THAT(m_notes, ElementsAre("1"));
    // None of those that were answered is executed once more.
    EXPECT_EQ(1, m_quits);
    EXPECT_TRUE(m_sut.sayFailedLines());
    EXPECT_THAT(m_log.text(), HasSubstr("line 4 of the input failed: acknowledge NOTHING\n"));
    EXPECT_THAT(m_log.text(), Not(HasSubstr("line 3 of the input")));
}

TEST_F(CommandShellTest, ScriptsLinesKeepTheirOrderWhereNoDriverHoldsThemUp) {
    open();
    m_sut.readLine("hold");
    awaitHold();
    std::this_thread::sleep_for(5100ms);
    m_sut.readLine("help note");
    EXPECT_EQ("", m_streams.text());
    goOn();
    EXPECT_EQ("use\n\tof it.\n", finish());
}

TEST_F(CommandShellTest, LineOfAnotherTerminalThatOnlyLooksIsAnsweredOnceACommandHoldsTheThreadUp) {
    open();
    EXPECT_FALSE(m_sut.executeMeanwhile("state", 0));
    m_sut.readLine("hold");
    awaitHold();
    EXPECT_FALSE(m_sut.executeMeanwhile("state", 0));
    std::this_thread::sleep_for(2100ms);
    const auto answered = m_sut.executeMeanwhile("state", 0);
    ASSERT_TRUE(answered);
    EXPECT_EQ("\"hold\" has not come back yet; meanwhile:\nno state values\n", answered->output);
    EXPECT_TRUE(answered->isDone);
    EXPECT_FALSE(m_sut.executeMeanwhile("acknowledge NOTHING", 0)->isDone);
    EXPECT_FALSE(m_sut.executeMeanwhile("note 1", 0));
    goOn();
    EXPECT_EQ("", finish());
    EXPECT_TRUE(m_notes.empty());
}

TEST_F(CommandShellTest, ReloadGoesTheWayOfTheWorkplace) {
    EXPECT_EQ("A is not reloaded, nothing is unloaded: the host is stopping\n", output({"reloadDriver A"}));
    EXPECT_TRUE(m_notes.empty());
}

TEST_F(CommandShellTest, ReloadShowsNoSignOfATerminal) {
    EXPECT_EQ("\\x1b[2J is not reloaded, nothing is unloaded: the host is stopping\n",
              output({"reloadDriver \x1b[2J"}));
}

TEST_F(CommandShellTest, ReloadWithoutADriverTellsItsUse) {
    EXPECT_EQ("use\n\tof it.\nuse\n\tof it.\n", output({"reloadDriver", "reloadDriver --help"}));
    EXPECT_TRUE(m_notes.empty());
}

TEST_F(CommandShellTest, StopAndStartGoTheWayOfTheWorkplace) {
    EXPECT_EQ("A is not stopped: the host is stopping\nA is not started: the host is stopping\n",
              output({"stopDriver A", "startDriver A"}));
}

TEST_F(CommandShellTest, WhatACommandSetsIsTheConsoles) {
    output({"setStateValue A.X 1"});
    ASSERT_TRUE(m_store.find("A.X"));
    EXPECT_EQ("console", m_store.find("A.X")->owner.text());
}

TEST_F(CommandShellTest, EndsAreLookedForBeforeDriversAndValuesAreShown) {
    ::setenv("MFD_QUEUE_DIR", m_directory.path().c_str(), 1);
    output({"drivers", "state --now"});
    ::unsetenv("MFD_QUEUE_DIR");
    EXPECT_EQ(2, m_looks);
}

TEST_F(CommandShellTest, CommandsAndDriversComplete) {
    m_drivers.processStarted("AXIS1", 1);
    EXPECT_THAT(m_sut.complete({}, "stop"), ElementsAre("stopDriver"));
    EXPECT_THAT(m_sut.complete({"stopDriver"}, "A"), ElementsAre("AXIS1"));
    EXPECT_THAT(m_sut.complete({"startDriver"}, "A"), ElementsAre("AXIS1"));
    finish();
}

TEST_F(CommandShellTest, WordOfAnotherConsoleIsAnsweredWithAHint) {
    EXPECT_EQ(
        "there is no command exit; quit stops all drivers and ends the host\n"
        "there is no command stop; stopDriver ID stops a driver and keeps it so; quit ends the host\n",
        output({"exit", "help stop"}));
}

TEST_F(CommandShellTest, LinesOfAScriptThatFailAreTold) {
    output({"note 1", "nonsense", "", "stopDriver A", "note 'x", "exit", "fail", "reloadDriver A",
            "reloadDriver", "drivers A", "note 2"});
    EXPECT_TRUE(m_sut.sayFailedLines());
    const std::string text = m_log.text();
    for (const char* line :
         {"line 2 of the input failed: nonsense\n", "line 4 of the input failed: stopDriver A\n",
          "line 5 of the input failed: note 'x\n", "line 6 of the input failed: exit\n",
          "line 7 of the input failed: fail\n", "line 8 of the input failed: reloadDriver A\n",
          "line 9 of the input failed: reloadDriver\n", "line 10 of the input failed: drivers A\n"})
        EXPECT_THAT(text, HasSubstr(std::string("warning  HOST: ") + line));
    EXPECT_THAT(text, Not(HasSubstr("line 1 of")));
    EXPECT_THAT(text, Not(HasSubstr("line 11 of")));
    EXPECT_THAT(m_notes, ElementsAre("1", "2"));
}

TEST_F(CommandShellTest, FidThatDoesNotReachItsDriverIsALineThatFailed) {
    runAxis();
    output({"sendFID AXIS1.MOVE", "sendFID NOBODY.MOVE", "sendFID AXIS1.NO"});
    EXPECT_TRUE(m_sut.sayFailedLines());
    EXPECT_THAT(m_log.text(), HasSubstr("line 2 of the input failed: sendFID NOBODY.MOVE\n"));
    EXPECT_THAT(m_log.text(), HasSubstr("line 3 of the input failed: sendFID AXIS1.NO\n"));
    EXPECT_THAT(m_log.text(), Not(HasSubstr("line 1 of the input")));
}

TEST_F(CommandShellTest, LineOfAnotherTerminalTellsItsOutcome) {
    open();
    std::promise<std::vector<CommandShell::Executed>> executed;
    m_commands.post("lines", [&] {
        executed.set_value({m_sut.executeFor("help note", 0), m_sut.executeFor("sendFID NOBODY.MOVE", 0)});
    });
    EXPECT_EQ("", finish());
    const auto lines = executed.get_future().get();
    EXPECT_EQ("use\n\tof it.\n", lines[0].output);
    EXPECT_TRUE(lines[0].isDone);
    EXPECT_EQ("\"NOBODY.MOVE\" has reached nobody: there is no driver NOBODY\n", lines[1].output);
    EXPECT_FALSE(lines[1].isDone);
    EXPECT_FALSE(m_sut.sayFailedLines());
}

TEST_F(CommandShellTest, TablesFitTheTerminalOfTheClient) {
    m_store.setStateValue("A.TEXT", std::string(100, 'x'));
    open();
    std::promise<std::vector<CommandShell::Executed>> executed;
    m_commands.post("lines", [&] {
        executed.set_value({m_sut.executeFor("state --now", 70), m_sut.executeFor("state --now", 0)});
    });
    finish();
    const auto lines = executed.get_future().get();
    EXPECT_THAT(lines[0].output, HasSubstr("xxx...  "));
    EXPECT_THAT(lines[1].output, HasSubstr(std::string(100, 'x')));
}

TEST_F(CommandShellTest, OtherTerminalDoesNotFollowAtThisOne) {
    open();
    std::promise<CommandShell::Executed> executed;
    m_commands.post("lines", [&] { executed.set_value(m_sut.executeFor("follow A.*", 0)); });
    finish();
    const auto line = executed.get_future().get();
    EXPECT_EQ("follow prints at the host's own terminal; from here, mfctl state --watch shows each change\n",
              line.output);
    EXPECT_FALSE(line.isDone);
}

TEST_F(CommandShellTest, LinesThatAreDoneAreNoFailure) {
    output({"note 1", "help", "help note", "# exit", "quit"});
    m_sut.postDriverCommand("nonsense");
    EXPECT_FALSE(m_sut.sayFailedLines());
    EXPECT_THAT(m_log.text(), Not(HasSubstr("failed")));
}

TEST_F(CommandShellTest, LineThatIsTooLongIsCountedAndHasFailed) {
    open();
    m_sut.readLine("note 1");
    m_sut.skipLine();
    m_sut.readLine("nonsense");
    finish();
    EXPECT_TRUE(m_sut.sayFailedLines());
    EXPECT_THAT(m_log.text(), HasSubstr("line 2 of the input failed: (too long)\n"));
    EXPECT_THAT(m_log.text(), HasSubstr("line 3 of the input failed: nonsense\n"));
}

TEST_F(CommandShellTest, OfManyLinesThatFailTheRestIsCounted) {
    output(std::vector<std::string>(25, "nonsense"));
    EXPECT_TRUE(m_sut.sayFailedLines());
    EXPECT_THAT(m_log.text(), HasSubstr("line 20 of the input failed: nonsense\n"));
    EXPECT_THAT(m_log.text(), Not(HasSubstr("line 21 of the input")));
    EXPECT_THAT(m_log.text(), HasSubstr("5 more lines of the input failed\n"));
}

TEST_F(CommandShellTest, FidOfAnotherTerminalDoesNotWaitForADriverWhoseQueueIsFull) {
    ::setenv("MFD_QUEUE_DIR", m_directory.path().c_str(), 1);
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("AXIS1_INQ", 8, 64, 0));
    m_drivers.processStarted("AXIS1", 1);
    open();
    const unsigned char message = 1;
    for (int i = 0; i < 4; ++i)
        ASSERT_TRUE(queue.send(&message, 1, 0));
    EXPECT_TRUE(m_sut.executeFor("sendFID AXIS1.MOVE x=1", 0).isDone);
    ASSERT_TRUE(queue.send(&message, 1, 0));
    const CommandShell::Executed refused = m_sut.executeFor("sendFID AXIS1.MOVE x=1", 0);
    EXPECT_EQ("\"AXIS1.MOVE\" has reached nobody: the input queue of AXIS1 holds 5 of 8 messages\n",
              refused.output);
    EXPECT_FALSE(refused.isDone);
    EXPECT_EQ("AXIS1 queue-full", m_fids.back());
    m_sut.readLine("sendFID AXIS1.MOVE x=1");
    finish();
    EXPECT_EQ("AXIS1 none", m_fids.back());
    ::unsetenv("MFD_QUEUE_DIR");
}

TEST_F(CommandShellAtAFullQueue, LinesOfAScriptWaitForRoomAndOthersDoNot) {
    m_drivers.processStarted("AXIS1", 1);
    open();
    m_sut.readLine("sendFID AXIS1.MOVE x=1");
    m_sut.readLine("note script");
    EXPECT_TRUE(m_sut.postDriverCommand("note driver", "A"));
    ASSERT_TRUE(eventually([&] { return wait().has_value(); }));
    EXPECT_EQ("sendFID AXIS1.MOVE x=1", wait()->what);
    EXPECT_EQ("AXIS1", wait()->driverID);
    std::promise<void> done;
    m_commands.post("another", [&] { done.set_value(); });
    ASSERT_EQ(std::future_status::ready, done.get_future().wait_for(c_hangGuard));
    takeOne();
    finish();
    EXPECT_THAT(m_notes, ElementsAre("driver", "script"));
    EXPECT_THAT(m_fids, ElementsAre("AXIS1 none"));
    EXPECT_FALSE(m_sut.sayFailedLines());
}

TEST_F(CommandShellAtAFullQueue, LinesOfADriverWaitForRoom) {
    m_drivers.processStarted("AXIS1", 1);
    open();
    EXPECT_TRUE(m_sut.postDriverCommand("sendFID AXIS1.MOVE", "A"));
    EXPECT_TRUE(m_sut.postDriverCommand("note A", "A"));
    EXPECT_TRUE(m_sut.postDriverCommand("note B", "B"));
    m_sut.readLine("note script");
    ASSERT_TRUE(eventually([&] { return wait().has_value(); }));
    takeOne();
    finish();
    EXPECT_THAT(m_notes, ElementsAre("B", "script", "A"));
    EXPECT_THAT(m_fids, ElementsAre("AXIS1 none"));
}

TEST_F(CommandShellAtAFullQueue, WaitBeginsAnewWhenTheDriverHasTakenSomething) {
    m_drivers.processStarted("AXIS1", 1);
    open();
    m_sut.readLine("sendFID AXIS1.MOVE");
    ASSERT_TRUE(eventually([&] { return wait().has_value(); }));
    const auto first = wait()->since;
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(first, wait()->since);
    m_commands.post("swap", [this] {
        takeOne();
        const unsigned char message = 1;
        EXPECT_TRUE(m_queue.send(&message, 1, 0));
    });
    EXPECT_TRUE(eventually([&] { return wait() && wait()->since > first; }));
    takeOne();
    finish();
    EXPECT_THAT(m_fids, ElementsAre("AXIS1 none"));
}

TEST_F(CommandShellAtAFullQueue, NobodyWaitsForADriverThatHasEnded) {
    m_drivers.processStarted("AXIS1", 1);
    m_drivers.processEnded("AXIS1", 1, "exit code 3", 1s, false);
    output({"sendFID AXIS1.MOVE", "note 1"});
    EXPECT_THAT(m_notes, ElementsAre("1"));
    EXPECT_EQ(1u, m_fids.size());
}

TEST_F(CommandShellAtAFullQueue, LineForADriverThatTheHostHasNotStartedFailsAfterAWhile) {
    m_drivers.processStarted("AXIS1", 1, true);
    EXPECT_EQ("\"AXIS1.MOVE\" has reached nobody: the input queue of AXIS1 holds 2 of 2 messages\n",
              output({"sendFID AXIS1.MOVE", "note 1"}));
    EXPECT_THAT(m_notes, ElementsAre("1"));
    EXPECT_THAT(m_fids, ElementsAre("AXIS1 queue-full"));
    EXPECT_TRUE(m_sut.sayFailedLines());
}

TEST_F(CommandShellTest, FidThatWasSentCompletes) {
    m_drivers.processStarted("AXIS1", 1);
    output({"sendFID AXIS1.MOVE x=1", "sendFID NOBODY.MOVE"});
    EXPECT_THAT(m_sut.complete({"sendFID"}, "AXIS1.M"), ElementsAre("AXIS1.MOVE"));
    EXPECT_TRUE(m_sut.complete({"sendFID"}, "NOB").empty());
}

TEST_F(CommandShellTest, FidOfAnotherTerminalCompletesUnlessItMayBeNone) {
    m_drivers.processStarted("AXIS1", 1);
    const auto learn = [this](const std::string& fid, EFidStage stage, EFidReason reason = EFidReason::None) {
        FidOutcome outcome;
        outcome.stage = stage;
        outcome.reason = reason;
        m_sut.learn(fid, outcome);
    };
    learn("AXIS1.MOVE", EFidStage::Written);
    learn("AXIS1.MAYBE", EFidStage::Accepted);
    learn("AXIS1.MISS", EFidStage::Delivered, EFidReason::UnknownFunction);
    learn("NOBODY.MOVE", EFidStage::Nobody, EFidReason::NoSuchDriver);
    EXPECT_THAT(m_sut.complete({"sendFID"}, "AXIS1.M"), ElementsAre("AXIS1.MOVE"));
    EXPECT_TRUE(m_sut.complete({"sendFID"}, "NOB").empty());
}

TEST_F(CommandShellTest, FidThatADriverHasNamedCompletes) {
    m_sut.learn("AXIS1: unknown FID \"X\"; known are MOVE, STOP");
    EXPECT_THAT(m_sut.complete({"sendFID"}, "AXIS1.S"), ElementsAre("AXIS1.STOP"));
    finish();
}

TEST_F(CommandShellTest, OutputThatWasClosedForAMomentIsUsedAgainWithOneLine) {
    std::cout.setstate(std::ios::badbit);
    m_sut.recoverOutput();
    EXPECT_TRUE(std::cout);
    std::cout.setstate(std::ios::badbit);
    m_sut.recoverOutput();
    EXPECT_TRUE(std::cout);
    m_sut.recoverOutput();
    const std::string text = m_log.text();
    const std::string line = "standard output could not be written; what was printed is lost\n";
    EXPECT_THAT(text, HasSubstr("warning  HOST: " + line));
    EXPECT_EQ(text.find(line), text.rfind(line));
    finish();
}
