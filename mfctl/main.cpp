#include <iostream>

#include "ControlLine.h"

int main(int argc, char** argv) {
    return ControlLine::run(argc, argv, std::cout, std::cerr);
}
