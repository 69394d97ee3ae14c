#include "WireText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

namespace stream {
namespace {

constexpr std::size_t s_codeLength = 6;

/// docs/protocol.md has the same: a string, an int32, a float32, a bool8, or parameters.
enum class EField { Text, Int, Float, Bool, Parameters };

struct Form {
    std::string_view code;
    std::array<EField, 7> fields{};
    std::size_t count = 0;
};

using enum EField;
constexpr std::array<Form, 16> s_forms{{{"SETCFG", {Int, Text, Text, Text, Text, Text, Text}, 7},
                                        {"SUBSCR", {Text}, 1},
                                        {"SNDFDP", {Text, Parameters}, 2},
                                        {"CRTFID", {}, 0},
                                        {"INTCMP", {}, 0},
                                        {"SHOWST", {}, 0},
                                        {"DEINIT", {}, 0},
                                        {"SETVAL", {Text, Text}, 2},
                                        {"SETVAF", {Text, Float}, 2},
                                        {"SETVAI", {Text, Int}, 2},
                                        {"SETVAB", {Text, Bool}, 2},
                                        {"UNSVAL", {Text}, 1},
                                        {"TRIGGR", {Text, Text}, 2},
                                        {"SYSCMD", {Text, Text}, 2},
                                        {"DSPFID", {Text, Parameters}, 2},
                                        {"WAKEUP", {}, 0}}};

/// The next field's text where it is whole; the bytes begin after it then.
class Fields {
public:
    explicit Fields(std::string_view bytes) : m_bytes(bytes) {}

    std::string_view rest() const { return m_bytes; }

    std::optional<std::string> next(EField field) {
        switch (field) {
            case EField::Text: {
                const auto found = text();
                return found ? std::optional('"' + std::string(*found) + '"') : std::nullopt;
            }
            case EField::Int:
                return number<std::int32_t>();
            case EField::Float:
                return number<float>();
            case EField::Bool: {
                const auto found = take(1);
                return found ? std::optional<std::string>((*found)[0] != '\0' ? "true" : "false")
                             : std::nullopt;
            }
            case EField::Parameters:
                break;
        }
        return parameters();
    }

private:
    std::optional<std::string_view> take(std::size_t length) {
        if (m_bytes.size() < length)
            return std::nullopt;
        const std::string_view taken = m_bytes.substr(0, length);
        m_bytes.remove_prefix(length);
        return taken;
    }

    std::optional<std::string_view> text() {
        const std::string_view before = m_bytes;
        const auto length = take(1);
        const auto found = length ? take(static_cast<unsigned char>((*length)[0])) : std::nullopt;
        if (!found)
            m_bytes = before;
        return found;
    }

    template <class Number>
    std::optional<std::string> number() {
        const auto bytes = take(sizeof(Number));
        if (!bytes)
            return std::nullopt;
        Number value{};
        std::memcpy(&value, bytes->data(), sizeof value);
        std::array<char, 64> digits{};
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
        return std::string(digits.data(), end);
    }

    std::optional<std::string> parameters() {
        const std::string_view before = m_bytes;
        const auto count = take(1);
        std::string all;
        for (unsigned left = count ? static_cast<unsigned char>((*count)[0]) : 0; left > 0; --left) {
            const auto name = text();
            const auto value = name ? text() : std::nullopt;
            if (!value) {
                m_bytes = before;
                return std::nullopt;
            }
            all += (all.empty() ? "" : " ") + std::string(*name) + "=\"" + std::string(*value) + '"';
        }
        return count ? std::optional(all) : std::nullopt;
    }

    std::string_view m_bytes;
};

std::string bytesText(std::string_view bytes) {
    constexpr std::string_view s_digits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {' ', s_digits[byte >> 4], s_digits[byte & 0xfu]};
    }
    return text;
}

}  // namespace

std::string wireText(std::string_view message) {
    std::string text(message.substr(0, s_codeLength));
    Fields fields(message.substr(text.size()));
    const auto form =
        std::find_if(s_forms.begin(), s_forms.end(), [&](const Form& each) { return each.code == text; });
    if (form != s_forms.end()) {
        for (std::size_t i = 0; i < form->count; ++i) {
            const auto field = fields.next(form->fields.at(i));
            if (!field)
                break;
            text += (field->empty() ? "" : " ") + *field;
        }
    }
    if (!fields.rest().empty())
        text += " +" + bytesText(fields.rest());
    return text;
}

}  // namespace stream
