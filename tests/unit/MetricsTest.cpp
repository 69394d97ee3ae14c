#include "Metrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <regex>
#include <string>
#include <vector>

#include "ApiHost.h"
#include "ConfiguredDriver.h"
#include "LogCapture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

constexpr std::chrono::hours s_pause{1};

/// What a host that records has.
struct RecordedRing {
    std::string error;
    std::unique_ptr<stream::StreamRing> pRing =
        stream::StreamRing::create({.path = {},
                                    .sizes = {stream::StreamRing::s_smallest, stream::StreamRing::s_smallest},
                                    .instance = "i1"},
                                   Observation::now(), error);
    Observation observation{*pRing};
    stream::StreamSource source{*pRing};
    RecordedStream recorded{source, observation.keys()};
};

class MetricsTest : public testing::Test {
protected:
    MetricsTest() {
        m_host.drivers.configure(
            {configuredDriver("A", EInterfaceTypes::Queue), configuredDriver("B", EInterfaceTypes::Direct),
             configuredDriver("S", EInterfaceTypes::Socket)},
            true);
    }

    std::string text() const { return Metrics(m_context).text(); }
    /// The samples of one family.
    Lines samples(const std::string& family) const {
        Lines lines;
        std::istringstream stream(text());
        for (std::string line; std::getline(stream, line);) {
            if (line.starts_with(family + "{") || line.starts_with(family + " "))
                lines.push_back(line);
        }
        return lines;
    }
    void park(const std::string& driverID) {
        m_host.drivers.beginParking(driverID, "parked by anna");
        m_host.drivers.endParking(driverID);
    }
    static sal::MessageQueue::Status queue(const std::string& name, unsigned int depth) {
        sal::MessageQueue::Status status;
        status.name = name;
        status.capacity = 512;
        status.depth = depth;
        status.highWater = 7;
        status.messages = 20;
        status.bytes = 900;
        status.waits = 2;
        status.waitingForMs = 1500;
        return status;
    }

    LogCapture m_log;
    ApiHost m_host{RestartPlan::Settings{
        .firstDelay = s_pause, .longestDelay = s_pause, .limit = {}, .random = [] { return 0.5; }}};
    ApiContext m_context = m_host.context();
};

}  // namespace

TEST_F(MetricsTest, HostThatHasJustBegunTellsOnlyWhatItKnows) {
    EXPECT_EQ(
        "# HELP mf_build_info 1, with the version of the host.\n"
        "# TYPE mf_build_info gauge\n"
        "mf_build_info{version=\"1.2.3\"} 1\n"
        "# HELP mf_host_start_time_seconds When the host was started, in seconds since 1970.\n"
        "# TYPE mf_host_start_time_seconds gauge\n"
        "mf_host_start_time_seconds 86400\n"
        "# HELP mf_command_seconds How long the host has been at its present command or start; 0 while it "
        "waits.\n"
        "# TYPE mf_command_seconds gauge\n"
        "mf_command_seconds 0\n"
        "# HELP mf_alarms Alarms in sight.\n"
        "# TYPE mf_alarms gauge\n"
        "mf_alarms 0\n"
        "# HELP mf_driver_up 1 for a driver that runs, 0 for one that does not or hangs; none for a parked "
        "one.\n"
        "# TYPE mf_driver_up gauge\n"
        "mf_driver_up{driver=\"A\"} 0\n"
        "mf_driver_up{driver=\"B\"} 0\n"
        "# HELP mf_driver_state 1, with the state that the driver is in.\n"
        "# TYPE mf_driver_state gauge\n"
        "mf_driver_state{driver=\"A\",state=\"not loaded\"} 1\n"
        "mf_driver_state{driver=\"B\",state=\"not loaded\"} 1\n"
        "# HELP mf_driver_restarts_total Starts of a driver process by the host itself, by the end before.\n"
        "# TYPE mf_driver_restarts_total counter\n"
        "mf_driver_restarts_total{driver=\"A\",cause=\"unknown\"} 0\n"
        "mf_driver_restarts_total{driver=\"A\",cause=\"exit\"} 0\n"
        "mf_driver_restarts_total{driver=\"A\",cause=\"signal\"} 0\n"
        "mf_driver_restarts_total{driver=\"A\",cause=\"hang\"} 0\n"
        "mf_driver_restarts_total{driver=\"A\",cause=\"no-start\"} 0\n"
        "# HELP mf_driver_hangs_total How often a driver process was found hung or out of reach.\n"
        "# TYPE mf_driver_hangs_total counter\n"
        "mf_driver_hangs_total{driver=\"A\"} 0\n"
        "# HELP mf_updates_delivered_total Values and events named after the driver that have reached the "
        "panel's state.\n"
        "# TYPE mf_updates_delivered_total counter\n"
        "mf_updates_delivered_total{driver=\"A\"} 0\n"
        "mf_updates_delivered_total{driver=\"B\"} 0\n"
        "# HELP mf_values Values of the driver in the panel's state.\n"
        "# TYPE mf_values gauge\n"
        "mf_values{driver=\"A\"} 0\n"
        "mf_values{driver=\"B\"} 0\n"
        "# HELP mf_values_stale Those of them that hold no longer.\n"
        "# TYPE mf_values_stale gauge\n"
        "mf_values_stale{driver=\"A\"} 0\n"
        "mf_values_stale{driver=\"B\"} 0\n"
        "# HELP mf_values_lost_total New values that there was no room for, since the driver's last start.\n"
        "# TYPE mf_values_lost_total counter\n"
        "mf_values_lost_total{driver=\"A\"} 0\n"
        "mf_values_lost_total{driver=\"B\"} 0\n"
        "# HELP mf_api_connections Connections of clients of the API.\n"
        "# TYPE mf_api_connections gauge\n"
        "mf_api_connections 0\n",
        text());
    EXPECT_EQ(1, m_host.looks) << "ends are looked for first";
}

