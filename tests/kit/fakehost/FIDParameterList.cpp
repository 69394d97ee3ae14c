#include "FIDParameterList.h"

#include <algorithm>

void FIDParameterList::add(const std::string& name, const std::string& value) {
    m_parameters.emplace_back(name, value);
}

std::string FIDParameterList::value(const std::string& name, const std::string& fallback) const {
    for (const Parameter& parameter : m_parameters) {
        if (parameter.first == name)
            return parameter.second;
    }
    return fallback;
}

bool FIDParameterList::contains(const std::string& name) const {
    return std::any_of(m_parameters.begin(), m_parameters.end(),
                       [&](const Parameter& parameter) { return parameter.first == name; });
}

int FIDParameterList::serialize(char* buffer, int size) const {
    if (size < 1)
        return 0;
    std::string wire(1, '\0');
    for (const auto& [name, value] : m_parameters) {
        const std::size_t room = static_cast<std::size_t>(size) - wire.size();
        if (name.size() > 255 || value.size() > 255 || name.size() + value.size() + 2 > room ||
            wire[0] == '\xff')
            continue;
        wire += static_cast<char>(name.size()) + name;
        wire += static_cast<char>(value.size()) + value;
        wire[0] = static_cast<char>(wire[0] + 1);
    }
    std::copy(wire.begin(), wire.end(), buffer);
    return static_cast<int>(wire.size());
}

int FIDParameterList::deserialize(const char* buffer, int size) {
    int at = 0;
    const auto text = [&](std::string& result) {
        if (at >= size)
            return false;
        const int length = static_cast<unsigned char>(buffer[at]);
        if (at + 1 + length > size)
            return false;
        result.assign(buffer + at + 1, static_cast<std::size_t>(length));
        at += 1 + length;
        return true;
    };
    if (size < 1)
        return 0;
    int count = static_cast<unsigned char>(buffer[at++]);
    std::string name;
    std::string value;
    while (count-- > 0 && text(name) && text(value))
        add(name, value);
    return at;
}

std::ostream& operator<<(std::ostream& stream, const FIDParameterList& parameters) {
    const char* separator = "";
    for (const auto& [name, value] : parameters) {
        stream << separator << name << "=" << value;
        separator = ", ";
    }
    return stream;
}
