#include "WorkplacePlanner.h"

#include <algorithm>
#include <utility>

#include "ConfigurationCheck.h"
#include "DescriptorChanges.h"
#include "Digest.h"
#include "PanelNames.h"
#include "RegularFile.h"
#include "sal/Path.h"

namespace {

/// As many as an operator may have on his screens.
constexpr std::size_t s_mostKept = 20;
constexpr std::size_t s_mostNamed = 5;

std::string shownPlace(const std::string& path, const std::string& before, const std::string& after) {
    return path + (before.empty() ? " is new" : after.empty() ? " is gone" : " has changed");
}

/// What differs between two looks at the files; empty when nothing does.
std::string differences(const std::map<std::string, std::string>& before,
                        const std::map<std::string, std::string>& after) {
    const auto at = [](const auto& files, const std::string& path) {
        const auto found = files.find(path);
        return found == files.end() ? std::string() : found->second;
    };
    std::set<std::string> paths;
    for (const auto* pFiles : {&before, &after}) {
        for (const auto& [path, identity] : *pFiles)
            paths.insert(path);
    }
    std::string text;
    std::size_t count = 0;
    for (const std::string& path : paths) {
        const std::string left = at(before, path);
        const std::string right = at(after, path);
        if (left == right)
            continue;
        if (++count > s_mostNamed)
            return text + ", ...";
        text += (text.empty() ? "" : ", ") + shownPlace(path, left, right);
    }
    return text;
}

std::string digestOf(const std::map<std::string, std::string>& files) {
    std::string text;
    for (const auto& [path, identity] : files)
        text += path + '\0' + identity + '\0';
    return sha256(text);
}

}  // namespace

DriverSource WorkplacePlanner::source(const WorkplaceSnapshot& workplace, const WorkplaceFile::Entry& entry,
                                      const DescriptorCatalogue& catalogue) {
    DriverSource source;
    source.entry = entry;
    const auto* pRecord = catalogue.find(entry.driverType, entry.version);
    if (pRecord && entry.isLoaded())
        source.module = ModuleIdentity::of(pRecord->module);
    source.isSigned = workplace.signatureFault().empty();
    return source;
}

DriverSource WorkplacePlanner::panelSource(const WorkplaceSnapshot& workplace,
                                           const DescriptorCatalogue& catalogue) {
    WorkplaceFile::Entry entry;
    entry.driverID = protocol::panelDriverID;
    entry.driverType = protocol::panelType;
    entry.version = protocol::panelVersion;
    entry.workingDirectory = protocol::panelDirectory;
    entry.interfaceWord = "direct";
    entry.interfaceType = EInterfaceTypes::Direct;
    DriverSource panel = source(workplace, entry, catalogue);
    // It is started whatever the file says, so it does not matter to it who signed that.
    panel.isSigned = false;
    return panel;
}

WorkplacePlanner::Draft WorkplacePlanner::look(std::shared_ptr<const WorkplaceSnapshot> pWorkplace,
                                               DescriptorCatalogue found, const DescriptorCatalogue& known) {
    Draft draft;
    draft.pWorkplace = std::move(pWorkplace);
    draft.found = std::move(found);
    auto changes = DescriptorChanges::between(known, draft.found);
    draft.newDescriptors = std::move(changes.newFiles);
    draft.needRestart = std::move(changes.needRestart);
    draft.catalogue = known;
    draft.catalogue.add(draft.found, draft.newDescriptors);

    const WorkplaceSnapshot& workplace = *draft.pWorkplace;
    for (const WorkplaceFile::Entry& entry : workplace.file().entries())
        draft.sources.emplace(entry.driverID, source(workplace, entry, draft.catalogue));
    draft.sources.insert_or_assign(protocol::panelDriverID, panelSource(workplace, draft.catalogue));

    if (workplace.bytes())
        draft.files[workplace.path()] = sha256(*workplace.bytes());
    if (!workplace.signature().empty())
        draft.files[workplace.path() + ".sig"] =
            sha256(workplace.signature()) + (workplace.signatureFault().empty() ? " right" : " wrong");
    for (const auto& record : draft.found.records()) {
        std::string& identity = draft.files[record.file];
        for (const std::string* pWord : {&record.module, &record.type, &record.version, &record.description,
                                         &record.pdlFile, &record.prefix})
            identity += *pWord + '\0';
    }
    for (const auto& [driverID, driver] : draft.sources) {
        if (!driver.module.path.empty())
            draft.files[driver.module.path] = driver.module.text();
    }
    draft.plan.digest = digestOf(draft.files);
    return draft;
}

