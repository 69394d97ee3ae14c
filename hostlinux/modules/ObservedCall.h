#pragma once

#include <optional>
#include <string>

#include "sal/Module.h"

namespace sal {

/// Tells the program's observer of one call into a driver for as long as it lives.
class ObservedCall {
public:
    ObservedCall(std::string driverID, const char* operation);
    ~ObservedCall();
    ObservedCall(const ObservedCall&) = delete;
    ObservedCall& operator=(const ObservedCall&) = delete;

    /// What the driver has answered; not told of a call without an answer.
    bool setResult(bool ok) {
        m_result = ok;
        return ok;
    }

    static void setObserver(Module::Observer* pObserver);
    /// Null where there is none.
    static Module::Observer* observer();
    /// Does nothing for the empty ID.
    static void driverDeleted(const std::string& driverID);
    static void loadFailed(const std::string& path, const std::string& reason);

private:
    const std::string m_driverID;
    const char* const m_operation;
    Module::Observer* const m_pObserver;
    std::optional<bool> m_result;
};

}  // namespace sal
