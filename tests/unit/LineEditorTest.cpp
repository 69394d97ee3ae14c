#include "LineEditor.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <clocale>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"
#include "Terminal.h"
#include "TerminalScreen.h"

namespace {

/// An editor in a process whose standard streams are a terminal; the test types and sees the screen.
class LineEditorTest : public testing::Test {
protected:
    /// The editor's process writes each line that it reads as "[line]", waits after the line "wait" until
    /// there is a file of that name, and stops the waiter when "stop" is to be completed.
    void start(const std::vector<std::string>& words = {"drivers", "reloadDriver", "state", "stateless"},
               LineEditor::Settings settings = {}) {
        settings.historyLost = [](const std::string& reason) {
            std::printf("not kept: %s\n", reason.c_str());
        };
        m_pTerminal = std::make_unique<Terminal>([&] {
            std::setlocale(LC_CTYPE, "C.UTF-8");
            InputWaiter waiter(STDIN_FILENO);
            waiter.watchSize();
            LineEditor sut(
                waiter,
                [&](const auto& before, const std::string& prefix) {
                    std::vector<std::string> found;
                    if (prefix == "stop")
                        waiter.stop();
                    for (const std::string& word : words) {
                        if (before.empty() && word.starts_with(prefix))
                            found.push_back(word);
                    }
                    return found;
                },
                settings);
            for (auto line = sut.read(); line || sut.isInterrupted(); line = sut.read()) {
                std::printf("%s\r\n", line ? ("[" + *line + "]").c_str() : "(interrupted)");
                std::fflush(stdout);
                if (line == "wait")
                    eventually([this] { return m_directory.contains("wait"); });
            }
            std::printf("(end)\r\n");
            std::fflush(stdout);
        });
    }
    void awaitPrompt() { ASSERT_TRUE(m_pTerminal->awaitPrompt()) << screen(); }
    void type(const std::string& keys) { ASSERT_TRUE(m_pTerminal->type(keys)); }
    bool shows(const std::string& text) { return m_pTerminal->shows(text); }
    const std::string& screen() { return m_pTerminal->screen(); }

    const TemporaryDirectory m_directory;
    std::unique_ptr<Terminal> m_pTerminal;
};

}  // namespace

TEST_F(LineEditorTest, ReadsALine) {
    start();
    awaitPrompt();
    type("drivers\r");
    EXPECT_TRUE(shows("[drivers]")) << screen();
}

TEST_F(LineEditorTest, TakesBackWhatIsRubbedOut) {
    start();
    awaitPrompt();
    type("driverz\x7fs\r");
    EXPECT_TRUE(shows("[drivers]")) << screen();
}

TEST_F(LineEditorTest, BringsTheLastLineBack) {
    start();
    awaitPrompt();
    type("events\r");
    ASSERT_TRUE(shows("[events]"));
    awaitPrompt();
    type("\x10\r");
    EXPECT_TRUE(shows("[events]")) << screen();
}

TEST_F(LineEditorTest, CompletesAWord) {
    start();
    awaitPrompt();
    type("rel\tX\r");
    EXPECT_TRUE(shows("[reloadDriver X]")) << screen();
}

TEST_F(LineEditorTest, NoBlankComesAfterTheBeginOfAWord) {
    start({"AXIS1.", "name="});
    awaitPrompt();
    type("AX\tMOVE\r");
    EXPECT_TRUE(shows("[AXIS1.MOVE]")) << screen();
    awaitPrompt();
    type("na\tx\r");
    EXPECT_TRUE(shows("[name=x]")) << screen();
}

TEST_F(LineEditorTest, CompletesAsFarAsTheWordsAgree) {
    start();
    awaitPrompt();
    type("st\tX\r");
    EXPECT_TRUE(shows("[stateX]")) << screen();
}

TEST_F(LineEditorTest, ListsTheWordsThatAreMeant) {
    start();
    awaitPrompt();
    type("state\t");
    EXPECT_TRUE(shows("stateless")) << screen();
}

