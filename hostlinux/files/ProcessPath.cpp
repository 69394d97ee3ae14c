#include <unistd.h>

#include <filesystem>

#include "sal/Path.h"

// What sal::Path tells of the process: its working directory and where its program lies. The rest of the
// class is a value, the same wherever it is linked.

namespace sal {
namespace {

std::string directoryOfTheProgram() {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : path.parent_path().string();
}

/// Read as the program begins: after a process below a changed root has made itself a mount namespace, as a
/// host does for its sandbox, the kernel tells a path that is not below that root.
const std::string s_exeBasePath = directoryOfTheProgram();

}  // namespace

Path Path::getCurrentWorkingDirPath() {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::current_path(error);
    return Path(error ? std::string() : path.string());
}

bool Path::setCurrentWorkingDirPath(const Path& path) {
    return ::chdir(path.m_path.c_str()) == 0;
}

Path Path::getExeBasePath() {
    return Path(s_exeBasePath);
}

}  // namespace sal
