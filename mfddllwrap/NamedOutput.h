#pragma once

#include <string>

#include "UniqueFd.h"

/// While one lives, what this process prints to standard output is kept; at its end it is printed, with the
/// driver's ID before each line. So what a driver says of itself names it, where the output of many drivers
/// comes together. Where the system has no place to keep it, it is printed at once as it is. One at a time;
/// main thread.
class NamedOutput {
public:
    explicit NamedOutput(const std::string& driverID);
    ~NamedOutput();
    NamedOutput(const NamedOutput&) = delete;
    NamedOutput& operator=(const NamedOutput&) = delete;

private:
    const std::string m_prefix;
    base::UniqueFd m_kept;
    base::UniqueFd m_output;  ///< standard output as it was
};
