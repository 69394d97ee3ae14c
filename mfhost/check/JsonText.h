#pragma once

#include <string>

/// A text as a JSON string. Any thread.
class JsonText {
public:
    /// In quotes, with escapes; bytes that are no UTF-8 become U+FFFD.
    static std::string of(const std::string& text);
};
