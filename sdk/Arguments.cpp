#include "mfd/Arguments.h"

#include <algorithm>
#include <stdexcept>

#include "Printable.h"

namespace mfd {

namespace {

std::string namesOf(const std::vector<Parameter>& declared) {
    std::string names;
    for (const Parameter& parameter : declared)
        names += (names.empty() ? "" : ", ") + parameter.name();
    return names;
}

bool isThere(const FIDParameterList& given, const std::string& name) {
    return std::any_of(given.begin(), given.end(), [&](const auto& one) { return one.first == name; });
}

/// What is wrong with the names alone.
std::string nameFault(const std::vector<Parameter>& declared, const FIDParameterList& given) {
    for (auto one = given.begin(); one != given.end(); ++one) {
        const std::string& name = one->first;
        const bool isDeclared = std::any_of(declared.begin(), declared.end(),
                                            [&](const Parameter& known) { return known.name() == name; });
        if (!isDeclared) {
            const std::string text = "it has no parameter " + base::quoted(name);
            return declared.empty() ? text + " and needs none" : text + "; it has " + namesOf(declared);
        }
        const bool isAgain =
            std::any_of(given.begin(), one, [&](const auto& other) { return other.first == name; });
        if (isAgain)
            return "the parameter " + base::quoted(name) + " stands there twice";
    }
    return {};
}

}  // namespace

std::string Arguments::fill(const std::vector<Parameter>& declared, const FIDParameterList& given) {
    m_values.clear();
    m_all = given;
    const bool takesFurther = std::any_of(declared.begin(), declared.end(),
                                          [](const Parameter& parameter) { return parameter.isFurther(); });
    if (std::string fault = takesFurther ? std::string() : nameFault(declared, given); !fault.empty())
        return fault;
    for (const Parameter& parameter : declared) {
        if (parameter.isFurther())
            continue;
        const std::string text = given.value(parameter.name());
        if (!text.empty()) {
            auto value = parameter.parsed(text);
            if (!value)
                return parameter.name() + "=" + base::quoted(text) + " is not " + parameter.rightText();
            m_values.emplace_back(parameter.name(), std::move(*value));
        } else if (parameter.fallback()) {
            m_values.emplace_back(parameter.name(), *parameter.fallback());
        } else if (isThere(given, parameter.name())) {
            return parameter.name() + "=\"\" is not " + parameter.rightText();
        } else {
            return "it needs the parameter \"" + parameter.name() + "\"";
        }
    }
    return {};
}

template <class Type>
const Type& Arguments::get(const std::string& name, const char* pType) const {
    for (const auto& [known, value] : m_values) {
        if (known == name && std::holds_alternative<Type>(value))
            return std::get<Type>(value);
    }
    throw std::logic_error("it declares no parameter \"" + name + "\" that is " + pType);
}

bool Arguments::boolean(const std::string& name) const {
    return get<bool>(name, "a boolean");
}

int Arguments::integer(const std::string& name) const {
    return get<int>(name, "an integer");
}

double Arguments::number(const std::string& name) const {
    return get<double>(name, "a number");
}

const std::string& Arguments::text(const std::string& name) const {
    return get<std::string>(name, "a text");
}

}  // namespace mfd
