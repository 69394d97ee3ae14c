#include "JsonText.h"

#include <cmath>
#include <utility>

#include "Printable.h"
#include "TimeText.h"

namespace {

template <class Number>
std::string digits(Number number) {
    if (!std::isfinite(number))
        return "null";
    std::array<char, 64> buffer;
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr;
    return {buffer.data(), end};
}

}  // namespace

void JsonText::separate() {
    if (std::exchange(m_isNext, true))
        m_text += ',';
}

JsonText& JsonText::begin(char bracket) {
    separate();
    m_text += bracket;
    m_isNext = false;
    return *this;
}

JsonText& JsonText::end(char bracket) {
    m_text += bracket;
    m_isNext = true;
    return *this;
}

JsonText& JsonText::word(std::string_view word) {
    separate();
    m_text += word;
    return *this;
}

JsonText& JsonText::name(std::string_view name) {
    separate();
    m_text += '"';
    m_text += name;
    m_text += "\":";
    m_isNext = false;
    return *this;
}

JsonText& JsonText::value(std::string_view text) {
    separate();
    base::appendJsonText(m_text, text);
    return *this;
}

JsonText& JsonText::value(double number) {
    return word(digits(number));
}

JsonText& JsonText::value(float number) {
    return word(digits(number));
}

JsonText& JsonText::value(std::chrono::system_clock::time_point time) {
    return value(base::utcText(time));
}

std::string JsonText::take() {
    m_isNext = false;
    return std::exchange(m_text, {});
}
