#include "StreamFilter.h"

#include <fnmatch.h>

#include <algorithm>

#include "Printable.h"
#include "StreamText.h"

namespace stream {
namespace {

std::vector<std::string> split(std::string_view words) {
    std::vector<std::string> found;
    while (!words.empty()) {
        const std::size_t end = std::min(words.find(','), words.size());
        if (end > 0)
            found.emplace_back(words.substr(0, end));
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    return found;
}

bool isAboutStream(EKind kind) {
    return kind == EKind::Define || kind == EKind::Counts;
}

}  // namespace

StreamFilter::StreamFilter() {
    m_kinds.set();
    for (std::size_t kind = 0; kind < m_kinds.size(); ++kind)
        m_kinds[kind] = !isAboutStream(static_cast<EKind>(kind));
}

std::string StreamFilter::setKinds(std::string_view kinds) {
    std::bitset<256> wanted;
    for (const std::string& word : split(kinds)) {
        const auto found = kindsNamed(word);
        if (found.empty()) {
            std::string known;
            for (const std::string_view name : kindNames())
                known += (known.empty() ? "" : ", ") + std::string(name);
            return base::quoted(word) + " is no kind of record; there are " + known;
        }
        for (const EKind kind : found)
            wanted.set(static_cast<std::size_t>(kind));
        if (found.front() == EKind::Fid)
            wanted.set(static_cast<std::size_t>(EKind::FidEnd));
        if (found.front() == EKind::Command)
            wanted.set(static_cast<std::size_t>(EKind::CommandEnd));
    }
    if (wanted.any())
        m_kinds = wanted;
    return {};
}

void StreamFilter::setDrivers(std::string_view drivers) {
    m_drivers = split(drivers);
}

bool StreamFilter::isWanted(const std::string& driver) const {
    return std::any_of(m_drivers.begin(), m_drivers.end(), [&](const std::string& pattern) {
        return ::fnmatch(pattern.c_str(), driver.c_str(), 0) == 0;
    });
}

bool StreamFilter::matchesDriver(const StreamRecord& record, const KeyNames& names) const {
    if (m_drivers.empty() || isWanted(names.driver(record.driver())))
        return true;
    const auto receiver = static_cast<std::uint16_t>(record.value);
    return record.kind == EKind::Fid && receiver != 0 && isWanted(names.driver(receiver));
}

bool StreamFilter::matches(const StreamRecord& record, const KeyNames& names) const {
    if (!m_kinds[static_cast<std::size_t>(record.kind)] || !matchesDriver(record, names))
        return false;
    return m_glob.empty() || ::fnmatch(m_glob.c_str(), subjectOf(record, names).c_str(), 0) == 0;
}

}  // namespace stream
