#include "DriverGuard.h"

#include <atomic>
#include <utility>

#include "LogLine.h"
#include "sal/LogOutput.h"

namespace sal {
namespace {

std::atomic<Module::Observer*> s_pObserver{nullptr};

}  // namespace

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

void DriverGuard::driverDeleted() const {
    const std::string id = driverID();
    if (Module::Observer* pObserver = s_pObserver; pObserver && !id.empty())
        pObserver->driverDeleted(id);
}

void DriverGuard::setObserver(Module::Observer* pObserver) {
    s_pObserver = pObserver;
}

void DriverGuard::report(const char* operation, const std::string& argument, const std::string& what) const {
    logLine("MODULE", LogOutput::eError,
            "driver " + name() + ": an exception left " + operation + "(" + argument + "): " + what);
}

DriverGuard::ObservedCall::ObservedCall(std::string driverID, const char* operation)
    : m_pObserver(driverID.empty() ? nullptr : s_pObserver.load()),
      m_driverID(std::move(driverID)),
      m_operation(operation) {
    if (m_pObserver)
        m_pObserver->callBegins(m_driverID, m_operation);
}

DriverGuard::ObservedCall::~ObservedCall() {
    if (m_pObserver)
        m_pObserver->callEnded(m_driverID, m_operation);
}

}  // namespace sal
