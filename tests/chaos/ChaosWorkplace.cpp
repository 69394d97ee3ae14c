#include "ChaosWorkplace.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace fs = std::filesystem;

namespace {

/// In seconds: some faults make a driver that does not stop, which is to have room as well. Under a sanitizer
/// an orderly end takes more than one second on a machine that others use too.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr const char* s_stopTimeout = "5";
#else
constexpr const char* s_stopTimeout = "1";
#endif

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

}  // namespace

ChaosWorkplace::ChaosWorkplace(ETimes times, std::vector<std::string> drivers)
    : m_file(m_workplace.configuration()), m_times(times), m_drivers(std::move(drivers)) {
    fs::create_directory(ledgers());
    fs::create_directory(temporary());
    m_workplace.addModule("Chatter");
    const fs::path faulty = TestWorkplace::build() / "lib/mfdkit/faulty.so";
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

bool ChaosWorkplace::isProcess(const std::string& driverID) {
    return std::any_of(std::begin(s_members), std::end(s_members),
                       [&](const Member& member) { return member.isProcess && member.id == driverID; });
}

std::string ChaosWorkplace::ping(const std::string& driverID, std::uint32_t number) {
    return "sendFID " + driverID + (driverID.front() == 'S' ? ".MARK text=p" : ".PING value=p") +
           std::to_string(number);
}

std::vector<std::string> ChaosWorkplace::talkers() const {
    std::vector<std::string> found;
    std::copy_if(m_drivers.begin(), m_drivers.end(), std::back_inserter(found), isTalker);
    return found;
}

std::uint32_t ChaosWorkplace::indexOf(const std::string& driverID) const {
    const auto all = talkers();
    return static_cast<std::uint32_t>(std::find(all.begin(), all.end(), driverID) - all.begin());
}

std::vector<std::string> ChaosWorkplace::settings() const {
    if (m_times == ETimes::Default)
        return {"--restart-delay", "0.1"};
    return {"--hang-timeout", "2", "--restart-delay", "0.1", "--stop-timeout", s_stopTimeout};
}

std::chrono::seconds ChaosWorkplace::hangTimeout() const {
    return std::chrono::seconds(m_times == ETimes::Default ? 10 : 2);
}

HostProcess::Start ChaosWorkplace::host() const {
    std::vector<std::string> options = settings();
    options.insert(options.end(),
                   {"--drivers", TestWorkplace::build() / "lib/mfdkit", "--follow=[TFS]?.[NEPM]*"});
    HostProcess::Start start = m_workplace.host(options);
    std::string names;
    for (const std::string& id : talkers())
        names += (names.empty() ? "" : " ") + id;
    start.environment = {{"MFD_CHAOS_MARK", mark()},
                         {"MFD_CHAOS_DRIVERS", names},
                         {"MFD_CHAOS_LEDGERS", ledgers()},
                         {"TMPDIR", temporary()}};
    return start;
}

std::string ChaosWorkplace::entries() const {
    std::string text;
    for (const Member& member : s_members) {
        const std::string id = member.id;
        if (std::find(m_drivers.begin(), m_drivers.end(), id) == m_drivers.end() || m_takenOut.contains(id))
            continue;
        const bool isProcess = id == "S2" ? !m_isDirect : member.isProcess;
        // Two with an address, so that addresses can be left over.
        std::string entry = TestWorkplace::entry(
            id, member.type, isProcess ? "queue" : "direct",
            id == "S3" || id == "F1" ? "ipAddress=\"192.0.2." + std::to_string(member.isProcess ? 31 : 32) +
                                           "\" networkAdapter=\"eth0\" "
                                     : "");
        if (id == "S1" && m_isMoved)
            entry.replace(entry.find("data/S1"), 7, "data/S1moved");
        text += entry;
    }
    return text;
}

std::string ChaosWorkplace::text(const std::string& entries) const {
    return "<?xml version=\"1.0\"?>\n<workplaces>\n<workplace id=\"0\">\n" + entries +
           "</workplace>\n</workplaces>\n";
}

void ChaosWorkplace::write(const std::string& entries) const {
    replaceFile(m_file, text(entries));
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

void ChaosWorkplace::setEntry(const std::string& driverID, bool isIn) {
    const std::lock_guard lock(m_mutex);
    if (isIn)
        m_takenOut.erase(driverID);
    else
        m_takenOut.insert(driverID);
    write(entries());
}

std::vector<std::string> ChaosWorkplace::configured() const {
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> found;
    std::copy_if(m_drivers.begin(), m_drivers.end(), std::back_inserter(found),
                 [this](const std::string& driverID) { return !m_takenOut.contains(driverID); });
    return found;
}

void ChaosWorkplace::breakConfiguration(EBroken how) {
    const std::lock_guard lock(m_mutex);
    const std::string whole = text(entries());
    std::string before;
    switch (how) {
        case EBroken::DuplicateID:
            before = TestWorkplace::entry("T1", "Chatter", "queue");
            break;
        case EBroken::SlashInID:
            before = TestWorkplace::entry("T0/T1", "Chatter", "queue");
            break;
        case EBroken::ForeignAttributeFirst:
            before = "<mainframeDriver driverType=\"Chatter\" driverID=\"T0\" version=\"1.0\"/>\n";
            break;
        case EBroken::TooDeep:
            for (int level = 0; level < 101; ++level)
                before += "<mainframeDriver>";
            break;
        case EBroken::Missing:
            fs::remove(m_file);
            return;
        case EBroken::Empty:
            replaceFile(m_file, "");
            return;
        case EBroken::CutShort:
            replaceFile(m_file, whole.substr(0, whole.size() / 2));
            return;
        case EBroken::IllFormed:
            replaceFile(m_file, text("<mainframeDriver driverID=\"T0\" driverType=>\n" + entries()));
            return;
        case EBroken::LinkLoop: {
            const fs::path fresh = m_file.string() + ".new";
            fs::remove(fresh);
            fs::create_symlink(m_file.filename(), fresh);
            fs::rename(fresh, m_file);
            return;
        }
    }
    write(before + entries());
}

void ChaosWorkplace::restore() {
    const std::lock_guard lock(m_mutex);
    write(entries());
}

void ChaosWorkplace::rewrite() {
    const std::lock_guard lock(m_mutex);
    write(std::string(++m_rewrites % 50, '\n') + entries());
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
        replaceFile(file, faults);
}

void ChaosWorkplace::planStages(const std::string& driverID, const std::string& faults) const {
    const fs::path file = m_workplace.workdir() / "nvram" / driverID / "faults.txt";
    if (faults.empty())
        fs::remove(file);
    else
        replaceFile(file, faults);
}
