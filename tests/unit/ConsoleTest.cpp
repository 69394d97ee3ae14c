#include "Console.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <iostream>
#include <mutex>
#include <vector>

#include "LogCapture.h"
#include "Terminal.h"

namespace {

/// A console whose standard input is a pipe.
class ConsoleTest : public testing::Test {
protected:
    ConsoleTest() : m_saved(::dup(STDIN_FILENO)) {
        int ends[2];
        EXPECT_EQ(0, ::pipe2(ends, O_CLOEXEC));
        ::dup2(ends[0], STDIN_FILENO);
        ::close(ends[0]);
        m_input = ends[1];
    }
    ~ConsoleTest() override {
        closeInput();
        ::dup2(m_saved, STDIN_FILENO);
        ::close(m_saved);
    }
    void type(const std::string& text) {
        ASSERT_EQ(static_cast<ssize_t>(text.size()), ::write(m_input, text.data(), text.size()));
    }
    void closeInput() {
        if (m_input >= 0)
            ::close(m_input);
        m_input = -1;
    }
    Console::Handlers handlers() {
        return {.line =
                    [this](const std::string& line) {
                        const std::lock_guard lock(m_mutex);
                        m_lines.push_back(line);
                    },
                .end = [this] { m_end.set_value(); },
                .complete = {},
                .lineTooLong = [this] { ++m_tooLong; }};
    }

    LogCapture m_log;
    const int m_saved;
    int m_input = -1;
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
    int m_tooLong = 0;
    std::promise<void> m_end;
};

}  // namespace

TEST_F(ConsoleTest, HandsOverEachLineAndThenTheEnd) {
    Console sut(handlers());
    type("drivers\nquit");
    closeInput();
    sut.start();
    m_end.get_future().wait();
    EXPECT_EQ((std::vector<std::string>{"drivers", "quit"}), m_lines);
}

TEST_F(ConsoleTest, StopEndsTheReadingWithoutAnEnd) {
    {
        Console sut(handlers());
        sut.start();
        sut.stop();
    }
    EXPECT_EQ(std::future_status::timeout, m_end.get_future().wait_for(std::chrono::seconds(0)));
}

TEST_F(ConsoleTest, LogsALineThatIsTooLong) {
    {
        Console sut(handlers());
        sut.start();
        type(std::string(70000, 'x') + "\ndrivers\n");
        closeInput();
        m_end.get_future().wait();
    }
    EXPECT_EQ(std::vector<std::string>{"drivers"}, m_lines);
    EXPECT_EQ(1, m_tooLong);
    EXPECT_NE(std::string::npos, m_log.finish().find("a console line of more than 65536 bytes is ignored"));
}

TEST_F(ConsoleTest, PipeIsNotInteractive) {
    EXPECT_FALSE(Console::isInteractive());
}

namespace {

/// A console at a terminal, in a process of its own that writes each line as "[line]" and the end as "(end)".
void runConsole(std::chrono::milliseconds endStands) {
    std::promise<void> ended;
    Console sut({.line = [](const std::string& line) { std::cout << "[" << line << "]" << std::endl; },
                 .end =
                     [&] {
                         std::cout << "(end)" << std::endl;
                         ended.set_value();
                     },
                 .complete = {}},
                {}, endStands);
    sut.start();
    ended.get_future().wait();
}

void runPatientConsole() {
    runConsole(std::chrono::hours(1));
}

}  // namespace

TEST(ConsoleAtATerminal, TwoEndsOfInputInARowAreTheEnd) {
    Terminal terminal(runPatientConsole);
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("\x04"));
    ASSERT_TRUE(terminal.shows("To shut down, type quit or press Ctrl-D again.")) << terminal.screen();
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("\x04"));
    EXPECT_TRUE(terminal.shows("(end)")) << terminal.screen();
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_TRUE(terminal.takesLines());
}

TEST(ConsoleAtATerminal, LineBetweenTwoEndsOfInputTakesTheFirstBack) {
    Terminal terminal(runPatientConsole);
    for (const char* keys : {"\x04", "drivers\r", "\x04"}) {
        ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
        ASSERT_TRUE(terminal.type(keys));
        const bool isEnd = *keys == '\x04';
        ASSERT_TRUE(terminal.shows(isEnd ? "press Ctrl-D again." : "[drivers]")) << terminal.screen();
    }
}

TEST(ConsoleAtATerminal, LineThatCtrlCEmptiesTakesTheQuestionBack) {
    Terminal terminal(runPatientConsole);
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("\x03"));
    ASSERT_TRUE(terminal.shows("press Ctrl-C again.")) << terminal.screen();
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("driv\x03"));
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("\x04"));
    ASSERT_TRUE(terminal.shows("press Ctrl-D again.")) << terminal.screen();
    EXPECT_EQ(terminal.screen().find("(end)"), std::string::npos) << terminal.screen();
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("\x04"));
    EXPECT_TRUE(terminal.shows("(end)")) << terminal.screen();
    EXPECT_EQ(0, terminal.waitForEnd());
}

TEST(ConsoleAtATerminal, CtrlCOnAnEmptyLineAsksAsTheEndOfInputDoes) {
    Terminal terminal(runPatientConsole);
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("driv\x03"));
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("\x03"));
    ASSERT_TRUE(terminal.shows("To shut down, type quit or press Ctrl-C again.")) << terminal.screen();
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("drivers\r"));
    ASSERT_TRUE(terminal.shows("[drivers]")) << terminal.screen();
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("\x03"));
    ASSERT_TRUE(terminal.shows("press Ctrl-C again.")) << terminal.screen();
    ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
    ASSERT_TRUE(terminal.type("\x03"));
    EXPECT_TRUE(terminal.shows("(end)")) << terminal.screen();
    EXPECT_EQ(0, terminal.waitForEnd());
    EXPECT_TRUE(terminal.takesLines());
}

TEST(ConsoleAtATerminal, EndOfInputThatWasLongAgoDoesNotCount) {
    Terminal terminal([] { runConsole(std::chrono::milliseconds(0)); });
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(terminal.awaitPrompt()) << terminal.screen();
        ASSERT_TRUE(terminal.type("\x04"));
        ASSERT_TRUE(terminal.shows("To shut down, type quit or press Ctrl-D again.")) << terminal.screen();
    }
    EXPECT_EQ(terminal.screen().find("(end)"), std::string::npos) << terminal.screen();
}
