#pragma once

#include <cstddef>
#include <string>

namespace mfd {

/// The longest text of a report or a FID, in bytes: it may have to pass from process to process.
inline constexpr std::size_t s_longestText = 255;

/// The text, or as much of its beginning as fits, whole UTF-8 characters. Any thread.
std::string fittingText(const std::string& text);

}  // namespace mfd
