#pragma once

#include <string>

namespace base {

/// 32 hexadecimal digits from the kernel's random numbers: no two are the same, on any machine. Any thread.
/// Throws std::system_error where the kernel gives none.
std::string randomID();

}  // namespace base
