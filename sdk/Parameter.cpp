#include "mfd/Parameter.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "NumberText.h"

namespace mfd {

Parameter::Parameter(std::string name, EType type) : m_name(std::move(name)), m_type(type) {
    if (m_name.empty() || m_name.size() > 255)
        throw std::logic_error("a parameter needs a name of 1 to 255 bytes");
}

Parameter Parameter::boolean(std::string name) {
    return Parameter(std::move(name), EType::Boolean);
}

Parameter Parameter::integer(std::string name, int lowest, int highest) {
    Parameter parameter(std::move(name), EType::Integer);
    parameter.m_lowest = lowest;
    parameter.m_highest = highest;
    return parameter;
}

Parameter Parameter::number(std::string name, double lowest, double highest) {
    Parameter parameter(std::move(name), EType::Number);
    parameter.m_lowest = lowest;
    parameter.m_highest = highest;
    return parameter;
}

Parameter Parameter::text(std::string name) {
    return Parameter(std::move(name), EType::Text);
}

Parameter Parameter::choice(std::string name, std::vector<std::string> words) {
    Parameter parameter(std::move(name), EType::Choice);
    parameter.m_words = std::move(words);
    return parameter;
}

Parameter Parameter::further() {
    return Parameter("...", EType::Further);
}

Parameter Parameter::described(std::string rightText) const {
    Parameter parameter = *this;
    parameter.m_rightText = std::move(rightText);
    return parameter;
}

Parameter Parameter::orElse(bool value) const {
    return with(value);
}

Parameter Parameter::orElse(int value) const {
    return m_type == EType::Number ? with(static_cast<double>(value)) : with(value);
}

Parameter Parameter::orElse(double value) const {
    return with(value);
}

Parameter Parameter::orElse(const char* value) const {
    return with(std::string(value));
}

Parameter Parameter::with(Value fallback) const {
    if (!isRight(fallback))
        throw std::logic_error("what stands for the parameter \"" + m_name + "\" is not " + rightText());
    Parameter parameter = *this;
    parameter.m_fallback = std::move(fallback);
    return parameter;
}

bool Parameter::isRight(const Value& value) const {
    const auto inRange = [this](double number) { return number >= m_lowest && number <= m_highest; };
    switch (m_type) {
        case EType::Boolean:
            return std::holds_alternative<bool>(value);
        case EType::Integer:
            return std::holds_alternative<int>(value) && inRange(std::get<int>(value));
        case EType::Number:
            return std::holds_alternative<double>(value) && std::isfinite(std::get<double>(value)) &&
                   inRange(std::get<double>(value));
        case EType::Text:
            return std::holds_alternative<std::string>(value);
        case EType::Choice:
            return std::holds_alternative<std::string>(value) &&
                   std::find(m_words.begin(), m_words.end(), std::get<std::string>(value)) != m_words.end();
        case EType::Further:
            break;
    }
    return false;
}

std::optional<Parameter::Value> Parameter::parsed(const std::string& text) const {
    std::optional<Value> value;
    switch (m_type) {
        case EType::Boolean:
            if (text == "true" || text == "1")
                value = true;
            else if (text == "false" || text == "0")
                value = false;
            break;
        case EType::Integer:
            if (const auto number = numberIn<int>(text))
                value = *number;
            break;
        case EType::Number:
            if (const auto number = numberIn<double>(text))
                value = *number;
            break;
        case EType::Text:
        case EType::Choice:
            value = text;
            break;
        case EType::Further:
            break;
    }
    if (!value || !isRight(*value))
        return std::nullopt;
    return value;
}

std::string Parameter::rightText() const {
    if (!m_rightText.empty())
        return m_rightText;
    switch (m_type) {
        case EType::Boolean:
            return "true or false";
        case EType::Integer:
            // As an int: a double of a million is "1e+06".
            return "a whole number from " + numberText(static_cast<int>(m_lowest)) + " to " +
                   numberText(static_cast<int>(m_highest));
        case EType::Number: {
            const bool hasLowest = m_lowest != std::numeric_limits<double>::lowest();
            const bool hasHighest = m_highest != std::numeric_limits<double>::max();
            if (hasLowest && hasHighest)
                return "a number from " + numberText(m_lowest) + " to " + numberText(m_highest);
            if (hasLowest)
                return "a number from " + numberText(m_lowest) + " up";
            return hasHighest ? "a number up to " + numberText(m_highest) : "a number";
        }
        case EType::Text:
            return "a text that is not empty";
        case EType::Further:
            return "a parameter of its own";
        case EType::Choice:
            break;
    }
    std::string text = "one of ";
    for (const std::string& word : m_words)
        text += (&word == &m_words.front() ? "" : ", ") + word;
    return text;
}

}  // namespace mfd
