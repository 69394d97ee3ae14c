#include "sal/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "LogLine.h"

namespace sal {

void assertFailed(const char* file, int line, const char* expression) {
    // What was reported before the failure is what explains it.
    std::cout.flush();
    std::fflush(stdout);
    flushLog();
    std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, expression);
    std::abort();
}

}  // namespace sal
