#include "LineLimit.h"

#include <utility>

namespace {

constexpr std::chrono::seconds s_interval{1};

}  // namespace

std::optional<std::string> LineLimit::take(const std::string& cause, const std::string& line, Time now) {
    const auto [found, isNew] = m_causes.try_emplace(cause, Cause{now + s_interval, 0, {}});
    if (isNew)
        return line;
    ++found->second.count;
    found->second.line = line;
    return std::nullopt;
}

std::vector<std::string> LineLimit::due(Time now) {
    std::vector<std::string> lines;
    for (auto cause = m_causes.begin(); cause != m_causes.end();) {
        Cause& held = cause->second;
        if (held.next > now) {
            ++cause;
        } else if (held.count == 0) {
            cause = m_causes.erase(cause);
        } else {
            lines.push_back(held.line);
            if (held.count > 1)
                lines.back() += "; it is the last of " + std::to_string(held.count) + " such within a second";
            held = {now + s_interval, 0, {}};
            ++cause;
        }
    }
    return lines;
}
