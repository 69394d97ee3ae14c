#include "DriverFamilies.h"

#include <utility>
#include <vector>

#include "HostLog.h"

namespace {

constexpr std::chrono::seconds s_interval{1};
constexpr std::size_t s_mostNames = 10;

std::string count(std::size_t number) {
    return std::to_string(number) + (number == 1 ? " process" : " processes");
}

/// "1234 (sleep), 1240 (sh)"
std::string names(const std::vector<sal::ProcessFamily::Member>& members) {
    std::string text;
    for (std::size_t i = 0; i < members.size(); ++i) {
        if (i == s_mostNames)
            return text + ", ...";
        text += (i == 0 ? "" : ", ") + std::to_string(members[i].pid) + " (" + members[i].name + ")";
    }
    return text;
}

}  // namespace

void DriverFamilies::add(const std::string& driverID, const sal::Process::Started& process) {
    const std::lock_guard lock(m_mutex);
    m_families.insert_or_assign(process.pid, Family{driverID, sal::ProcessFamily(process.pid, process.mark)});
}

void DriverFamilies::look() {
    const auto now = std::chrono::steady_clock::now();
    const std::lock_guard lock(m_mutex);
    if (m_looked && now - *m_looked < s_interval)
        return;
    m_looked = now;
    for (auto& [pid, family] : m_families)
        family.processes.look();
    std::erase_if(m_unended, [](auto& unended) { return end(unended.first, unended.second); });
}

void DriverFamilies::end(int pid) {
    std::map<int, Family>::node_type family;
    {
        const std::lock_guard lock(m_mutex);
        family = m_families.extract(pid);
    }
    if (!family || end(pid, family.mapped()))
        return;
    hostLog(sal::LogOutput::eWarning)
        << family.mapped().driverID << ": what process " << pid
        << " may have left behind cannot be looked for; it is tried again" << std::endl;
    // It is collected now.
    family.mapped().processes.forgetNumber();
    const std::lock_guard lock(m_mutex);
    m_unended.emplace_back(pid, std::move(family.mapped()));
}

bool DriverFamilies::end(int pid, Family& family) {
    const auto result = family.processes.endOthers();
    if (!result.ended.empty())
        hostLog(sal::LogOutput::eWarning)
            << family.driverID << ": process " << pid << " left " << count(result.ended.size())
            << " behind, ended with it: " << names(result.ended) << std::endl;
    if (!result.left.empty())
        hostLog(sal::LogOutput::eError)
            << family.driverID << ": process " << pid << " left " << count(result.left.size())
            << " behind that this user may not end: " << names(result.left) << std::endl;
    return result.isWhole;
}
