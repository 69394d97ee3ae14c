#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "DriverTable.h"
#include "StateStore.h"

/// Offers the words that a console line can go on with: commands, drivers, keys of the state. Owned by
/// CommandShell.
class Completion {
public:
    Completion(const DriverTable& drivers, const StateStore& store) : m_drivers(drivers), m_store(store) {}

    /// Offers words from here on. Command thread; once, when all commands are registered.
    void begin(std::vector<std::string> commandNames);

    /// The words that begin with the prefix and may stand after these. None before begin(). Console thread.
    std::vector<std::string> words(const std::vector<std::string>& before, const std::string& prefix) const;

private:
    const DriverTable& m_drivers;
    const StateStore& m_store;
    std::vector<std::string> m_commandNames;
    std::atomic<bool> m_isBegun = false;
};
