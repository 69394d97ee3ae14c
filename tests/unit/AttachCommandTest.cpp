#include "AttachCommand.h"

#include <unistd.h>

#include "HostProcess.h"
#include "RemoteFixture.h"
#include "Terminal.h"
#include "TerminalScreen.h"

namespace {

class AttachCommandTest : public RemoteFixture {
protected:
    /// Executes these lines as mfctl attach does from a pipe; gives its exit code.
    std::optional<int> pipe(const std::vector<std::string>& lines) {
        m_pProgram = std::make_unique<HostProcess>(
            HostProcess::Start{MFD_MFCTL, {"attach", "--host", m_host.path()}, {}, m_directory.path()});
        for (const std::string& line : lines)
            m_pProgram->type(line);
        m_pProgram->closeInput();
        return m_pProgram->waitForEnd();
    }
    std::vector<std::string> executed() const {
        std::vector<std::string> lines;
        for (const auto& request : m_host.requests("POST /console"))
            lines.push_back(Json::parse(request.body)["line"]);
        return lines;
    }
    std::unique_ptr<Terminal> atATerminal() {
        return std::make_unique<Terminal>([&] {
            ::setenv("XDG_STATE_HOME", m_directory.path("state").c_str(), 1);
            ::execl(MFD_MFCTL, MFD_MFCTL, "attach", "--host", m_host.path().c_str(), nullptr);
        });
    }

    std::unique_ptr<HostProcess> m_pProgram;
};

}  // namespace

