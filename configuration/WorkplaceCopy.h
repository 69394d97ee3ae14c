#pragma once

#include <set>
#include <string>

#include "UniqueFd.h"

class WorkplaceSnapshot;

/// The file from which the module reads the workplace: a sealed copy in memory of the bytes that were checked
/// and verified. No process can write to it, and nothing that happens to the workplace file reaches it. The
/// module keeps the path for its reloads, so the path stays the same for the copy's whole life, and so does
/// the number of its descriptor. Owned by Workplace, used on the command thread.
class WorkplaceCopy {
public:
    /// An exception says that no descriptor can be had.
    WorkplaceCopy();

    /// Where the module finds the bytes taken last. Where there are none, it cannot be opened.
    const std::string& path() const { return m_path; }

    /// Takes the place of what was there before. The drivers that are named have the unannounced type in it,
    /// whatever the file says of them, and the panel driver has an entry where it is to be reloaded;
    /// XMLVerify answers for the path from now on as it did for the snapshot. Where the file could not be
    /// read the path leads to nothing, and the module says so. Returns why no copy could be made, after which
    /// the path leads to nothing, too; empty on success.
    std::string take(const WorkplaceSnapshot& snapshot, const std::set<std::string>& unannouncedIDs = {},
                     const std::string& unannouncedType = {}, bool hasPanelEntry = false);

private:
    /// A descriptor that cannot be opened by its path: what the number means while there is no copy.
    const base::UniqueFd m_nothing;
    const base::UniqueFd m_number;
    const std::string m_path;
};
