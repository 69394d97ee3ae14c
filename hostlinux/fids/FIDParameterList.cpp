#include "FIDParameterList.h"

#include <algorithm>
#include <cstring>

#include "LogLine.h"
#include "sal/LogOutput.h"

namespace {

constexpr std::size_t s_longest = 255;  // what a length byte or the count byte can say

unsigned char byteAt(const char* buffer, std::size_t position) {
    return static_cast<unsigned char>(buffer[position]);
}

/// Reads a length byte and its bytes and moves position past them. False when they would cross the end.
bool readText(const char* buffer, std::size_t size, std::size_t& position, std::string& text) {
    if (position >= size)
        return false;
    const std::size_t length = byteAt(buffer, position);
    if (length > size - position - 1)
        return false;
    text.assign(buffer + position + 1, length);
    position += 1 + length;
    return true;
}

void writeText(char* buffer, std::size_t& position, const std::string& text) {
    buffer[position++] = static_cast<char>(static_cast<unsigned char>(text.size()));
    std::memcpy(buffer + position, text.data(), text.size());
    position += text.size();
}

}  // namespace

void FIDParameterList::add(const std::string& name, const std::string& value) {
    m_parameters.emplace_back(name, value);
}

std::string FIDParameterList::value(const std::string& name, const std::string& fallback) const {
    for (const auto& [key, text] : m_parameters) {
        if (key == name)
            return text;
    }
    return fallback;
}

bool FIDParameterList::contains(const std::string& name) const {
    return std::any_of(begin(), end(), [&](const Parameter& parameter) { return parameter.first == name; });
}

int FIDParameterList::serialize(char* buffer, int size) const {
    if (size < 1)
        return 0;
    const auto room = static_cast<std::size_t>(size);
    std::size_t position = 1;
    std::size_t count = 0;
    const Parameter* pFirstLeftOut = nullptr;
    for (const Parameter& parameter : m_parameters) {
        const auto& [name, text] = parameter;
        const bool fits = count < s_longest && name.size() <= s_longest && text.size() <= s_longest &&
                          2 + name.size() + text.size() <= room - position;
        if (fits) {
            writeText(buffer, position, name);
            writeText(buffer, position, text);
            ++count;
        } else if (!pFirstLeftOut) {
            pFirstLeftOut = &parameter;
        }
    }
    buffer[0] = static_cast<char>(static_cast<unsigned char>(count));
    if (pFirstLeftOut)
        sal::logLine("FID", sal::LogOutput::eWarning,
                     std::to_string(m_parameters.size() - count) + " of " +
                         std::to_string(m_parameters.size()) +
                         " parameters do not fit into the message and are left out, the first is \"" +
                         pFirstLeftOut->first + "\" with a value of " +
                         std::to_string(pFirstLeftOut->second.size()) + " bytes");
    return static_cast<int>(position);
}

int FIDParameterList::deserialize(const char* buffer, int size) {
    if (size < 1)
        return 0;
    const auto end = static_cast<std::size_t>(size);
    const std::size_t count = byteAt(buffer, 0);
    std::size_t position = 1;
    for (std::size_t i = 0; i < count; ++i) {
        std::size_t next = position;
        std::string name;
        std::string text;
        if (!readText(buffer, end, next, name) || !readText(buffer, end, next, text))
            break;
        add(name, text);
        position = next;
    }
    return static_cast<int>(position);
}

std::ostream& operator<<(std::ostream& stream, const FIDParameterList& parameters) {
    if (!stream.good())
        return stream;
    const char* separator = "";
    for (const auto& [name, value] : parameters) {
        stream << separator << name << '=' << value;
        separator = ", ";
    }
    return stream;
}
