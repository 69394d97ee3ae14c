#pragma once

#include <filesystem>
#include <string>

#include "RegularFile.h"
#include "sal/Path.h"

/// Where a file of this build tree is, named from its top.
inline std::filesystem::path builtFile(const std::string& name) {
    return std::filesystem::canonical(std::filesystem::path(sal::Path::getExeBasePath().getPathString()) /
                                      ".." / name);
}

/// All that a file holds; nothing when it cannot be read, which is so of a process in /proc that ends
/// meanwhile.
inline std::string textOf(const std::filesystem::path& path) {
    return base::RegularFile::read(path).bytes;
}