TEST_F(MetricsTest, DriverIsUpWhileItRuns) {
    m_host.drivers.processStarted("A", 42);
    EXPECT_THAT(samples("mf_driver_up"),
                ElementsAre("mf_driver_up{driver=\"A\"} 1", "mf_driver_up{driver=\"B\"} 0"));
    ASSERT_EQ(1u, samples("mf_driver_start_time_seconds").size());
    EXPECT_TRUE(std::regex_match(samples("mf_driver_start_time_seconds").front(),
                                 std::regex("mf_driver_start_time_seconds\\{driver=\"A\"\\} [0-9.]*")));
    m_host.drivers.processHung("A", 42, "hung for 10 s");
    EXPECT_THAT(samples("mf_driver_up"),
                ElementsAre("mf_driver_up{driver=\"A\"} 0", "mf_driver_up{driver=\"B\"} 0"));
    EXPECT_THAT(samples("mf_driver_state"),
                ElementsAre("mf_driver_state{driver=\"A\",state=\"hung\"} 1",
                            "mf_driver_state{driver=\"B\",state=\"not loaded\"} 1"));
    EXPECT_THAT(samples("mf_driver_start_time_seconds"), IsEmpty());
}

TEST_F(MetricsTest, ParkedDriverIsNeitherUpNorDown) {
    m_host.drivers.processStarted("A", 42);
    m_host.drivers.beginParking("A", "parked by anna");
    EXPECT_THAT(samples("mf_driver_up"), ElementsAre("mf_driver_up{driver=\"B\"} 0"));
    m_host.drivers.processEnded("A", 42, "exit code 0", {}, true);
    m_host.drivers.endParking("A");
    EXPECT_THAT(samples("mf_driver_up"), ElementsAre("mf_driver_up{driver=\"B\"} 0"));
    EXPECT_THAT(samples("mf_driver_state"),
                ElementsAre("mf_driver_state{driver=\"A\",state=\"parked\"} 1",
                            "mf_driver_state{driver=\"B\",state=\"not loaded\"} 1"));
}

TEST_F(MetricsTest, PanelDriverThatRunsIsOneOfThem) {
    m_host.drivers.callBegins("PANEL", "setConfiguration");
    m_host.drivers.callEnded("PANEL", "setConfiguration");
    EXPECT_THAT(samples("mf_driver_up"),
                ElementsAre("mf_driver_up{driver=\"A\"} 0", "mf_driver_up{driver=\"B\"} 0",
                            "mf_driver_up{driver=\"PANEL\"} 1"));
}

