#pragma once

#include <string>

#include "sal/Module.h"

namespace sal {

/// Tells the program's observer of one FID that comes to a driver for as long as it lives, on that thread's
/// stack. Without an observer it costs one look at a pointer.
class ObservedFid {
public:
    /// All three live as long as the object. Nothing is told of a driver without an ID.
    ObservedFid(const std::string& driverID, const std::string& fid, const FIDParameterList& parameters);
    ~ObservedFid();
    ObservedFid(const ObservedFid&) = delete;
    ObservedFid& operator=(const ObservedFid&) = delete;

    /// Where the text of an exception of the driver's goes; null when nobody wants it.
    std::string* exception() { return m_pObserver ? &m_exception : nullptr; }
    /// What the driver has answered.
    void setResult(bool ok) { m_isOk = ok; }

private:
    const std::string& m_driverID;
    Module::Observer* const m_pObserver;
    std::string m_exception;
    bool m_isOk = false;
};

}  // namespace sal
