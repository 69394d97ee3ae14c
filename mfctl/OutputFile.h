#pragma once

#include <sys/types.h>

#include <string>

/// Writes a new file whole; a file that is there is never replaced. Empty on success; else the path and the
/// system's reason. Any thread.
std::string createFile(const std::string& path, const std::string& content, mode_t mode);

/// Replaces the file at once: no reader sees half of it. Empty on success; else as createFile. Any thread.
std::string replaceFile(const std::string& path, const std::string& content);
