#pragma once

#include <cstdio>

/// Sends what the code under test prints on standard output nowhere.
inline void silenceStandardOutput() {
    if (!std::freopen("/dev/null", "w", stdout))
        std::perror("/dev/null");
}
