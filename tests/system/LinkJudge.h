#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// Judges what the drivers LinkTraffic have noted: no FID done twice or later than its expiry, and each
/// sender told once, and truly, what became of each. A value; one thread.
class LinkJudge {
public:
    struct Counts {
        std::size_t sent = 0;
        std::size_t refusedAtOnce = 0;
        std::size_t done = 0;  ///< by a driver
        std::map<std::string, std::size_t> outcomes;
        std::size_t untold = 0;              ///< of them nothing was heard, and need not have been
        std::chrono::nanoseconds oldest{0};  ///< of those that were done
    };

    explicit LinkJudge(std::chrono::nanoseconds oldest) : m_oldest(oldest) {}

    /// What one instance has noted. One that was killed is not told any more of what it had sent within so
    /// long before.
    void addLedger(const std::string& text, std::optional<std::int64_t> killedAt = std::nullopt,
                   std::chrono::nanoseconds waits = std::chrono::seconds(10));
    /// The log of a host: it has all outcomes but "done", and what was not sent at all.
    void addLog(const std::string& text);

    /// What is wrong, a line each; of much of one kind the first ones.
    std::vector<std::string> findings() const;
    Counts counts() const;

private:
    struct Fid {
        bool isSent = false;
        bool isRefusedAtOnce = false;
        bool mayBeUntold = false;
        std::size_t told = 0;  ///< events
        std::vector<std::int64_t> doneAt;
        std::set<std::string> outcomes;
    };

    static std::int64_t sentAt(const std::string& id);

    const std::chrono::nanoseconds m_oldest;
    std::map<std::string, Fid> m_fids;
    std::size_t m_missedEvents = 0;
};
