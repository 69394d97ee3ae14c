#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Delays.h"
#include "LinkSettings.h"
#include "SimulatedWorkplace.h"
#include "ValueNames.h"

/// Many workplaces in a ring, each linked with the one before it and the one after it: reads all of theirs,
/// may send to all of theirs. A thread of its own has ten values of each change and a FID of each go out a
/// second, evenly spread. Owned and called by main.
class Fleet {
public:
    /// What comes before the first start.
    struct Plan {
        std::size_t workplaces = 0;
        int port = 0;
        std::chrono::seconds spread{5};
        bool hasNeighbours = true;  ///< false: the links lead to sites that are not there
    };

    Fleet(const ValueNames& names, const Plan& plan);
    ~Fleet();
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;

    /// Of mosquitto's password file, before it is encrypted, and of its ACL file.
    static std::string users(const Plan& plan);
    static std::string rights(const ValueNames& names, const Plan& plan);

    /// All of them connect.
    void start();
    std::size_t complete() const;
    /// From now on values change.
    void beginTraffic();
    /// How many changes the links have had of their hosts.
    std::uint64_t told() const;
    /// What was measured since the last call.
    Delays takeDelays();
    /// How late the thread that changes values was at most since the last call, in seconds.
    double takeLag();

private:
    static std::string siteOf(std::size_t number);
    static std::vector<LinkSettings> linksOf(const ValueNames& names, const Plan& plan, std::size_t number);
    void pace();
    void stopTraffic();

    const ValueNames& m_names;
    std::vector<std::unique_ptr<SimulatedWorkplace>> m_workplaces;
    std::atomic<bool> m_isStopping = false;
    std::atomic<double> m_lag = 0;
    std::thread m_pace;
};
