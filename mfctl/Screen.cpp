#include "Screen.h"

#include <unistd.h>

#include <iostream>

#include "Printable.h"
#include "TerminalView.h"

Screen Screen::ofProcess() {
    Screen screen{std::cout, std::cerr};
    if (::isatty(STDOUT_FILENO))
        screen.look = {.width = terminalWidth(STDOUT_FILENO), .isColoured = hasTerminalColours()};
    return screen;
}

std::string Screen::coloured(base::Table::EColour colour, const std::string& text) const {
    return look.isColoured ? base::Table::coloured(text, colour) : text;
}

void Screen::complain(const std::string& text) const {
    out << std::flush;
    err << "mfctl: " << base::printable(text) << std::endl;
}
