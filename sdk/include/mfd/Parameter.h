#pragma once

#include <limits>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace mfd {

/// What one parameter of a function may be: its name, its type, its range, and whether it may be left out.
/// Given to Driver::function(), which has each FID checked by it. A value.
class Parameter {
public:
    using Value = std::variant<bool, int, double, std::string>;

    /// "true" or "1", "false" or "0".
    static Parameter boolean(std::string name);
    /// A whole number from lowest to highest.
    static Parameter integer(std::string name, int lowest = std::numeric_limits<int>::min(),
                             int highest = std::numeric_limits<int>::max());
    /// A finite number from lowest to highest.
    static Parameter number(std::string name, double lowest = std::numeric_limits<double>::lowest(),
                            double highest = std::numeric_limits<double>::max());
    /// Any text that is not empty.
    static Parameter text(std::string name);
    /// One of these words.
    static Parameter choice(std::string name, std::vector<std::string> words);
    /// Stands for whatever else comes: the function takes parameters that it does not declare, and a name
    /// several times. Arguments::all() has them; the first one of a declared name is the declared parameter.
    static Parameter further();

    /// The same parameter, with a text for what would be right: "a number from 0 (no alarm) up". Without it
    /// the text is made of type and range.
    Parameter described(std::string rightText) const;
    /// The same parameter, which may be left out: the handler then finds this value. It must be right for the
    /// parameter itself; a std::logic_error says what would be.
    Parameter orElse(bool value) const;
    Parameter orElse(int value) const;
    Parameter orElse(double value) const;
    Parameter orElse(const char* value) const;

    /// Of further() "...".
    const std::string& name() const { return m_name; }
    bool isFurther() const { return m_type == EType::Further; }
    /// What stands for a parameter that was left out; nothing when it must be there.
    const std::optional<Value>& fallback() const { return m_fallback; }

    /// The value that the text means; nothing when it is wrong.
    std::optional<Value> parsed(const std::string& text) const;
    /// What would be right, for the end of "percent="140" is not ...": "a whole number from 0 to 100".
    std::string rightText() const;

private:
    enum class EType { Boolean, Integer, Number, Text, Choice, Further };
    Parameter(std::string name, EType type);
    Parameter with(Value fallback) const;
    bool isRight(const Value& value) const;

    std::string m_name;
    EType m_type;
    double m_lowest = std::numeric_limits<double>::lowest();
    double m_highest = std::numeric_limits<double>::max();
    std::vector<std::string> m_words;
    std::string m_rightText;
    std::optional<Value> m_fallback;
};

}  // namespace mfd