TEST_F(MetricsTest, RestartsAndHangsAreCountedByTheirCause) {
    m_host.drivers.processStarted("A", 42);
    m_host.drivers.processEnded("A", 42, "signal 11", {}, true, DriverTable::EEnd::Signal);
    m_host.drivers.addRestart("A");
    m_host.drivers.processStarted("A", 43);
    m_host.drivers.processHung("A", 43, "hung for 10 s");
    m_host.drivers.processEnded("A", 43, "hung for 10 s, signal 9", {}, true, DriverTable::EEnd::Signal);
    m_host.drivers.addRestart("A");
    EXPECT_THAT(samples("mf_driver_restarts_total"),
                ElementsAre("mf_driver_restarts_total{driver=\"A\",cause=\"unknown\"} 0",
                            "mf_driver_restarts_total{driver=\"A\",cause=\"exit\"} 0",
                            "mf_driver_restarts_total{driver=\"A\",cause=\"signal\"} 1",
                            "mf_driver_restarts_total{driver=\"A\",cause=\"hang\"} 1",
                            "mf_driver_restarts_total{driver=\"A\",cause=\"no-start\"} 0"));
    EXPECT_THAT(samples("mf_driver_hangs_total"), ElementsAre("mf_driver_hangs_total{driver=\"A\"} 1"));
}

TEST_F(MetricsTest, NextTryIsCountedDown) {
    EXPECT_THAT(samples("mf_driver_next_try_seconds"), IsEmpty());
    m_host.drivers.processStarted("A", 42);
    m_host.drivers.processEnded("A", 42, "signal 11", {}, true);
    const auto next = *m_host.drivers.find("A")->nextTry;
    m_host.now = next - milliseconds(1500);
    EXPECT_THAT(samples("mf_driver_next_try_seconds"),
                ElementsAre("mf_driver_next_try_seconds{driver=\"A\"} 1.5"));
    m_host.now = next + seconds(1);
    EXPECT_THAT(samples("mf_driver_next_try_seconds"),
                ElementsAre("mf_driver_next_try_seconds{driver=\"A\"} 0"));
}

TEST_F(MetricsTest, CommandAndCallThatDoNotComeBackHaveTheirAge) {
    EXPECT_THAT(samples("mf_driver_call_seconds"), IsEmpty());
    m_host.drivers.callBegins("B", "initialize");
    m_host.now = m_host.drivers.oldestCall()->since + seconds(3);
    m_host.activity = {.busy = true, .what = "start", .driverID = "B", .since = m_host.now - seconds(5)};
    EXPECT_THAT(samples("mf_driver_call_seconds"), ElementsAre("mf_driver_call_seconds{driver=\"B\"} 3"));
    EXPECT_THAT(samples("mf_command_seconds"), ElementsAre("mf_command_seconds 5"));
}

TEST_F(MetricsTest, QueuesBelongToTheirDrivers) {
    m_host.queues = {queue("A_INQ", 3), queue("A_OUTQ", 1), queue("OTHER", 9)};
    EXPECT_THAT(samples("mf_queue_depth"), ElementsAre("mf_queue_depth{driver=\"A\",direction=\"in\"} 3",
                                                       "mf_queue_depth{driver=\"A\",direction=\"out\"} 1"));
    m_host.queues = {queue("A_INQ", 3)};
    EXPECT_THAT(text(), testing::HasSubstr("mf_queue_capacity{driver=\"A\",direction=\"in\"} 512\n"));
    EXPECT_THAT(text(), testing::HasSubstr("mf_queue_high_water{driver=\"A\",direction=\"in\"} 7\n"));
    EXPECT_THAT(text(), testing::HasSubstr("mf_queue_messages_total{driver=\"A\",direction=\"in\"} 20\n"));
    EXPECT_THAT(text(), testing::HasSubstr("mf_queue_bytes_total{driver=\"A\",direction=\"in\"} 900\n"));
    EXPECT_THAT(text(), testing::HasSubstr("mf_queue_waits_total{driver=\"A\",direction=\"in\"} 2\n"));
    EXPECT_THAT(text(), testing::HasSubstr("mf_queue_waiting_seconds{driver=\"A\",direction=\"in\"} 1.5\n"));
}

TEST_F(MetricsTest, FidsHaveDriverAndOutcome) {
    m_host.fids = {{.driverID = "", .outcome = "no-such-driver", .fids = 2},
                   {.driverID = "A", .outcome = "written", .fids = 5}};
    EXPECT_THAT(samples("mf_fids_total"), ElementsAre("mf_fids_total{outcome=\"no-such-driver\"} 2",
                                                      "mf_fids_total{driver=\"A\",outcome=\"written\"} 5"));
}

