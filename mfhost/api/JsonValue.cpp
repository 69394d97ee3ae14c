#include "JsonValue.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "ApiFault.h"
#include "Printable.h"

namespace {

using Parser = nlohmann::json;

/// Makes a JsonValue of what the library reads, and breaks off at the first fault.
class Maker : public nlohmann::json_sax<Parser> {
public:
    JsonValue take() { return std::move(m_root); }
    const std::string& fault() const { return m_fault; }

    bool null() override { return place({}); }
    bool boolean(bool isTrue) override {
        JsonValue value;
        value.kind = JsonValue::EKind::Bool;
        value.isTrue = isTrue;
        return place(std::move(value));
    }
    bool number_integer(std::int64_t number) override {
        return placeText(JsonValue::EKind::Number, std::to_string(number));
    }
    bool number_unsigned(std::uint64_t number) override {
        return placeText(JsonValue::EKind::Number, std::to_string(number));
    }
    bool number_float(double, const std::string& written) override {
        return placeText(JsonValue::EKind::Number, written);
    }
    bool string(std::string& text) override { return placeText(JsonValue::EKind::Text, std::move(text)); }
    bool binary(Parser::binary_t&) override { return false; }
    bool start_object(std::size_t) override { return open(JsonValue::EKind::Object); }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(JsonValue::EKind::Array); }
    bool end_array() override { return close(); }
    bool key(std::string& name) override {
        JsonValue& object = *m_open.back();
        if (object.members.size() == JsonValue::s_mostMembers)
            return fail("an object of the body has more than " + std::to_string(JsonValue::s_mostMembers) +
                        " members");
        if (object.find(name))
            return fail(base::quoted(name) + " stands twice in the same object");
        object.members.push_back({std::move(name), {}});
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& error) override {
        // After the library's own name for the fault.
        const std::string text = error.what();
        const std::size_t end = text.find("] ");
        return fail("the body is no JSON: " +
                    base::printable(end == std::string::npos ? text : text.substr(end + 2)));
    }

private:
    bool fail(std::string text) {
        m_fault = std::move(text);
        return false;
    }
    bool placeText(JsonValue::EKind kind, std::string text) {
        JsonValue value;
        value.kind = kind;
        value.text = std::move(text);
        return place(std::move(value));
    }
    bool place(JsonValue value) {
        put(std::move(value));
        return true;
    }
    JsonValue& put(JsonValue value) {
        if (m_open.empty())
            return m_root = std::move(value);
        JsonValue& around = *m_open.back();
        if (around.kind == JsonValue::EKind::Array)
            return around.elements.emplace_back(std::move(value));
        return around.members.back().value = std::move(value);
    }
    bool open(JsonValue::EKind kind) {
        if (m_open.size() == JsonValue::s_mostLevels)
            return fail("the body has more than " + std::to_string(JsonValue::s_mostLevels) +
                        " levels of arrays and objects");
        JsonValue value;
        value.kind = kind;
        m_open.push_back(&put(std::move(value)));
        return true;
    }
    bool close() {
        m_open.pop_back();
        return true;
    }

    JsonValue m_root;
    /// From the outermost to the one that is being filled. None of them moves: only the last one grows.
    std::vector<JsonValue*> m_open;
    std::string m_fault;
};

/// With its length, so that no text can look like the end of another.
void appendText(std::string& content, std::string_view text) {
    content += std::to_string(text.size());
    content += ':';
    content += text;
}

}  // namespace

JsonValue JsonValue::read(std::string_view json) {
    Maker maker;
    if (!Parser::sax_parse(json.begin(), json.end(), &maker))
        throw ApiFault::invalid(maker.fault());
    return maker.take();
}

const JsonValue* JsonValue::find(std::string_view name) const {
    const auto member = std::find_if(members.begin(), members.end(),
                                     [&](const Member& candidate) { return candidate.name == name; });
    return member == members.end() ? nullptr : &member->value;
}

const char* JsonValue::inWords() const {
    switch (kind) {
        case EKind::Bool:
            return "a bool";
        case EKind::Number:
            return "a number";
        case EKind::Text:
            return "a text";
        case EKind::Array:
            return "an array";
        case EKind::Object:
            return "an object";
        default:
            return "null";
    }
}

void JsonValue::appendContent(std::string& content) const {
    content += "0bntao"[static_cast<std::size_t>(kind)];
    if (kind == EKind::Bool)
        content += isTrue ? '1' : '0';
    if (kind == EKind::Number || kind == EKind::Text)
        appendText(content, text);
    if (kind == EKind::Array || kind == EKind::Object)
        content += std::to_string(elements.size() + members.size());
    for (const JsonValue& element : elements)
        element.appendContent(content);
    std::vector<const Member*> sorted;
    for (const Member& member : members)
        sorted.push_back(&member);
    std::sort(sorted.begin(), sorted.end(),
              [](const Member* pOne, const Member* pOther) { return pOne->name < pOther->name; });
    for (const Member* pMember : sorted) {
        appendText(content, pMember->name);
        pMember->value.appendContent(content);
    }
}
