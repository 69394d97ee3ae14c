#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "ILinkHost.h"
#include "ValueNames.h"

/// A workplace's host as a link sees it, with values that change when they are told to and drivers that take
/// each FID at once. Owned by a SimulatedWorkplace; any thread.
class SimulatedHost : public ILinkHost {
public:
    /// One change of a value: its number, and when it was made and then told to the link, in nanoseconds of
    /// the steady clock.
    struct Change {
        std::uint32_t number = 0;
        std::int64_t madeAt = 0;
        std::int64_t toldAt = 0;
    };
    /// What becomes stale: the link's driver and the names there.
    using Stale = std::function<void(const std::string& driverID, const std::string& key)>;
    /// The same, and the value that is live there now.
    using Live = std::function<void(const std::string& driverID, const std::string& key, const Value& value)>;

    SimulatedHost(const ValueNames& names, Live live, Stale stale);

    void change(std::size_t place);
    /// The newest of that value.
    Change last(std::size_t place) const;
    /// How many changes its link has had from it.
    std::uint64_t told() const;

    IInterface* queryInterface(unsigned int id) override;
    Changes changes(std::uint64_t since) const override;
    std::vector<Event> events(std::uint64_t) const override { return {}; }
    void setFar(const std::string& key, const Value& value, const std::string& cause,
                std::chrono::steady_clock::time_point reported) override;
    void makeStale(const std::string& driverID, const std::vector<std::string>& keys,
                   const std::string& cause) override;
    void open(const std::string& driverID, int outcomes, int changes) override;
    void watch(const std::string& driverID) override;
    void close(const std::string& driverID) override;
    std::uint64_t send(const std::string& driverID, const std::string& fid,
                       const FIDParameterList& parameters, const std::string& path) override;
    std::vector<Outcome> outcomes(const std::string& driverID) override;
    std::string path() const override { return {}; }

private:
    struct Known {
        Change change;
        std::uint64_t version = 1;
    };

    static Value valueOf(std::size_t place, std::uint32_t number);

    const ValueNames& m_names;
    const Live m_live;
    const Stale m_stale;
    mutable std::mutex m_mutex;
    mutable std::vector<Known> m_values;
    std::uint64_t m_version = 1;
    int m_wakeup = -1;
    int m_changes = -1;
    bool m_isWatched = false;
    std::uint64_t m_lastFid = 0;
    mutable std::uint64_t m_told = 0;
    std::vector<Outcome> m_outcomes;
};
