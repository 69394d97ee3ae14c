#include <unistd.h>

#include <filesystem>

#include "sal/Path.h"

// What sal::Path tells of the process: its working directory and where its program lies. The rest of the
// class is a value, the same wherever it is linked.

namespace sal {

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
