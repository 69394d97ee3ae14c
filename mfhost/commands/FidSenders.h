#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "DriverTable.h"
#include "FIDParameterList.h"
#include "FidOutcome.h"
#include "IFunctionID.h"
#include "StreamRecord.h"

/// Sends FIDs for those who must not wait: one thread and one bounded queue for each receiving driver, made
/// on demand and ended when idle, since a driver that takes nothing holds its sender up for as long as it
/// likes. Owned by Host; any thread. FidTap has to be the observer that libsal tells.
class FidSenders {
public:
    using Told = std::function<void(const FidOutcome&)>;
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::size_t mostSenders = 64;
        std::size_t capacity = 256;              ///< FIDs that may wait for one driver
        std::size_t roomKept = 8;                ///< places of a driver's queue that stay free for others
        std::chrono::milliseconds idle{10'000};  ///< after which a sender ends
        /// With a send that does not come back, before a line says so.
        std::chrono::milliseconds patience{5000};
        /// What each FID has come to when its send is over, once; driverID is empty where it is no driver's.
        /// Called under the senders' lock: returns at once, and calls nothing of theirs.
        std::function<void(const std::string& driverID, const FidOutcome& outcome)> fidSent =
            [](const auto&, const auto&) {};
    };

    /// From where a FID is asked for, for the stream.
    struct Asker {
        stream::EOrigin origin = stream::EOrigin::Api;
        std::string who = {};  ///< user, or session
    };

    /// target is the manager's sender, as long as it is there. Both outlive the object, and target outlives
    /// each send that stop() has not seen come back.
    FidSenders(const DriverTable& drivers, const IFunctionID& target, const Settings& settings);
    FidSenders(const DriverTable& drivers, const IFunctionID& target)
        : FidSenders(drivers, target, Settings()) {}
    ~FidSenders();  ///< as stop() without waiting
    FidSenders(const FidSenders&) = delete;
    FidSenders& operator=(const FidSenders&) = delete;

    /// Returns at once. told is called on this thread or on one of the senders', which it must not hold up:
    /// when the stage that is waited for is reached, or when nothing further can come. Where the limit is
    /// over before that, it is called then as well, with the stage that was reached so far and isInterim, and
    /// the FID goes on. What is sent to one driver keeps its order.
    ///
    /// Accepted is told at once, Dispatched when the FID's turn has come. A FID is refused, as Nobody: with
    /// QueueFull when fewer than Settings::roomKept places would be left of its driver's queue or of what may
    /// wait for it, or no more senders can be had; with TooLong when a driver process would not get all of
    /// it; with Stopping after stop().
    void send(const std::string& fid, const FIDParameterList& parameters, EFidStage waitFor,
              std::chrono::milliseconds limit, Told told, const Asker& asker);

    void send(const std::string& fid, const FIDParameterList& parameters, EFidStage waitFor,
              std::chrono::milliseconds limit, Told told) {
        send(fid, parameters, waitFor, limit, std::move(told), Asker());
    }

    /// Refuses what comes from now on, tells all that is still waited for that the host is stopping, and
    /// waits until the senders have ended, at most as long as the limit. False when one has not: its driver
    /// takes no messages or does not come back. May be called again.
    bool stop(std::chrono::milliseconds limit);

private:
    class Core;
    const std::shared_ptr<Core> m_pCore;  ///< shared with threads that outlive the object
};
