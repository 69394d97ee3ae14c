#include "DriverGuard.h"

#include <utility>

#include "LogLine.h"
#include "sal/LogOutput.h"

namespace sal {

const std::string DriverGuard::s_noArgument;

DriverGuard::DriverGuard(std::string fileName) : m_fileName(std::move(fileName)) {}

void DriverGuard::setDriverID(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    m_driverID = driverID;
}

std::string DriverGuard::driverID() const {
    const std::lock_guard lock(m_mutex);
    return m_driverID;
}

std::string DriverGuard::name() const {
    const std::string id = driverID();
    return id.empty() ? m_fileName : id;
}

void DriverGuard::report(const char* operation, const std::string& argument, const std::string& what) const {
    logLine("MODULE", LogOutput::eError,
            "driver " + name() + ": an exception left " + operation + "(" + argument + "): " + what);
}

}  // namespace sal
