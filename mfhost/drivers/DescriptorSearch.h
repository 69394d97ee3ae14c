#pragma once

#include <set>
#include <string>
#include <vector>

#include "DescriptorCatalogue.h"

class IMDMConfiguration;

/// Has the module search directories for descriptors. Its catalogue only grows, so that what it knows must
/// not be found a second time. Owned by Workplace, used on the command thread.
class DescriptorSearch {
public:
    explicit DescriptorSearch(std::vector<std::string> directories) : m_directories(std::move(directories)) {}

    /// Each directory once; those that cannot be searched, or of whose descriptors the catalogue has none,
    /// are logged. An exception says that the working directory is lost.
    void searchAll(IMDMConfiguration& module, const DescriptorCatalogue& catalogue) const;
    /// Their directories for these files alone.
    void searchFiles(IMDMConfiguration& module, const std::set<std::string>& files) const;

    /// Whether the search that this thread is in is to read the file; true outside of one. Any thread.
    static bool isWanted(const std::string& path);

private:
    static void search(IMDMConfiguration& module, const std::string& directory,
                       const DescriptorCatalogue& catalogue);

    const std::vector<std::string> m_directories;
};
