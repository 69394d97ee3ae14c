#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "EInterfaceTypes.h"
#include "StateStore.h"
#include "WorkplaceFile.h"
#include "sal/Module.h"

/// What the host knows of each driver: how it is configured, whether it runs and since when. Owned by Host;
/// told of in-process drivers by libsal and of processes by the supervisor, and tells the state store whose
/// values still hold. Any thread.
class DriverRoster : public sal::Module::Observer {
public:
    enum class EStatus { NotLoaded, Running, Hung, Ended };

    struct Driver {
        std::string id;
        std::string type;
        std::string version;
        EInterfaceTypes interfaceType = EInterfaceTypes::None;
        EStatus status = EStatus::NotLoaded;
        int pid = 0;            ///< 0 for a driver in the host's process
        bool isByHand = false;  ///< the host has not started that process
        std::string cause;      ///< why it ended last; stays when it runs again
        std::chrono::system_clock::time_point since;
        unsigned int restarts = 0;  ///< how often the host has started it again by itself
        std::optional<std::chrono::steady_clock::time_point> nextTry;
        /// Messages to and from a driver process in a second, lately.
        double receivedPerSecond = 0;
        double sentPerSecond = 0;
    };

    /// A call into an in-process driver that has not come back.
    struct Call {
        std::string driverID;
        std::string operation;
        std::chrono::steady_clock::time_point since;
    };

    explicit DriverRoster(StateStore& store);

    /// Takes over what the configuration says now. Drivers that are no longer in it stay while they run. A
    /// configuration that is not whole says nothing of those that are missing: all of them stay.
    void configure(const std::vector<WorkplaceFile::Entry>& entries, bool isWhole);

    void processStarted(const std::string& driverID, int pid, bool isByHand = false);
    /// Returns how many of the driver's values became stale; nothing when a newer process of the driver runs
    /// already.
    std::optional<std::size_t> processEnded(const std::string& driverID, int pid, const std::string& cause);

    /// The process takes no messages any more and is to be ended. Returns how many of the driver's values
    /// became stale; nothing when a newer process of the driver runs already.
    std::optional<std::size_t> processHung(const std::string& driverID, int pid, const std::string& cause);
    /// No process came up for a driver that is to have one.
    void notStarted(const std::string& driverID, const std::string& cause);

    void setNextTry(const std::string& driverID,
                    std::optional<std::chrono::steady_clock::time_point> nextTry);
    void addRestart(const std::string& driverID);
    void setTraffic(const std::string& driverID, double receivedPerSecond, double sentPerSecond);

    void callBegins(const std::string& driverID, const char* operation) override;
    void callEnded(const std::string& driverID, const char* operation) override;
    void driverDeleted(const std::string& driverID) override;

    /// In byte order of the IDs, as they are at this moment.
    std::vector<Driver> drivers() const;
    /// Whether the driver was loaded and has not ended since.
    bool isRunning(const std::string& driverID) const;
    /// Whether the host has started a process for the driver, even if it has ended.
    bool hasProcess(const std::string& driverID) const;
    std::optional<Call> oldestCall() const;

private:
    Driver& driver(const std::string& driverID);
    void begins(Driver& started, int pid);
    std::optional<std::size_t> ends(const std::string& driverID, int pid, EStatus status,
                                    const std::string& cause);

    StateStore& m_store;
    mutable std::mutex m_mutex;
    std::map<std::string, Driver> m_drivers;
    std::vector<Call> m_calls;
};
