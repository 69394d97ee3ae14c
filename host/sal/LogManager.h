#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sal/LogOutput.h"
#include "sal/SingletonDll.h"

namespace sal {

/// The log of the process. Constructed first thing by the program, destroyed last.
class SAL_API LogManager : public SingletonDll<LogManager> {
public:
    struct Settings {
        int level = LogOutput::eInfo;  ///< lines above this level are dropped
        std::string file;              ///< also into this file, rotated; empty for none
        std::string tag;               ///< set before each line: the driver ID in a driver process
        /// The journal's socket, used where standard error leads to the journal.
        std::string journal = "/run/systemd/journal/socket";
        /// Which driver a line of a host is about, for the journal; empty for none. Called on the log's
        /// thread.
        std::function<std::string(const std::string& output, const std::string& text)> driverOf = nullptr;
    };

    LogManager();
    /// A file that cannot be opened is reported on standard error; the log goes on without it. An exception
    /// says that the system has no thread for the log.
    explicit LogManager(const Settings& settings);
    ~LogManager();
    LogManager(const LogManager&) = delete;
    LogManager& operator=(const LogManager&) = delete;

    /// The output of that name, made on first use; lives as long as the manager. Never null here, but another
    /// host may answer null. Any thread.
    LogOutput* getLogOutput(const std::string& name);

    /// One line of the log.
    struct Line {
        std::chrono::system_clock::time_point time;
        int level = LogOutput::eInfo;
        std::string output;
        std::string text;
    };
    /// Writes a line of another process, as it is and with its time, whatever the level of this log. The
    /// observer is not told of it. Any thread.
    void write(const Line& line);
    /// What a driver process has written to its standard error between two line ends, where its host reads
    /// that (Process::Observer::capturesErrors).
    struct ErrorLine {
        std::string_view bare;       ///< what its log has not written; empty where that is blank
        std::optional<Line> logged;  ///< what its log has written after that
    };
    /// Reads these bytes, which outlive the result. Any thread.
    static ErrorLine readErrorLine(std::string_view bytes);

    /// Sees each line of this process's own that is logged, made printable. Told on the thread that logs it,
    /// which may hold any lock: it returns at once, and never logs.
    class Observer {
    public:
        virtual ~Observer() = default;
        virtual void line(const std::string& output, int level, const std::string& text) = 0;
    };
    /// Null takes the observer out: it is told nothing more once this returns. Any thread but the observer's
    /// own, while it is told.
    void setObserver(Observer* pObserver);

    void setLevel(int level);
    int level() const;

    /// Waits until what was logged has reached the sinks; a second at most when one blocks. Any thread.
    void flush();

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

extern template class SingletonDll<LogManager>;

}  // namespace sal
