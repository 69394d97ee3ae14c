#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "Fault.h"

/// Which stage of a driver's life fails, and how: "load crash; start sleep 2000", an entry a line or between
/// semicolons. Owned by its driver; any thread.
class FaultPlan {
public:
    enum class EStage { Load, Configure, Start, Deinitialize, Delete };

    /// Adds what the text tells; a later entry for a stage replaces the earlier. What is wrong in it is left
    /// out and returned, a line each, with what would be right.
    std::vector<std::string> read(const std::string& text);

    /// Does what is planned for that stage. What comes back says whether the stage succeeds.
    bool strike(EStage stage) const;

    /// Nothing is planned any more.
    void clear();

private:
    /// Empty on success; else what is wrong with the entry.
    std::string readEntry(const std::string& entry);

    mutable std::mutex m_mutex;
    std::map<EStage, Fault> m_faults;
};
