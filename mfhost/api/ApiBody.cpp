#include "ApiBody.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

#include "ApiFault.h"
#include "ApiWords.h"
#include "Nearest.h"
#include "Printable.h"

namespace {

constexpr std::chrono::milliseconds s_usualTimeout{5000};
constexpr std::int64_t s_longestTimeout = 60000;
constexpr std::size_t s_longestRequest = 64;

const char* inWords(JsonValue::EKind kind) {
    JsonValue value;
    value.kind = kind;
    return value.inWords();
}

JsonValue readObject(std::string_view body) {
    if (body.size() > ApiBody::s_longest)
        throw ApiFault(ApiFault::ECode::TooLarge,
                       "the body has more than " + std::to_string(ApiBody::s_longest) + " bytes");
    JsonValue object;
    object.kind = JsonValue::EKind::Object;
    if (!body.empty())
        object = JsonValue::read(body);
    if (object.kind != JsonValue::EKind::Object)
        throw ApiFault::invalid(std::string("the body is ") + object.inWords() +
                                " where an object is needed");
    return object;
}

/// Most readers of the driver protocol end a text there.
const std::string& withoutZero(const std::string& text, const std::string& what) {
    if (text.find('\0') != std::string::npos)
        throw ApiFault::invalid(what + " has a zero byte");
    return text;
}

/// Nothing for what is no whole number, or none of 64 bits.
std::optional<std::int64_t> whole(const JsonValue& value) {
    std::int64_t number = 0;
    const char* pEnd = value.text.data() + value.text.size();
    const auto result = std::from_chars(value.text.data(), pEnd, number);
    return result.ec == std::errc() && result.ptr == pEnd ? std::optional(number) : std::nullopt;
}

std::int64_t inRange(const std::string& name, const JsonValue& value, std::int64_t least, std::int64_t most) {
    const auto number = whole(value);
    if (!number || *number < least || *number > most)
        throw ApiFault::invalid("\"" + name + "\" is " + base::printable(value.text) +
                                " where a whole number from " + std::to_string(least) + " to " +
                                std::to_string(most) + " is needed");
    return *number;
}

/// A parameter's value as it would be typed at the console.
std::string typed(const std::string& name, const JsonValue& value) {
    const std::string what = "the value of the parameter " + base::quoted(name);
    switch (value.kind) {
        case JsonValue::EKind::Bool:
            return value.isTrue ? "true" : "false";
        case JsonValue::EKind::Number:
            return value.text;
        case JsonValue::EKind::Text:
            return withoutZero(value.text, what);
        default:
            throw ApiFault::invalid(what + " is " + value.inWords() +
                                    " where a text, a number or a bool is needed");
    }
}

void addParameter(FIDParameterList& list, const std::string& name, const JsonValue& value) {
    if (name.empty())
        throw ApiFault::invalid("a parameter has no name");
    list.add(withoutZero(name, "the name of a parameter"), typed(name, value));
}

}  // namespace

ApiBody::ApiBody(std::string_view body, const std::vector<std::string>& members)
    : m_object(readObject(body)) {
    for (const auto& [name, value] : m_object.members) {
        if (std::find(members.begin(), members.end(), name) == members.end())
            throw ApiFault(ApiFault::ECode::RequestInvalid,
                           "there is no member " + base::quoted(name) + "; " + knownWords(members),
                           base::nearest(name, members));
    }
}

const JsonValue& ApiBody::needed(const std::string& name, JsonValue::EKind kind) const {
    const JsonValue* pValue = m_object.find(name);
    if (!pValue)
        throw ApiFault::invalid("\"" + name + "\" is missing");
    if (pValue->kind != kind)
        throw ApiFault::invalid("\"" + name + "\" is " + pValue->inWords() + " where " + inWords(kind) +
                                " is needed");
    return *pValue;
}

std::string ApiBody::anyText(const std::string& name) const {
    return withoutZero(needed(name, JsonValue::EKind::Text).text, "\"" + name + "\"");
}

std::string ApiBody::text(const std::string& name) const {
    std::string text = anyText(name);
    if (text.empty())
        throw ApiFault::invalid("\"" + name + "\" is empty");
    return text;
}

std::optional<std::string> ApiBody::optionalText(const std::string& name) const {
    return m_object.find(name) ? std::optional(text(name)) : std::nullopt;
}

std::vector<std::string> ApiBody::texts(const std::string& name, std::size_t most) const {
    std::vector<std::string> texts;
    const JsonValue& array = needed(name, JsonValue::EKind::Array);
    if (array.elements.empty() || array.elements.size() > most)
        throw ApiFault::invalid("\"" + name + "\" has " + std::to_string(array.elements.size()) +
                                " elements where 1 to " + std::to_string(most) + " are taken");
    for (const JsonValue& element : array.elements) {
        if (element.kind != JsonValue::EKind::Text || element.text.empty())
            throw ApiFault::invalid("an element of \"" + name + "\" is no text, or empty");
        texts.push_back(withoutZero(element.text, "an element of \"" + name + "\""));
    }
    return texts;
}

