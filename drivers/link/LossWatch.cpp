#include "LossWatch.h"

#include <algorithm>
#include <cstddef>

namespace {

constexpr std::chrono::minutes s_longest{60};
/// Of names that a stranger may choose.
constexpr std::size_t s_mostDrivers = 4096;

}  // namespace

bool LossWatch::compare(const std::string& driver, bool isEqual, Time now) {
    if (m_excluded.contains(driver))
        return false;
    if (isEqual) {
        m_doubtful.erase(driver);
        if (m_doubtful.empty() && now >= m_next)
            m_pause = s_first;
        return false;
    }
    if (m_doubtful.size() >= s_mostDrivers || m_doubtful.insert(driver).second || now < m_next)
        return false;
    m_next = now + m_pause;
    m_pause = std::min(m_pause * 2, s_longest);
    m_doubtful.clear();
    return true;
}

void LossWatch::exclude(const std::string& driver) {
    if (m_excluded.size() < s_mostDrivers)
        m_excluded.insert(driver);
}
