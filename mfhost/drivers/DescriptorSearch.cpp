#include "DescriptorSearch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "HostLog.h"
#include "IMDMConfiguration.h"
#include "Needed.h"
#include "UniqueFd.h"
#include "sal/Directory.h"

namespace {

/// A scan changes the working directory of the process, and may fail to change it back.
class WorkingDirectory {
public:
    WorkingDirectory()
        : m_fd(base::neededDescriptor(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC),
                                      "the working directory")) {}

    void enter() const {
        if (::fchdir(m_fd.get()) != 0)
            throw std::runtime_error(std::string("the working directory cannot be entered again: ") +
                                     std::strerror(errno));
    }

private:
    const base::UniqueFd m_fd;
};

/// The files that this thread's search is for; null for all.
thread_local const std::set<std::string>* t_pWanted = nullptr;

class WantedFiles {
public:
    explicit WantedFiles(const std::set<std::string>& files) { t_pWanted = &files; }
    ~WantedFiles() { t_pWanted = nullptr; }
    WantedFiles(const WantedFiles&) = delete;
    WantedFiles& operator=(const WantedFiles&) = delete;
};

std::string pathIn(const std::string& directory, const std::string& name) {
    sal::Path path(directory);
    path.expand(name);
    return path.getPathString();
}

}  // namespace

bool DescriptorSearch::isWanted(const std::string& path) {
    return !t_pWanted || t_pWanted->contains(path);
}

void DescriptorSearch::searchAll(IMDMConfiguration& module, const DescriptorCatalogue& catalogue) const {
    const WorkingDirectory workingDirectory;
    std::set<std::pair<dev_t, ino_t>> searched;
    for (const std::string& directory : m_directories) {
        // The admission has said where there is none, and where there is something else.
        struct stat status {};
        const bool isTold = ::stat(directory.c_str(), &status) == 0;
        if (!isTold && errno != ENOENT)
            hostLog(sal::LogOutput::eWarning) << directory << " cannot be searched: " << std::strerror(errno)
                                              << "; no drivers are found there" << std::endl;
        if (!isTold || !S_ISDIR(status.st_mode) || !searched.emplace(status.st_dev, status.st_ino).second)
            continue;
        search(module, directory, catalogue);
        workingDirectory.enter();
    }
}

void DescriptorSearch::search(IMDMConfiguration& module, const std::string& directory,
                              const DescriptorCatalogue& catalogue) {
    module.searchMfDriver(directory);
    const auto& records = catalogue.records();
    const bool isOneRead = std::any_of(records.begin(), records.end(), [&](const auto& record) {
        return record.file.starts_with(directory);
    });
    // The module leaves out without a word what it cannot enter.
    if (!isOneRead &&
        !sal::Directory(sal::Path(directory)).getFileList("xml", sal::Directory::eSortByName).empty())
        hostLog(sal::LogOutput::eWarning)
            << directory << ": none of its descriptors could be read; no drivers are found there"
            << std::endl;
}

void DescriptorSearch::searchFiles(IMDMConfiguration& module, const std::set<std::string>& files) const {
    const WorkingDirectory workingDirectory;
    const WantedFiles wanted(files);
    std::set<std::string> left = files;
    for (const std::string& directory : m_directories) {
        const bool isThere = std::any_of(left.begin(), left.end(), [&](const std::string& file) {
            return pathIn(directory, file.substr(file.rfind('/') + 1)) == file;
        });
        if (!isThere)
            continue;
        std::erase_if(left, [&](const std::string& file) {
            return pathIn(directory, file.substr(file.rfind('/') + 1)) == file;
        });
        module.searchMfDriver(directory);
        workingDirectory.enter();
    }
}