WorkplacePlanner::Draft WorkplacePlanner::draft(const Running& running) const {
    Draft draft = look(std::make_shared<const WorkplaceSnapshot>(m_settings.file),
                       DescriptorCatalogue(m_settings.driverDirectories), running.catalogue);
    const WorkplaceFile& file = draft.pWorkplace->file();
    if (m_settings.file.empty()) {
        draft.plan.refusal = "there is no configuration";
        return draft;
    }
    const std::string workDirectory = sal::Path::getCurrentWorkingDirPath().getPathString();
    draft.plan.findings = ConfigurationCheck(file, draft.catalogue, workDirectory).forStart();
    // Also what is wrong with descriptors that were not there when the module searched for them.
    for (const Finding& finding : draft.found.findings()) {
        if (std::find(draft.plan.findings.begin(), draft.plan.findings.end(), finding) ==
            draft.plan.findings.end())
            draft.plan.findings.push_back(finding);
    }
    draft.plan.refusal = refusal(draft);
    if (!draft.plan.refusal.empty())
        return draft;
    compare(draft, running);
    for (const WorkplacePlan::Change& change : draft.plan.changes) {
        const bool isReached =
            change.action == WorkplacePlan::EAction::Reload || change.action == WorkplacePlan::EAction::Load;
        if (isReached && change.driverID != protocol::panelDriverID && draft.plan.refusal.empty())
            draft.plan.refusal = file.entryFault(change.driverID);
    }
    if (!draft.plan.refusal.empty())
        draft.plan.changes.clear();
    return draft;
}

std::string WorkplacePlanner::refusal(const Draft& draft) const {
    const WorkplaceSnapshot& workplace = *draft.pWorkplace;
    if (std::string reason = workplace.refusal(m_settings.isSignatureRequired); !reason.empty())
        return reason;
    // What is missing of it may be drivers that are to go on.
    if (!workplace.file().isWhole())
        return workplace.file().obstacle();
    for (const Finding& finding : draft.plan.findings) {
        if (finding.isError())
            return finding.inWords();
    }
    return {};
}

void WorkplacePlanner::compare(Draft& draft, const Running& running) {
    using enum WorkplacePlan::EAction;
    auto& changes = draft.plan.changes;
    for (const std::string& file : draft.newDescriptors)
        changes.push_back({Rescan, {}, file + " is new", file});
    for (const auto& [driverID, source] : running.sources) {
        if (!draft.sources.contains(driverID) && !running.isParked(driverID))
            changes.push_back({Remove, driverID, "entry is gone"});
    }
    const auto compareOne = [&](const std::string& driverID) {
        if (running.isParked(driverID))
            return;
        const auto loaded = running.sources.find(driverID);
        if (loaded == running.sources.end()) {
            changes.push_back({Load, driverID, "entry is new"});
            return;
        }
        const std::string words = loaded->second.difference(draft.sources.at(driverID));
        if (!words.empty())
            changes.push_back({Reload, driverID, words});
    };
    compareOne(protocol::panelDriverID);
    for (const WorkplaceFile::Entry& entry : draft.pWorkplace->file().entries())
        compareOne(entry.driverID);
    for (const std::string& words : draft.needRestart)
        changes.push_back({RestartHost, {}, words});
}

void WorkplacePlanner::keep(Draft& draft) {
    draft.plan.id = std::to_string(++m_number) + "-" + draft.plan.digest.substr(0, 8);
    m_kept.push_back({draft.plan.id, draft.files});
    if (m_kept.size() > s_mostKept)
        m_kept.erase(m_kept.begin());
}

std::string WorkplacePlanner::outdated(const std::string& planID, const Draft& now) const {
    const auto kept =
        std::find_if(m_kept.begin(), m_kept.end(), [&](const Kept& plan) { return plan.id == planID; });
    if (kept == m_kept.end())
        return "there is no plan " + planID +
               (m_kept.empty() ? "; make one with plan" : "; the last one is " + m_kept.back().id);
    const std::string words = differences(kept->files, now.files);
    return words.empty() ? words : "the files have changed since plan " + planID + ": " + words;
}
