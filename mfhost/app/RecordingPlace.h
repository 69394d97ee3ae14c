#pragma once

#include <filesystem>
#include <string>

#include "Options.h"

/// Where a host keeps what happens, whether it does or not: in its working directory, which has been entered
/// or is going to be.
inline std::string recordingDirectory(const Options& options) {
    const std::filesystem::path directory = options.workDirectory.empty()
                                                ? std::filesystem::current_path()
                                                : std::filesystem::path(options.workDirectory);
    return (directory / "recording").string();
}
