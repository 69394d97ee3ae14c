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
        unsigned int kills = 0;  ///< spread over that time
    };

    SupervisedWorkplace(std::filesystem::path directory, int receivers, int victims, const Results& results);
    SupervisedWorkplace(const SupervisedWorkplace&) = delete;
    SupervisedWorkplace& operator=(const SupervisedWorkplace&) = delete;

    /// Writes one result. Throws when a receiver does not get its last FID, or a driver that was killed does
    /// not come up again.
    void measure(int round, const Load& load);

private:
    struct Heard {
        std::uint64_t lost = 0;
        std::uint64_t wrong = 0;
        std::vector<std::uint32_t> delays;  ///< nanoseconds
    };

    std::filesystem::path heardFile(int driver) const;
    std::optional<Heard> heardBy(int driver) const;
    /// Kills the victims by turns. Which process each had before.
    std::map<int, pid_t> killByTurns(const Load& load) const;
    void waitUntilAllRunAgain(const std::map<int, pid_t>& killed) const;

    const std::filesystem::path m_directory;
    const int m_receivers;
    const int m_victims;
    const Results& m_results;
    HostProgram m_host;
};
