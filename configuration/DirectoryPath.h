#pragma once

#include <string>

/// A driver's directory, as a workplace file names it, in the host's. Two texts for one directory give one
/// path. Any thread.
std::string directoryPath(const std::string& workDirectory, const std::string& text);

/// A path below another. Any thread.
std::string joinedPath(const std::string& path, const std::string& text);
