#pragma once

#include <exception>
#include <string>
#include <vector>

#include "ApiCall.h"

/// Why a request is not done: what the caller gets instead of an answer. Thrown where a request is read, and
/// answered by ApiHandler; the listener answers its own refusals with it too. Any thread.
class ApiFault : public std::exception {
public:
    enum class ECode {
        RequestInvalid,
        SessionNeeded,
        NotAllowed,
        NotFound,
        DriverUnknown,
        MacroUnknown,
        StateUnknown,
        AlarmUnknown,
        MethodNotAllowed,
        TooSlow,  ///< the rest of the request has not come in time
        FidUndelivered,
        PlanOutdated,
        Refused,
        RequestDiffers,
        TooLarge,
        MediaType,
        HostUnknown,  ///< the request is for a name that the web port does not have
        TooMany,
        QueueFull,
        Busy,
        Stopping,
        Internal
    };

    ApiFault(ECode code, std::string text, std::vector<std::string> nearest = {});
    /// One of RequestInvalid.
    static ApiFault invalid(std::string text);

    /// For FidUndelivered: "not-running" and so on.
    ApiFault& withReason(std::string reason);
    /// For MethodNotAllowed: the methods that there are.
    ApiFault& withAllow(std::string methods);

    ECode code() const { return m_code; }
    const char* what() const noexcept override { return m_text.c_str(); }
    /// {"error":{"code":"driver-unknown","text":"...","nearest":["AXIS1"]}} with the status of the code.
    ApiAnswer answer() const;

    /// Whether an answer of that status says that nothing was done, and that the same request may be done
    /// when it is sent again.
    static bool isUndone(unsigned status);

private:
    ECode m_code;
    std::string m_text;
    std::vector<std::string> m_nearest;
    std::string m_reason;
    std::string m_allow;
};
