#pragma once

#include <signal.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "HostProcess.h"

/// A running mfhost whose two streams are read line by line as they come, on a thread each, and kept in a
/// file. Owned by Chaos; any thread may type. Killed with the object.
class ChaosHost {
public:
    using Clock = std::chrono::steady_clock;
    struct Handlers {
        std::function<void(const std::string& line)> output;
        std::function<void(const std::string& line)> log;
    };

    enum class EStream { Output, Log };
    /// While it lives, nobody reads what the host writes there.
    class Hold {
    public:
        Hold(ChaosHost& host, EStream stream) : m_isHeld(host.m_isHeld[static_cast<int>(stream)]) {
            m_isHeld = true;
        }
        ~Hold() { m_isHeld = false; }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        std::atomic<bool>& m_isHeld;
    };

    /// Appends what the host writes to that record.
    ChaosHost(const HostProcess::Start& start, Handlers handlers, const std::filesystem::path& record);
    ~ChaosHost();
    ChaosHost(const ChaosHost&) = delete;
    ChaosHost& operator=(const ChaosHost&) = delete;

    pid_t pid() const { return m_pid; }

    /// False when the host has taken nothing for a while.
    bool type(const std::string& line);
    void closeInput();
    void signal(int number) const { ::kill(m_pid, number); }

    /// Its exit code, or 128 and the signal that ended it; nothing when it still runs after that time.
    std::optional<int> waitForEnd(std::chrono::seconds patience);

    /// Process of that driver; 0 when there is none.
    pid_t driverProcess(const std::string& driverID) const;
    /// The driver processes that have run for so long.
    std::set<pid_t> driverProcesses(std::chrono::seconds age) const;
    /// A child whose command line holds that text; 0 when there is none.
    pid_t childWith(const std::string& text) const;

private:
    std::set<pid_t> childrenWith(const std::string& text) const;
    void read(int fd, EStream stream, const std::function<void(const std::string&)>& handler,
              const char* prefix);

    std::ofstream m_record;
    std::mutex m_recordMutex;
    std::mutex m_inputMutex;
    pid_t m_pid = -1;
    int m_input = -1;
    std::mutex m_endMutex;
    std::optional<int> m_exit;
    std::atomic<bool> m_isStopping = false;
    std::atomic<bool> m_isHeld[2] = {false, false};
    std::thread m_outputReader;
    std::thread m_logReader;
};
