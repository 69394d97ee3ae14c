#include "FidTrail.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "FidFields.h"
#include "MessageCodes.h"
#include "sal/Module.h"

using stream::EFidOutcome;
using stream::EOrigin;
using stream::FidFields;

namespace {

constexpr std::string_view s_panel = "PANEL";
constexpr std::string_view s_inputEnd = "_INQ";
constexpr std::string_view s_outputEnd = "_OUTQ";
constexpr std::string_view s_unknown = "unknown FID \"";
constexpr std::size_t s_longestUnknown = 200;
/// After more than that an end is worth a record.
constexpr std::chrono::milliseconds s_late{1};
/// Messages that come faster than this are a flood, of which every so many has a look at the clock.
constexpr std::chrono::microseconds s_floodPace{4};
constexpr unsigned int s_flood = 16;
/// Those that are not recorded are told so many at once.
constexpr std::uint64_t s_refusedTogether = 256;

bool hasCode(const unsigned char* data, int length, std::string_view code) {
    return static_cast<std::size_t>(length) >= protocol::codeLength &&
           std::memcmp(data, code.data(), protocol::codeLength) == 0;
}

/// What follows a message's code.
std::string_view fieldsOf(const unsigned char* data, int length) {
    return {reinterpret_cast<const char*>(data) + protocol::codeLength,
            static_cast<std::size_t>(length) - protocol::codeLength};
}

/// The text that the fields begin with: the FID, or the function.
std::string_view firstText(std::string_view fields) {
    return fields.empty() ? fields : fields.substr(1, static_cast<unsigned char>(fields.front()));
}

bool isFid(std::string_view fid, std::string_view driverID, std::string_view function) {
    return fid.size() == driverID.size() + 1 + function.size() && fid.starts_with(driverID) &&
           fid[driverID.size()] == '.' && fid.ends_with(function);
}

/// What a message to a driver process asks of it; empty for what is no configuration.
std::string_view configurationCall(const unsigned char* data, int length) {
    using Call = std::pair<std::string_view, std::string_view>;
    static constexpr std::array<Call, 3> s_calls{
        Call{protocol::setConfiguration, "setConfiguration"},
        Call{protocol::initializationCompleted, "initializationCompleted"},
        Call{protocol::deinitialize, "deinitialize"}};
    for (const auto& [code, operation] : s_calls) {
        if (hasCode(data, length, code))
            return operation;
    }
    return {};
}

}  // namespace

/// A FID that is inside a driver.
struct FidTrail::Delivery {
    void begin(const std::string& driverID, std::uint16_t from) {
        sender = from;
        record = 0;
        isTimed = false;
        pDriverID = &driverID;
        unknownLength = 0;
    }

    std::uint16_t sender = 0;
    std::uint64_t record = 0;
    bool isTimed = false;  ///< its beginning was looked up, not taken over
    Observation::Clock::time_point began{};
    const std::string* pDriverID = nullptr;
    std::size_t unknownLength = 0;
    std::array<char, s_longestUnknown> unknown{};  ///< what the driver has said of the function
};

/// Of one thread.
struct FidTrail::Trail {
    static constexpr std::size_t s_deepest = 32;

    Sending* pSending = nullptr;

    Observation::Clock::time_point looked{};  ///< at the clock
    std::uint32_t tick = 0;                   ///< then
    unsigned int left = 0;                    ///< messages that make do with that
    bool isFlood = false;

    // A thread that receives.
    std::uint64_t serial = 0;  ///< of whose observation; 0: it receives from no driver
    std::uint16_t sender = 0;
    std::size_t queueLength = 0;
    std::array<char, 255> queue{};
    std::uint64_t reports = 0;
    std::uint64_t deliveredBefore = 0;
    std::uint32_t settledTick = 0;  ///< when reports were told last: once a tick, and before it waits
    bool hasMessage = false;      ///< with a FID that is not delivered yet; the module's own buffer is reused
    bool isSpent = false;         ///< its sender has had its share: the FID is not looked at
    std::uint32_t spentTick = 0;  ///< when that was looked at
    std::uint64_t refused = 0;    ///< of these, not told yet
    std::size_t messageLength = 0;
    std::array<unsigned char, protocol::maximumLength> message{};

