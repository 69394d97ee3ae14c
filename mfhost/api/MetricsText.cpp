#include "MetricsText.h"

#include <array>
#include <charconv>
#include <cmath>

#include "Printable.h"

namespace {

std::string numberText(double value) {
    if (!std::isfinite(value))
        return std::isnan(value) ? "NaN" : value > 0 ? "+Inf" : "-Inf";
    std::array<char, 64> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    return {digits.data(), end};
}

}  // namespace

void MetricsText::sample(Labels labels, double value) {
    add(labels, numberText(value));
}

void MetricsText::histogram(Labels labels, std::span<const double> bounds,
                            std::span<const std::uint64_t> counts, double sum) {
    std::uint64_t all = 0;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        all += counts[i];
        add(labels, std::to_string(all), "_bucket", i < bounds.size() ? numberText(bounds[i]) : "+Inf");
    }
    add(labels, numberText(sum), "_sum");
    add(labels, std::to_string(all), "_count");
}

void MetricsText::add(Labels labels, std::string_view value, std::string_view suffix,
                      std::string_view bound) {
    if (!std::exchange(m_isNamed, true)) {
        for (const auto& [line, text] : {std::pair("# HELP ", m_pFamily->help), {"# TYPE ", m_pFamily->type}})
            m_text.append(line).append(m_pFamily->name).append(" ").append(text).append("\n");
    }
    m_text.append(m_pFamily->name).append(suffix);
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
    if (!bound.empty())
        m_text.append(1, std::exchange(separator, ',')).append("le=\"").append(bound).append("\"");
    if (separator == ',')
        m_text += '}';
    m_text.append(" ").append(value).append("\n");
}
