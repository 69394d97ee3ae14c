#include <clocale>

#include "ControlLine.h"
#include "Screen.h"

int main(int argc, char** argv) {
    // For characters of several bytes in the lines of "attach".
    std::setlocale(LC_CTYPE, "");
    return runControlLine(argc, argv, Screen::ofProcess());
}