TEST_F(AttachCommandTest, LinesOfAPipeAreExecutedInTheirOrder) {
    m_host.answer("POST /console", R"({"output":"one\ntwo\u001b[2J\n"})");
    EXPECT_EQ(0, pipe({"drivers", "", "# a comment", "state SYS.*"}));
    EXPECT_EQ((std::vector<std::string>{"drivers", "state SYS.*"}), executed());
    EXPECT_EQ("one\ntwo\\x1b[2J\none\ntwo\\x1b[2J\n", m_pProgram->output());
    EXPECT_EQ("", m_pProgram->log());
}

TEST_F(AttachCommandTest, PipeGoesOnAfterALineThatFailsAndTellsWhichItWas) {
    m_host.answer("POST /console", R"({"error":{"code":"refused","text":"unknown command","nearest":[]}})",
                  409);
    EXPECT_EQ(1, pipe({"drivrs", "state"}));
    EXPECT_EQ(
        "mfctl: line 1, \"drivrs\": unknown command\n"
        "mfctl: line 2, \"state\": unknown command\n",
        m_pProgram->log());
}

TEST_F(AttachCommandTest, LineThatTheHostHasRefusedIsToldWithItsNumber) {
    m_host.answer("POST /console", R"({"output":"there is no driver NOPE\n","done":false})");
    EXPECT_EQ(1, pipe({"drivers NOPE"}));
    EXPECT_EQ("there is no driver NOPE\n", m_pProgram->output());
    EXPECT_EQ("mfctl: line 1, \"drivers NOPE\": has failed\n", m_pProgram->log());
}

TEST_F(AttachCommandTest, ExitCodeIsThatOfTheLastLineThatFailed) {
    m_host.answer("POST /console", R"({"error":{"code":"not-allowed","text":"needs admin","nearest":[]}})",
                  403);
    EXPECT_EQ(4, pipe({"drivers"}));
}

TEST_F(AttachCommandTest, NoHostIsThree) {
    m_pProgram = std::make_unique<HostProcess>(HostProcess::Start{
        MFD_MFCTL, {"attach", "--host", m_directory.path("none")}, {}, m_directory.path()});
    m_pProgram->type("drivers");
    EXPECT_EQ(3, m_pProgram->waitForEnd());
}

TEST_F(AttachCommandTest, PipeEndsAtTheLineAtWhichTheHostIsGone) {
    const std::string path = m_directory.path("gone.sock");
    auto pHost = std::make_unique<CannedHost>(path);
    pHost->answer("POST /console", R"({"output":"ok\n"})");
    HostProcess program({MFD_MFCTL, {"attach", "--host", path}, {}, m_directory.path()});
    program.type("drivers");
    ASSERT_TRUE(program.waitForOutput("ok\n")) << program.log();
    pHost.reset();
    program.type("drivers");
    program.type("state");
    program.closeInput();
    EXPECT_EQ(3, program.waitForEnd());
    EXPECT_THAT(program.log(), testing::StartsWith("mfctl: line 2, \"drivers\": "));
    EXPECT_EQ(std::string::npos, program.log().find("line 3")) << program.log();
}

TEST_F(AttachCommandTest, TerminalSaysWhereItIsAndDetachLeavesTheHost) {
    m_host.answer("POST /console", R"({"output":"all is well\n"})");
    const auto terminal = atATerminal();
    EXPECT_TRUE(terminal->shows("attached to " + m_host.path() +
                                ", process 4711, as admin\r\ndetach or Ctrl-D leaves the host running\r\n"));
    ASSERT_TRUE(terminal->awaitPrompt());
    terminal->type("drivers\r");
    EXPECT_TRUE(terminal->shows("all is well")) << terminal->screen();
    ASSERT_TRUE(terminal->awaitPrompt());
    terminal->type("detach\r");
    EXPECT_EQ(0, terminal->waitForEnd());
    EXPECT_EQ(std::vector<std::string>{"drivers"}, executed());
}

TEST_F(AttachCommandTest, QuitIsAskedForTwiceAtATerminal) {
    m_host.answer("POST /console", R"({"output":""})");
    const auto terminal = atATerminal();
    ASSERT_TRUE(terminal->awaitPrompt());
    terminal->type("quit\r");
    EXPECT_TRUE(terminal->shows("quit ends the workplace for everybody")) << terminal->screen();
    ASSERT_TRUE(terminal->awaitPrompt());
    terminal->type("drivers\r");
    ASSERT_TRUE(terminal->awaitPrompt());
    terminal->type("quit\r");
    EXPECT_TRUE(terminal->shows("quit ends the workplace for everybody")) << terminal->screen();
    ASSERT_TRUE(terminal->awaitPrompt());
    EXPECT_EQ(std::vector<std::string>{"drivers"}, executed());
    terminal->type("quit\r");
    ASSERT_TRUE(terminal->awaitPrompt());
    EXPECT_EQ((std::vector<std::string>{"drivers", "quit"}), executed());
}

TEST_F(AttachCommandTest, LinesOfFormerSessionsAreBroughtBack) {
    m_host.answer("POST /console", R"({"output":"ok\n"})");
    for (const char* pKeys : {"drivers\r", "\x10\r"}) {
        const auto terminal = atATerminal();
        ASSERT_TRUE(terminal->awaitPrompt()) << terminal->screen();
        terminal->type(pKeys);
        ASSERT_TRUE(terminal->shows("ok")) << terminal->screen();
        ASSERT_TRUE(terminal->awaitPrompt()) << terminal->screen();
        terminal->type("\x04");
        EXPECT_EQ(0, terminal->waitForEnd());
    }
    EXPECT_EQ((std::vector<std::string>{"drivers", "drivers"}), executed());
}

TEST_F(AttachCommandTest, HostIsToldHowWideTheTerminalIs) {
    m_host.answer("POST /console", R"({"output":"ok\n"})");
    const auto terminal = atATerminal();
    ASSERT_TRUE(terminal->awaitPrompt()) << terminal->screen();
    terminal->resize(72);
    terminal->type("drivers\r");
    ASSERT_TRUE(terminal->shows("ok")) << terminal->screen();
    EXPECT_EQ(0, pipe({"drivers"}));
    const auto requests = m_host.requests("POST /console");
    ASSERT_EQ(2u, requests.size());
    EXPECT_EQ(72, Json::parse(requests[0].body).value("columns", 0));
    EXPECT_FALSE(Json::parse(requests[1].body).contains("columns"));
}

TEST_F(AttachCommandTest, TerminalGoesOnAfterALineThatFails) {
    m_host.answer("POST /console", R"({"error":{"code":"refused","text":"unknown command","nearest":[]}})",
                  409);
    const auto terminal = atATerminal();
    ASSERT_TRUE(terminal->awaitPrompt());
    terminal->type("drivrs\r");
    EXPECT_TRUE(terminal->shows("mfctl: unknown command")) << terminal->screen();
    ASSERT_TRUE(terminal->awaitPrompt());
    terminal->type("\x04");
    EXPECT_EQ(0, terminal->waitForEnd());
}

TEST_F(AttachCommandTest, HostCompletesLinesOfTheTerminal) {
    m_host.answer("POST /console", R"({"output":"ok\n"})");
    const auto terminal = atATerminal();
    m_host.answer("GET /completion?line=reloadDr", R"({"words":["reloadDriver"]})");
    m_host.answer("GET /completion?line=sendFID%20", R"({"words":["SYS."]})");
    m_host.answer("GET /completion?line=state%20%27A%20B%27%20", R"({"words":["C"]})");
    for (const std::string line : {"reloadDr\tX", "sendFID \tX", "state 'A B' \tX"}) {
        ASSERT_TRUE(terminal->awaitPrompt());
        terminal->type(line + "\r");
        ASSERT_TRUE(terminal->shows("ok")) << terminal->screen();
    }
    EXPECT_EQ((std::vector<std::string>{"reloadDriver X", "sendFID SYS.X", "state 'A B' C X"}), executed());
}

TEST_F(AttachCommandTest, DetachIsCompletedBesideTheHostsCommands) {
    m_host.answer("GET /completion?line=det", R"({"words":[]})");
    const auto terminal = atATerminal();
    ASSERT_TRUE(terminal->awaitPrompt());
    terminal->type("det\t\r");
    EXPECT_EQ(0, terminal->waitForEnd());
}

TEST_F(AttachCommandTest, AlarmsStandBeforeThePromptUntilThereAreNone) {
    m_host.answer("GET /health", R"({"alarms":2})");
    m_host.answer("POST /console", R"({"output":"ok\n"})");
    const auto terminal = atATerminal();
    ASSERT_TRUE(terminal->shows("[2 alarms] \x1b[0mmfhost> ")) << terminal->screen();
    // It comes while the line is typed, too.
    terminal->type("acknow");
    m_host.answer("GET /health", R"({"alarms":1})");
    ASSERT_TRUE(terminal->shows("[1 alarm] \x1b[0mmfhost> acknow")) << terminal->screen();
    m_host.answer("GET /health", R"({"alarms":0})");
    terminal->type("ledge SYS\r");
    ASSERT_TRUE(terminal->shows("ok\r\n")) << terminal->screen();
    ASSERT_TRUE(terminal->comesTo([](const std::string& written) {
        const auto rows = TerminalScreen(80, written).rows();
        return !rows.empty() && rows.back() == "mfhost>";
    })) << terminal->screen();
    terminal->type("\x04");
    EXPECT_EQ(0, terminal->waitForEnd());
    EXPECT_EQ(std::vector<std::string>{"acknowledge SYS"}, executed());
}

TEST_F(AttachCommandTest, HostThatDoesNotAnswerIsToldBeforeThePromptAndHoldsUpNoKey) {
    m_host.answer("GET /health", R"({"alarms":2})");
    const auto terminal = atATerminal();
    ASSERT_TRUE(terminal->shows("[2 alarms] \x1b[0mmfhost> ")) << terminal->screen();
    m_host.fallSilent();
    ASSERT_TRUE(terminal->shows("[no answer] \x1b[0mmfhost> ")) << terminal->screen();
    terminal->type("detach");
    ASSERT_TRUE(terminal->shows("mfhost> detach")) << terminal->screen();
    terminal->type("\r");
    EXPECT_EQ(0, terminal->waitForEnd());
}

TEST_F(AttachCommandTest, NothingIsColouredWhereTheTerminalIsNotToBe) {
    m_host.answer("GET /health", R"({"alarms":1})");
    ::setenv("NO_COLOR", "1", 1);
    const auto terminal = atATerminal();
    ::unsetenv("NO_COLOR");
    EXPECT_TRUE(terminal->shows("[1 alarm] mfhost> ")) << terminal->screen();
    terminal->type("detach\r");
    EXPECT_EQ(0, terminal->waitForEnd());
}
