#include "sal/Path.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <utility>

namespace sal {

Path::Path() = default;

Path::Path(std::string path) : m_path(std::move(path)) {}

bool Path::expand(const std::string& text) {
    if (m_path.empty() || text.empty())
        return false;
    std::string joined = text;
    for (const char alternative : m_alternativeSeparators)
        std::replace(joined.begin(), joined.end(), alternative, m_separator);
    const bool leads = joined.front() == m_separator;
    const bool ends = m_path.back() == m_separator;
    if (leads && ends)
        joined.erase(0, 1);
    else if (!leads && !ends)
        m_path += m_separator;
    m_path += joined;
    return true;
}

const std::string& Path::getPathString() const {
    return m_path;
}

Path Path::getCurrentWorkingDirPath() {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::current_path(error);
    return Path(error ? std::string() : path.string());
}

bool Path::setCurrentWorkingDirPath(const Path& path) {
    return ::chdir(path.m_path.c_str()) == 0;
}

Path Path::getExeBasePath() {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
    return Path(error ? std::string() : path.parent_path().string());
}

}  // namespace sal
