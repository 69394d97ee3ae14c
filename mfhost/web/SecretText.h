#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// What nobody can guess, of the system's random numbers. An exception says that it has none. Any thread.

/// 256 bits in 43 letters, digits, "-" and "_".
std::string randomToken();
/// So many digits.
std::string randomDigits(std::size_t count);
/// What is kept of a secret: from it the secret cannot be had. 32 bytes.
std::string hashOf(std::string_view secret);
