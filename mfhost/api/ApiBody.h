#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FIDParameterList.h"
#include "JsonValue.h"
#include "StateValue.h"

/// The body of an action: an object with the members that the action knows. Each operation gives one of them
/// in its type; an ApiFault names a member that is missing, of another type or out of range. Any thread.
class ApiBody {
public:
    /// Bytes of a body.
    static constexpr std::size_t s_longest = 64 * 1024;

    /// Reads the body; an empty one is an object without members. An ApiFault says what is wrong: too long,
    /// no JSON, no object, a member that is not among these.
    ApiBody(std::string_view body, const std::vector<std::string>& members);

    /// Not empty, without zero bytes.
    std::string text(const std::string& name) const;
    /// The same, and nothing where there is none.
    std::optional<std::string> optionalText(const std::string& name) const;
    /// May be empty.
    std::string anyText(const std::string& name) const;
    /// An array of 1 to so many of them, each not empty.
    std::vector<std::string> texts(const std::string& name, std::size_t most) const;
    /// One of these; the first where there is none.
    std::size_t choice(const std::string& name, const std::vector<std::string>& words) const;
    bool flag(const std::string& name) const;
    /// False where there is none.
    bool optionalFlag(const std::string& name) const;
    /// From 1 on; 0 where there is none.
    unsigned optionalNumber(const std::string& name) const;
    /// "timeoutMs", from 0 to 60000; 5000 where there is none.
    std::chrono::milliseconds timeout() const;
    /// "request": 1 to 64 characters from [A-Za-z0-9._-]; empty where there is none.
    std::string request() const;
    /// "value" as "type" says: a text, an int of 32 bits, a finite float, a bool.
    StateValue stateValue() const;
    /// "parameters": an object, or an array of pairs of name and value; empty where there are none.
    FIDParameterList parameters() const;

    /// What is the same for two bodies that ask for the same; how long the answer is waited for, and the
    /// request's name, do not count.
    std::string content() const;

private:
    const JsonValue& needed(const std::string& name, JsonValue::EKind kind) const;

    JsonValue m_object;
};
