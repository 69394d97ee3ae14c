#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "AlarmList.h"
#include "DriverTable.h"
#include "FidMemory.h"
#include "StateStore.h"

/// Offers the words that a console line can go on with: commands, drivers, keys of the state, FIDs, macros,
/// alarms. Owned by CommandShell.
class Completion {
public:
    Completion(const DriverTable& drivers, const StateStore& store, const FidMemory& fids,
               const AlarmList& alarms)
        : m_drivers(drivers), m_store(store), m_fids(fids), m_alarms(alarms) {}

    /// Offers words from here on. Command thread; once, when all commands are registered.
    void begin(std::vector<std::string> commandNames);

    /// The words that begin with the prefix and may stand after these. None before begin(). Any
    /// thread.
    std::vector<std::string> words(const std::vector<std::string>& before, const std::string& prefix) const;

private:
    using Words = std::vector<std::string>;

    Words firstArguments(const std::string& command, const std::string& prefix) const;
    Words fids(const std::string& prefix) const;
    Words fidParameters(const std::string& fid) const;
    Words driverIDs() const;
    Words alarmKeys() const;
    Words macroNames() const;

    const DriverTable& m_drivers;
    const StateStore& m_store;
    const FidMemory& m_fids;
    const AlarmList& m_alarms;
    std::vector<std::string> m_commandNames;
    std::atomic<bool> m_isBegun = false;
};
