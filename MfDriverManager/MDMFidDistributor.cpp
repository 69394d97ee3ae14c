#include "MDMFidDistributor.h"

#include <iostream>
#include <optional>
#include <utility>

#include "FIDHelper.h"
#include "FIDParameterList.h"
#include "IMacroSystem.h"
#include "InterfaceIds.h"
#include "MDMMainframeDriverPort.h"
#include "sal/Assert.h"
#include "sal/CmdParameters.h"
#include "sal/LogManager.h"

SegmentPointerBase::~SegmentPointerBase() {
    m_pSegment = nullptr;
}

FIDSegmentPointer::~FIDSegmentPointer() {
    m_pSegment = nullptr;
}

/// A port that was looked up; keeps the port alive as long as it lives itself.
class MDMFidDistributor::PortUse {
public:
    /// Empty when no driver has that ID.
    PortUse(const MDMFidDistributor& distributor, const std::string& driverID) {
        const MDMReadersMutex::Reader lock(distributor.m_portsMutex);
        const auto found = distributor.m_ports.find(driverID);
        if (found != distributor.m_ports.end())
            take(found->second);
    }

    ~PortUse() {
        if (m_pPort)
            m_pPort->m_dispatching.leave(m_place);
    }
    PortUse(PortUse&& other) noexcept
        : m_pPort(std::exchange(other.m_pPort, nullptr)), m_place(other.m_place) {}
    PortUse& operator=(PortUse&&) = delete;

    explicit operator bool() const { return m_pPort != nullptr; }
    MDMMainframeDriverPort* operator->() const { return m_pPort; }

    /// The port with the lowest driver ID above that one, with the lowest of all when there is none yet.
    /// Empty after the last.
    static PortUse next(const MDMFidDistributor& distributor, const std::optional<std::string>& last) {
        PortUse use;
        const MDMReadersMutex::Reader lock(distributor.m_portsMutex);
        const auto& ports = distributor.m_ports;
        const auto found = last ? ports.upper_bound(*last) : ports.begin();
        if (found != ports.end())
            use.take(found->second);
        return use;
    }

    /// Deletes a port that can be looked up no more, after the threads that had looked it up have left it.
    static void destroy(MDMMainframeDriverPort* pPort) {
        if (pPort)
            pPort->m_dispatching.waitForAll();
        delete pPort;
    }

private:
    PortUse() = default;

    void take(MDMMainframeDriverPort* pPort) {
        m_place = pPort->m_dispatching.enter();
        m_pPort = pPort;
    }

    MDMMainframeDriverPort* m_pPort = nullptr;
    std::size_t m_place = 0;
};

MDMFidDistributor::MDMFidDistributor() {
    m_pLog = sal::SingletonDll<sal::LogManager>::getInstance()->getLogOutput("MDM");
    SAL_ASSERT(m_pLog);
}

MDMFidDistributor::~MDMFidDistributor() {
    for (const auto& [driverID, pPort] : m_ports)
        delete pPort;
    m_pPanelState = nullptr;
    m_pSystem = nullptr;
    m_pMacroSystem = nullptr;
    m_pLog = nullptr;
    m_ports.clear();
}

IInterface* MDMFidDistributor::queryInterface(unsigned int id) {
    switch (id) {
        case IID_IFunctionID:
            return static_cast<IFunctionID*>(this);
        case IID_IPanelState:
            return static_cast<IPanelState*>(this);
        case IID_IDistributorFID:
            return static_cast<IDistributorFID*>(this);
        default:
            return nullptr;
    }
}

void MDMFidDistributor::dispatchFID(const std::string& fid, const FIDParameterList& parameters) const {
    // The stream of a level that is off drops all that is written to it: asking once saves the formatting.
    if (std::ostream& trace = m_pLog->level(5))
        trace << "MDM: " << fid << " ( " << parameters << ") received." << std::endl;

    {
        const MDMCallGate::Call<IMacroSystem> macroSystem(m_macroGate, m_pMacroSystem);
        if (macroSystem)
            macroSystem->fidDispatched(fid, parameters);
    }

    // A FID without a "." names no driver and is dropped here without a log line.
    const FIDHelper helper(fid);
    if (!helper.hasFunction())
        return;

    const PortUse port(*this, helper.getDriverID());
    if (port)
        port->sendFID(helper.getFunction(), parameters);
    else
        m_pLog->level(5) << "MDM:  -> but not dispatched" << std::endl;
}

void MDMFidDistributor::setStateValue(const std::string& stateID, const std::string& value) {
    if (IPanelState* pTarget = MDMCallGate::load(m_pPanelState))
        pTarget->setStateValue(stateID, value);
}

void MDMFidDistributor::setStateValueFloat(const std::string& stateID, float value) {
    if (IPanelState* pTarget = MDMCallGate::load(m_pPanelState))
        pTarget->setStateValueFloat(stateID, value);
}

void MDMFidDistributor::setStateValueInt(const std::string& stateID, int value) {
    if (IPanelState* pTarget = MDMCallGate::load(m_pPanelState))
        pTarget->setStateValueInt(stateID, value);
}

