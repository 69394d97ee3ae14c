#include "HostRequests.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <vector>

#include "HostValues.h"
#include "JobLength.h"
#include "ProcessMemory.h"
#include "ThreadClock.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

/// To a driver that does nothing with it.
const Load::Request g_fid{"/api/v1/fid", R"({"fid":"D01.HELLO","wait":"taken","request":"#"})"};
/// What terminals and scripts ask for, by turns.
const std::vector<Load::Request> g_requests{
    {"/api/v1/drivers"}, {"/api/v1/state?glob=D00.VALUE00*"}, {"/api/v1/queues"}, g_fid};

}  // namespace

void HostRequests::measureLoss(const fs::path& directory, int pairs, double seconds, int round) const {
    HostProgram host(HostValues::settings(directory, 2));
    host.start();
    const ValueReports reports = HostValues::reportsOf(host, directory);
    reports.report(2, 1);
    for (int pair = 0; pair < pairs; ++pair) {
        // Which of the two is first differs from one pair to the next.
        const bool isLoadedFirst = (round + pair) % 2 == 0;
        for (const bool isLoaded : {isLoadedFirst, !isLoadedFirst})
            measureValues(host, reports, isLoaded, pair, seconds, round);
    }
}

void HostRequests::measureValues(const HostProgram& host, const ValueReports& reports, bool isLoaded,
                                 int pair, double seconds, int round) const {
    std::optional<ApiLoad> load;
    if (isLoaded)
        load.emplace(Load::Settings{.path = host.controlSocket(), .requests = g_requests});
    for (JobLength length(seconds);;) {
        const ThreadClock receiving(host.pid(), HostProgram::driverID(0) + " receive");
        const double taken = reports.report(1, length.count()).seconds();
        const double used = receiving.seconds();
        if (!length.isEnough(taken))
            continue;
        const auto values = static_cast<double>(length.count());
        std::vector<Results::Number> numbers{
            {"pair", pair}, {"thread_ns", used * 1e9 / values}, {"rate", values / taken}, {"seconds", taken}};
        if (load) {
            const ApiLoad::Answers answers = load->end();
            numbers.insert(numbers.end(), {{"answered", static_cast<double>(answers.answered)},
                                           {"failed", static_cast<double>(answers.failed)},
                                           {"answered_per_second", answers.perSecond},
                                           {"p50_us", answers.p50},
                                           {"p99_us", answers.p99},
                                           {"max_us", answers.most}});
        }
        m_results.add("values beside requests", isLoaded ? "with requests" : "without", round, numbers);
        return;
    }
}

void HostRequests::measureMemory(const fs::path& directory, const Times& times, int round) const {
    HostProgram host(HostValues::settings(directory, 2));
    host.start();
    const ValueReports reports = HostValues::reportsOf(host, directory);
    // The values have their place in the store before.
    reports.report(2, 100'000);
    const double before = ProcessMemory::own(host.pid());
    ApiLoad load({.path = host.controlSocket(), .requests = {g_fid}});
    /// The most memory that it has meanwhile.
    const auto report = [&](double seconds) {
        double most = 0;
        const auto end = Clock::now() + std::chrono::duration<double>(seconds);
        do {
            reports.report(1, 1'000'000);
            most = std::max(most, ProcessMemory::own(host.pid()));
        } while (Clock::now() < end);
        return most;
    };
    const double first = report(times.first);
    const double then = report(times.then);
    const ApiLoad::Answers answers = load.end();
    m_results.add("memory beside requests", "host program", round,
                  {{"answered", static_cast<double>(answers.answered)},
                   {"failed", static_cast<double>(answers.failed)},
                   {"first_kib", first - before},
                   {"then_kib", then - first},
                   {"first_seconds", times.first},
                   {"then_seconds", times.then}});
}
