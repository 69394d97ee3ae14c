#pragma once

#include <string>
#include <variant>

/// A state value as a driver reports it: one of the panel's four types.
class StateValue {
public:
    StateValue() = default;
    explicit StateValue(std::string value) : m_value(std::move(value)) {}
    explicit StateValue(float value) : m_value(value) {}
    explicit StateValue(int value) : m_value(value) {}
    explicit StateValue(bool value) : m_value(value) {}

    /// "string", "float", "int" or "bool".
    const char* typeName() const;

    /// Six significant digits for a float, "true" or "false" for a bool, a string as it is.
    std::string text() const;

    /// The value in its own type.
    const std::variant<std::string, float, int, bool>& value() const { return m_value; }

    bool operator==(const StateValue& other) const = default;

private:
    std::variant<std::string, float, int, bool> m_value;
};