    // Drivers that it is inside of.
    std::size_t depth = 0;
    std::uint64_t deliveredOutside = 0;
    std::array<Delivery, s_deepest> deliveries{};

    std::string_view fields() const { return fieldsOf(message.data(), static_cast<int>(messageLength)); }
    std::string_view queueName() const { return {queue.data(), queueLength}; }
    /// Whether it receives from that one. Asked for each message: no call for names of 8 to 16 bytes.
    bool isFrom(const std::string& name) const {
        if (name.size() != queueLength)
            return false;
        constexpr std::size_t word = sizeof(std::uint64_t);
        if (queueLength < word || queueLength > 2 * word)
            return std::memcmp(queue.data(), name.data(), queueLength) == 0;
        const auto differ = [&](std::size_t at) {
            std::uint64_t own = 0;
            std::uint64_t other = 0;
            std::memcpy(&own, queue.data() + at, word);
            std::memcpy(&other, name.data() + at, word);
            return own ^ other;
        };
        return (differ(0) | differ(queueLength - word)) == 0;
    }
    std::string_view driverID() const { return queueName().substr(0, queueLength - s_outputEnd.size()); }
    /// That driver; null where it is too deep.
    Delivery* enter(const std::string& driverID, std::uint16_t from) {
        if (depth == 0)
            return &enterOutermost(driverID, from);
        ++depth;
        Delivery* const pDelivery = innermost();
        if (pDelivery)
            pDelivery->begin(driverID, from);
        return pDelivery;
    }
    Delivery& enterOutermost(const std::string& driverID, std::uint16_t from) {
        depth = 1;
        deliveredOutside = Observation::ofThread().delivered;
        deliveries.front().begin(driverID, from);
        return deliveries.front();
    }
    Delivery* innermost() { return depth == 0 || depth > s_deepest ? nullptr : &deliveries[depth - 1]; }
};

/// A FID with its sender, on its way into the stream.
struct FidTrail::Taken {
    void setFields(std::string_view fid, const FIDParameterList& parameters) {
        FidFields* const pMade = new (storage.data()) FidFields(fid);
        for (const auto& [name, value] : parameters)
            pMade->add(name, value);
        pFields = pMade;
    }

    stream::StreamWriter::Fid record;
    std::string_view senderID;
    std::string_view receiverID;
    bool isSpent = false;                ///< its sender has had its share: it is only counted
    const FidFields* pFields = nullptr;  ///< those that no message has
    // Not an optional one: its two kilobytes would be set to zero each time.
    alignas(FidFields) std::array<std::byte, sizeof(FidFields)> storage;
    static_assert(std::is_trivially_destructible_v<FidFields>);
};

constinit thread_local FidTrail::Trail FidTrail::t_trail{};
constinit thread_local const FidTrail::Asking* FidTrail::t_pAsking = nullptr;

FidTrail::Asking::Asking(EOrigin origin, std::string_view who)
    : m_pOuter(t_pAsking), m_origin(origin), m_who(who) {
    t_pAsking = this;
}

FidTrail::Asking::~Asking() {
    t_pAsking = m_pOuter;
}

FidTrail::Sending::Sending(FidTrail* pTrail, const std::string& fid, const FIDParameterList& parameters)
    : m_pTrail(pTrail), m_pOuter(t_trail.pSending), m_fid(fid), m_parameters(parameters) {
    if (!m_pTrail)
        return;
    m_senderID = sal::Module::caller();
    if (!m_senderID.empty())
        // What the panel driver sends by itself are the steps of a macro.
        m_origin = m_senderID == s_panel ? EOrigin::Macro : EOrigin::Driver;
    else if (t_pAsking)
        m_origin = t_pAsking->m_origin;
    t_trail.pSending = this;
}

FidTrail::Sending::~Sending() {
    if (!m_pTrail)
        return;
    t_trail.pSending = m_pOuter;
    if (!m_isPending)
        return;
    Taken taken;
    m_pTrail->takeSending(*this, taken);
    m_pTrail->reachesNobody(taken, m_fid, &m_parameters);
}

