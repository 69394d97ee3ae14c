#include "TerminalModes.h"

#include <termios.h>
#include <unistd.h>

namespace {
termios s_modes;
bool s_areKnown = false;
}  // namespace

void rememberTerminalModes() {
    s_areKnown = ::tcgetattr(STDIN_FILENO, &s_modes) == 0;
}

void restoreTerminalModes() {
    if (s_areKnown)
        ::tcsetattr(STDIN_FILENO, TCSANOW, &s_modes);
}
