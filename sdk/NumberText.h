#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <system_error>

namespace mfd {

/// The number that the text is, all of it; nothing when it is none.
template <class Number>
std::optional<Number> numberIn(const std::string& text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

/// The shortest text that numberIn() reads as that number again.
template <class Number>
std::string numberText(Number number) {
    char text[64];  // longer than any
    return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

}  // namespace mfd
