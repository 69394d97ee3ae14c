#include "sal/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "FakeHost.h"

namespace sal {

void assertFailed(const char* file, int line, const char* expression) {
    std::cout.flush();
    std::fflush(stdout);
    std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, expression);
    fakehost::FakeHost::removeFiles();
    std::abort();
}

}  // namespace sal
