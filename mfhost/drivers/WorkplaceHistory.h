#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "HistoryEntry.h"
#include "WorkplaceState.h"

/// The states of the workplace that were applied, in a directory: a text file NUMBER for each, and the bytes
/// of all files in files/, each under its SHA-256, once. What is read from it was written by nobody knows
/// whom: it is checked for damage, and trusted with nothing. Owned by Workplace, used on the command thread.
class WorkplaceHistory {
public:
    struct Limits {
        std::size_t states = 50;
        std::uint64_t bytes = 256u << 20;  ///< of all files together; the oldest states give way
    };

    /// An empty path keeps nothing.
    explicit WorkplaceHistory(std::string directory);
    WorkplaceHistory(std::string directory, Limits limits);

    /// Reads what is there. What of it cannot be used, a line each; the rest can.
    std::vector<std::string> read();

    bool isKept() const { return !m_directory.empty(); }
    /// Oldest first.
    const std::vector<HistoryEntry>& entries() const { return m_entries; }
    /// Null for one that is not there.
    const HistoryEntry* find(unsigned number) const;
    /// The last one that was applied; null when there is none.
    const HistoryEntry* present() const;
    /// The one whose state was applied before the present one's; null when there is none.
    const HistoryEntry* beforePresent() const;

    /// The files of a state. Nothing, with the reason in error, when they are damaged or gone.
    std::optional<WorkplaceState> state(unsigned number, std::string& error) const;

    /// Keeps a state, and gives up the oldest ones beyond the limits. Its number, or 0 with the reason in
    /// error.
    unsigned add(HistoryEntry entry, const WorkplaceState& state, std::string& error);

    /// The largest file whose bytes are kept.
    static constexpr std::size_t s_largestFile = 16u << 20;

private:
    std::string entryPath(unsigned number) const;
    std::string filePath(const std::string& digest) const;
    bool keepBytes(const std::string& digest, const std::string& bytes, std::string& error);
    void giveUpOldest();
    std::uint64_t removeUnused();

    const std::string m_directory;
    const Limits m_limits;
    std::vector<HistoryEntry> m_entries;
    std::set<std::string> m_kept;  ///< digests of the files that this process has written or found right
};