/// When a message comes or a FID is sent: a look at the clock, but within a flood for every so many only.
Observation::Clock::time_point FidTrail::clock(Trail& trail) const {
    const std::uint32_t tick = m_observation.ticks();
    if (trail.left > 0 && trail.tick == tick) {
        --trail.left;
        // The store has had a look for what was delivered right before.
        return std::max(trail.looked, Observation::ofThread().clock);
    }
    const auto now = Observation::Clock::now();
    const auto messages = trail.isFlood ? s_flood : 1;
    trail.isFlood =
        trail.looked != Observation::Clock::time_point() && now - trail.looked < s_floodPace * messages;
    trail.left = trail.isFlood ? s_flood - 1 : 0;
    trail.looked = now;
    trail.tick = tick;
    return now;
}

void FidTrail::takeSending(Sending& sending, Taken& taken) {
    sending.m_isPending = false;
    taken.senderID = sending.m_senderID;
    taken.record.sender = m_observation.number(sending.m_senderID);
    taken.record.origin = sending.m_origin;
    if (sending.m_senderID.empty() && t_pAsking)
        taken.record.who = t_pAsking->m_who;
    taken.isSpent = m_observation.isSpent(taken.record.sender);
    if (taken.isSpent)
        return m_observation.addRefused(taken.record.sender, 1);
    taken.setFields(sending.m_fid, sending.m_parameters);
}

void FidTrail::takeMessage(Trail& trail, Taken& taken) {
    trail.hasMessage = false;
    taken.isSpent = trail.isSpent;
    taken.record.sender = trail.sender;
    if (taken.isSpent)
        return passOver(trail);
    taken.senderID = trail.driverID();
    taken.record.origin = EOrigin::Driver;
    taken.record.fields = trail.fields();
}

/// The FID that this thread was about to send; false where it was about to send none of that name.
bool FidTrail::take(Trail& trail, std::string_view driverID, std::string_view function, Taken& taken) {
    Sending* const pSending = trail.pSending;
    if (pSending && pSending->m_isPending) {
        if (pSending->m_pTrail != this || !isFid(pSending->m_fid, driverID, function))
            return false;
        takeSending(*pSending, taken);
        return true;
    }
    if (!trail.hasMessage || trail.serial != m_observation.serial() ||
        !(trail.isSpent ? trail.depth == 0 : isFid(firstText(trail.fields()), driverID, function)))
        return false;
    takeMessage(trail, taken);
    return true;
}

/// What its sender has set before is in the stream before it.
std::uint64_t FidTrail::write(Taken& taken, Observation::Clock::time_point when) {
    if (std::exchange(Observation::ofThread().hasHeldBack, false))
        m_recordHeldBack(std::string(taken.senderID));
    if (taken.pFields)
        taken.record.fields = taken.pFields->bytes();
    const SecretNames& secrets = m_observation.secrets();
    if (secrets.empty())
        return m_observation.stream().fid(m_observation.at(when), taken.record);
    std::string fid(firstText(taken.record.fields));
    if (fid.find('.') == std::string::npos)
        fid = std::string(taken.receiverID) + '.' + fid;
    const FidFields masked = FidFields::masked(
        taken.record.fields, [&](std::string_view parameter) { return secrets.has(fid, parameter); });
    taken.record.fields = masked.bytes();
    return m_observation.stream().fid(m_observation.at(when), taken.record);
}

void FidTrail::reachesNobody(Taken& taken, const std::string& fid, const FIDParameterList* pParameters) {
    if (taken.isSpent)
        return;
    taken.record.outcome = m_whyNobody(fid, pParameters);
    write(taken, Observation::Clock::now());
}

void FidTrail::fidBegins(const std::string& driverID, const std::string& function,
                         const FIDParameterList& parameters) {
    Trail& trail = t_trail;
    if (passesOver(trail)) {
        trail.enterOutermost(driverID, trail.sender);
        return passOver(trail);
    }
    recordBegin(trail, driverID, function, parameters);
}

