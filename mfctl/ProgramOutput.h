#pragma once

#include <chrono>
#include <string>
#include <vector>

/// What another program of the machine wrote, and how it ended. It gets no input, and is killed when it takes
/// too long. Any thread.
struct ProgramOutput {
    std::string text;   ///< of standard output and standard error
    int exitCode = -1;  ///< -1: it did not start, or was ended by a signal
    std::string error;  ///< why it gave nothing; empty when it ended by itself

    static constexpr std::chrono::milliseconds s_usualLimit{10'000};
    /// At most so many bytes are taken.
    static constexpr std::size_t s_mostBytes = 4u << 20;

    /// The first word is looked up as a shell does.
    static ProgramOutput of(const std::vector<std::string>& words,
                            std::chrono::milliseconds limit = s_usualLimit);
};
