#pragma once

#include <atomic>
#include <exception>
#include <forward_list>
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
    const std::string& name() const;
    /// Empty until the driver is configured. Takes no lock; what it refers to stays as long as the guard.
    const std::string& driverID() const { return *m_pDriverID.load(std::memory_order_acquire); }

    /// What call returns; fallback, with a log line that names the operation and its argument, when it
    /// throws. The exception's text goes to pException as well, unless that is null. The end of the calling
    /// thread by pthread_cancel is passed on.
    template <class Result, class Call>
    Result run(const char* operation, const std::string& argument, Result fallback, const Call& call,
               std::string* pException = nullptr) const {
        try {
            return call();
        } catch (const std::exception& e) {
            report(operation, argument, exceptionText(e), pException);
        } catch (...) {
            if (isThreadEnding())
                throw;
            report(operation, argument, currentExceptionText(), pException);
        }
        return fallback;
    }

    /// The same for operations without an argument worth naming.
    template <class Result, class Call>
    Result run(const char* operation, Result fallback, const Call& call) const {
        return run(operation, s_none, fallback, call);
    }

private:
    void report(const char* operation, const std::string& argument, const std::string& what,
                std::string* pException) const;

    static const std::string s_none;

    const std::string m_fileName;
    std::mutex m_mutex;                           ///< of setDriverID()
    std::forward_list<std::string> m_driverIDs;   ///< those it had before as well: some thread may read one
    std::atomic<const std::string*> m_pDriverID;  ///< never null
};

}  // namespace sal
