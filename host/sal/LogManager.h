#pragma once

#include <memory>
#include <string>

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
