#include "FidFields.h"

#include <algorithm>

namespace stream {

FidFields::FidFields(std::string_view function) {
    putText(function);
    m_count = m_size++;
    m_bytes[m_count] = 0;
}

void FidFields::putText(std::string_view text) {
    m_isCut = m_isCut || text.size() > s_longestText;
    text = text.substr(0, s_longestText);
    m_bytes[m_size++] = static_cast<char>(text.size());
    text.copy(m_bytes.data() + m_size, text.size());
    m_size += text.size();
}

void FidFields::add(std::string_view name, std::string_view value) {
    const std::size_t size = 2 + std::min(name.size(), s_longestText) + std::min(value.size(), s_longestText);
    const auto count = static_cast<unsigned char>(m_bytes[m_count]);
    if (count == s_mostParameters || m_size + size > m_bytes.size()) {
        m_isCut = true;
        return;
    }
    putText(name);
    putText(value);
    m_bytes[m_count] = static_cast<char>(count + 1);
}

std::string_view FidFields::takeText(std::string_view& bytes) {
    if (bytes.empty())
        return {};
    const std::string_view text = bytes.substr(1, static_cast<unsigned char>(bytes.front()));
    bytes.remove_prefix(1 + text.size());
    return text;
}

std::size_t FidFields::takeCount(std::string_view& bytes) {
    if (bytes.empty())
        return 0;
    const std::size_t count = static_cast<unsigned char>(bytes.front());
    bytes.remove_prefix(1);
    return count;
}

FidFields::Fid FidFields::parse(std::string_view bytes) {
    Fid fid;
    fid.function = takeText(bytes);
    std::size_t count = takeCount(bytes);
    for (; count > 0 && !bytes.empty(); --count) {
        std::string name(takeText(bytes));
        if (bytes.empty() || bytes.size() < 1u + static_cast<unsigned char>(bytes.front()))
            break;
        fid.parameters.emplace_back(std::move(name), takeText(bytes));
    }
    return fid;
}

}  // namespace stream
