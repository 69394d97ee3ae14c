#include "ChaosWorkplace.h"

#include <algorithm>
#include <iterator>

namespace fs = std::filesystem;

namespace {

struct Member {
    const char* id;
    const char* type;
    bool isProcess;
    const char* kinds;
};

constexpr Member s_members[] = {
    {"T1", "Chatter", true, "T"},   {"T2", "Chatter", true, "T"},  {"T3", "Chatter", true, "T"},
    {"T4", "Chatter", true, "T"},   {"T5", "Chatter", true, "T"},  {"T6", "Chatter", false, "T"},
    {"T7", "Chatter", false, "T"},  {"T8", "Chatter", false, "T"}, {"T9", "Chatter", false, "T"},
    {"F1", "Faulty", true, "F"},    {"F2", "Faulty", true, "F"},   {"F3", "Faulty", true, "F"},
    {"F4", "Faulty", true, "F"},    {"F5", "FaultyQ", true, "FL"}, {"F6", "Faulty", false, "F"},
    {"F7", "FaultyD", false, "FP"}, {"S1", "SysMon", true, "SE"},  {"S2", "SysMon", true, "SM"},
    {"S3", "SysMon", false, "S"},   {"S4", "SysMon", false, "S"},
};

/// Readers see the old file or the new one, never a part.
void replace(const fs::path& file, const std::string& text) {
    const fs::path fresh = file.string() + ".new";
    writeFile(fresh, text);
    fs::rename(fresh, file);
}

}  // namespace

ChaosWorkplace::ChaosWorkplace() {
    fs::create_directory(ledgers());
    fs::create_directory(temporary());
    m_workplace.addModule("Chatter");
    const fs::path faulty = Workplace::build() / "lib/mfdkit/faulty.so";
    for (const char* driverID : {"F5", "F7"}) {
        const std::string module = moduleOf(driverID);
        fs::copy_file(faulty, m_workplace.drivers() / module);
        m_workplace.describe(driverID == std::string("F5") ? "FaultyQ" : "FaultyD", module);
    }
    write(entries());
}

std::vector<std::string> ChaosWorkplace::members(const std::string& kinds, bool onlyProcesses) {
    std::vector<std::string> found;
    for (const Member& member : s_members)
        if (std::string(member.kinds).find_first_of(kinds) != std::string::npos &&
            (member.isProcess || !onlyProcesses))
            found.emplace_back(member.id);
    return found;
}

std::uint32_t ChaosWorkplace::indexOf(const std::string& driverID) {
    const auto talkers = members("T", false);
    return static_cast<std::uint32_t>(std::find(talkers.begin(), talkers.end(), driverID) - talkers.begin());
}

std::vector<std::string> ChaosWorkplace::settings() {
    return {"--hang-timeout", "2", "--restart-delay", "0.1", "--stop-timeout", "1"};
}

HostProcess::Start ChaosWorkplace::host() const {
    std::vector<std::string> options = settings();
    options.insert(options.end(),
                   {"--drivers", Workplace::build() / "lib/mfdkit", "--follow=[TFS]?.[NEPM]*"});
    HostProcess::Start start = m_workplace.host(options);
    std::string talkers;
    for (const std::string& id : members("T", false))
        talkers += (talkers.empty() ? "" : " ") + id;
    start.environment = {{"MFD_CHAOS_MARK", mark()},
                         {"MFD_CHAOS_DRIVERS", talkers},
                         {"MFD_CHAOS_LEDGERS", ledgers()},
                         {"TMPDIR", temporary()}};
    return start;
}

std::string ChaosWorkplace::entries() const {
    std::string text;
    for (const Member& member : s_members) {
        const std::string id = member.id;
        const bool isProcess = id == "S2" ? !m_isDirect : member.isProcess;
        std::string entry = Workplace::entry(id, member.type, isProcess ? "queue" : "direct");
        if (id == "S1" && m_isMoved)
            entry.replace(entry.find("data/S1"), 7, "data/S1moved");
        text += entry;
    }
    return text;
}

void ChaosWorkplace::write(const std::string& entries) const {
    replace(m_workplace.configuration(), "<?xml version=\"1.0\"?>\n<workplaces>\n<workplace id=\"0\">\n" +
                                             entries + "</workplace>\n</workplaces>\n");
}

void ChaosWorkplace::moveDriver() {
    const std::lock_guard lock(m_mutex);
    m_isMoved = !m_isMoved;
    write(entries());
}

void ChaosWorkplace::setMode(bool isDirect) {
    const std::lock_guard lock(m_mutex);
    m_isDirect = isDirect;
    write(entries());
}

void ChaosWorkplace::breakConfiguration(EBroken how) {
    const std::lock_guard lock(m_mutex);
    std::string before;
    switch (how) {
        case EBroken::DuplicateID:
            before = Workplace::entry("T1", "Chatter", "queue");
            break;
        case EBroken::SlashInID:
            before = Workplace::entry("T0/T1", "Chatter", "queue");
            break;
        case EBroken::ForeignAttributeFirst:
            before = "<mainframeDriver driverType=\"Chatter\" driverID=\"T0\" version=\"1.0\"/>\n";
            break;
        case EBroken::TooDeep:
            for (int level = 0; level < 101; ++level)
                before += "<mainframeDriver>";
            break;
    }
    write(before + entries());
}

void ChaosWorkplace::restore() {
    const std::lock_guard lock(m_mutex);
    write(entries());
}

std::string ChaosWorkplace::moduleOf(const std::string& driverID) {
    if (isTalker(driverID))
        return "Chatter.so";
    return driverID == "F5" ? "loadsq.so" : "loadsd.so";
}

void ChaosWorkplace::replaceModule(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    const fs::path file = m_workplace.drivers() / moduleOf(driverID);
    const fs::path fresh = file.string() + "." + std::to_string(++m_copies);
    fs::copy_file(file, fresh);
    fs::rename(fresh, file);
}

void ChaosWorkplace::planLoading(const std::string& driverID, const std::string& faults) const {
    const fs::path file = (m_workplace.drivers() / moduleOf(driverID)).string() + ".faults";
    if (faults.empty())
        fs::remove(file);
    else
        replace(file, faults);
}

void ChaosWorkplace::planStages(const std::string& driverID, const std::string& faults) const {
    const fs::path file = m_workplace.workdir() / "nvram" / driverID / "faults.txt";
    if (faults.empty())
        fs::remove(file);
    else
        replace(file, faults);
}
