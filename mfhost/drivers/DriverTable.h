#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "DriverStates.h"
#include "EInterfaceTypes.h"
#include "LifeStep.h"
#include "Observation.h"
#include "RestartPlan.h"
#include "StateStore.h"
#include "WorkplaceFile.h"
#include "sal/Module.h"

/// What the host knows of each driver: how it is configured, where it is in its life, why it ended last and
/// when it is tried again. An event that must not happen in a driver's state is refused with a line. Owned by
/// Host; told of in-process drivers by libsal, of processes by the supervisor and of starts by the command
/// thread, and tells the state store whose values still hold. Any thread. Its lock may be taken under those
/// of the supervisor and the process table, and is held over the calls into the store and to the follower.
class DriverTable : public sal::Module::Observer {
public:
    using Clock = std::chrono::steady_clock;

    /// In which way an instance came to its end; NoStart: none came up.
    enum class EEnd { Unknown, Exit, Signal, Hang, NoStart };
    static constexpr std::size_t s_ends = static_cast<std::size_t>(EEnd::NoStart) + 1;
    /// Steps of its life that are remembered of each driver, the last ones.
    static constexpr std::size_t s_mostSteps = 200;

    struct Driver {
        std::string id;
        std::string type;
        std::string version;
        EInterfaceTypes interfaceType = EInterfaceTypes::None;
        EDriverState state = EDriverState::NotLoaded;
        bool isAlive = false;     ///< an instance of it is there
        std::uint64_t start = 0;  ///< the number of its last start
        int pid = 0;              ///< 0 for a driver in the host's process
        bool isByHand = false;    ///< the host has not started that process
        std::string cause;        ///< why it ended last; stays when it runs again
        std::chrono::system_clock::time_point since;
        unsigned int restarts = 0;  ///< how often the host has started it again by itself
        std::array<unsigned int, s_ends> restartsAfter{};  ///< the same by the end before
        unsigned int hangs = 0;  ///< how often a process of it was found hung or out of reach
        std::optional<Clock::time_point> nextTry;
        /// Messages to and from a driver process in a second, lately.
        double receivedPerSecond = 0;
        double sentPerSecond = 0;

        /// The process to show: a driver that is parked has none, whatever its last one was.
        int shownPid() const { return isAlive || state != EDriverState::Parked ? pid : 0; }
    };

    /// A call into an in-process driver that has not come back.
    struct Call {
        std::string driverID;
        std::string operation;  ///< "deinitialize", "sendFID(MOVE)"
        Clock::time_point since;
        int thread = 0;  ///< the number that the system gives it
    };

    /// What comes after an instance has ended or none has come.
    struct Next {
        std::optional<RestartPlan::Duration> delay;  ///< until the next try; nothing where none is planned
        std::optional<unsigned int> limit;           ///< of tries in a row: it is reached
    };
    struct End {
        std::size_t staleValues = 0;
        bool wasAsked = false;  ///< a command was unloading it
        Next next;
    };
    struct MissingProcess {
        bool isNews = false;  ///< the tries before did not fail in the same way
        Next next;
    };

    /// Learns of each change of a driver's state. Called under the table's lock: returns at once, and calls
    /// neither the table nor the store.
    using Follower = std::function<void(const Driver&)>;

    /// Without settings no driver is ever started again.
    explicit DriverTable(StateStore& store, std::optional<RestartPlan::Settings> restart = std::nullopt);
    DriverTable(const DriverTable&) = delete;
    DriverTable& operator=(const DriverTable&) = delete;

    /// Before other threads use the table.
    void setFollower(Follower follower) { m_follower = std::move(follower); }

    /// Where starts, ends, hangs and what is planned after them are recorded, before other threads use the
    /// table; none by default.
    void setObservation(Observation* pObservation) { m_pObservation = pObservation; }

    /// Takes over what the configuration says now. Drivers that are no longer in it stay while they run and
    /// while they are parked. A configuration that is not whole says nothing of those that are missing: all
    /// of them stay.
    void configure(const std::vector<WorkplaceFile::Entry>& entries, bool isWhole);

    /// A start or reload by a command begins: what was planned for the driver is off, and the tries count
    /// from the beginning. Command thread, as all to forget.
    void beginStart(const std::string& driverID);
    /// The start of a driver that was due begins; false where a command has overtaken it.
    bool beginRestart(const std::string& driverID);
    /// The start of a driver that needs no process is over. Where it does not run, the cause is why, unless
    /// it is empty.
    void endStart(const std::string& driverID, const std::string& cause = {});
    /// The start of a driver that is to run in a process is over. Where no process came, the next try is
    /// planned; a start that was not even tried counts towards no limit. Nothing where one came, even if it
    /// has ended since.
    std::optional<MissingProcess> endProcessStart(const std::string& driverID, const std::string& cause,
                                                  bool isTried);
    /// The driver is not tried again.
    void giveUp(const std::string& driverID);
    void addRestart(const std::string& driverID);
    /// The driver is being unloaded, and not to run until a start begins. The cause is what its values say.
    void beginParking(const std::string& driverID, const std::string& cause);
    void endParking(const std::string& driverID);
    /// The driver is parked and has left the workplace: nothing is known of it any more as soon as no
    /// instance of it is there.
    void forget(const std::string& driverID);

