#include "console/LineEditor.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <functional>
#include <string>
#include <vector>

#include "HangGuard.h"

namespace {

/// An editor in a process whose standard streams are a terminal; the test types and sees the screen.
class LineEditorTest : public testing::Test {
protected:
    ~LineEditorTest() override {
        if (m_child > 0) {
            ::kill(m_child, SIGKILL);
            ::waitpid(m_child, nullptr, 0);
        }
        if (m_terminal >= 0)
            ::close(m_terminal);
    }

    /// The editor's process writes each line that it reads as "[line]".
    void start(const std::vector<std::string>& words = {"drivers", "reloadDriver", "state", "stateless"}) {
        m_child = ::forkpty(&m_terminal, nullptr, nullptr, nullptr);
        ASSERT_GE(m_child, 0);
        if (m_child > 0)
            return;
        ::setenv("TERM", "xterm", 1);
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
        ::_exit(0);
    }
    /// The editor waits for keys. The prompt stands before it has taken the terminal over; a key in between
    /// would mean something else.
    void awaitPrompt() {
        ASSERT_TRUE(shows("mfhost> ")) << m_screen;
        m_screen.clear();
        ASSERT_TRUE(eventually([this] {
            termios modes{};
            return ::tcgetattr(m_terminal, &modes) == 0 && (modes.c_lflag & ICANON) == 0;
        }));
    }
    void type(const std::string& keys) {
        ASSERT_EQ(static_cast<ssize_t>(keys.size()), ::write(m_terminal, keys.data(), keys.size()));
    }
    bool shows(const std::string& text) {
        return eventually([&] {
            pollfd terminal{m_terminal, POLLIN, 0};
            char chunk[1024];
            if (m_screen.find(text) == std::string::npos && ::poll(&terminal, 1, 50) > 0) {
                const ssize_t count = ::read(m_terminal, chunk, sizeof chunk);
                m_screen.append(chunk, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
            }
            return m_screen.find(text) != std::string::npos;
        });
    }

    int m_terminal = -1;
    pid_t m_child = -1;
    std::string m_screen;
};

}  // namespace

TEST_F(LineEditorTest, ReadsALine) {
    start();
    awaitPrompt();
    type("drivers\r");
    EXPECT_TRUE(shows("[drivers]")) << m_screen;
}

TEST_F(LineEditorTest, TakesBackWhatIsRubbedOut) {
    start();
    awaitPrompt();
    type("driverz\x7fs\r");
    EXPECT_TRUE(shows("[drivers]")) << m_screen;
}

TEST_F(LineEditorTest, BringsTheLastLineBack) {
    start();
    awaitPrompt();
    type("events\r");
    ASSERT_TRUE(shows("[events]"));
    awaitPrompt();
    type("\x10\r");
    EXPECT_TRUE(shows("[events]")) << m_screen;
}

TEST_F(LineEditorTest, CompletesAWord) {
    start();
    awaitPrompt();
    type("rel\tX\r");
    EXPECT_TRUE(shows("[reloadDriver X]")) << m_screen;
}

TEST_F(LineEditorTest, CompletesAsFarAsTheWordsAgree) {
    start();
    awaitPrompt();
    type("st\tX\r");
    EXPECT_TRUE(shows("[stateX]")) << m_screen;
}

TEST_F(LineEditorTest, ListsTheWordsThatAreMeant) {
    start();
    awaitPrompt();
    type("state\t");
    EXPECT_TRUE(shows("stateless")) << m_screen;
}

TEST_F(LineEditorTest, ListsNoWordAsItIs) {
    start({"K1\a\x1b[5mX",
           "K2\xc2\x9b"
           "5mY\x9b"});
    ASSERT_TRUE(shows("mfhost> "));
    type("K\t");
    EXPECT_TRUE(shows("K1\\x07\\x1b[5mX\r\n")) << m_screen;
    EXPECT_TRUE(shows("K2\\u009b5mY\\x9b\r\n")) << m_screen;
    EXPECT_EQ(std::string::npos, m_screen.find("\x1b[5m")) << m_screen;
    EXPECT_EQ(std::string::npos, m_screen.find('\x9b')) << m_screen;
}

TEST_F(LineEditorTest, WordThatCannotBeShownIsListedAndNotTyped) {
    start({"K\x1b[5m\xe2\x80\xae"});
    ASSERT_TRUE(shows("mfhost> "));
    type("K\t");
    EXPECT_TRUE(shows("K\\x1b[5m\\u202e\r\n")) << m_screen;
    type("\r");
    EXPECT_TRUE(shows("[K]")) << m_screen;
    EXPECT_EQ(std::string::npos, m_screen.find("\x1b[5m")) << m_screen;
    EXPECT_EQ(std::string::npos, m_screen.find("\xe2\x80\xae")) << m_screen;
}

TEST_F(LineEditorTest, TakesCharactersOfSeveralBytes) {
    start();
    awaitPrompt();
    type("\xc3\xa4\xe2\x82\xac\r");
    EXPECT_TRUE(shows("[\xc3\xa4\xe2\x82\xac]")) << m_screen;
}

TEST_F(LineEditorTest, EndOfInputIsNoLine) {
    start();
    awaitPrompt();
    type("\x04");
    EXPECT_TRUE(shows("(end)")) << m_screen;
}
