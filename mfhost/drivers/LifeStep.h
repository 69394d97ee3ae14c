#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

/// What becomes of a driver, from step to step.
enum class ELifeStep {
    Start,     ///< an instance of it is there
    Answer,    ///< its process has taken or sent its first message; in the host's process, it is configured
    Hang,      ///< it is judged to hang, or out of reach
    End,       ///< the instance has ended
    Failed,    ///< a start has brought no instance
    Restart,   ///< the host will start it again, or does not
    Parked,    ///< it is unloaded, and stays so
    Unparked,  ///< it is given back
};
constexpr std::size_t s_lifeSteps = static_cast<std::size_t>(ELifeStep::Unparked) + 1;

/// One step of a driver's life.
struct LifeStep {
    ELifeStep step = ELifeStep::Start;
    std::chrono::system_clock::time_point time;
    int pid = 0;              ///< of the instance; 0 in the host's process, or for none
    std::uint64_t start = 0;  ///< the number of the start that it belongs to
    std::string text;         ///< the cause of an end, what comes next, who has parked it
};

/// "start", "answer", "hang", "end", "failed", "restart", "parked" or "unparked".
inline const char* inWords(ELifeStep step) {
    static constexpr std::array<const char*, s_lifeSteps> s_words{"start",  "answer",  "hang",   "end",
                                                                  "failed", "restart", "parked", "unparked"};
    return s_words.at(static_cast<std::size_t>(step));
}
