#include "sal/Directory.h"

#include <filesystem>

#include "FakeHost.h"

namespace sal {

Directory::Directory(const Path& path) : m_path(path) {}

std::list<std::string> Directory::getFileList(std::string extension, EDirectorySortType sortType) const {
    fakehost::FakeHost& host = fakehost::FakeHost::current();
    const std::string& path = m_path.getPathString();
    if (!host.journal().perform("files " + path + " " + extension + " " + std::to_string(sortType)))
        return {};
    const auto scripted = host.fileLists.find(path);
    if (scripted != host.fileLists.end())
        return scripted->second;
    std::list<std::string> result;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(host.realPath(path), ignored)) {
        if (entry.is_regular_file() && entry.path().extension() == "." + extension)
            result.push_back(entry.path().filename().string());
    }
    result.sort();
    return result;
}

std::list<std::string> Directory::getDirList(EDirectorySortType sortType) const {
    fakehost::FakeHost& host = fakehost::FakeHost::current();
    const std::string& path = m_path.getPathString();
    if (!host.journal().perform("entries " + path + " " + std::to_string(sortType)))
        return {};
    return host.entries[path];
}

bool Directory::createDirectory() const {
    return fakehost::Journal::instance().perform("mkdir " + m_path.getPathString()) &&
           !m_path.getPathString().empty();
}

void Directory::setFileFilter(FileFilter) {}

}  // namespace sal
