#pragma once

#include <vector>

/// Notes which blocks operator new hands out and operator delete takes back while it lives, in order. One at
/// a time. Programs that use it link AllocationLog.cpp, which replaces both operators; under a sanitizer they
/// stay the sanitizer's and nothing is noted (available() tells).
class AllocationLog {
public:
    AllocationLog();
    ~AllocationLog();
    AllocationLog(const AllocationLog&) = delete;
    AllocationLog& operator=(const AllocationLog&) = delete;

    static bool available();

    /// Both end the noting.
    std::vector<const void*> allocated() const;
    std::vector<const void*> freed() const;
};
