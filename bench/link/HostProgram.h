#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ChildProcess.h"

/// The real host program with a workplace in a directory of its own: the panel driver and so many probe
/// drivers (D00, D01, ...), each in its driver process or in the host's. Used by one thread. All its
/// processes end with the object.
class HostProgram {
public:
    struct Settings {
        std::filesystem::path directory;  ///< its own, made by it
        int drivers = 1;
        int driversInHost = 0;  ///< the last so many of them are in the host's process
        std::vector<std::string> options = {};
        std::vector<std::pair<std::string, std::string>> environment = {};  ///< beside what it has from here
        bool isRead = false;  ///< its standard output is for readLine() or output(), else it goes to the log
    };

    /// Writes the workplace's files.
    explicit HostProgram(Settings settings);
    ~HostProgram();
    HostProgram(const HostProgram&) = delete;
    HostProgram& operator=(const HostProgram&) = delete;

    /// Returns at once; what is typed is done when the workplace is started.
    void start();
    /// Throws when the workplace does not start in time.
    void waitUntilStarted() const;
    void type(const std::string& line) const;
    /// The next line of its standard output; nothing when none comes within that time.
    std::optional<std::string> readLine(std::chrono::milliseconds patience);
    /// The same for somebody who reads it alone, without waiting.
    int output() const { return m_output; }
    std::string log() const;
    std::filesystem::path logFile() const { return m_settings.directory / "log"; }
    std::filesystem::path controlSocket() const { return m_settings.directory / "mfhost.sock"; }
    static std::string driverID(int driver);
    /// Of the host. Once it is started.
    pid_t pid() const { return m_process->pid(); }
    /// 0 when the driver has no process.
    pid_t processOf(int driver) const;

private:
    void run(int input, int output) const;

    const Settings m_settings;
    int m_input = -1;
    int m_output = -1;
    std::string m_unread;
    std::optional<ChildProcess> m_process;
};
