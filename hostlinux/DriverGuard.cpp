#include "DriverGuard.h"

#include <utility>

#include "LogLine.h"
#include "sal/LogOutput.h"

namespace sal {

const std::string DriverGuard::s_noArgument;

DriverGuard::DriverGuard(std::string fileName) : m_name(std::move(fileName)) {}

void DriverGuard::setDriverID(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    if (!driverID.empty())
        m_name = driverID;
}

std::string DriverGuard::name() const {
    const std::lock_guard lock(m_mutex);
    return m_name;
}

void DriverGuard::report(const char* operation, const std::string& argument, const std::string& what) const {
    logLine("MODULE", LogOutput::eError,
            "driver " + name() + ": an exception left " + operation + "(" + argument + "): " + what);
}

}  // namespace sal
