#include "Completion.h"

#include <algorithm>
#include <utility>

#include "HostCommands.h"
#include "PanelNames.h"
#include "ShownMacros.h"

namespace {

const std::string s_macroFids = std::string(protocol::panelDriverID) + ".MACRO.";

/// Whether a word may be typed as it is.
bool isOneWord(const std::string& word) {
    return !word.empty() && word.find_first_of(" \t\"'\\") == std::string::npos;
}

}  // namespace

void Completion::begin(std::vector<std::string> commandNames) {
    m_commandNames = std::move(commandNames);
    m_isBegun = true;
}

std::vector<std::string> Completion::words(const std::vector<std::string>& before,
                                           const std::string& prefix) const {
    if (!m_isBegun)
        return {};
    const std::string command = before.empty() ? std::string() : before.front();
    Words found;
    if (before.empty() || (command == "help" && before.size() == 1))
        found = m_commandNames;
    else if (before.size() == 1)
        found = firstArguments(command, prefix);
    else if (before.size() == 2 && command == "sendFID")
        found = fidParameters(before[1]);
    std::erase_if(found, [&](const std::string& word) { return !word.starts_with(prefix); });
    return found;
}

Completion::Words Completion::firstArguments(const std::string& command, const std::string& prefix) const {
    if (command == "reloadDriver" || command == "stopDriver" || command == "startDriver" ||
        command == "drivers" || command == "log")
        return driverIDs();
    if (command == "sendFID")
        return fids(prefix);
    if (command == "state" || command == "follow" || HostCommands::setsState(command))
        return m_store.keys(prefix);
    if (command == "acknowledge" || command == "shelve")
        return alarmKeys();
    return {};
}

/// Those that are known, and of each other driver the begin.
Completion::Words Completion::fids(const std::string& prefix) const {
    Words found = m_fids.fids(prefix);
    if (!macroNames().empty())
        found.push_back(s_macroFids + "PLAY");
    const Words known = found;
    for (const std::string& driverID : driverIDs()) {
        const std::string begin = driverID + ".";
        const bool isKnown = std::any_of(known.begin(), known.end(),
                                         [&](const std::string& fid) { return fid.starts_with(begin); });
        if (!isKnown || !prefix.starts_with(begin))
            found.push_back(begin);
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

Completion::Words Completion::fidParameters(const std::string& fid) const {
    Words found;
    const bool isNamed = fid == s_macroFids + "PLAY" || fid == s_macroFids + "DELETE";
    if (!isNamed && fid != s_macroFids + "RENAME")
        return found;
    for (const std::string& name : macroNames())
        found.push_back((isNamed ? "name=" : "from=") + name);
    return found;
}

Completion::Words Completion::driverIDs() const {
    Words found;
    for (const DriverTable::Driver& driver : m_drivers.drivers())
        found.push_back(driver.id);
    return found;
}

Completion::Words Completion::alarmKeys() const {
    Words found;
    for (const AlarmList::Alarm& alarm : m_alarms.alarms())
        found.push_back(alarm.key);
    return found;
}

Completion::Words Completion::macroNames() const {
    Words found = ShownMacros::of(m_store).names;
    std::erase_if(found, [](const std::string& name) { return !isOneWord(name); });
    return found;
}
