#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "FidSenders.h"
#include "ILinkHost.h"
#include "StateStore.h"

/// What HostSystem hands to drivers that link this workplace with others: the store's changes and events, and
/// FIDs through the senders, whose outcomes wait here until the driver takes them. Owned by Host; outlives
/// the manager. Any thread.
class LinkAccess : public ILinkHost, private StateStore::Listener {
public:
    /// Of one driver wait so many outcomes at most; the oldest are lost then.
    static constexpr std::size_t s_mostOutcomes = 8192;

    /// Both outlive the object.
    LinkAccess(StateStore& store, FidSenders& senders);
    ~LinkAccess() override;
    LinkAccess(const LinkAccess&) = delete;
    LinkAccess& operator=(const LinkAccess&) = delete;

    IInterface* queryInterface(unsigned int id) override;

    Changes changes(std::uint64_t since) const override;
    std::vector<Event> events(std::uint64_t since) const override;
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
    std::string path() const override;

private:
    /// What is kept for one driver; shared with FIDs that are on their way.
    struct Box {
        std::mutex mutex;
        int wakeup = -1;  ///< -1: closed
        std::deque<Outcome> outcomes;
        // With the lock of all boxes.
        int changes = -1;
        bool isWatching = false;  ///< to be woken at the next change
    };

    void valueChanged(const StateStore::Entry&) override { wakeWatching(); }
    void valueUnset(const std::string&) override { wakeWatching(); }
    void eventTriggered(const StateStore::Event&) override { wakeWatching(); }
    void valuesStale(const std::string&, const std::string&, const std::vector<std::string>&) override {
        wakeWatching();
    }
    void wakeWatching();
    static void put(Box& box, std::uint64_t number, const FidOutcome& outcome);
    std::shared_ptr<Box> box(const std::string& driverID);

    StateStore& m_store;
    FidSenders& m_senders;
    std::mutex m_mutex;
    std::map<std::string, std::shared_ptr<Box>> m_boxes;  ///< by driver ID
    std::uint64_t m_last = 0;
    std::atomic<bool> m_isWatched = false;  ///< somebody is to be woken at the next change
};
