#include "DriverSystem.h"

#include <deque>
#include <memory>
#include <mutex>
#include <set>

#include "InterfaceIds.h"

namespace sal {
namespace {

const std::string s_nobody;
thread_local const std::string* t_pCaller = &s_nobody;

/// The one text of that kind, which stays.
const std::string& kept(const std::string& driverID) {
    static std::mutex s_mutex;
    static auto* const s_pTexts = new std::set<std::string>;
    const std::lock_guard lock(s_mutex);
    return *s_pTexts->insert(driverID).first;
}

}  // namespace

class DriverSystem::Call {
public:
    explicit Call(const DriverSystem& system) : m_pBefore(t_pCaller) {
        t_pCaller = system.m_pDriverID.load(std::memory_order_acquire);
    }
    ~Call() { t_pCaller = m_pBefore; }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

private:
    const std::string* const m_pBefore;
};

DriverSystem& DriverSystem::make(ISystem& system) {
    static std::mutex s_mutex;
    static auto* const s_pAll = new std::deque<std::unique_ptr<DriverSystem>>;
    const std::lock_guard lock(s_mutex);
    return *s_pAll->emplace_back(new DriverSystem(system));
}

DriverSystem::DriverSystem(ISystem& system) : m_system(system), m_sender(*this), m_pDriverID(&s_nobody) {}

void DriverSystem::setDriverID(const std::string& driverID) {
    m_pDriverID.store(&kept(driverID), std::memory_order_release);
}

const std::string& DriverSystem::caller() {
    return *t_pCaller;
}

IInterface* DriverSystem::queryInterface(unsigned int id) {
    IInterface* const pAnswer = m_system.queryInterface(id);
    if (id != IID_IFunctionID)
        return pAnswer;
    auto* const pTarget = dynamic_cast<IFunctionID*>(pAnswer);
    if (!pTarget)
        return pAnswer;
    m_sender.pTarget.store(pTarget, std::memory_order_release);
    return &m_sender;
}

void DriverSystem::executeCommand(const std::string& command, const std::string& arguments) {
    const Call call(*this);
    m_system.executeCommand(command, arguments);
}

IInterface* DriverSystem::Sender::queryInterface(unsigned int id) {
    return id == IID_IFunctionID ? this : pTarget.load(std::memory_order_acquire)->queryInterface(id);
}

bool DriverSystem::Sender::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    const Call call(m_owner);
    return pTarget.load(std::memory_order_acquire)->sendFID(fid, parameters);
}

bool DriverSystem::Sender::subscribe(const std::string& fid) const {
    const Call call(m_owner);
    return pTarget.load(std::memory_order_acquire)->subscribe(fid);
}

bool DriverSystem::Sender::showState() const {
    const Call call(m_owner);
    return pTarget.load(std::memory_order_acquire)->showState();
}

}  // namespace sal
