#pragma once

#include <string>
#include <string_view>

/// The SHA-256 of the bytes, in 64 hexadecimal digits. An exception says that OpenSSL has no memory for it.
/// Any thread.
std::string sha256(std::string_view bytes);
