#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "UniqueFd.h"

/// What belongs to the process as a whole, and what every driver in it can change under the others: the
/// working directory, from which drivers' directories are made, and the umask. Remembers both as it finds
/// them and puts them back. Owned by Host; command thread, once made.
class Surroundings {
public:
    /// An exception says why the working directory cannot be remembered.
    Surroundings();

    /// Puts back what has changed, with a line that names what is taken to have changed it: at most one a
    /// minute.
    void restore(const std::string& changer);

private:
    using Clock = std::chrono::steady_clock;

    void restoreDirectory(const std::string& changer);
    void restoreUmask(const std::string& changer);
    void say(std::optional<Clock::time_point>& said, const std::string& text) const;

    const base::UniqueFd m_directory;
    const mode_t m_umask;
    struct stat m_status {};
    std::optional<Clock::time_point> m_directorySaid;
    std::optional<Clock::time_point> m_umaskSaid;
};