void FidTrail::recordBegin(Trail& trail, const std::string& driverID, const std::string& function,
                           const FIDParameterList& parameters) {
    Taken taken;
    if (!take(trail, driverID, function, taken)) {
        // One that a driver has sent to another without the host.
        if (const Delivery* const pOuter = trail.innermost()) {
            taken.record.sender = m_observation.number(*pOuter->pDriverID);
            taken.senderID = *pOuter->pDriverID;
        }
        taken.setFields(driverID + '.' + function, parameters);
    }
    Delivery* const pDelivery = trail.enter(driverID, taken.record.sender);
    if (taken.isSpent)
        return;
    const auto when = clock(trail);
    taken.record.receiver = m_observation.number(driverID);
    taken.receiverID = driverID;
    taken.record.outcome = EFidOutcome::Begins;
    const std::uint64_t record = write(taken, when);
    if (pDelivery) {
        pDelivery->record = record;
        pDelivery->isTimed = !trail.isFlood;
        pDelivery->began = when;
    }
}

void FidTrail::fidEnded(bool ok, const char* exception) {
    Trail& trail = t_trail;
    if (trail.depth == 0)
        return;
    // What the driver has set meanwhile is not of the queue that this thread receives from.
    if (--trail.depth == 0)
        Observation::ofThread().delivered = trail.deliveredOutside;
    if (trail.depth < Trail::s_deepest && !(ok && !exception && !trail.deliveries[trail.depth].isTimed))
        recordEnd(ok, exception);
}

void FidTrail::recordEnd(bool ok, const char* exception) {
    const Delivery& delivery = t_trail.deliveries[t_trail.depth];
    const auto now = Observation::Clock::now();
    // Of one that is not recorded it is not known.
    const auto took = delivery.record == 0 ? Observation::Clock::duration::zero() : now - delivery.began;
    EFidOutcome outcome = EFidOutcome::Refused;
    std::string_view text(delivery.unknown.data(), delivery.unknownLength);
    if (exception) {
        outcome = EFidOutcome::Threw;
        text = exception;
    } else if (ok) {
        if (took <= s_late)
            return;
        outcome = EFidOutcome::Late;
        text = {};
    } else if (!text.empty()) {
        outcome = EFidOutcome::UnknownFunction;
    }
    m_observation.stream().fidEnd(m_observation.at(now), delivery.sender,
                                  m_observation.number(*delivery.pDriverID), delivery.record, outcome,
                                  std::chrono::duration_cast<std::chrono::nanoseconds>(took), text);
}

void FidTrail::logged(const std::string& output, const std::string& text) {
    Delivery* const pDelivery = t_trail.innermost();
    if (pDelivery && output == *pDelivery->pDriverID && text.starts_with(s_unknown))
        pDelivery->unknownLength = text.copy(pDelivery->unknown.data(), pDelivery->unknown.size());
}

void FidTrail::sent(const std::string& queue, const unsigned char* data, int length, bool ok) {
    Trail& trail = t_trail;
    if (passesOver(trail) && hasCode(data, length, protocol::sendFID) && queue.ends_with(s_inputEnd))
        return passOver(trail);
    recordSent(trail, queue, data, length, ok);
}

void FidTrail::recordSent(Trail& trail, const std::string& queue, const unsigned char* data, int length,
                          bool ok) {
    if (!queue.ends_with(s_inputEnd))
        return;
    const std::string_view driverID = std::string_view(queue).substr(0, queue.size() - s_inputEnd.size());
    if (!hasCode(data, length, protocol::sendFID)) {
        const std::string_view operation = configurationCall(data, length);
        if (!operation.empty())
            m_observation.configured(std::string(driverID), operation, ok, {});
        return;
    }
    const std::string_view message = fieldsOf(data, length);
    Taken taken;
    if (!take(trail, driverID, firstText(message), taken)) {
        if (const Delivery* const pOuter = trail.innermost())
            taken.record.sender = m_observation.number(*pOuter->pDriverID);
        taken.record.fields = message;
    }
    if (taken.isSpent)
        return;
    taken.record.receiver = m_observation.number(driverID);
    taken.receiverID = driverID;
    taken.record.outcome = ok ? EFidOutcome::Written : EFidOutcome::NotRunning;
    write(taken, clock(trail));
}

