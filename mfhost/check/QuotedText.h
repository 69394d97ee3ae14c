#pragma once

#include <string>

/// Text of a file as it stands in a message: in quotes, control characters as \xNN, and only the beginning of
/// what is too long for a line. Any thread.
class QuotedText {
public:
    static std::string of(const std::string& text);
};
