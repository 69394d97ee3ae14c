#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "sal/Path.h"

/// Where a file of this build tree is, named from its top.
inline std::filesystem::path builtFile(const std::string& name) {
    return std::filesystem::canonical(std::filesystem::path(sal::Path::getExeBasePath().getPathString()) /
                                      ".." / name);
}

/// All that a file holds; nothing when it cannot be read.
inline std::string textOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
