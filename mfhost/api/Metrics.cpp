#include "Metrics.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "MetricsText.h"
#include "PanelNames.h"
#include "QueueNames.h"

namespace {

using Clock = ApiContext::Clock;
using Family = MetricsText::Family;

// docs/metrics.md has the same lines.
constexpr Family s_buildInfo{"mf_build_info", "gauge", "1, with the version of the host."};
constexpr Family s_hostStart{"mf_host_start_time_seconds", "gauge",
                             "When the host was started, in seconds since 1970."};
constexpr Family s_command{"mf_command_seconds", "gauge",
                           "How long the host has been at its present command or start; 0 while it waits."};
constexpr Family s_alarms{"mf_alarms", "gauge", "Alarms in sight."};
constexpr Family s_up{"mf_driver_up", "gauge",
                      "1 for a driver that runs, 0 for one that does not or hangs; none for a parked one."};
constexpr Family s_state{"mf_driver_state", "gauge", "1, with the state that the driver is in."};
constexpr Family s_driverStart{"mf_driver_start_time_seconds", "gauge",
                               "When a driver that runs was started, in seconds since 1970."};
constexpr Family s_nextTry{"mf_driver_next_try_seconds", "gauge",
                           "How long until a driver that has ended is started again."};
constexpr Family s_restarts{"mf_driver_restarts_total", "counter",
                            "Starts of a driver process by the host itself, by the end before."};
constexpr Family s_hangs{"mf_driver_hangs_total", "counter",
                         "How often a driver process was found hung or out of reach."};
constexpr Family s_call{"mf_driver_call_seconds", "gauge",
                        "Age of the oldest call that a driver in the host's process has not come back from."};
constexpr Family s_depth{"mf_queue_depth", "gauge", "Messages that wait in the queue of a driver process."};
constexpr Family s_capacity{"mf_queue_capacity", "gauge", "Messages that the queue has room for."};
constexpr Family s_highWater{"mf_queue_high_water", "gauge",
                             "Most messages that were ever in the queue at once."};
constexpr Family s_messages{"mf_queue_messages_total", "counter", "Messages written to the queue."};
constexpr Family s_bytes{"mf_queue_bytes_total", "counter", "Bytes of these messages."};
constexpr Family s_waits{"mf_queue_waits_total", "counter", "How often a sender has found the queue full."};
constexpr Family s_waiting{"mf_queue_waiting_seconds", "gauge",
                           "How long a sender of the host has been waiting for room; 0 for none."};
constexpr Family s_fids{"mf_fids_total", "counter",
                        "FIDs sent by the API and by commands, by what became of them."};
constexpr Family s_delivery{"mf_delivery_seconds", "histogram",
                            "How long messages stand in the queue of a driver process, from samples."};
constexpr Family s_received{"mf_updates_received_total", "counter",
                            "Values and events that the driver has reported."};
constexpr Family s_merged{"mf_updates_merged_total", "counter",
                          "Those of them that were merged with later ones before they were delivered."};
constexpr Family s_lapped{"mf_stream_lapped_total", "counter",
                          "Records of the stream that were overwritten before the reader came to them."};
constexpr Family s_updates{"mf_updates_delivered_total", "counter",
                           "Values and events named after the driver that have reached the panel's state."};
constexpr Family s_values{"mf_values", "gauge", "Values of the driver in the panel's state."};
constexpr Family s_stale{"mf_values_stale", "gauge", "Those of them that hold no longer."};
constexpr Family s_lost{"mf_values_lost_total", "counter",
                        "New values that there was no room for, since the driver's last start."};
constexpr Family s_connections{"mf_api_connections", "gauge", "Connections of clients of the API."};
constexpr Family s_requests{"mf_api_requests_total", "counter",
                            "Requests to the API that were answered, by status."};

double seconds(std::chrono::duration<double> time) {
    return std::max(0.0, time.count());
}

double sinceEpoch(std::chrono::system_clock::time_point time) {
    return seconds(std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()));
}

