#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "IInterface.h"

class FIDParameterList;

/// What the host gives a driver of its own process that links this workplace with others: the panel's values
/// and events as they change, values that do not hold, and a way to send FIDs that tells what became of them.
/// ISystem::queryInterface(ILinkHost::s_id) answers it, in the host's process alone; borrowed, until the
/// driver's deinitialize() returns. Any thread; nothing here waits for a driver.
class ILinkHost : public virtual IInterface {
public:
    static constexpr unsigned int s_id = 2100;

    using Value = std::variant<std::string, float, int, bool>;

    struct State {
        std::string key;  ///< "AXIS1.POSITION"
        Value value;
        std::string staleCause;  ///< why it holds no longer; empty for a live value
        std::chrono::steady_clock::time_point reported{};
    };
    struct Changes {
        std::uint64_t version = 0;  ///< to ask with the next time
        bool isComplete = false;    ///< there are no other values than these
        std::vector<State> states;
        std::vector<std::string> unset;  ///< keys; none of a complete answer
    };
    struct Event {
        std::uint64_t number = 0;  ///< counts all events of the host
        std::string id;            ///< "AXIS1.FAULT"
        std::string value;
        std::chrono::system_clock::time_point when;
    };
    enum class EOutcome {
        Done,     ///< the driver has taken it
        Refused,  ///< it has not, and will not
        Unknown   ///< it may have
    };
    struct Outcome {
        std::uint64_t number = 0;  ///< of the FID
        EOutcome what = EOutcome::Unknown;
        std::string text;  ///< why it was not done
    };

    /// What has changed since that version of an earlier answer; everything for 0 and where that is not known
    /// any more.
    virtual Changes changes(std::uint64_t since) const = 0;
    /// The last events with a higher number, oldest first; those between that are missing came too fast.
    virtual std::vector<Event> events(std::uint64_t since) const = 0;

    /// Sets a whole key to a value that was reported at that time. With a cause it does not hold; it lives
    /// again when it is set without one.
    virtual void setFar(const std::string& key, const Value& value, const std::string& cause,
                        std::chrono::steady_clock::time_point reported) = 0;
    /// The same of the values that there are of these keys of one driver.
    virtual void makeStale(const std::string& driverID, const std::vector<std::string>& keys,
                           const std::string& cause) = 0;

    /// Keeps outcomes for this driver from now on, and makes the first descriptor (an eventfd) readable at
    /// each. The second one is for watch().
    virtual void open(const std::string& driverID, int outcomes, int changes) = 0;
    /// Makes the second descriptor readable at the next change of a value and at the next event, but not at
    /// what setFar() and makeStale() change: once, until it is called again. Before changes() it leaves none
    /// out. Nothing for a driver that has not opened.
    virtual void watch(const std::string& driverID) = 0;
    /// Forgets them; the descriptors are not touched any more.
    virtual void close(const std::string& driverID) = 0;
    /// Sends a whole FID, recorded with the sites that it has passed ("SITE3,SITE2"). Returns its number at
    /// once; 0 when the driver has not opened. Each number has one outcome unless the driver closes.
    virtual std::uint64_t send(const std::string& driverID, const std::string& fid,
                               const FIDParameterList& parameters, const std::string& path) = 0;
    /// Those that have come since the last call, at most a few thousand.
    virtual std::vector<Outcome> outcomes(const std::string& driverID) = 0;
    /// The path that was given to send() for the FID that the calling thread is just delivering; empty for
    /// one of this workplace.
    virtual std::string path() const = 0;
};
