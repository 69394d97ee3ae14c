#pragma once

#include <chrono>
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
