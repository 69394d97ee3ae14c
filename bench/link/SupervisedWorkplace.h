#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "HostProgram.h"
#include "Results.h"

/// A workplace under the real host program, in a directory of its own: the panel driver, a probe driver that
/// sends (D00), some that others are sent to (D01, ...) and, after them, some that are killed. Used by the
/// measuring process's only thread. The host and its driver processes end with the object.
class SupervisedWorkplace {
public:
    /// FIDs on a fixed schedule.
    struct Load {
        unsigned int rate = 10'000;  ///< a second, to all receivers together
        unsigned int seconds = 10;
        unsigned int kills = 8;  ///< spread over that time
        bool isQuiet = false;    ///< the same without the kills
    };

    SupervisedWorkplace(std::filesystem::path directory, int receivers, int victims, const Results& results);
    SupervisedWorkplace(const SupervisedWorkplace&) = delete;
    SupervisedWorkplace& operator=(const SupervisedWorkplace&) = delete;

    /// Writes a result, and for each kill, or where it would have been, what became of the FIDs after it.
    /// Throws when a receiver does not get its last FID, or a driver that was killed does not come up again.
    void measure(int round, const Load& load);

private:
    struct Heard {
        std::uint64_t lost = 0;
        std::uint64_t wrong = 0;
        std::int64_t firstDue = 0;
        std::vector<std::uint32_t> delays;  ///< nanoseconds
    };
    struct Kills {
        std::vector<std::int64_t> times;  ///< when each was, or would have been
        std::map<int, pid_t> killed;      ///< which process each victim had before
    };

    std::filesystem::path heardFile(int driver) const;
    std::optional<Heard> heardBy(int driver) const;
    /// Kills the victims by turns.
    Kills killByTurns(const Load& load) const;
    /// The longest delay of those that were due in the time after each kill, in nanoseconds.
    static std::vector<std::uint32_t> longestAfter(const std::vector<std::int64_t>& kills,
                                                   const std::vector<Heard>& heard, std::int64_t interval);
    void waitUntilAllRunAgain(const std::map<int, pid_t>& killed) const;

    const std::filesystem::path m_directory;
    const int m_receivers;
    const int m_victims;
    const Results& m_results;
    HostProgram m_host;
};
