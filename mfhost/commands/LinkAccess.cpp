#include "LinkAccess.h"

#include <chrono>
#include <utility>

#include "FidTrail.h"
#include "Wakeup.h"

namespace {

/// In the stream: a FID that has come over a link.
constexpr std::string_view s_who = "link ";
/// Of a FID whose driver process does not take it for longer nobody will hear.
constexpr std::chrono::hours s_limit{1};
/// The thread reports what has come over a link: of no use to wake one for.
thread_local bool t_isFar = false;

class FarMark {
public:
    FarMark() { t_isFar = true; }
    ~FarMark() { t_isFar = false; }
    FarMark(const FarMark&) = delete;
    FarMark& operator=(const FarMark&) = delete;
};

StateValue stateValue(const ILinkHost::Value& value) {
    return std::visit([](const auto& known) { return StateValue(known); }, value);
}

}  // namespace

LinkAccess::LinkAccess(StateStore& store, FidSenders& senders) : m_store(store), m_senders(senders) {
    m_store.addListener(this);
}

LinkAccess::~LinkAccess() {
    m_store.removeListener(this);
}

IInterface* LinkAccess::queryInterface(unsigned int id) {
    return id == s_id ? this : nullptr;
}

LinkAccess::Changes LinkAccess::changes(std::uint64_t since) const {
    StateStore::Changes found = m_store.changes({}, since);
    Changes changes{found.version, found.isComplete, {}, std::move(found.unset)};
    changes.states.reserve(found.entries.size());
    for (StateStore::Entry& entry : found.entries)
        changes.states.push_back(
            {std::move(entry.key), entry.value.value(), std::move(entry.staleCause), entry.reported});
    return changes;
}

std::vector<LinkAccess::Event> LinkAccess::events(std::uint64_t since) const {
    std::vector<Event> events;
    for (StateStore::Event& event : m_store.events()) {
        if (event.number > since)
            events.push_back({event.number, std::move(event.id), std::move(event.value), event.when});
    }
    return events;
}

void LinkAccess::setFar(const std::string& key, const Value& value, const std::string& cause,
                        std::chrono::steady_clock::time_point reported) {
    const FarMark mark;
    m_store.setFar(key, stateValue(value), cause, reported);
}

void LinkAccess::makeStale(const std::string& driverID, const std::vector<std::string>& keys,
                           const std::string& cause) {
    const FarMark mark;
    m_store.makeStale(driverID, keys, cause);
}

std::shared_ptr<LinkAccess::Box> LinkAccess::box(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_boxes.find(driverID);
    return found == m_boxes.end() ? nullptr : found->second;
}

void LinkAccess::open(const std::string& driverID, int outcomes, int changes) {
    close(driverID);
    const auto pBox = std::make_shared<Box>();
    pBox->wakeup = outcomes;
    pBox->changes = changes;
    const std::lock_guard lock(m_mutex);
    m_boxes[driverID] = pBox;
}

void LinkAccess::watch(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_boxes.find(driverID);
    if (found == m_boxes.end())
        return;
    found->second->isWatching = true;
    m_isWatched = true;
}

/// On the thread of whichever driver reports, with a lock of the store.
void LinkAccess::wakeWatching() {
    if (t_isFar || !m_isWatched.load() || !m_isWatched.exchange(false))
        return;
    const std::lock_guard lock(m_mutex);
    for (const auto& [driverID, pBox] : m_boxes) {
        if (std::exchange(pBox->isWatching, false))
            base::Wakeup::wake(pBox->changes);
    }
}

void LinkAccess::close(const std::string& driverID) {
    if (const auto pBox = box(driverID)) {
        const std::lock_guard lock(pBox->mutex);
        pBox->wakeup = -1;
        pBox->outcomes.clear();
    }
    const std::lock_guard lock(m_mutex);
    m_boxes.erase(driverID);
}

std::uint64_t LinkAccess::send(const std::string& driverID, const std::string& fid,
                               const FIDParameterList& parameters, const std::string& path) {
    std::shared_ptr<Box> pBox;
    std::uint64_t number = 0;
    {
        const std::lock_guard lock(m_mutex);
        const auto found = m_boxes.find(driverID);
        if (found == m_boxes.end())
            return 0;
        pBox = found->second;
        number = ++m_last;
    }
    m_senders.send(fid, parameters, EFidStage::Taken, s_limit,
                   [pBox, number](const FidOutcome& outcome) { put(*pBox, number, outcome); },
                   {.who = std::string(s_who) + path});
    return number;
}

void LinkAccess::put(Box& box, std::uint64_t number, const FidOutcome& outcome) {
    if (outcome.isInterim)
        return;
    EOutcome what = EOutcome::Refused;
    if (outcome.reason == EFidReason::Threw ||
        (outcome.reason == EFidReason::Stopping && outcome.stage >= EFidStage::Dispatched &&
         outcome.stage != EFidStage::Nobody))
        what = EOutcome::Unknown;
    else if (outcome.stage == EFidStage::Taken ||
             (outcome.stage == EFidStage::Delivered && outcome.result.value_or(false)))
        what = EOutcome::Done;
    std::string text = what == EOutcome::Done ? std::string() : outcome.text;
    if (what == EOutcome::Refused && text.empty())
        text = outcome.driverID + " has refused it";
    const std::lock_guard lock(box.mutex);
    if (box.wakeup < 0)
        return;
    box.outcomes.push_back({number, what, std::move(text)});
    if (box.outcomes.size() > s_mostOutcomes)
        box.outcomes.pop_front();
    base::Wakeup::wake(box.wakeup);
}

std::vector<LinkAccess::Outcome> LinkAccess::outcomes(const std::string& driverID) {
    const auto pBox = box(driverID);
    if (!pBox)
        return {};
    const std::lock_guard lock(pBox->mutex);
    std::vector<Outcome> outcomes(pBox->outcomes.begin(), pBox->outcomes.end());
    pBox->outcomes.clear();
    return outcomes;
}

std::string LinkAccess::path() const {
    const std::string_view who = FidTrail::who();
    return who.starts_with(s_who) ? std::string(who.substr(s_who.size())) : std::string();
}