/// Whether it is one that the host can run: nothing is said of entries of other kinds, nor of the panel
/// driver where none is announced.
bool isToRun(const DriverTable::Driver& driver) {
    if (driver.state == EDriverState::NotLoaded && driver.id == protocol::panelDriverID)
        return false;
    return driver.interfaceType == EInterfaceTypes::Direct || driver.interfaceType == EInterfaceTypes::Queue;
}

bool isParked(const DriverTable::Driver& driver) {
    return driver.state == EDriverState::Parking || driver.state == EDriverState::Parked;
}

}  // namespace

std::string Metrics::text() const {
    m_context.lookForEnds();
    Drivers drivers = m_context.drivers.drivers();
    std::erase_if(drivers, [](const auto& driver) { return !isToRun(driver); });
    MetricsText text;
    writeHost(text);
    writeDrivers(text, drivers);
    writeRestarts(text, drivers);
    writeCalls(text);
    writeQueues(text);
    writeDeliveries(text);
    writeFids(text);
    writeReports(text, drivers);
    writeValues(text, drivers);
    writeStream(text);
    writeApi(text);
    return text.take();
}

void Metrics::writeHost(MetricsText& text) const {
    text.begin(s_buildInfo);
    text.sample({{"version", m_context.instance.version}}, 1);
    text.begin(s_hostStart);
    text.sample({}, sinceEpoch(m_context.instance.started));
    text.begin(s_command);
    const CommandActivity activity = m_context.activity();
    text.sample({}, activity.busy ? seconds(m_context.now() - activity.since) : 0.0);
    text.begin(s_alarms);
    text.sample({}, m_context.alarms());
}

void Metrics::writeDrivers(MetricsText& text, const Drivers& drivers) const {
    text.begin(s_up);
    for (const DriverTable::Driver& driver : drivers) {
        if (!isParked(driver))
            text.sample({{"driver", driver.id}}, driver.state == EDriverState::Running ? 1 : 0);
    }
    text.begin(s_state);
    for (const DriverTable::Driver& driver : drivers)
        text.sample({{"driver", driver.id}, {"state", inWords(driver.state)}}, 1);
    text.begin(s_driverStart);
    for (const DriverTable::Driver& driver : drivers) {
        if (driver.state == EDriverState::Running)
            text.sample({{"driver", driver.id}}, sinceEpoch(driver.since));
    }
    text.begin(s_nextTry);
    for (const DriverTable::Driver& driver : drivers) {
        if (driver.nextTry)
            text.sample({{"driver", driver.id}}, seconds(*driver.nextTry - m_context.now()));
    }
}

/// The host starts and judges processes alone. Each count is there from its zero on: a reader sees the first
/// step as well.
void Metrics::writeRestarts(MetricsText& text, const Drivers& drivers) const {
    text.begin(s_restarts);
    for (const DriverTable::Driver& driver : drivers) {
        if (driver.interfaceType != EInterfaceTypes::Queue)
            continue;
        for (std::size_t end = 0; end < DriverTable::s_ends; ++end)
            text.sample({{"driver", driver.id}, {"cause", inWords(static_cast<DriverTable::EEnd>(end))}},
                        driver.restartsAfter.at(end));
    }
    text.begin(s_hangs);
    for (const DriverTable::Driver& driver : drivers) {
        if (driver.interfaceType == EInterfaceTypes::Queue)
            text.sample({{"driver", driver.id}}, driver.hangs);
    }
}

void Metrics::writeCalls(MetricsText& text) const {
    std::map<std::string, Clock::time_point> oldest;
    for (const DriverTable::Call& call : m_context.drivers.innermostCalls()) {
        const auto known = oldest.try_emplace(call.driverID, call.since).first;
        known->second = std::min(known->second, call.since);
    }
    text.begin(s_call);
    for (const auto& [driverID, since] : oldest)
        text.sample({{"driver", driverID}}, seconds(m_context.now() - since));
}

