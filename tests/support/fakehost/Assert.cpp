#include "sal/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace sal {

void assertFailed(const char* file, int line, const char* expression) {
    std::cout.flush();
    std::fflush(stdout);
    std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, expression);
    std::abort();
}

}  // namespace sal
