#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

/// Holds the marks of parked drivers against what was asked for: a mark comes and goes only where somebody
/// asked for it, and one that the host has confirmed is there whatever becomes of the host. Owned by
/// Campaign; one thread.
class ParkJudge {
public:
    /// A command was typed; so often had the host said by then that the driver is parked.
    void parkTyped(const std::string& driverID, std::uint32_t timesParked);
    void unparkTyped(const std::string& driverID);

    /// What the file with the marks says, while no command is under way. What is wrong with it, a line each;
    /// what was typed before counts no more afterwards. The map says how often the host has called each
    /// driver parked by now.
    std::vector<std::string> judge(const std::set<std::string>& marks,
                                   const std::map<std::string, std::uint32_t>& timesParked);

private:
    struct Typed {
        unsigned int parks = 0;
        unsigned int unparks = 0;
        std::uint32_t timesParked = 0;  ///< before the first
    };

    std::set<std::string> m_marks;
    std::map<std::string, Typed> m_typed;
};
