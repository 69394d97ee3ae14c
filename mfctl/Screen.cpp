#include "Screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string_view>

#include "Printable.h"

Screen Screen::ofProcess() {
    Screen screen{std::cout, std::cerr};
    winsize size{};
    if (!::isatty(STDOUT_FILENO))
        return screen;
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0)
        screen.look.width = size.ws_col;
    const char* pNoColour = std::getenv("NO_COLOR");
    const char* pTerminal = std::getenv("TERM");
    screen.look.isColoured =
        !(pNoColour && *pNoColour) && pTerminal && *pTerminal && std::string_view(pTerminal) != "dumb";
    return screen;
}

std::string Screen::coloured(base::Table::EColour colour, const std::string& text) const {
    return look.isColoured ? base::Table::coloured(text, colour) : text;
}

void Screen::complain(const std::string& text) const {
    out << std::flush;
    err << "mfctl: " << base::printable(text) << std::endl;
}
