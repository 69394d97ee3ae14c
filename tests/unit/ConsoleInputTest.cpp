#include "ConsoleInput.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Terminal.h"

namespace {

/// Lines of a process at a terminal; the test types and sees the screen. Each line is shown as "[line]".
class ConsoleInputTest : public testing::Test {
protected:
    void start(const std::vector<std::string>& words = {"SYS", "SYSTEM."}) {
        m_pTerminal = std::make_unique<Terminal>([&] {
            std::setlocale(LC_CTYPE, "C.UTF-8");
            ConsoleInput sut(
                [&](const auto& before, const std::string& prefix) {
                    std::vector<std::string> found;
                    for (const std::string& word : words) {
                        if (before.size() == 1 && word.starts_with(prefix))
                            found.push_back(word);
                    }
                    return found;
                },
                {});
            for (auto line = sut.read(); line; line = sut.read()) {
                std::printf("[%s]\r\n", line->c_str());
                std::fflush(stdout);
                if (*line == "wait")
                    ::pause();
            }
            std::printf("(end)\r\n");
            std::fflush(stdout);
        });
        ASSERT_TRUE(m_pTerminal->awaitPrompt()) << screen();
    }
    void type(const std::string& keys) { ASSERT_TRUE(m_pTerminal->type(keys)); }
    bool shows(const std::string& text) { return m_pTerminal->shows(text); }
    const std::string& screen() { return m_pTerminal->screen(); }

    std::unique_ptr<Terminal> m_pTerminal;
};

}  // namespace

TEST_F(ConsoleInputTest, ReadsALineAndBringsItBack) {
    start();
    type("drivers\r");
    EXPECT_TRUE(shows("[drivers]")) << screen();
    ASSERT_TRUE(m_pTerminal->awaitPrompt());
    type("\x10\r");
    EXPECT_TRUE(shows("[drivers]")) << screen();
}

TEST_F(ConsoleInputTest, ControlCEmptiesTheLineAndEndsNothing) {
    start();
    type("shutdown\x03");
    EXPECT_TRUE(shows("^C")) << screen();
    ASSERT_TRUE(m_pTerminal->awaitPrompt()) << screen();
    type("\x03");
    ASSERT_TRUE(m_pTerminal->awaitPrompt()) << screen();
    type("state\r");
    EXPECT_TRUE(shows("[state]")) << screen();
}

TEST_F(ConsoleInputTest, ControlCEndsAProgramThatWaitsForAHost) {
    start();
    type("wait\r");
    ASSERT_TRUE(shows("[wait]")) << screen();
    type("\x03");
    EXPECT_EQ(128 + SIGINT, m_pTerminal->waitForEnd()) << screen();
    EXPECT_TRUE(m_pTerminal->takesLines());
}

TEST_F(ConsoleInputTest, ControlDIsTheEnd) {
    start();
    type("\x04");
    EXPECT_TRUE(shows("(end)")) << screen();
}

TEST_F(ConsoleInputTest, CompletesAsFarAsTheWordsAgreeAndLeavesRoomForTheRestOfAFid) {
    start({"SYSTEM."});
    type("sendFID S\tMARK\r");
    EXPECT_TRUE(shows("[sendFID SYSTEM.MARK]")) << screen();
}

TEST_F(ConsoleInputTest, WordIsFollowedByABlank) {
    start({"SYS"});
    type("reloadDriver S\tX\r");
    EXPECT_TRUE(shows("[reloadDriver SYS X]")) << screen();
}

TEST_F(ConsoleInputTest, ListsTheWordsThatAreMeant) {
    start();
    type("state SYS\t");
    EXPECT_TRUE(shows("SYSTEM.\r\n")) << screen();
}

TEST_F(ConsoleInputTest, ListsNoWordAsItIs) {
    start({"K\x1b[5m"});
    type("state K\t");
    EXPECT_TRUE(shows("K\\x1b[5m\r\n")) << screen();
    EXPECT_EQ(std::string::npos, screen().find("\x1b[5m")) << screen();
}
