#include "TerminalView.h"

#include <sys/ioctl.h>

#include <cstdlib>
#include <string_view>

std::size_t terminalWidth(int fd) {
    winsize size{};
    return ::ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

bool hasTerminalColours() {
    const char* terminal = std::getenv("TERM");
    const char* noColour = std::getenv("NO_COLOR");
    return terminal && *terminal && std::string_view(terminal) != "dumb" && (!noColour || !*noColour);
}
