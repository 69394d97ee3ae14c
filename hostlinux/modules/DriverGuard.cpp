#include "DriverGuard.h"

#include <utility>

#include "LogLine.h"
#include "sal/LogOutput.h"

namespace sal {

const std::string DriverGuard::s_none;

DriverGuard::DriverGuard(std::string fileName) : m_fileName(std::move(fileName)), m_pDriverID(&s_none) {}

void DriverGuard::setDriverID(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    if (this->driverID() == driverID)
        return;
    m_driverIDs.push_front(driverID);
    m_pDriverID.store(&m_driverIDs.front(), std::memory_order_release);
}

const std::string& DriverGuard::name() const {
    const std::string& id = driverID();
    return id.empty() ? m_fileName : id;
}

void DriverGuard::report(const char* operation, const std::string& argument, const std::string& what,
                         std::string* pException) const {
    logLine("MODULE", LogOutput::eError,
            "driver " + name() + ": an exception left " + operation + "(" + argument + "): " + what);
    if (pException)
        *pException = what;
}

}  // namespace sal
