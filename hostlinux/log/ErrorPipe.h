#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "sal/LogManager.h"

namespace sal {

/// What a driver process has as its standard error where its host reads that: a pipe. Its log writes its
/// lines into it so that the host gets them as they were logged and writes them in its own way; all else that
/// comes through it is text. The standard error that the host has itself is handed over beside it: the
/// process goes on with it when its host is gone.
class ErrorPipe {
public:
    /// Which pipe it is, as device:inode: a process further down may have another standard error.
    static constexpr const char* s_variable = "MFD_ERROR_PIPE";
    /// The number by which the process finds the host's own standard error.
    static constexpr int s_formerErrors = 3;

    /// The variable for a child with this end of the pipe; empty when the system does not tell what it is.
    static std::string variableFor(int writer);

    /// Whether this process has such a standard error. What it starts itself knows nothing of it: the
    /// variable is taken away, and the former standard error is closed there. For the log of a program,
    /// before other threads run.
    static bool take();
    /// Whether take() has found such a one, and it is the standard error still. Any thread.
    static bool isInPlace();
    /// Whether the standard error of this process is the pipe still, and its host reads it no longer. Any
    /// thread.
    static bool isAbandoned();
    /// From now on this process's standard error is the former one. What the host has left in the pipe;
    /// nothing when the standard error is no longer the pipe, or the former one is not there either. For the
    /// thread that writes the log.
    static std::optional<std::string> leave();

    /// The line with its end, as it goes through the pipe. Output and text are printable.
    static std::string encode(int level, std::chrono::system_clock::time_point time, std::string_view output,
                              std::string_view text);
    /// As LogManager::readErrorLine.
    static LogManager::ErrorLine read(std::string_view bytes);
};

}  // namespace sal
