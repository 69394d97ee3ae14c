#include "MarkedEnvironment.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace sal {
namespace {

constexpr const char* s_name = "MFD_PROCESS";

/// Of no other process, not even of one with the same number.
std::uint64_t numberOfThisProcess() {
    std::uint64_t number = 0;
    if (::getrandom(&number, sizeof number, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof number))
        number = static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    return number;
}

std::string nextMark() {
    static std::atomic<std::uint64_t> s_child{0};
    // A forked child of this process goes on with the same numbers.
    return MarkedEnvironment::beginOfChildren() + std::to_string(::getpid()) + "-" +
           std::to_string(++s_child);
}

}  // namespace

MarkedEnvironment::MarkedEnvironment(std::vector<std::string> further) : m_entries(std::move(further)) {
    m_entries.insert(m_entries.begin(), nextMark());
    for (std::string& entry : m_entries)
        m_words.push_back(entry.data());
    const auto isReplaced = [this](std::string_view word) {
        return std::any_of(m_entries.begin(), m_entries.end(), [&](const std::string& entry) {
            return word.starts_with(std::string_view(entry).substr(0, entry.find('=') + 1));
        });
    };
    for (char** pEntry = environ; *pEntry; ++pEntry) {
        if (!isReplaced(*pEntry))
            m_words.push_back(*pEntry);
    }
    m_words.push_back(nullptr);
}

std::string MarkedEnvironment::beginOfChildren() {
    static const std::uint64_t s_process = numberOfThisProcess();
    return std::string(s_begin) + std::to_string(s_process) + "-";
}

std::string MarkedEnvironment::ownMark() {
    const char* pValue = std::getenv(s_name);
    return pValue && *pValue ? std::string(s_name) + "=" + pValue : std::string();
}

}  // namespace sal
