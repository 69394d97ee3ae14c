#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ErrorStream.h"
#include "UniqueFd.h"
#include "Wakeup.h"
#include "sal/CrashNote.h"

/// Reads what driver processes write to their standard error, on a thread of its own that reads always: no
/// driver waits for the log or for anything else in the host. Owned by Host; told of processes by the
/// supervisor.
class DriverErrors {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        ErrorStream::Limits limits = {};
        /// How long a pipe is still read that others have kept after their process has ended.
        std::chrono::milliseconds patience{1000};
        /// A process has said on which thread it dies, and waits. On the threads on which the sink is told;
        /// may be none.
        std::function<void(int pid, const sal::CrashNote::Crash& crash)> onCrash = nullptr;
    };

    /// What a process has said before its end.
    struct Words {
        std::vector<std::string> last;  ///< of what it has not logged, and then where it died
        std::string loadFault;          ///< why it could not load its module; empty when that is not so
    };

    /// The sink is told on this object's thread, and on those that call ended() and drain(): of one process
    /// in the order in which it has written.
    explicit DriverErrors(ErrorStream::Sink sink);
    DriverErrors(ErrorStream::Sink sink, Settings settings);
    ~DriverErrors();
    DriverErrors(const DriverErrors&) = delete;
    DriverErrors& operator=(const DriverErrors&) = delete;

    void start();

    /// Takes over the descriptor of the pipe of a process that has just been started. Reading from it does
    /// not wait. Any thread.
    void add(const std::string& driverID, int pid, int errorFd);
    /// Where the process dies, line by line. Any thread.
    void noteStack(int pid, const std::vector<std::string>& lines);
    /// The process has ended: when this returns, the sink has been told all that it has written. What has
    /// come of one that was never added is nothing. Any thread.
    Words ended(int pid);
    /// Tells the sink all that has been written by now. Any thread.
    void drain();
    /// Ends the thread, after all that has been written by now was told. Once no driver process is left.
    void stop();

private:
    struct Entry;
    using Entries = std::map<std::uint64_t, std::shared_ptr<Entry>>;

    void run();
    int timeout() const;
    Entries entries() const;
    void read(std::uint64_t number, Entry& entry);
    std::optional<sal::CrashNote::Crash> readLocked(std::uint64_t number, Entry& entry);
    void look(const Entries& entries);
    void remove(std::uint64_t number);

    const ErrorStream::Sink m_sink;
    const Settings m_settings;
    const base::UniqueFd m_epoll;
    const base::Wakeup m_wakeup;

    mutable std::mutex m_mutex;
    Entries m_entries;
    std::uint64_t m_lastNumber = 0;
    bool m_isStopping = false;

    std::thread m_thread;
};
