#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

/// Files that mfctl reads and writes whole. Failures come back as texts with the system's reason. Any thread.
class OutputFile {
public:
    /// The content of a regular file of at most 16 MB; nothing, and why, when it cannot be had. With pMode
    /// also the permission bits of the very file that was read.
    static std::optional<std::string> read(const std::string& path, std::string& error,
                                           mode_t* pMode = nullptr);

    /// Makes a new file; a file that is there is never replaced. Empty on success.
    static std::string create(const std::string& path, const std::string& content, mode_t mode);
    /// Replaces the file at once: no reader sees half of it. Empty on success.
    static std::string replace(const std::string& path, const std::string& content);
};
