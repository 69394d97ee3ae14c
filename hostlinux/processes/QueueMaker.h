#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace sal {

/// Numbers the queues that this process makes. A child process is handed the number of the last one made
/// before it was started, and opens no later one: a driver process that comes up so late that its host has
/// replaced it must not take the queues of its successor. A process that was started by hand is handed
/// nothing and opens any. Any thread.
class QueueMaker {
public:
    /// Stands in the header of each queue.
    struct Mark {
        std::uint64_t maker = 0;   ///< drawn at random by each process that makes queues; never 0
        std::uint64_t number = 0;  ///< from 1
    };

    /// The environment variable that hands a child its mark.
    static constexpr const char* s_variable = "MFD_QUEUE_MAKER";

    /// The mark of the next queue of this process.
    static Mark next();

    /// The value of the variable for a child: the mark of the last queue. Nothing while none has been made.
    static std::optional<std::string> forChild();

    /// Whether this process was handed a mark, and a well-formed one.
    static bool isHanded();

    /// Why this process, as it was handed its mark, may not open that queue; empty when it may.
    static std::string refusal(const Mark& queue);

    /// In a forked child, which is another maker.
    static void forget();
};

}  // namespace sal
