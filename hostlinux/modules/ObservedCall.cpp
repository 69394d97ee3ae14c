#include "ObservedCall.h"

#include <atomic>
#include <utility>

namespace sal {
namespace {
std::atomic<Module::Observer*> s_pModuleObserver{nullptr};
}

ObservedCall::ObservedCall(std::string driverID, const char* operation)
    : m_driverID(std::move(driverID)),
      m_operation(operation),
      m_pObserver(m_driverID.empty() ? nullptr : observer()) {
    if (m_pObserver)
        m_pObserver->callBegins(m_driverID, m_operation);
}

ObservedCall::~ObservedCall() {
    if (!m_pObserver)
        return;
    if (m_result)
        m_pObserver->callReturned(m_driverID, m_operation, *m_result);
    m_pObserver->callEnded(m_driverID, m_operation);
}

void ObservedCall::setObserver(Module::Observer* pObserver) {
    s_pModuleObserver.store(pObserver, std::memory_order_release);
}

Module::Observer* ObservedCall::observer() {
    return s_pModuleObserver.load(std::memory_order_acquire);
}

void ObservedCall::driverDeleted(const std::string& driverID) {
    Module::Observer* pObserver = driverID.empty() ? nullptr : observer();
    if (pObserver)
        pObserver->driverDeleted(driverID);
}

void ObservedCall::loadFailed(const std::string& path, const std::string& reason) {
    if (Module::Observer* pObserver = s_pModuleObserver.load())
        pObserver->loadFailed(path, reason);
}

}  // namespace sal
