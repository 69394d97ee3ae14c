#include "FidWatch.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "FIDHelper.h"
#include "MessageCodes.h"
#include "MessageReader.h"
#include "Nearest.h"
#include "Printable.h"
#include "QueueNames.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Its number is one byte.
constexpr std::size_t s_mostParameters = 255;

/// Numbers of messages begin again at 2^24; a message that is this far back was passed.
constexpr std::uint32_t s_numberMask = (1U << 24) - 1;
constexpr std::uint32_t s_halfTheNumbers = 1U << 23;

/// A text as it comes back from a message: its length is one byte, and it ends at its first zero byte.
std::string asInMessage(const std::string& text) {
    const std::string cut = text.substr(0, text.size() % (protocol::maximumText + 1));
    return cut.substr(0, cut.find('\0'));
}

/// As the driver kit writes it: unknown FID "MOEV"; known are MOVE, STOP.
constexpr std::string_view s_unknown = "unknown FID \"";
constexpr std::string_view s_knownAre = "; known are ";
/// Likewise, after the function: MOVE ignored, x="a" is not a number; MOVE failed, the axis does not answer.
constexpr std::string_view s_ignored = " ignored, ";
constexpr std::string_view s_failed = " failed, ";

std::vector<std::string> knownFunctions(const std::string& unknown) {
    std::vector<std::string> known;
    const auto list = unknown.rfind(s_knownAre);
    if (list == std::string::npos)
        return known;
    for (auto begin = list + s_knownAre.size(); begin < unknown.size();) {
        const auto end = std::min(unknown.find(", ", begin), unknown.size());
        known.push_back(unknown.substr(begin, end - begin));
        begin = end + 2;
    }
    return known;
}

bool isToCome(EDriverState state) {
    return state == EDriverState::Waiting || state == EDriverState::Due;
}

bool hasEnded(EDriverState state) {
    return isToCome(state) || state == EDriverState::Ended;
}

/// Why a driver that does not run does not.
std::string whyNotRunning(const DriverTable::Driver& driver) {
    if (!hasEnded(driver.state))
        return driver.id + " is " + inWords(driver.state);
    return driver.id + " has ended" + (driver.cause.empty() ? "" : " (" + driver.cause + ")") +
           (isToCome(driver.state) ? " and is to be started again" : "");
}

void setNobody(FidOutcome& outcome, EFidReason reason, std::string text) {
    outcome.stage = EFidStage::Nobody;
    outcome.reason = reason;
    outcome.text = std::move(text);
    outcome.isFinal = true;
}

}  // namespace

constinit thread_local FidWatch* FidWatch::t_pInnermost = nullptr;

std::optional<sal::MessageQueue::Level> FidWatch::Place::level() const {
    auto level = sal::MessageQueue::level(queue);
    if (level && level->made != made)
        level.reset();
    return level;
}

bool FidWatch::Place::isTaken(const sal::MessageQueue::Level& level) const {
    return ((level.received - number) & s_numberMask) < s_halfTheNumbers;
}

FidWatch::FidWatch(const DriverTable& drivers, const std::string& fid, const FIDParameterList& parameters)
    : m_drivers(drivers),
      m_fid(fid),
      m_parameters(parameters),
      m_driverID(FIDHelper(fid).getDriverID()),
      m_function(FIDHelper(fid).getFunction()),
      m_inputQueue(protocol::inputQueue(m_driverID)),
      m_pOuter(t_pInnermost) {
    t_pInnermost = this;
}

FidWatch::~FidWatch() {
    t_pInnermost = m_pOuter;
}

std::string FidWatch::whyTooLong(const std::string& fid, const FIDParameterList& parameters) {
    const auto most = [](std::size_t size, std::size_t limit) {
        return " has " + std::to_string(size) + " bytes; a message takes " + std::to_string(limit);
    };
    const std::string function = FIDHelper(fid).getFunction();
    if (function.size() > protocol::maximumText)
        return "its function" + most(function.size(), protocol::maximumText);
    // A byte counts the texts' bytes, and one the pairs.
    std::size_t total = protocol::codeLength + 1 + function.size() + 1;
    for (const auto& [name, value] : parameters) {
        if (name.size() > protocol::maximumText)
            return "the name of a parameter" + most(name.size(), protocol::maximumText);
        if (value.size() > protocol::maximumText)
            return "its parameter " + base::quoted(name) + most(value.size(), protocol::maximumText);
        total += 1 + name.size() + 1 + value.size();
    }
    if (total > protocol::maximumLength)
        return "it" + most(total, protocol::maximumLength);
    if (parameters.size() > s_mostParameters)
        return "it has " + std::to_string(parameters.size()) + " parameters; a message takes " +
               std::to_string(s_mostParameters);
    return {};
}

