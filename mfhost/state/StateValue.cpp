#include "StateValue.h"

#include <sstream>

const char* StateValue::typeName() const {
    switch (m_value.index()) {
        case 0:
            return "string";
        case 1:
            return "float";
        case 2:
            return "int";
        default:
            return "bool";
    }
}

std::string StateValue::text() const {
    if (const auto* pText = std::get_if<std::string>(&m_value))
        return *pText;
    if (const auto* pFlag = std::get_if<bool>(&m_value))
        return *pFlag ? "true" : "false";
    std::ostringstream text;
    if (const auto* pNumber = std::get_if<float>(&m_value))
        text << *pNumber;
    else
        text << std::get<int>(m_value);
    return text.str();
}