TEST_F(LineEditorTest, ListsNoWordAsItIs) {
    start({"K1\a\x1b[5mX",
           "K2\xc2\x9b"
           "5mY\x9b"});
    ASSERT_TRUE(shows("mfhost> "));
    type("K\t");
    EXPECT_TRUE(shows("K1\\x07\\x1b[5mX\r\n")) << screen();
    EXPECT_TRUE(shows("K2\\u009b5mY\\x9b\r\n")) << screen();
    EXPECT_EQ(std::string::npos, screen().find("\x1b[5m")) << screen();
    EXPECT_EQ(std::string::npos, screen().find('\x9b')) << screen();
}

TEST_F(LineEditorTest, WordThatCannotBeShownIsListedAndNotTyped) {
    start({"K\x1b[5m\xe2\x80\xae"});
    ASSERT_TRUE(shows("mfhost> "));
    type("K\t");
    EXPECT_TRUE(shows("K\\x1b[5m\\u202e\r\n")) << screen();
    type("\r");
    EXPECT_TRUE(shows("[K]")) << screen();
    EXPECT_EQ(std::string::npos, screen().find("\x1b[5m")) << screen();
    EXPECT_EQ(std::string::npos, screen().find("\xe2\x80\xae")) << screen();
}

TEST_F(LineEditorTest, TakesCharactersOfSeveralBytes) {
    start();
    awaitPrompt();
    type("\xc3\xa4\xe2\x82\xac\r");
    EXPECT_TRUE(shows("[\xc3\xa4\xe2\x82\xac]")) << screen();
}

TEST_F(LineEditorTest, EndOfInputIsNoLine) {
    start();
    awaitPrompt();
    type("\x04");
    EXPECT_TRUE(shows("(end)")) << screen();
}

TEST_F(LineEditorTest, CtrlCEmptiesTheLine) {
    start();
    awaitPrompt();
    type("driv\x03");
    ASSERT_TRUE(shows("^C")) << screen();
    awaitPrompt();
    type("events\r");
    EXPECT_TRUE(shows("[events]")) << screen();
    EXPECT_EQ(std::string::npos, screen().find("(interrupted)")) << screen();
}

TEST_F(LineEditorTest, CtrlCWithinALineOfSeveralRowsLeavesAllOfIt) {
    start();
    awaitPrompt();
    const std::string text(100, 'x');
    // Back to the line's begin, which stands a row above its end.
    type(text + "\x01\x03");
    ASSERT_TRUE(shows("^C")) << screen();
    EXPECT_TRUE(m_pTerminal->comesTo([&](const std::string& written) {
        // The prompt had been taken off the screen before.
        const auto rows = TerminalScreen(80, "mfhost> " + written).rows();
        return rows.size() == 3 && rows[0] == "mfhost> " + std::string(72, 'x') &&
               rows[1] == std::string(28, 'x') + "^C" && rows[2] == "mfhost>";
    })) << screen();
}

TEST_F(LineEditorTest, LineOfAConsoleThatIsStoppedLeavesTheScreen) {
    start();
    awaitPrompt();
    type("stop\t");
    ASSERT_TRUE(shows("(end)")) << screen();
    EXPECT_TRUE(m_pTerminal->comesTo([&](const std::string& written) {
        return TerminalScreen(80, "mfhost> " + written).rows() == std::vector<std::string>{"(end)"};
    })) << screen();
}

TEST_F(LineEditorTest, CtrlCOnAnEmptyLineIsTold) {
    start();
    awaitPrompt();
    type("\x03");
    EXPECT_TRUE(shows("(interrupted)")) << screen();
    awaitPrompt();
    type("\x04");
    EXPECT_TRUE(shows("(end)")) << screen();
}

TEST_F(LineEditorTest, KeysBetweenTwoLinesAreNeitherShownNorLost) {
    start();
    awaitPrompt();
    type("wait\r");
    ASSERT_TRUE(shows("[wait]"));
    type("drivez\x7f");
    EXPECT_TRUE(m_pTerminal->staysWithout("drive")) << screen();
    EXPECT_FALSE(m_pTerminal->takesLines());
    m_directory.write("wait", "");
    ASSERT_TRUE(shows("drive")) << screen();
    type("rs\r");
    EXPECT_TRUE(shows("[drivers]")) << screen();
}

