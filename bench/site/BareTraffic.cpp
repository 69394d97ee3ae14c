#include "BareTraffic.h"

#include <ctime>
#include <utility>

#include "BareClient.h"
#include "Delays.h"
#include "SteadyTime.h"
#include "ThreadName.h"

namespace {

constexpr const char* s_state = "bare/state/A/V";
constexpr const char* s_request = "bare/fid/A/SET";
constexpr const char* s_reply = "bare/reply/A";
constexpr std::int64_t s_period = 20'000'000;  ///< from a state to the next request and so on
/// An answer that takes longer is none.
constexpr std::int64_t s_patience = 5'000'000'000;

std::int64_t threadCpu() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

}  // namespace

BareTraffic::BareTraffic(int port, const Sizes& sizes)
    : m_port(port),
      m_sizes(sizes),
      m_answerer(&BareTraffic::answer, this),
      m_reader(&BareTraffic::read, this),
      m_asker(&BareTraffic::ask, this) {}

void BareTraffic::answer() {
    base::nameThread("bare", "answer");
    BareClient* pSelf = nullptr;
    BareClient client(s_answerer, s_password, m_port, [&](const BareClient::Message& message) {
        ++m_messages;
        if (message.topic == s_state) {
            m_publishes.push_back(Delays::kept(steadyNanoseconds() - m_published));
            return;
        }
        ++m_messages;
        pSelf->publish({message.responseTopic, std::string(m_sizes.answer, 'a'), {}, message.correlation},
                       false);
    });
    pSelf = &client;
    client.subscribe(s_state);
    client.subscribe(s_request);
    m_isAnswering = true;
    while (!m_isStopping && client.loop(50))
        m_answererCpu = threadCpu();
    m_answererCpu = threadCpu();
}

void BareTraffic::read() {
    base::nameThread("bare", "read");
    BareClient client(s_reader, s_password, m_port, [&](const BareClient::Message&) {
        ++m_messages;
        m_reads.push_back(Delays::kept(steadyNanoseconds() - m_published));
    });
    client.subscribe(s_state);
    m_isReading = true;
    while (!m_isStopping && client.loop(50))
        m_readerCpu = threadCpu();
    m_readerCpu = threadCpu();
}

void BareTraffic::ask() {
    base::nameThread("bare", "ask");
    bool isAnswered = false;
    BareClient client(s_asker, s_password, m_port, [&](const BareClient::Message&) { isAnswered = true; });
    client.subscribe(s_reply);
    const std::string state(m_sizes.state, 's');
    const std::string request(m_sizes.request, 'r');
    std::int64_t next = steadyNanoseconds();
    const auto waitUntilDue = [&] {
        next += s_period;
        for (std::int64_t now = 0; !m_isStopping && (now = steadyNanoseconds()) < next;)
            client.loop(static_cast<int>((next - now) / 1'000'000 + 1));
    };
    while (!m_isStopping) {
        waitUntilDue();
        if (!m_isAnswering || !m_isReading)
            continue;
        m_published = steadyNanoseconds();
        client.publish({s_state, state, {}, {}}, true);
        waitUntilDue();
        isAnswered = false;
        const std::int64_t begin = steadyNanoseconds();
        client.publish({s_request, request, s_reply, "17"}, false);
        while (!isAnswered && !m_isStopping && steadyNanoseconds() - begin < s_patience && client.loop(50)) {
        }
        if (isAnswered)
            m_result.trips.push_back(Delays::kept(steadyNanoseconds() - begin));
        m_messages += 3;
        m_askerCpu = threadCpu();
    }
}

BareTraffic::Result BareTraffic::stop() {
    if (!m_asker.joinable())
        return {};
    m_isStopping = true;
    m_asker.join();
    m_answerer.join();
    m_reader.join();
    m_result.cpu = cpu();
    m_result.publishes = std::move(m_publishes);
    m_result.publishes.insert(m_result.publishes.end(), m_reads.begin(), m_reads.end());
    m_result.messages = m_messages;
    return std::move(m_result);
}