void FidTrail::received(const std::string& queue, const unsigned char* data, int length) {
    Trail& trail = t_trail;
    // The next FID of a flood that is only counted; the share is looked at once a tick.
    if (trail.isSpent && !trail.hasMessage && trail.serial == m_observation.serial() &&
        trail.spentTick == m_observation.ticks() && trail.isFrom(queue) &&
        hasCode(data, length, protocol::dispatchFID)) {
        trail.hasMessage = true;
        return;
    }
    takeReceived(trail, queue, data, length);
}

void FidTrail::takeReceived(Trail& trail, const std::string& queue, const unsigned char* data, int length) {
    if (trail.serial != m_observation.serial() || !trail.isFrom(queue)) {
        beginReceiving(trail, queue);
        if (trail.serial != m_observation.serial())
            return;
    }
    if (trail.hasMessage)
        endPending(trail);
    const std::uint32_t now = m_observation.ticks();
    if (trail.settledTick != now) {
        settle(trail);
        trail.settledTick = now;
    }
    if (hasCode(data, length, protocol::dispatchFID)) {
        trail.hasMessage = true;
        trail.isSpent = (trail.isSpent && trail.spentTick == now) || m_observation.isSpent(trail.sender);
        trail.spentTick = now;
        if (trail.isSpent)
            return;
        trail.messageLength = std::min<std::size_t>(static_cast<std::size_t>(length), trail.message.size());
        std::memcpy(trail.message.data(), data, trail.messageLength);
    } else if (!hasCode(data, length, protocol::executeCommand)) {
        ++trail.reports;
    }
}

void FidTrail::waits(const std::string& queue) {
    Trail& trail = t_trail;
    if (trail.serial != m_observation.serial() || !trail.isFrom(queue))
        return;
    if (trail.hasMessage)
        endPending(trail);
    settle(trail);
    tellRefused(trail);
    trail.left = 0;
    trail.isFlood = false;
    trail.looked = {};
}

void FidTrail::beginReceiving(Trail& trail, const std::string& queue) {
    if (trail.serial == m_observation.serial()) {
        settle(trail);
        tellRefused(trail);
    }
    trail.serial = 0;
    trail.hasMessage = false;
    trail.isSpent = false;
    if (!queue.ends_with(s_outputEnd) || queue.size() > trail.queue.size())
        return;
    trail.serial = m_observation.serial();
    trail.queueLength = queue.copy(trail.queue.data(), trail.queue.size());
    trail.sender = m_observation.number(trail.driverID());
    trail.reports = 0;
    trail.refused = 0;
    trail.deliveredBefore = Observation::ofThread().delivered;
}

/// All that was held back has been delivered.
void FidTrail::settle(Trail& trail) {
    const std::uint64_t delivered = Observation::ofThread().delivered;
    if (trail.reports > 0 || delivered != trail.deliveredBefore)
        m_observation.addReports(trail.sender, trail.reports, delivered - trail.deliveredBefore);
    trail.reports = 0;
    trail.deliveredBefore = delivered;
}

void FidTrail::endPending(Trail& trail) {
    Taken taken;
    takeMessage(trail, taken);
    if (!taken.isSpent)
        reachesNobody(taken, std::string(firstText(taken.record.fields)), nullptr);
}

/// Whether what happens now is the delivery of a message whose FID is only counted.
bool FidTrail::passesOver(const Trail& trail) const {
    return trail.isSpent && trail.hasMessage && trail.depth == 0 &&
           !(trail.pSending && trail.pSending->m_isPending) && trail.serial == m_observation.serial();
}

/// The message's FID: it is only counted.
void FidTrail::passOver(Trail& trail) {
    trail.hasMessage = false;
    if (++trail.refused == s_refusedTogether)
        tellRefused(trail);
}

void FidTrail::tellRefused(Trail& trail) {
    if (trail.refused > 0)
        m_observation.addRefused(trail.sender, std::exchange(trail.refused, 0));
}

std::string_view FidTrail::driverOfThread() {
    return t_trail.serial != 0 ? t_trail.driverID() : std::string_view();
}
