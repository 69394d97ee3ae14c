#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "HangGuard.h"

/// A running mfhost (or any other program): what is typed into it goes through a pipe, what it writes is kept
/// in two files. Each wait ends with the hang guard and then says no. Killed with the object.
class HostProcess {
public:
    struct Start {
        std::filesystem::path program;
        std::vector<std::string> arguments;
        std::map<std::string, std::string> environment;  ///< beside the test's own
        std::filesystem::path files;                     ///< directory for what it writes
        std::function<void()> beforeExec = {};           ///< in the new process; may be none
    };
    explicit HostProcess(const Start& start);
    ~HostProcess();
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;

    pid_t pid() const { return m_pid; }

    void type(const std::string& line);
    void closeInput();
    void signal(int number) const;

    /// What it has written so far to standard output and to standard error.
    std::string output() const;
    std::string log() const;
    /// Whether the text is there by now or comes in time.
    bool waitForOutput(const std::string& text) const;
    /// The same for a text after the last occurrence of another.
    bool waitForOutputAfter(const std::string& earlier, const std::string& text) const;
    bool waitForLog(const std::string& text) const;
    /// Types a line that the log shows and that overtakes no other, and waits until it is executed: a FID to
    /// a driver that is not there. Whether that came in time.
    bool passMark();
    /// What it prints from now on until it has executed the command; all up to its end when that comes first.
    std::string ask(const std::string& command);
    /// What "drivers" says of the driver; empty where it does not list it.
    std::string listed(const std::string& driverID);
    /// Whether what it prints after the command has the extended regular expression, by now or when the
    /// command is typed again: what a driver reports may be on its way longer than a command waits for it.
    bool repliesWith(const std::string& command, const std::string& pattern);

    /// Its exit code, or 128 and the signal that ended it; nothing when it is still there after that long. A
    /// mark is a line that fails: an end in order counts as 0 where no other line has failed.
    std::optional<int> waitForEnd(int seconds = static_cast<int>(c_hangGuard.count()));

    /// Process IDs of its children.
    std::vector<pid_t> children() const;
    /// Process ID of the child whose title begins with this driver ID; 0 when there is none.
    pid_t driverProcess(const std::string& driverID) const;

private:
    bool haveOnlyMarksFailed() const;

    std::filesystem::path m_outputFile;
    std::filesystem::path m_logFile;
    pid_t m_pid = -1;
    int m_input = -1;
    int m_questions = 0;
    int m_marks = 0;
    std::optional<int> m_exit;
};

/// Becomes the program, with what the start sets in its environment, at the streams that this process has; in
/// a process made for it.
[[noreturn]] void becomeProgram(const HostProcess::Start& start);

/// Process ID of the child of a host whose title begins with this driver ID; 0 when there is none.
pid_t driverProcess(pid_t host, const std::string& driverID);

/// Process IDs of its children.
std::vector<pid_t> childrenOf(pid_t parent);

/// Whether the process is gone, or is so within that time. A process that nobody has reaped yet is gone.
bool endsWithin(pid_t pid, int milliseconds);
/// The same with the hang guard for a limit.
bool endsInTime(pid_t pid);

/// Whether all threads of the process are stopped: a signal alone reaches them one after another.
bool isStopped(pid_t pid);
