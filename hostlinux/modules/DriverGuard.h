#pragma once

#include <exception>
#include <mutex>
#include <string>

#include "ExceptionText.h"

namespace sal {

/// Runs a driver's operations and keeps their exceptions from the host. Knows the driver's name for the log:
/// its file until it is configured, then its driver ID. Owned by its Module; any thread.
class DriverGuard {
public:
    explicit DriverGuard(std::string fileName);

    void setDriverID(const std::string& driverID);
    /// Driver ID or file.
    std::string name() const;
    /// Empty until the driver is configured.
    std::string driverID() const;

    /// What call returns; fallback, with a log line that names the operation and its argument, when it
    /// throws. The end of the calling thread by pthread_cancel is passed on.
    template <class Result, class Call>
    Result run(const char* operation, const std::string& argument, Result fallback, const Call& call) const {
        try {
            return call();
        } catch (const std::exception& e) {
            report(operation, argument, exceptionText(e));
        } catch (...) {
            if (isThreadEnding())
                throw;
            report(operation, argument, currentExceptionText());
        }
        return fallback;
    }

    /// The same for operations without an argument worth naming.
    template <class Result, class Call>
    Result run(const char* operation, Result fallback, const Call& call) const {
        return run(operation, s_noArgument, fallback, call);
    }

private:
    void report(const char* operation, const std::string& argument, const std::string& what) const;

    static const std::string s_noArgument;

    mutable std::mutex m_mutex;
    std::string m_driverID;  ///< empty until the driver is configured
    std::string m_fileName;
};

}  // namespace sal
