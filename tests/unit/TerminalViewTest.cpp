#include "TerminalView.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Terminal.h"

namespace {

/// What a process at a terminal of that size finds.
std::string seenAt(unsigned short columns) {
    Terminal terminal([columns] {
        const winsize size{24, columns, 0, 0};
        ::ioctl(STDIN_FILENO, TIOCSWINSZ, &size);
        std::printf("(%zu)\n", terminalWidth(STDOUT_FILENO));
        std::fflush(stdout);
        ::pause();
    });
    EXPECT_TRUE(terminal.shows(")\r\n"));
    return terminal.screen();
}

class TerminalViewTest : public testing::Test {
protected:
    TerminalViewTest() {
        ::setenv("TERM", "xterm", 1);
        ::unsetenv("NO_COLOR");
    }
    ~TerminalViewTest() override { ::unsetenv("NO_COLOR"); }
};

}  // namespace

TEST(TerminalView, IsAsWideAsTheTerminal) {
    EXPECT_EQ("(132)\r\n", seenAt(132));
}

TEST(TerminalView, IsEightyColumnsWideWhereTheTerminalDoesNotSay) {
    EXPECT_EQ("(80)\r\n", seenAt(0));
}

TEST_F(TerminalViewTest, ColoursAreShownByATerminalThatKnowsThem) {
    EXPECT_TRUE(hasTerminalColours());
    ::setenv("TERM", "dumb", 1);
    EXPECT_FALSE(hasTerminalColours());
    ::unsetenv("TERM");
    EXPECT_FALSE(hasTerminalColours());
}

TEST_F(TerminalViewTest, ColoursAreOffWithNoColor) {
    ::setenv("NO_COLOR", "1", 1);
    EXPECT_FALSE(hasTerminalColours());
    ::setenv("NO_COLOR", "", 1);
    EXPECT_TRUE(hasTerminalColours());
}