void MDMFidDistributor::setStateValueBool(const std::string& stateID, bool value) {
    if (IPanelState* pTarget = MDMCallGate::load(m_pPanelState))
        pTarget->setStateValueBool(stateID, value);
}

void MDMFidDistributor::unsetStateValue(const std::string& stateID) {
    if (IPanelState* pTarget = MDMCallGate::load(m_pPanelState))
        pTarget->unsetStateValue(stateID);
}

void MDMFidDistributor::triggerEvent(const std::string& eventID, const std::string& value) {
    if (IPanelState* pTarget = MDMCallGate::load(m_pPanelState))
        pTarget->triggerEvent(eventID, value);
}

bool MDMFidDistributor::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    dispatchFID(fid, parameters);
    return true;
}

bool MDMFidDistributor::subscribe(const std::string& fid) const {
    const FIDHelper helper(fid);
    if (!helper.hasFunction())
        return false;

    const PortUse port(*this, helper.getDriverID());
    return port ? port->subscribe(helper.getFunction()) : false;
}

bool MDMFidDistributor::showState() const {
    return true;
}

IPanelState* MDMFidDistributor::addDriverPort(const std::string& driverID, IFunctionID* functionId) {
    MDMMainframeDriverPort* pFormer = nullptr;
    {
        const MDMReadersMutex::Writer lock(m_portsMutex);
        const auto found = m_ports.find(driverID);
        if (found != m_ports.end()) {
            pFormer = found->second;
            m_ports.erase(found);
        }
    }
    PortUse::destroy(pFormer);

    auto* pPort = new MDMMainframeDriverPort(driverID);
    SAL_ASSERT(pPort != 0);
    // Ports report to the distributor and not to the target itself, so a new target holds for all of them.
    auto* pPanelState = dynamic_cast<IPanelState*>(queryInterface(IID_IPanelState));
    {
        const MDMReadersMutex::Writer lock(m_portsMutex);
        m_ports[driverID] = pPort;
        pPort->setPanelStateInterface(pPanelState);
        pPort->setFunctionIDInterface(functionId);
    }
    return dynamic_cast<IPanelState*>(pPort->queryInterface(IID_IPanelState));
}

void MDMFidDistributor::releaseDriver(const std::string& driverID) {
    const PortUse port(*this, driverID);
    if (port)
        port->releaseFunctionID();
}

void MDMFidDistributor::showUsedModules() {
    // Only the port that is being called is in use, so that a driver that takes long holds up no other's
    // port.
    std::optional<std::string> last;
    while (const PortUse port = PortUse::next(*this, last)) {
        last = port->m_driverID;
        port->showPortState();
    }
}

void MDMFidDistributor::setPanelStateInterface(IPanelState* pPanelState) {
    MDMCallGate::store(m_pPanelState, pPanelState);
}

void MDMFidDistributor::setSystemInterface(ISystem* pSystem) {
    m_pSystem = pSystem;
}

ISystem* MDMFidDistributor::getSystemInterface() const {
    return m_pSystem;
}

void MDMFidDistributor::setMacroSystem(IMacroSystem* pMacroSystem) {
    if (pMacroSystem == MDMCallGate::load(m_pMacroSystem))
        return;
    m_macroGate.close(m_pMacroSystem);
    MDMCallGate::store(m_pMacroSystem, pMacroSystem);
}

bool MDMFidDistributor::shellCmdSetStateValue(sal::CmdParameters& parameters) {
    setStateValue(parameters.argument(0), parameters.argument(1));
    return true;
}

bool MDMFidDistributor::shellCmdUnsetStateValue(sal::CmdParameters& parameters) {
    unsetStateValue(parameters.argument(0));
    return true;
}

bool MDMFidDistributor::shellCmdTriggerEvent(sal::CmdParameters& parameters) {
    triggerEvent(parameters.argument(0), parameters.argument(1));
    return true;
}

// A parameter may be typed as a=5, a= 5, a =5, a = 5 or a 5.
bool MDMFidDistributor::shellCmdSendFID(sal::CmdParameters& parameters) {
    if (parameters.argumentCount() < 1) {
        std::cout << "Usage: sendFID <FID> [<parameter name>=<parameter value> [...]]" << std::endl;
        return false;
    }

    const std::string fid = parameters.argument(0);
    FIDParameterList list;
    unsigned int i = 1;
    while (i < parameters.argumentCount()) {
        std::string name = parameters.argument(i++);
        std::string value;
        const std::string::size_type equals = name.find('=');
        if (equals == std::string::npos) {
            value = parameters.argument(i++);
            if (value == "=")
                value = parameters.argument(i++);
            else if (value.starts_with('='))
                value.erase(0, 1);
        } else if (equals + 1 == name.size()) {
            value = parameters.argument(i++);
            name.erase(equals);
        } else {
            value = name.substr(equals + 1);
            name.erase(equals);
        }
        list.add(name, value);
    }
    sendFID(fid, list);
    return true;
}

bool MDMFidDistributor::shellCmdListDrivers(sal::CmdParameters&) {
    showUsedModules();
    return true;
}