void Metrics::writeQueues(MetricsText& text) const {
    const auto queues = m_context.queues();
    const auto write = [&](const Family& family, auto value) {
        text.begin(family);
        for (const sal::MessageQueue::Status& queue : queues) {
            const std::string driverID = protocol::ownerOf(queue.name);
            const bool isInput = !protocol::receiverOf(queue.name).empty();
            if (!driverID.empty())
                text.sample({{"driver", driverID}, {"direction", isInput ? "in" : "out"}}, value(queue));
        }
    };
    write(s_depth, [](const auto& queue) { return queue.depth; });
    write(s_capacity, [](const auto& queue) { return queue.capacity; });
    write(s_highWater, [](const auto& queue) { return queue.highWater; });
    write(s_messages, [](const auto& queue) { return queue.messages; });
    write(s_bytes, [](const auto& queue) { return queue.bytes; });
    write(s_waits, [](const auto& queue) { return queue.waits; });
    write(s_waiting, [](const auto& queue) { return queue.waitingForMs / 1000.0; });
}

void Metrics::writeDeliveries(MetricsText& text) const {
    text.begin(s_delivery);
    for (const DeliveryTimes::Histogram& histogram : m_context.deliveries()) {
        const std::string driverID = protocol::ownerOf(histogram.queue);
        const bool isInput = !protocol::receiverOf(histogram.queue).empty();
        if (!driverID.empty())
            text.histogram({{"driver", driverID}, {"direction", isInput ? "in" : "out"}},
                           DeliveryTimes::s_bounds, histogram.counts, histogram.sum);
    }
}

/// What was merged on the way is known only where it is recorded.
void Metrics::writeReports(MetricsText& text, const Drivers& drivers) const {
    if (!m_context.pRecorded)
        return;
    std::map<std::string, ApiReports> all;
    for (ApiReports& reports : m_context.reports())
        all.emplace(reports.driverID, reports);
    text.begin(s_received);
    for (const DriverTable::Driver& driver : drivers)
        text.sample({{"driver", driver.id}}, all[driver.id].received);
    text.begin(s_merged);
    for (const DriverTable::Driver& driver : drivers)
        text.sample({{"driver", driver.id}}, all[driver.id].merged);
}

void Metrics::writeStream(MetricsText& text) const {
    using EReader = RecordedStream::EReader;
    text.begin(s_lapped);
    if (!m_context.pRecorded)
        return;
    for (const auto& [reader, pName] :
         {std::pair(EReader::Recorder, "recorder"), {EReader::Panel, "panel"}, {EReader::Client, "client"}})
        text.sample({{"reader", pName}}, m_context.pRecorded->lapped(reader));
}

void Metrics::writeFids(MetricsText& text) const {
    text.begin(s_fids);
    for (const FidCounts::Count& count : m_context.fids())
        text.sample({{"driver", count.driverID}, {"outcome", count.outcome}}, count.fids);
}

void Metrics::writeValues(MetricsText& text, const Drivers& drivers) const {
    std::map<std::string, StateStore::Count> counts;
    for (StateStore::Count& count : m_context.store.counts())
        counts.emplace(count.driverID, count);
    // Keys may be named after whatever a driver likes: only drivers count.
    const auto write = [&](const Family& family, auto value) {
        text.begin(family);
        for (const DriverTable::Driver& driver : drivers)
            text.sample({{"driver", driver.id}}, value(driver.id));
    };
    write(s_updates, [&](const std::string& driverID) { return counts[driverID].arrivals; });
    write(s_values, [&](const std::string& driverID) { return counts[driverID].values; });
    write(s_stale, [&](const std::string& driverID) { return counts[driverID].stale; });
    write(s_lost, [&](const std::string& driverID) { return counts[driverID].lost; });
}

void Metrics::writeApi(MetricsText& text) const {
    text.begin(s_connections);
    text.sample({}, m_context.sessions().size());
    text.begin(s_requests);
    for (const auto& [status, requests] : m_context.answers())
        text.sample({{"code", std::to_string(status)}}, requests);
}
