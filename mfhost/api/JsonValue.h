#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// A JSON value as a request has it, numbers as they are written. Any thread.
struct JsonValue {
    enum class EKind { Null, Bool, Number, Text, Array, Object };
    struct Member;

    EKind kind = EKind::Null;
    bool isTrue = false;
    std::string text;                 ///< of a text; a number's digits, or as it is written
    std::vector<JsonValue> elements;  ///< of an array
    std::vector<Member> members;      ///< of an object, no name twice

    /// Levels of arrays and objects within each other.
    static constexpr std::size_t s_mostLevels = 16;
    /// Of one object: each name is compared with those before it.
    static constexpr std::size_t s_mostMembers = 512;

    /// Reads one value from the whole text. An ApiFault says what of it is wrong, and where: no JSON, too
    /// many levels or members, a name twice in an object.
    static JsonValue read(std::string_view json);

    /// Null when there is none of that name.
    const JsonValue* find(std::string_view name) const;
    /// "a text", "an object" and so on.
    const char* inWords() const;
    /// Adds what is the same for two values that mean the same, whatever the order of their members and their
    /// blanks.
    void appendContent(std::string& content) const;
};

struct JsonValue::Member {
    std::string name;
    JsonValue value;
};
