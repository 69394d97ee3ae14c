#include "Screen.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <sstream>

#include "Terminal.h"

using EColour = base::Table::EColour;

TEST(Screen, ComplaintIsOnePrintableLine) {
    std::ostringstream out;
    std::ostringstream err;
    const Screen sut{out, err};
    sut.complain("a\nb\x1b[2J");
    EXPECT_EQ("mfctl: a\\nb\\x1b[2J\n", err.str());
    EXPECT_EQ("", out.str());
}

TEST(Screen, ColoursOnlyWhereColourIsWanted) {
    std::ostringstream out;
    Screen sut{out, out};
    EXPECT_EQ("x", sut.coloured(EColour::Bad, "x"));
    sut.look.isColoured = true;
    EXPECT_EQ("\x1b[31mx\x1b[0m", sut.coloured(EColour::Bad, "x"));
    EXPECT_EQ("\x1b[33mx\x1b[0m", sut.coloured(EColour::Warning, "x"));
    EXPECT_EQ("x", sut.coloured(EColour::None, "x"));
}

namespace {

/// What ofProcess() finds in a process at a terminal.
std::string lookAtATerminal(const char* pNoColour, const char* pTerminal) {
    Terminal terminal([=] {
        ::unsetenv("NO_COLOR");
        if (pNoColour)
            ::setenv("NO_COLOR", pNoColour, 1);
        ::setenv("TERM", pTerminal, 1);
        winsize size{24, 72, 0, 0};
        ::ioctl(STDOUT_FILENO, TIOCSWINSZ, &size);
        const Screen sut = Screen::ofProcess();
        std::cout << "width " << sut.look.width << " colour " << sut.look.isColoured << " end" << std::endl;
    });
    EXPECT_TRUE(terminal.shows(" end"));
    return terminal.screen();
}

}  // namespace

TEST(Screen, TerminalHasItsWidthAndColour) {
    EXPECT_EQ("width 72 colour 1 end\r\n", lookAtATerminal(nullptr, "xterm"));
}

TEST(Screen, NoColourWhereTheOperatorOrTheTerminalHasNone) {
    EXPECT_EQ("width 72 colour 0 end\r\n", lookAtATerminal("1", "xterm"));
    EXPECT_EQ("width 72 colour 0 end\r\n", lookAtATerminal(nullptr, "dumb"));
}
