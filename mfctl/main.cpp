#include <iostream>

#include "ControlLine.h"

int main(int argc, char** argv) {
    return runControlLine(argc, argv, std::cout, std::cerr);
}