    /// Whether the host has started it by itself, after it had ended.
    bool processStarted(const std::string& driverID, int pid, bool isByHand = false);
    /// Plans the next try where one may be. Nothing when a newer process of the driver runs already. One that
    /// hung has ended by that, whatever ended it. The status is as waitpid has it, where it is known.
    std::optional<End> processEnded(const std::string& driverID, int pid, const std::string& cause,
                                    RestartPlan::Duration ran, bool isPlanned, EEnd end = EEnd::Unknown,
                                    int status = 0);
    /// The process takes no messages any more and is to be ended. Returns how many of the driver's values
    /// became stale; nothing when a newer process of the driver runs already.
    std::optional<std::size_t> processHung(const std::string& driverID, int pid, const std::string& cause);
    void setTraffic(const std::string& driverID, double receivedPerSecond, double sentPerSecond);

    void callBegins(const std::string& driverID, const char* operation) override;
    void callEnded(const std::string& driverID, const char* operation) override;
    void driverDeleted(const std::string& driverID) override;
    /// Of the threads alone whose calls are to be seen when they do not come back: the command thread, those
    /// that send what was asked for from outside.
    void fidBegins(const std::string& driverID, const std::string& fid,
                   const FIDParameterList& parameters) override;
    void fidEnded(const std::string& driverID, bool ok, const char* exception) override;

    /// Those whose time has come, each once.
    std::vector<std::string> takeDue(Clock::time_point now);
    /// When the next one's time comes.
    std::optional<Clock::time_point> nextDue() const;

    /// In byte order of the IDs, as far as ends have been looked for.
    std::vector<Driver> drivers() const;
    std::optional<Driver> find(const std::string& driverID) const;
    /// What has become of it since it was configured, oldest first; the last s_mostSteps. Empty for a driver
    /// that is not known.
    std::vector<LifeStep> life(const std::string& driverID) const;
    /// Whether the driver was loaded and has not ended since.
    bool isRunning(const std::string& driverID) const;
    /// Whether the host has started a process for the driver, even if it has ended.
    bool hasProcess(const std::string& driverID) const;
    /// Whether no newer process of the driver has begun.
    bool isLast(const std::string& driverID, int pid) const;
    std::optional<Call> oldestCall() const;
    /// The innermost call of each thread that is inside of some, in the order in which these began.
    std::vector<Call> innermostCalls() const;

private:
    struct Row : Driver {
        RestartPlan plan;
        bool isHung = false;     ///< of an instance that is there
        bool isRestart = false;  ///< the start that is under way is one by the host itself
        std::string saidCause;   ///< why no process runs, as it was said last
        std::string parkCause;   ///< of the last parking
        bool isLeaving = false;  ///< it is to be forgotten
        EEnd lastEnd = EEnd::Unknown;
        std::deque<LifeStep> life;
        bool hasAnswered = false;  ///< the instance that is there

        explicit Row(const RestartPlan::Settings& settings) : plan(settings) {}
    };

    // Under the lock.
    Row& row(const std::string& driverID);
    Row* known(const std::string& driverID);
    static bool mayHappen(const Row& row, EDriverEvent event);
    bool take(Row& row, EDriverEvent event);
    void startIsOver(Row& row);
    void eraseIfGone(const std::string& driverID);
    bool instanceBegins(Row& row, int pid, bool isByHand);
    std::size_t instanceEnds(Row& row, EDriverEvent event, const std::string& cause);
    Next plan(Row& row, RestartPlan::Duration ran, bool isTried);
    void recordPlan(const std::string& driverID, const Next& next) const;
    static void addStep(Row& row, ELifeStep step, const std::string& text = {});
    static void answers(Row& row);

    StateStore& m_store;
    const std::optional<RestartPlan::Settings> m_restart;
    const RestartPlan::Settings m_noRestart;
    Follower m_follower;
    Observation* m_pObservation = nullptr;
    mutable std::mutex m_mutex;
    std::map<std::string, Row> m_rows;
    std::vector<Call> m_calls;
};

/// "unknown", "exit", "signal", "hang" or "no-start".
const char* inWords(DriverTable::EEnd end);
