#include "DirectoryPath.h"

#include <filesystem>

#include "sal/Path.h"

std::string joinedPath(const std::string& path, const std::string& text) {
    sal::Path joint(path);
    joint.expand(text);
    return joint.getPathString();
}

std::string directoryPath(const std::string& workDirectory, const std::string& text) {
    std::string path = std::filesystem::path(joinedPath(workDirectory, text)).lexically_normal().string();
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}
