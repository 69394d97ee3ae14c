#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "sal/MessageQueue.h"

/// How long messages stand in the queues of driver processes, from samples that cost no message anything: at
/// each look the last message that is in a queue is remembered, and a later look sees whether it was taken
/// out. Times are as exact as looks are close. Owned by Host; looks come from one thread, all else from any.
class DeliveryTimes {
public:
    using Clock = std::chrono::steady_clock;
    using Queues = std::vector<sal::MessageQueue::Status>;

    /// In seconds; beyond the last one is one more.
    static constexpr std::array<double, 11> s_bounds{0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 30};

    struct Histogram {
        std::string queue;
        std::array<std::uint64_t, s_bounds.size() + 1> counts{};  ///< each of its own bounds alone
        double sum = 0;                                           ///< seconds
    };

    /// Takes the queues as they are now; about every 10 ms.
    void look(const Queues& queues, Clock::time_point now);
    /// By name, of the queues that there were at the last look.
    std::vector<Histogram> histograms() const;

private:
    struct Queue {
        Histogram histogram;
        std::uint64_t messages = 0;  ///< written, at the last look
        std::uint32_t awaited = 0;   ///< how many have to be taken out until the remembered one is
        Clock::time_point since;     ///< when it was remembered; none without one
        bool isSeen = false;
    };
    static void add(Histogram& histogram, Clock::duration time);

    mutable std::mutex m_mutex;
    std::map<std::string, Queue> m_queues;
    Clock::time_point m_last;
};
