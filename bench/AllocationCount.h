#pragma once

#include <cstdint>

/// How often this process has asked for memory through operator new, in all threads. Replaces the program's
/// operator new, for its libraries too.
std::uint64_t allocationCount();
