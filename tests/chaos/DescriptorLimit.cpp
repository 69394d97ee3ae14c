#include "DescriptorLimit.h"

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

namespace fs = std::filesystem;

DescriptorLimit::DescriptorLimit(pid_t process) : m_process(process) {
    std::error_code ignored;
    std::set<rlim_t> open;
    for (fs::directory_iterator entry("/proc/" + std::to_string(process) + "/fd", ignored), end;
         !ignored && entry != end; entry.increment(ignored))
        open.insert(std::strtoul(entry->path().filename().c_str(), nullptr, 10));
    rlim_t lowestFree = 0;
    while (open.contains(lowestFree))
        ++lowestFree;
    if (open.empty() || ::prlimit(process, RLIMIT_NOFILE, nullptr, &m_before) != 0)
        return;
    const rlimit limit{lowestFree, m_before.rlim_max};
    m_isSet = ::prlimit(process, RLIMIT_NOFILE, &limit, nullptr) == 0;
}

DescriptorLimit::~DescriptorLimit() {
    if (m_isSet)
        ::prlimit(m_process, RLIMIT_NOFILE, &m_before, nullptr);
}
