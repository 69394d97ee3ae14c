#include "AgeText.h"

#include <algorithm>

namespace base {

std::string ageText(std::chrono::nanoseconds age) {
    const auto seconds =
        std::max<long long>(0, std::chrono::duration_cast<std::chrono::seconds>(age).count());
    if (seconds < 120)
        return std::to_string(seconds) + " s";
    if (seconds < 120 * 60)
        return std::to_string(seconds / 60) + " min";
    if (seconds < 48 * 3600)
        return std::to_string(seconds / 3600) + " h";
    return std::to_string(seconds / 86400) + " d";
}

}  // namespace base
