#pragma once

#include <array>
#include <charconv>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

/// Writes one JSON text from its beginning to its end by appending. Commas come by themselves; that brackets
/// are closed and members have names is the caller's affair. Belongs to one thread.
class JsonText {
public:
    JsonText& beginObject() { return begin('{'); }
    JsonText& endObject() { return end('}'); }
    JsonText& beginArray() { return begin('['); }
    JsonText& endArray() { return end(']'); }

    /// Of the member whose value comes next. It is written as it is: the program's own, of letters.
    JsonText& name(std::string_view name);

    JsonText& value(std::string_view text);
    /// For literals, which would become a bool.
    JsonText& value(const char* text) { return value(std::string_view(text)); }
    JsonText& value(const std::string& text) { return value(std::string_view(text)); }
    template <std::integral Number>
    JsonText& value(Number number) {
        if constexpr (std::is_same_v<Number, bool>)
            return word(number ? "true" : "false");
        else
            return whole(number);
    }
    /// The fewest digits that mean this number; null for what JSON has no number for.
    JsonText& value(double number);
    JsonText& value(float number);
    JsonText& value(std::chrono::milliseconds duration) { return value(duration.count()); }
    /// RFC 3339 in UTC with milliseconds.
    JsonText& value(std::chrono::system_clock::time_point time);
    /// What is JSON already.
    JsonText& json(std::string_view text) { return word(text); }
    JsonText& null() { return word("null"); }
    /// Null when there is none.
    template <class Value>
    JsonText& value(const std::optional<Value>& content) {
        return content ? value(*content) : null();
    }

    template <class Value>
    JsonText& member(std::string_view key, const Value& content) {
        return name(key).value(content);
    }

    /// What was written; nothing is left.
    std::string take();

private:
    JsonText& begin(char bracket);
    JsonText& end(char bracket);
    JsonText& word(std::string_view word);
    template <std::integral Number>
    JsonText& whole(Number number) {
        std::array<char, 24> digits;
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        return word({digits.data(), static_cast<std::size_t>(end - digits.data())});
    }
    void separate();

    std::string m_text;
    bool m_isNext = false;  ///< something stands before on the same level
};
