#include "FidMemory.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "Printable.h"

void FidMemory::add(const std::string& fid) {
    if (fid.empty() || !base::isPrintable(fid))
        return;
    const std::lock_guard lock(m_mutex);
    if (std::find(m_fids.begin(), m_fids.end(), fid) != m_fids.end())
        return;
    if (m_fids.size() >= s_capacity)
        m_fids.pop_front();
    m_fids.push_back(fid);
}

void FidMemory::learn(const std::string& logLine) {
    constexpr std::string_view unknown = ": unknown FID \"";
    constexpr std::string_view known = "\"; known are ";
    const auto begin = logLine.find(unknown);
    const auto names = begin == std::string::npos ? begin : logLine.find(known, begin);
    if (names == std::string::npos)
        return;
    // The word before is the driver's ID.
    const std::size_t word = logLine.find_last_of(' ', begin) + 1;
    const std::string driverID = logLine.substr(word, begin - word);
    forget(driverID + "." + logLine.substr(begin + unknown.size(), names - begin - unknown.size()));
    const std::size_t lineEnd = std::min(logLine.find_last_not_of("\r\n") + 1, logLine.size());
    for (std::size_t at = names + known.size(); !driverID.empty() && at < lineEnd;) {
        const auto end = std::min(logLine.find(", ", at), lineEnd);
        add(driverID + "." + logLine.substr(at, end - at));
        at = end + 2;
    }
}

void FidMemory::forget(const std::string& fid) {
    const std::lock_guard lock(m_mutex);
    std::erase(m_fids, fid);
}

std::vector<std::string> FidMemory::fids(const std::string& prefix) const {
    std::vector<std::string> found;
    {
        const std::lock_guard lock(m_mutex);
        std::copy_if(m_fids.begin(), m_fids.end(), std::back_inserter(found),
                     [&](const std::string& fid) { return fid.starts_with(prefix); });
    }
    std::sort(found.begin(), found.end());
    return found;
}
