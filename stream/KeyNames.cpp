#include "KeyNames.h"

#include <utility>

#include "StreamRecord.h"

namespace stream {

void KeyNames::learn(const StreamRecord& record) {
    if (record.kind == EKind::Define)
        define(record.key, record.text);
}

void KeyNames::define(std::uint32_t key, std::string text) {
    if (m_names.size() < s_most || m_names.contains(key))
        m_names[key] = std::move(text);
}

const std::string* KeyNames::find(std::uint32_t key) const {
    const auto found = m_names.find(key);
    return found == m_names.end() ? nullptr : &found->second;
}

std::string KeyNames::driver(std::uint16_t number) const {
    if (number == 0)
        return "host";
    const std::string* const pName = find(static_cast<std::uint32_t>(number) << 16);
    return pName ? *pName : '#' + std::to_string(number);
}

std::string KeyNames::key(const StreamRecord& record) const {
    if (!record.keyText.empty())
        return record.keyText;
    if ((record.key & 0xffffu) == 0)
        return {};
    const std::string* const pName = find(record.key);
    return pName ? *pName : '#' + std::to_string(record.key & 0xffffu);
}

}  // namespace stream