TEST_F(MetricsTest, ReportsAreThoseOfDriversWhereTheyAreRecorded) {
    m_host.reports = {{.driverID = "A", .received = 9, .merged = 4, .changes = 2}, {.driverID = "console"}};
    EXPECT_THAT(samples("mf_updates_received_total"), IsEmpty());
    EXPECT_THAT(samples("mf_stream_lapped_total"), IsEmpty());
    const RecordedRing ring;
    m_context.pRecorded = &ring.recorded;
    EXPECT_THAT(samples("mf_updates_received_total"),
                ElementsAre("mf_updates_received_total{driver=\"A\"} 9",
                            "mf_updates_received_total{driver=\"B\"} 0"));
    EXPECT_THAT(samples("mf_updates_merged_total"), ElementsAre("mf_updates_merged_total{driver=\"A\"} 4",
                                                                "mf_updates_merged_total{driver=\"B\"} 0"));
}

TEST_F(MetricsTest, ReadersThatWereLappedAreCountedByTheirKind) {
    const RecordedRing ring;
    m_context.pRecorded = &ring.recorded;
    ring.recorded.addLapped(RecordedStream::EReader::Client, 3);
    ring.recorded.addLapped(RecordedStream::EReader::Client, 4);
    EXPECT_THAT(samples("mf_stream_lapped_total"),
                ElementsAre("mf_stream_lapped_total{reader=\"recorder\"} 0",
                            "mf_stream_lapped_total{reader=\"panel\"} 0",
                            "mf_stream_lapped_total{reader=\"client\"} 7"));
}

TEST_F(MetricsTest, TimesInQueuesAreHistograms) {
    m_host.deliveries = {{.queue = "A_OUTQ", .counts = {5, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 1}, .sum = 40.25},
                         {.queue = "SYSTEM", .counts = {1}, .sum = 1}};
    const std::string labels = "{driver=\"A\",direction=\"out\"";
    const std::string bucket = "mf_delivery_seconds_bucket" + labels;
    EXPECT_THAT(text(),
                testing::HasSubstr("# TYPE mf_delivery_seconds histogram\n" + bucket + ",le=\"0.01\"} 5\n" +
                                   bucket + ",le=\"0.02\"} 5\n" + bucket + ",le=\"0.05\"} 7\n"));
    EXPECT_THAT(text(), testing::HasSubstr(bucket + ",le=\"30\"} 7\n" + bucket + ",le=\"+Inf\"} 8\n" +
                                           "mf_delivery_seconds_sum" + labels + "} 40.25\n" +
                                           "mf_delivery_seconds_count" + labels + "} 8\n"));
    EXPECT_THAT(text(), testing::Not(testing::HasSubstr("SYSTEM")));
}

TEST_F(MetricsTest, ValuesOfDriversAloneAreCounted) {
    m_host.drivers.processStarted("A", 42);
    m_host.store.setStateValueInt("A.X", 1);
    m_host.store.setStateValueInt("A.X", 2);
    m_host.store.setStateValueInt("A.Y", 1);
    m_host.store.triggerEvent("A.DONE", "");
    m_host.store.setStateValueInt("NOBODY.X", 1);
    m_host.drivers.processEnded("A", 42, "signal 11", {}, false);
    EXPECT_THAT(samples("mf_updates_delivered_total"),
                ElementsAre("mf_updates_delivered_total{driver=\"A\"} 4",
                            "mf_updates_delivered_total{driver=\"B\"} 0"));
    EXPECT_THAT(samples("mf_values"), ElementsAre("mf_values{driver=\"A\"} 2", "mf_values{driver=\"B\"} 0"));
    EXPECT_THAT(samples("mf_values_stale"),
                ElementsAre("mf_values_stale{driver=\"A\"} 2", "mf_values_stale{driver=\"B\"} 0"));
}

TEST_F(MetricsTest, AlarmsConnectionsAndRequestsAreCounted) {
    m_host.alarms = 2;
    m_host.sessions = {{}, {}, {}};
    m_host.answers = {{200, 7}, {404, 1}};
    EXPECT_THAT(samples("mf_alarms"), ElementsAre("mf_alarms 2"));
    EXPECT_THAT(samples("mf_api_connections"), ElementsAre("mf_api_connections 3"));
    EXPECT_THAT(samples("mf_api_requests_total"), ElementsAre("mf_api_requests_total{code=\"200\"} 7",
                                                              "mf_api_requests_total{code=\"404\"} 1"));
}
