#pragma once

#include <string>

/// In a cell of a table, where there may be nothing to say. Any thread.
inline std::string orDash(const std::string& text) {
    return text.empty() ? "-" : text;
}
