#pragma once

#include <sys/types.h>

#include <string>

/// Files that mfctl writes whole. Failures come back as texts with the system's reason. Any thread.
class OutputFile {
public:
    /// Makes a new file; a file that is there is never replaced. Empty on success.
    static std::string create(const std::string& path, const std::string& content, mode_t mode);
    /// Replaces the file at once: no reader sees half of it. Empty on success.
    static std::string replace(const std::string& path, const std::string& content);
};
