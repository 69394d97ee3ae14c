#include "Fields.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "FIDParameterList.h"
#include "MessageReader.h"
#include "MessageWriter.h"

namespace fields {
namespace {

/// What a message consists of: a letter for each field, "s" text, "i" int, "f" float, "b" bool, and "p" at
/// the end for parameters.
struct Layout {
    std::string_view code;
    std::string_view kinds;
};

constexpr Layout s_layouts[] = {
    {protocol::setConfiguration, "issssss"},
    {protocol::subscribe, "s"},
    {protocol::sendFID, "sp"},
    {protocol::createFIDList, ""},
    {protocol::initializationCompleted, ""},
    {protocol::showState, ""},
    {protocol::deinitialize, ""},
    {protocol::setStateValue, "ss"},
    {protocol::setStateValueFloat, "sf"},
    {protocol::setStateValueInt, "si"},
    {protocol::setStateValueBool, "sb"},
    {protocol::unsetStateValue, "s"},
    {protocol::triggerEvent, "ss"},
    {protocol::executeCommand, "ss"},
    {protocol::dispatchFID, "sp"},
};

const Layout* layoutOf(std::string_view code) {
    const auto* pLayout = std::find_if(std::begin(s_layouts), std::end(s_layouts),
                                       [&](const Layout& layout) { return layout.code == code; });
    return pLayout == std::end(s_layouts) ? nullptr : pLayout;
}

std::string_view nameOf(char kind) {
    switch (kind) {
        case 'i':
            return "an int";
        case 'f':
            return "a float";
        case 'b':
            return "a bool";
        default:
            return "a text";
    }
}

bool isOfKind(const mfdqueue_field& field, char kind) {
    switch (kind) {
        case 'i':
            return field.kind == MFDQUEUE_INT;
        case 'f':
            return field.kind == MFDQUEUE_FLOAT;
        case 'b':
            return field.kind == MFDQUEUE_BOOL;
        default:
            return field.kind == MFDQUEUE_TEXT && (field.text || field.length == 0);
    }
}

std::string textOf(const mfdqueue_field& field) {
    return field.length == 0 ? std::string() : std::string(field.text, field.length);
}

/// Empty, or what is wrong with the fields of a message of that layout.
std::string fault(const Layout& layout, std::span<const mfdqueue_field> fields) {
    const std::string code(layout.code);
    const bool hasParameters = layout.kinds.ends_with('p');
    const std::size_t fixed = layout.kinds.size() - (hasParameters ? 1 : 0);
    if (fields.size() < fixed || (!hasParameters && fields.size() > fixed))
        return code + " has " + std::to_string(fixed) + (hasParameters ? " or more" : "") + " fields, not " +
               std::to_string(fields.size());
    if ((fields.size() - fixed) % 2 != 0)
        return code + ": each parameter is two texts, a name and a value; the last one has no value";
    for (std::size_t index = 0; index < fields.size(); ++index) {
        const char kind = index < fixed ? layout.kinds[index] : 's';
        const std::string place = code + ": field " + std::to_string(index + 1);
        if (!isOfKind(fields[index], kind))
            return place + " is " + std::string(nameOf(kind));
        if (index < fixed && kind == 's' && fields[index].length > protocol::maximumText)
            return place + " has " + std::to_string(fields[index].length) + " bytes; " +
                   std::to_string(protocol::maximumText) + " are the most";
    }
    return {};
}

FIDParameterList parametersOf(std::span<const mfdqueue_field> fields) {
    FIDParameterList list;
    for (std::size_t index = 0; index + 1 < fields.size(); index += 2)
        list.add(textOf(fields[index]), textOf(fields[index + 1]));
    return list;
}

/// Where decode() puts what it reads.
struct Sink {
    std::span<mfdqueue_field> fields;
    char* pTexts;
    std::size_t count = 0;

    bool add(const mfdqueue_field& field) {
        if (count == fields.size())
            return false;
        fields[count++] = field;
        return true;
    }
    bool add(const std::string& text) {
        // Each text has a length byte in the message, so that all of them with a zero byte fit into its room.
        if (!add({MFDQUEUE_TEXT, 0, 0, static_cast<std::uint32_t>(text.size()), pTexts}))
            return false;
        std::memcpy(pTexts, text.c_str(), text.size() + 1);
        pTexts += text.size() + 1;
        return true;
    }
};

bool readField(protocol::MessageReader& reader, char kind, Sink& sink) {
    switch (kind) {
        case 'i':
            return sink.add({MFDQUEUE_INT, reader.int32(), 0, 0, nullptr});
        case 'f':
            return sink.add({MFDQUEUE_FLOAT, 0, reader.float32(), 0, nullptr});
        case 'b':
            return sink.add({MFDQUEUE_BOOL, reader.bool8() ? 1 : 0, 0, 0, nullptr});
        case 's':
            return sink.add(reader.string());
        default:
            break;
    }
    const FIDParameterList parameters = reader.parameters();
    return std::all_of(parameters.begin(), parameters.end(),
                       [&](const FIDParameterList::Parameter& parameter) {
                           return sink.add(parameter.first) && sink.add(parameter.second);
                       });
}

}  // namespace

int encode(std::string_view code, std::span<const mfdqueue_field> fields, std::span<unsigned char> buffer,
           std::string& error) {
    const Layout* pLayout = layoutOf(code);
    if (!pLayout) {
        error = "\"" + std::string(code) + "\" is no code of a message";
        return MFDQUEUE_UNKNOWN;
    }
    error = fault(*pLayout, fields);
    if (!error.empty())
        return MFDQUEUE_MALFORMED;
    protocol::MessageWriter writer(pLayout->code);
    // The writer refers to its first text until the message is done.
    std::array<std::string, 6> texts;
    std::size_t text = 0;
    for (std::size_t index = 0; index < pLayout->kinds.size(); ++index) {
        switch (pLayout->kinds[index]) {
            case 'i':
                writer.int32(fields[index].integer);
                break;
            case 'f':
                writer.float32(fields[index].number);
                break;
            case 'b':
                writer.bool8(fields[index].integer != 0);
                break;
            case 's':
                texts[text] = textOf(fields[index]);
                writer.string(texts[text++]);
                break;
            default:
                writer.parameters(parametersOf(fields.subspan(index)));
        }
    }
    if (!writer.fits() || writer.length() > buffer.size()) {
        error = std::string(code) + ": the message does not fit into " +
                std::to_string(std::min(buffer.size(), protocol::maximumLength)) + " bytes";
        return MFDQUEUE_MALFORMED;
    }
    std::memcpy(buffer.data(), writer.data(), writer.length());
    return static_cast<int>(writer.length());
}

int decode(std::span<const unsigned char> message, char* code, std::span<mfdqueue_field> fields, char* texts,
           std::string& error) {
    const std::size_t letters = std::min(message.size(), protocol::codeLength);
    std::fill_n(code, protocol::codeLength + 1, '\0');
    std::copy_n(message.begin(), letters, code);
    const Layout* pLayout = layoutOf({code, letters});
    if (!pLayout) {
        error = "a message of " + std::to_string(message.size()) + " bytes has no known code";
        return MFDQUEUE_UNKNOWN;
    }
    protocol::MessageReader reader(message.data(), message.size());
    Sink sink{fields, texts};
    for (const char kind : pLayout->kinds) {
        if (!readField(reader, kind, sink)) {
            error =
                std::string(pLayout->code) + " has more than " + std::to_string(fields.size()) + " fields";
            return MFDQUEUE_MALFORMED;
        }
    }
    return static_cast<int>(sink.count);
}

}  // namespace fields
