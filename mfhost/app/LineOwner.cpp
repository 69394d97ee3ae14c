#include "LineOwner.h"

#include <utility>

void LineOwner::setDrivers(IsDriver isDriver) {
    const std::lock_guard lock(m_mutex);
    m_isDriver = std::move(isDriver);
}

std::string LineOwner::driverOf(const std::string& output, const std::string& text) const {
    const std::lock_guard lock(m_mutex);
    if (!m_isDriver)
        return {};
    std::string first = text.substr(0, text.find(": "));
    if (first.size() < text.size() && m_isDriver(first))
        return first;
    // An ID may have blanks itself.
    for (auto end = output.size(); end != 0 && end != std::string::npos; end = output.rfind(' ', end - 1)) {
        if (std::string speaker = output.substr(0, end); m_isDriver(speaker))
            return speaker;
    }
    return {};
}
