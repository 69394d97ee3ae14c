#include "Observation.h"

#include <time.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

using std::chrono::duration_cast;
using std::chrono::nanoseconds;

std::atomic<std::uint64_t> s_serials{0};

/// The numbers that a thread has asked for.
struct CachedNumber {
    std::uint64_t serial = 0;  ///< of whom; 0 for none
    std::uint16_t number = 0;
    std::uint8_t length = 0;
    std::array<char, 48> text{};
};
constexpr std::size_t s_cached = 16;
[[gnu::tls_model("initial-exec")]] constinit thread_local std::array<CachedNumber, s_cached> t_numbers{};

std::size_t placeOf(std::string_view text) {
    return (text.size() + 7u * static_cast<unsigned char>(text.front()) +
            static_cast<unsigned char>(text.back())) %
           s_cached;
}

constexpr std::size_t s_longestAnswer = 1024;
constexpr std::size_t s_mostIncidents = 100;

nanoseconds offsetOf(Observation::Time now, Observation::Clock::time_point moment) {
    return now.time_since_epoch() - duration_cast<nanoseconds>(moment.time_since_epoch());
}

}  // namespace

constinit thread_local Observation::ThreadPart Observation::t_thread{};

Observation::Observation(stream::StreamRing& ring, SecretNames secrets)
    : m_ring(ring),
      m_secrets(std::move(secrets)),
      m_keys(ring),
      m_writer(ring, m_keys),
      m_serial(++s_serials),
      m_offset(offsetOf(now(), Clock::now()).count()),
      m_tick(now().time_since_epoch().count()),
      m_pFlows(std::make_unique<Flow[]>(stream::StreamRing::s_drivers)) {}

Observation::Time Observation::now() {
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    return Time(std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec));
}

std::uint16_t Observation::number(std::string_view driverID) {
    if (driverID.empty())
        return 0;
    if (driverID.size() > t_numbers.front().text.size())
        return m_keys.driver(driverID, now());
    CachedNumber& cached = t_numbers[placeOf(driverID)];
    if (cached.serial == m_serial && std::string_view(cached.text.data(), cached.length) == driverID)
        return cached.number;
    const std::uint16_t number = m_keys.driver(driverID, now());
    cached.serial = m_serial;
    cached.number = number;
    cached.length = static_cast<std::uint8_t>(driverID.size());
    driverID.copy(cached.text.data(), cached.text.size());
    return number;
}

void Observation::started(const std::string& driverID, int process, std::string_view text) {
    m_writer.start(now(), number(driverID), static_cast<std::uint32_t>(process), text);
}

void Observation::exited(const std::string& driverID, int status, const std::string& cause, bool isIncident) {
    const Time when = now();
    m_writer.exit(when, number(driverID), static_cast<std::uint32_t>(status), cause);
    if (isIncident)
        note(driverID, cause, when);
}

void Observation::hangs(const std::string& driverID, const std::string& cause) {
    const Time when = now();
    m_writer.hang(when, number(driverID), cause);
    note(driverID, cause, when);
}

void Observation::restart(const std::string& driverID, std::string_view text) {
    m_writer.restart(now(), number(driverID), text);
}

void Observation::configured(const std::string& driverID, std::string_view operation, bool ok,
                             nanoseconds took) {
    m_writer.configuration(now(), number(driverID), ok, took, operation);
}

Observation::Command::Command(Observation* pObservation, const Asker& asker, std::string_view line)
    : m_pObservation(pObservation),
      m_driver(pObservation ? pObservation->number(asker.driverID) : std::uint16_t{0}),
      m_began(Clock::now()) {
    if (m_pObservation)
        m_number = m_pObservation->m_writer.command(now(), m_driver, asker.origin, asker.who,
                                                    m_pObservation->m_secrets.inCommand(std::string(line)));
}

Observation::Command::~Command() {
    if (m_pObservation)
        m_pObservation->m_writer.commandEnd(now(), m_driver, m_number, m_isOk,
                                            duration_cast<nanoseconds>(Clock::now() - m_began), m_answer);
}

void Observation::Command::setResult(bool ok, std::string answer) {
    m_isOk = ok;
    m_answer = std::move(answer);
    std::string room;
    if (m_pObservation)
        m_answer = m_pObservation->m_secrets.inLine(m_answer, room);
    if (m_answer.size() > s_longestAnswer)
        m_answer.resize(s_longestAnswer);
}

void Observation::hostLine(std::string_view output, int level, std::string_view text) {
    std::uint16_t driver = m_keys.known(output);
    if (const auto end = text.find(':'); driver == 0 && end != std::string_view::npos)
        driver = m_keys.known(text.substr(0, end));
    std::string room;
    m_writer.log(now(), driver, static_cast<std::uint32_t>(level), output, m_secrets.inLine(text, room));
}

void Observation::driverLine(const std::string& driverID, std::string_view output, int level,
                             std::string_view text) {
    std::string room;
    m_writer.log(now(), number(driverID), static_cast<std::uint32_t>(level), output,
                 m_secrets.inLine(text, room));
}

void Observation::bareLine(const std::string& driverID, std::string_view text) {
    std::string room;
    m_writer.output(now(), number(driverID), m_secrets.inLine(text, room));
}

void Observation::note(const std::string& driverID, const std::string& cause, Time when) {
    const std::lock_guard lock(m_mutex);
    if (m_incidents.size() < s_mostIncidents)
        m_incidents.push_back({driverID, cause, when});
}

std::vector<Observation::Incident> Observation::takeIncidents() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_incidents, {});
}

Observation::Reports Observation::reports(const std::string& driverID) {
    const Flow& flow = m_pFlows[m_keys.known(driverID)];
    return {flow.received.load(std::memory_order_relaxed), flow.delivered.load(std::memory_order_relaxed)};
}

void Observation::addReports(std::uint16_t driver, std::uint64_t received, std::uint64_t delivered) {
    Flow& flow = m_pFlows[driver];
    // Of a driver one thread receives.
    const auto add = [](std::atomic<std::uint64_t>& count, std::uint64_t more) {
        count.store(count.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
    };
    add(flow.received, received);
    add(flow.delivered, delivered);
}

void Observation::tick(Time now, Clock::time_point moment) {
    m_offset.store(offsetOf(now, moment).count(), std::memory_order_relaxed);
    m_tick.store(now.time_since_epoch().count(), std::memory_order_relaxed);
    m_ticks.fetch_add(1, std::memory_order_relaxed);
    m_writer.tick(now);
    // The clock may be set back.
    if (now >= m_reportsSaid && now - m_reportsSaid < std::chrono::seconds(1))
        return;
    m_reportsSaid = now;
    sayReports(now);
}

void Observation::sayReports(Time now) {
    for (std::uint16_t driver = 1; driver < m_keys.drivers(); ++driver) {
        Flow& flow = m_pFlows[driver];
        const Reports all{flow.received.load(std::memory_order_relaxed),
                          flow.delivered.load(std::memory_order_relaxed)};
        const std::uint64_t received = all.received - flow.said.received;
        const std::uint64_t delivered = all.delivered - flow.said.delivered;
        if (received == 0 && delivered == 0)
            continue;
        flow.said = all;
        m_writer.merged(now, driver, received, received - std::min(received, delivered), delivered);
    }
}
