#include "Completion.h"

#include <algorithm>
#include <utility>

#include "HostCommands.h"

void Completion::begin(std::vector<std::string> commandNames) {
    m_commandNames = std::move(commandNames);
    m_isBegun = true;
}

std::vector<std::string> Completion::words(const std::vector<std::string>& before,
                                           const std::string& prefix) const {
    std::vector<std::string> found;
    const auto offer = [&](const std::string& word) {
        if (word.starts_with(prefix))
            found.push_back(word);
    };
    if (!m_isBegun)
        return found;
    const std::string command = before.empty() ? std::string() : before.front();
    if (before.empty() || (command == "help" && before.size() == 1)) {
        std::for_each(m_commandNames.begin(), m_commandNames.end(), offer);
    } else if ((command == "reloadDriver" || command == "stopDriver" || command == "startDriver") &&
               before.size() == 1) {
        for (const DriverTable::Driver& driver : m_drivers.drivers())
            offer(driver.id);
    } else if (command == "sendFID" && before.size() == 1) {
        for (const DriverTable::Driver& driver : m_drivers.drivers())
            offer(driver.id + ".");
    } else if ((command == "state" || HostCommands::setsState(command)) && before.size() == 1) {
        found = m_store.keys(prefix);
    }
    return found;
}