/// A macro that the panel plays on this thread comes before the FID itself, so the last one counts.
void FidWatch::fidBegins(const std::string& driverID, const std::string& function) {
    if (m_depth++ > 0)
        return;
    m_isInside = driverID == m_driverID && function == m_function;
    m_unknown.clear();
    m_whyRefused.clear();
}

void FidWatch::fidEnded(bool ok, const char* exception) {
    if (m_depth == 0 || --m_depth > 0 || !std::exchange(m_isInside, false))
        return;
    m_way = EWay::Called;
    m_isOk = ok;
    m_exception = exception ? exception : "";
    m_place.reset();
}

void FidWatch::sent(const std::string& queue, std::uint32_t number, const unsigned char* data, int length,
                    bool ok) {
    if (m_depth > 0 || queue != m_inputQueue || length < 0)
        return;
    protocol::MessageReader message(data, static_cast<std::size_t>(length));
    if (!message.hasCode(protocol::sendFID) || message.string() != asInMessage(m_function))
        return;
    m_way = ok ? EWay::Written : EWay::NotWritten;
    m_place.reset();
    const auto level = sal::MessageQueue::level(queue);
    if (ok && level)
        m_place = {queue, level->made, number};
}

void FidWatch::logged(const std::string& output, const std::string& text) {
    if (m_depth != 1 || !m_isInside || output != m_driverID)
        return;
    if (text.starts_with(s_unknown))
        m_unknown = text;
    for (const std::string_view word : {s_ignored, s_failed}) {
        if (text.starts_with(m_function) && text.find(word) == m_function.size())
            m_whyRefused = text.substr(m_function.size() + word.size());
    }
}

FidOutcome FidWatch::outcome() const {
    FidOutcome outcome;
    outcome.driverID = m_driverID;
    switch (m_way) {
        case EWay::Called:
            describeCall(outcome);
            break;
        case EWay::Written:
        case EWay::NotWritten:
            describeQueue(outcome);
            break;
        case EWay::None:
            describeNobody(outcome);
            break;
    }
    outcome.took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_began);
    return outcome;
}

void FidWatch::describeCall(FidOutcome& outcome) const {
    outcome.stage = EFidStage::Delivered;
    outcome.isFinal = true;
    outcome.result = m_isOk;
    if (!m_exception.empty()) {
        outcome.reason = EFidReason::Threw;
        outcome.text = "an exception left " + m_driverID + ": " + m_exception;
    } else if (!m_isOk && !m_unknown.empty()) {
        outcome.reason = EFidReason::UnknownFunction;
        outcome.text = m_unknown;
        outcome.nearest = base::nearest(m_function, knownFunctions(m_unknown));
    } else if (!m_isOk) {
        outcome.reason = EFidReason::Refused;
        outcome.text = m_driverID + " has refused it" + (m_whyRefused.empty() ? "" : ": " + m_whyRefused);
    }
}

void FidWatch::describeQueue(FidOutcome& outcome) const {
    const auto driver = m_drivers.find(m_driverID);
    // Its queue goes when the driver is started again. A process that is started by hand finds it.
    const bool isOver =
        driver && !driver->isByHand && (hasEnded(driver->state) || driver->state == EDriverState::Parked);
    // The process may have ended by what it was sent.
    const auto level = isOver && m_place ? m_place->level() : std::nullopt;
    if (isOver && !(level && m_place->isTaken(*level)))
        return setNobody(outcome, EFidReason::NotRunning, whyNotRunning(*driver));
    if (m_way == EWay::NotWritten)
        return setNobody(outcome, EFidReason::NotRunning,
                         m_driverID + " takes no messages any more: its input queue has refused this one");
    outcome.stage = EFidStage::Written;
    outcome.text = whyTooLong(m_fid, m_parameters);
    if (!outcome.text.empty())
        outcome.reason = EFidReason::TooLong;
}

void FidWatch::describeNobody(FidOutcome& outcome) const {
    if (!FIDHelper(m_fid).hasFunction())
        return setNobody(outcome, EFidReason::NoSuchDriver,
                         base::quoted(m_fid) + " names no function of a driver, as DRIVER.FUNCTION does");
    const auto driver = m_drivers.find(m_driverID);
    if (!driver) {
        std::vector<std::string> known;
        for (const DriverTable::Driver& other : m_drivers.drivers())
            known.push_back(other.id);
        outcome.nearest = base::nearest(m_driverID, known);
        return setNobody(outcome, EFidReason::NoSuchDriver, "there is no driver " + m_driverID);
    }
    if (driver->state != EDriverState::Running && driver->state != EDriverState::Hung)
        return setNobody(outcome, EFidReason::NotRunning, whyNotRunning(*driver));
    setNobody(outcome, EFidReason::TakesNoFids, m_driverID + " takes no FIDs");
}
