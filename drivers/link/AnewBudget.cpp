#include "AnewBudget.h"

#include <algorithm>

namespace {

constexpr std::chrono::seconds s_pause{30};
constexpr int s_atOnce = 3;

}  // namespace

bool AnewBudget::take(Time now) {
    const Time begin = std::max(m_paidUntil, now);
    if (begin > now + s_pause * (s_atOnce - 1))
        return false;
    m_paidUntil = begin + s_pause;
    return true;
}