TEST_F(LineEditorTest, CtrlCBetweenTwoLinesEndsNothing) {
    start();
    awaitPrompt();
    type("wait\r");
    ASSERT_TRUE(shows("[wait]"));
    type("\x03");
    m_directory.write("wait", "");
    EXPECT_TRUE(shows("(interrupted)")) << screen();
}

TEST_F(LineEditorTest, BringsLinesOfFormerSessionsBack) {
    const LineEditor::Settings settings{.historyFile = m_directory.path("history")};
    start({}, settings);
    awaitPrompt();
    type("events\r");
    ASSERT_TRUE(shows("[events]"));
    start({}, settings);
    awaitPrompt();
    type("\x10\r");
    EXPECT_TRUE(shows("[events]")) << screen();
}

TEST_F(LineEditorTest, SaysOnceThatTheHistoryIsNotKept) {
    m_directory.write("file", "");
    start({}, {.historyFile = m_directory.path("file/history")});
    ASSERT_TRUE(shows("mfhost> ")) << screen();
    type("one\r");
    ASSERT_TRUE(shows("not kept: " + m_directory.path("file/history") + ": Not a directory")) << screen();
    ASSERT_TRUE(shows("[one]")) << screen();
    awaitPrompt();
    type("two\r");
    ASSERT_TRUE(shows("[two]")) << screen();
    EXPECT_TRUE(m_pTerminal->staysWithout("not kept")) << screen();
}

TEST_F(LineEditorTest, LineStaysWholeWhenTheTerminalIsResized) {
    start();
    m_pTerminal->resize(40);
    awaitPrompt();
    type(std::string(50, 'a'));
    ASSERT_TRUE(m_pTerminal->comesTo(
        [](const std::string& written) { return std::count(written.begin(), written.end(), 'a') >= 50; }));
    m_pTerminal->resize(120);
    // It is written again, in one row now.
    ASSERT_TRUE(shows("mfhost> " + std::string(50, 'a'))) << screen();
    EXPECT_TRUE(m_pTerminal->comesTo([](const std::string& written) {
        const auto begin = written.rfind("mfhost> ");
        return TerminalScreen(120, written.substr(begin)).rows() ==
               std::vector<std::string>{"mfhost> " + std::string(50, 'a')};
    })) << screen();
    type("b\r");
    EXPECT_TRUE(shows("[" + std::string(50, 'a') + "b]")) << screen();
}

TEST_F(LineEditorTest, ResizeThatMakesTheLineFillItsRowLeavesTheRowAboveAlone) {
    start();
    m_pTerminal->resize(80);
    awaitPrompt();
    const std::string line(40 - std::string("mfhost> ").size(), 'a');
    type(line);
    ASSERT_TRUE(m_pTerminal->comesTo([&](const std::string& written) {
        return std::count(written.begin(), written.end(), 'a') >= static_cast<std::ptrdiff_t>(line.size());
    }));
    m_pTerminal->resize(40);
    ASSERT_TRUE(shows("mfhost> " + line)) << screen();
    EXPECT_EQ(std::string::npos, screen().find("\x1b[A")) << screen();
}

TEST_F(LineEditorTest, NoticeStandsBeforeThePromptAsLongAsItLasts) {
    const auto notice = [this] { return m_directory.contains("alarm") ? "1 alarm" : std::string(); };
    start({}, {.notice = notice});
    awaitPrompt();
    type("dri");
    m_directory.write("alarm", "");
    ASSERT_TRUE(shows("[1 alarm] mfhost> dri")) << screen();
    std::filesystem::remove(m_directory.path("alarm"));
    EXPECT_TRUE(m_pTerminal->comesTo([](const std::string& written) {
        return TerminalScreen(80, "mfhost> " + written).rows() == std::vector<std::string>{"mfhost> dri"};
    })) << screen();
}

TEST_F(LineEditorTest, NoticeHasAColourWhereThereAreSome) {
    start({}, {.notice = [] { return "1 alarm"; }, .hasColours = true});
    EXPECT_TRUE(shows("\x1b[31m[1 alarm] \x1b[0mmfhost> ")) << screen();
}
