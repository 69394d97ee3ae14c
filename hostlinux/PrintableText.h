#pragma once

#include <string>
#include <string_view>

namespace sal {

/// The text with control characters written as \n, \r or \xNN, so that it stays one line and cannot steer a
/// terminal. Tabs and UTF-8 stay as they are.
std::string printable(std::string_view text);

}  // namespace sal
