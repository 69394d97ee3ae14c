#include "RecordRedaction.h"

#include <algorithm>

#include "FidFields.h"

namespace {

using stream::EKind;

const std::string s_mask(stream::FidFields::s_mask);

/// Before the text stand the number of another record and a duration.
constexpr std::size_t s_endHead = 2 * sizeof(std::uint64_t);
/// The code of a message.
constexpr std::size_t s_wireHead = 6;

/// The size of the name, with the length byte before it, that a text begins with.
std::size_t nameSize(const std::string& text) {
    return text.empty() ? 0
                        : std::min(text.size(), 1 + std::size_t{static_cast<unsigned char>(text.front())});
}

std::string named(const std::string& name) {
    return static_cast<char>(name.size()) + name;
}

/// Of who asked: nobody stays nobody.
std::string maskedName(const std::string& text) {
    return named(nameSize(text) > 1 ? s_mask : std::string());
}

}  // namespace

void redact(stream::StreamRecord& record) {
    std::string& text = record.text;
    switch (record.kind) {
        case EKind::Text:
        case EKind::Output:
            text = s_mask;
            break;
        case EKind::Event:
            if (!text.empty())
                text = s_mask;
            break;
        case EKind::Fid: {
            const auto fields = stream::FidFields::masked(std::string_view(text).substr(nameSize(text)),
                                                          [](std::string_view) { return true; });
            text = maskedName(text) + std::string(fields.bytes());
            break;
        }
        case EKind::Command:
        case EKind::Mark:
            text = maskedName(text) + s_mask;
            break;
        case EKind::Log:
            text.replace(nameSize(text), std::string::npos, s_mask);
            break;
        case EKind::FidEnd:
        case EKind::CommandEnd:
            if (text.size() > s_endHead)
                text.replace(s_endHead, std::string::npos, s_mask);
            break;
        case EKind::Wire:
            text.resize(std::min(text.size(), s_wireHead));
            break;
        default:
            break;
    }
}