std::size_t ApiBody::choice(const std::string& name, const std::vector<std::string>& words) const {
    if (!m_object.find(name))
        return 0;
    const std::string& word = needed(name, JsonValue::EKind::Text).text;
    const auto position = std::find(words.begin(), words.end(), word);
    if (position == words.end())
        throw ApiFault(ApiFault::ECode::RequestInvalid,
                       "\"" + name + "\" is " + base::quoted(word) + "; " + knownWords(words),
                       base::nearest(word, words));
    return static_cast<std::size_t>(position - words.begin());
}

bool ApiBody::flag(const std::string& name) const {
    return needed(name, JsonValue::EKind::Bool).isTrue;
}

bool ApiBody::optionalFlag(const std::string& name) const {
    return m_object.find(name) && flag(name);
}

unsigned ApiBody::optionalNumber(const std::string& name) const {
    if (!m_object.find(name))
        return 0;
    return static_cast<unsigned>(
        inRange(name, needed(name, JsonValue::EKind::Number), 1, std::numeric_limits<std::int32_t>::max()));
}

std::chrono::milliseconds ApiBody::timeout() const {
    if (!m_object.find("timeoutMs"))
        return s_usualTimeout;
    return std::chrono::milliseconds(
        inRange("timeoutMs", needed("timeoutMs", JsonValue::EKind::Number), 0, s_longestTimeout));
}

std::string ApiBody::request() const {
    if (!m_object.find("request"))
        return {};
    const std::string& request = needed("request", JsonValue::EKind::Text).text;
    const bool isRight = std::all_of(request.begin(), request.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '_' || c == '-';
    });
    if (request.empty() || request.size() > s_longestRequest || !isRight)
        throw ApiFault::invalid("\"request\" is " + base::quoted(request) + " where 1 to " +
                                std::to_string(s_longestRequest) +
                                " characters from [A-Za-z0-9._-] are needed");
    return request;
}

StateValue ApiBody::stateValue() const {
    enum EType : std::size_t { eString, eInt, eFloat, eBool };
    static const std::vector<std::string> s_types{"string", "int", "float", "bool"};
    static_cast<void>(needed("type", JsonValue::EKind::Text));
    switch (choice("type", s_types)) {
        case eInt:
            return StateValue(static_cast<int>(inRange("value", needed("value", JsonValue::EKind::Number),
                                                       std::numeric_limits<std::int32_t>::min(),
                                                       std::numeric_limits<std::int32_t>::max())));
        case eFloat: {
            const std::string& digits = needed("value", JsonValue::EKind::Number).text;
            double number = 0;
            // What is too small for a double stays 0; what is too large for one is no JSON number here.
            std::from_chars(digits.data(), digits.data() + digits.size(), number);
            if (std::abs(number) > std::numeric_limits<float>::max())
                throw ApiFault::invalid("\"value\" is " + base::printable(digits) +
                                        " where a finite float is needed");
            return StateValue(static_cast<float>(number));
        }
        case eBool:
            return StateValue(needed("value", JsonValue::EKind::Bool).isTrue);
        default:
            return StateValue(anyText("value"));
    }
}

FIDParameterList ApiBody::parameters() const {
    FIDParameterList list;
    const JsonValue* pParameters = m_object.find("parameters");
    if (!pParameters)
        return list;
    if (pParameters->kind != JsonValue::EKind::Object && pParameters->kind != JsonValue::EKind::Array)
        throw ApiFault::invalid(std::string("\"parameters\" is ") + pParameters->inWords() +
                                " where an object or an array is needed");
    for (const auto& [name, value] : pParameters->members)
        addParameter(list, name, value);
    for (const JsonValue& pair : pParameters->elements) {
        if (pair.kind != JsonValue::EKind::Array || pair.elements.size() != 2 ||
            pair.elements[0].kind != JsonValue::EKind::Text)
            throw ApiFault::invalid(
                "\"parameters\" is an array, and one of its elements is no pair of a name and a value");
        addParameter(list, pair.elements[0].text, pair.elements[1]);
    }
    return list;
}

std::string ApiBody::content() const {
    JsonValue asked = m_object;
    std::erase_if(asked.members, [](const JsonValue::Member& member) {
        return member.name == "request" || member.name == "timeoutMs";
    });
    std::string content;
    asked.appendContent(content);
    return content;
}
