#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the program with the claim that does not hold, so that the input is kept as a finding.
inline void expect(bool holds, const char* claim) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", claim);
    std::abort();
}
