#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// How far a FID has come, in this order.
enum class EFidStage {
    Accepted,    ///< it waits for its sender
    Dispatched,  ///< the module was asked to dispatch it
    Nobody,      ///< it reached nobody, for a reason
    Delivered,   ///< the driver in the host's process has returned from it
    Written,     ///< it is in the driver process's queue
    Taken        ///< the driver process has taken it out
};

/// Why it came no further.
enum class EFidReason {
    None,
    NoSuchDriver,
    NotRunning,
    TakesNoFids,
    TooLong,
    UnknownFunction,
    QueueFull,
    Stopping,
    Refused,
    Threw
};

/// "accepted", "dispatched" and so on, as the API has them.
inline const char* inWords(EFidStage stage) {
    static constexpr std::array<const char*, 6> s_words{"accepted",  "dispatched", "nobody",
                                                        "delivered", "written",    "taken"};
    return s_words.at(static_cast<std::size_t>(stage));
}
/// "no-such-driver", "not-running" and so on, as the API has them; "none" where nothing was in its way.
inline const char* inWords(EFidReason reason) {
    static constexpr std::array<const char*, 10> s_words{
        "none",       "no-such-driver", "not-running", "takes-no-fids", "too-long", "unknown-function",
        "queue-full", "stopping",       "refused",     "threw"};
    return s_words.at(static_cast<std::size_t>(reason));
}

/// What became of a FID.
struct FidOutcome {
    EFidStage stage = EFidStage::Accepted;
    EFidReason reason = EFidReason::None;
    std::string driverID;
    std::string text;                  ///< why it came no further, in words
    std::vector<std::string> nearest;  ///< what was probably meant instead
    std::optional<bool> result;        ///< what the driver in the host's process answered
    bool isFinal = false;              ///< nothing further can come
    bool isInterim = false;            ///< the limit is over, and what it comes to is told once more
    std::chrono::microseconds took{0};
};
