#include "LineEditor.h"

#include <gtest/gtest.h>
#include <clocale>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Terminal.h"

namespace {

/// An editor in a process whose standard streams are a terminal; the test types and sees the screen.
class LineEditorTest : public testing::Test {
protected:
    /// The editor's process writes each line that it reads as "[line]".
    void start(const std::vector<std::string>& words = {"drivers", "reloadDriver", "state", "stateless"}) {
        m_pTerminal = std::make_unique<Terminal>([&] {
            std::setlocale(LC_CTYPE, "C.UTF-8");
            InputWaiter waiter(STDIN_FILENO);
            LineEditor sut(waiter, [&](const auto& before, const std::string& prefix) {
                std::vector<std::string> found;
                for (const std::string& word : words) {
                    if (before.empty() && word.starts_with(prefix))
                        found.push_back(word);
                }
                return found;
            });
            for (auto line = sut.read(); line; line = sut.read()) {
                std::printf("[%s]\r\n", line->c_str());
                std::fflush(stdout);
            }
            std::printf("(end)\r\n");
            std::fflush(stdout);
        });
    }
    void awaitPrompt() { ASSERT_TRUE(m_pTerminal->awaitPrompt()) << screen(); }
    void type(const std::string& keys) { ASSERT_TRUE(m_pTerminal->type(keys)); }
    bool shows(const std::string& text) { return m_pTerminal->shows(text); }
    const std::string& screen() { return m_pTerminal->screen(); }

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
