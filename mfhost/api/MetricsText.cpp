#include "MetricsText.h"

#include <array>
#include <charconv>
#include <cmath>

#include "Printable.h"

void MetricsText::sample(Labels labels, double value) {
    if (!std::isfinite(value)) {
        add(labels, std::isnan(value) ? "NaN" : value > 0 ? "+Inf" : "-Inf");
        return;
    }
    std::array<char, 64> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    add(labels, {digits.data(), static_cast<std::size_t>(end - digits.data())});
}

void MetricsText::add(Labels labels, std::string_view value) {
    if (!std::exchange(m_isNamed, true)) {
        for (const auto& [line, text] : {std::pair("# HELP ", m_pFamily->help), {"# TYPE ", m_pFamily->type}})
            m_text.append(line).append(m_pFamily->name).append(" ").append(text).append("\n");
    }
    m_text += m_pFamily->name;
    char separator = '{';
    for (const auto& [name, text] : labels) {
        if (text.empty())
            continue;
        m_text += std::exchange(separator, ',');
        m_text.append(name).append("=\"");
        for (const char character : base::printable(text)) {
            if (character == '\\' || character == '"')
                m_text += '\\';
            m_text += character;
        }
        m_text += '"';
    }
    if (separator == ',')
        m_text += '}';
    m_text.append(" ").append(value).append("\n");
}
