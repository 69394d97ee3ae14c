#include "sal/Module.h"

#include <utility>

#include "DriverSystem.h"
#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "InterfaceIds.h"
#include "LogLine.h"
#include "ModuleImpl.h"
#include "ObservedCall.h"
#include "sal/LogOutput.h"

namespace sal {
namespace {

/// The guard of a driver's interface, made when it is first asked for; null when the driver has none.
template <class Guarded, class Interface, class Guard>
IInterface* guarded(std::unique_ptr<Guarded>& pGuarded, std::mutex& mutex, Module& module, Guard& guard,
                    IInterface* pAnswer) {
    auto* pInterface = dynamic_cast<Interface*>(pAnswer);
    if (!pInterface)
        return nullptr;
    const std::lock_guard lock(mutex);
    if (!pGuarded)
        pGuarded = std::make_unique<Guarded>(module, *pInterface, guard);
    return pGuarded.get();
}

}  // namespace

Module::Impl::Impl(std::string file, DynamicLibrary&& code, std::unique_ptr<IInterface> driver)
    : library(std::move(code)), fileName(std::move(file)), guard(fileName), pDriver(std::move(driver)) {}

Module::Impl::~Impl() {
    pConfiguration.reset();
    pFunctionID.reset();
    pDriver.reset();
    ObservedCall::driverDeleted(guard.driverID());
    const std::string reason = library.close();
    if (!reason.empty())
        logLine("MODULE", LogOutput::eWarning,
                "driver " + guard.name() + ": the code of " + fileName + " stays mapped: " + reason);
}

IInterface* Module::Impl::ask(unsigned int id) {
    return guard.run<IInterface*>("queryInterface", std::to_string(id), nullptr,
                                  [&] { return pDriver->queryInterface(id); });
}

Module::Module(std::unique_ptr<Impl> pImpl) : m_pImpl(std::move(pImpl)) {}

Module::~Module() = default;

void Module::setObserver(Observer* pObserver) {
    ObservedCall::setObserver(pObserver);
}

const std::string& Module::caller() {
    return DriverSystem::caller();
}

IInterface* Module::queryInterface(unsigned int id) {
    Impl& impl = *m_pImpl;
    IInterface* pAnswer = impl.ask(id);
    switch (id) {
        case IID_IFunctionID:
            return guarded<GuardedFunctionID, IFunctionID>(impl.pFunctionID, impl.mutex, *this, impl.guard,
                                                           pAnswer);
        case IID_IMFDConfiguration:
            return guarded<GuardedConfiguration, IMFDConfiguration>(impl.pConfiguration, impl.mutex, *this,
                                                                    impl.guard, pAnswer);
        default:
            return pAnswer;
    }
}

}  // namespace sal
