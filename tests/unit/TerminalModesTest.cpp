#include "TerminalModes.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

TEST(TerminalModes, GivesTheTerminalItsModesBack) {
    int controller = -1;
    // In a process of its own, whose standard input is a terminal.
    const pid_t child = ::forkpty(&controller, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
        rememberTerminalModes();
        termios modes{};
        ::tcgetattr(STDIN_FILENO, &modes);
        const tcflag_t before = modes.c_lflag;
        modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        ::tcsetattr(STDIN_FILENO, TCSANOW, &modes);
        restoreTerminalModes();
        ::tcgetattr(STDIN_FILENO, &modes);
        ::_exit(modes.c_lflag == before ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    ::close(controller);
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST(TerminalModes, RestoresNothingThatItNeverSaw) {
    int controller = -1;
    const pid_t child = ::forkpty(&controller, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
        termios before{};
        ::tcgetattr(STDIN_FILENO, &before);
        restoreTerminalModes();
        termios after{};
        ::tcgetattr(STDIN_FILENO, &after);
        ::_exit(after.c_lflag == before.c_lflag ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    ::close(controller);
    EXPECT_EQ(0, WEXITSTATUS(status));
}
