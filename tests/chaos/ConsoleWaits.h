#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

/// Judges how long the console took for its answers: each comes in time, and whoever waits long is told why.
/// Owned by StateReader, which serializes the calls.
class ConsoleWaits {
public:
    using Milliseconds = std::chrono::milliseconds;

    /// Who waits longer is to be told why.
    explicit ConsoleWaits(Milliseconds silentLimit) : m_silentLimit(silentLimit) {}

    /// A question waited so long; whether the host wrote a warning meanwhile.
    void answered(Milliseconds waited, bool wasTold);
    /// It waited so long, and nobody waits any more.
    void notAnswered(Milliseconds waited);

    std::uint64_t unanswered() const { return m_unanswered; }
    std::uint64_t untold() const { return m_untold; }
    Milliseconds longest() const { return m_longest; }
    const std::vector<std::string>& findings() const { return m_findings; }

private:
    const Milliseconds m_silentLimit;
    std::uint64_t m_unanswered = 0;
    std::uint64_t m_untold = 0;
    Milliseconds m_longest{0};
    std::vector<std::string> m_findings;
};
