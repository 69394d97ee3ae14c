#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "sal/Export.h"

namespace sal {

/// A named output of the log. Obtained from LogManager, which owns it; any thread may use it.
class SAL_API LogOutput {
public:
    /// Levels as people know them: 1 critical, 2 error, 3 warning, 4 info, 5 trace.
    enum ELevel { eCritical = 1, eError = 2, eWarning = 3, eInfo = 4, eTrace = 5 };

    ~LogOutput();
    LogOutput(const LogOutput&) = delete;
    LogOutput& operator=(const LogOutput&) = delete;

    const std::string& name() const;

    /// The calling thread's stream for a level. A line is handed to the log whole when it is ended with
    /// std::endl. A level that is not logged gives a stream that formats nothing.
    std::ostream& level(int level);

    /// Whether a level is logged, for callers that would otherwise prepare much in vain.
    bool enabled(int level) const;

private:
    friend class LogManager;
    struct Impl;
    explicit LogOutput(std::unique_ptr<Impl> pImpl);

    std::unique_ptr<Impl> m_pImpl;
};

}  // namespace sal
