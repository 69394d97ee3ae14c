#include "FaultPlan.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <utility>

namespace {

struct Stage {
    const char* name;
    FaultPlan::EStage stage;
};

constexpr Stage s_stages[] = {
    {"load", FaultPlan::EStage::Load},     {"configure", FaultPlan::EStage::Configure},
    {"start", FaultPlan::EStage::Start},   {"deinitialize", FaultPlan::EStage::Deinitialize},
    {"delete", FaultPlan::EStage::Delete},
};

}  // namespace

std::vector<std::string> FaultPlan::read(const std::string& text) {
    std::string lines = text;
    std::replace(lines.begin(), lines.end(), ';', '\n');
    std::istringstream stream(lines);
    std::vector<std::string> complaints;
    for (std::string entry; std::getline(stream, entry);) {
        const auto begin = entry.find_first_not_of(" \t\r");
        if (begin == std::string::npos)
            continue;
        entry = entry.substr(begin, entry.find_last_not_of(" \t\r") + 1 - begin);
        if (std::string complaint = readEntry(entry); !complaint.empty())
            complaints.push_back(std::move(complaint));
    }
    return complaints;
}

std::string FaultPlan::readEntry(const std::string& entry) {
    const auto end = std::min(entry.find_first_of(" \t"), entry.size());
    const std::string name = entry.substr(0, end);
    const auto* pStage = std::find_if(std::begin(s_stages), std::end(s_stages),
                                      [&name](const Stage& known) { return name == known.name; });
    if (pStage == std::end(s_stages))
        return "\"" + name + "\" is no stage; there are load, configure, start, deinitialize, delete";
    std::string error;
    const auto begin = std::min(entry.find_first_not_of(" \t", end), entry.size());
    const auto fault = Fault::parse(entry.substr(begin), error);
    if (!fault)
        return error;
    const std::lock_guard lock(m_mutex);
    m_faults.insert_or_assign(pStage->stage, *fault);
    return {};
}

bool FaultPlan::strike(EStage stage) const {
    std::optional<Fault> fault;
    {
        const std::lock_guard lock(m_mutex);
        if (const auto found = m_faults.find(stage); found != m_faults.end())
            fault = found->second;
    }
    return !fault || fault->strike();
}

void FaultPlan::clear() {
    const std::lock_guard lock(m_mutex);
    m_faults.clear();
}
