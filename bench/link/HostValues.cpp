#include "HostValues.h"

#include <signal.h>

#include <stdexcept>
#include <string>

#include "FollowedLines.h"
#include "HostCalls.h"
#include "JobLength.h"
#include "Patience.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* g_host = "host program";

}  // namespace

ValueReports HostValues::reportsOf(const HostProgram& host, const fs::path& directory) {
    return {directory, [&host](int driver, const std::string& count, const std::string& file) {
                host.type("sendFID " + HostProgram::driverID(driver) + ".REPORT count=" + count +
                          " file=" + file);
            }};
}

HostProgram::Settings HostValues::settings(const fs::path& directory, int drivers) {
    return {.directory = directory, .drivers = drivers, .options = {"--start-wait=attached"}};
}

void HostValues::measure(const fs::path& directory, int drivers, double seconds, int round) const {
    HostProgram host(settings(directory, drivers));
    host.start();
    const ValueReports reports = reportsOf(host, directory);
    reports.report(drivers, 1);
    reports.measure(drivers, seconds, m_results, g_host, round);
}

void HostValues::measureFollow(const fs::path& directory, const Reader& reader, int drivers, double seconds,
                               int round) const {
    HostProgram::Settings its = settings(directory, drivers);
    its.options.emplace_back("--follow");
    its.isRead = true;
    HostProgram host(its);
    host.start();
    FollowedLines lines(host.output(), reader.linesPerSecond);
    const ValueReports reports = reportsOf(host, directory);
    const auto count = static_cast<std::uint64_t>(drivers);
    // Before, the host prints what it has found and started.
    lines.expect("D", count);
    reports.report(drivers, 1);
    lines.wait();
    for (JobLength length(seconds, count);;) {
        lines.expect("D", length.count());
        const ValueReports::Times times = reports.report(drivers, length.count() / count);
        lines.wait();
        const double taken = times.seconds();
        if (!length.isEnough(taken))
            continue;
        const auto values = static_cast<double>(length.count());
        const auto printed = static_cast<double>(lines.printed());
        m_results.add("follow", reader.name, round,
                      {{"drivers", drivers},
                       {"rate", values / taken},
                       {"printed_rate", printed * 1e9 / static_cast<double>(lines.last() - times.begin)},
                       {"lost_percent", 100 * (values - printed) / values},
                       {"seconds", taken}});
        return;
    }
}

void HostValues::measureCalls(const fs::path& directory, std::uint64_t values, int round) const {
    fs::create_directories(directory);
    const HostCalls calls(directory / "calls");
    HostProgram::Settings its = settings(directory, 1);
    its.environment = calls.environment();
    HostProgram host(its);
    host.start();
    const ValueReports reports = reportsOf(host, directory);
    reports.report(1, 1);
    const HostCalls::Numbers before = calls.numbers();
    const double seconds = reports.report(1, values).seconds();
    const HostCalls::Numbers after = calls.numbers();
    // Without an end to collect the figure would say nothing: calls may not be counted at all.
    const pid_t process = host.processOf(0);
    if (process == 0)
        throw std::runtime_error(HostProgram::driverID(0) + " is not running: " + host.log());
    ::kill(process, SIGKILL);
    waitUntil("a call of waitid when a driver process ends",
              [&] { return calls.numbers().waitid != after.waitid; });
    m_results.add("calls", g_host, round,
                  {{"values", static_cast<double>(values)},
                   {"waitid", static_cast<double>(after.waitid - before.waitid)},
                   {"poll", static_cast<double>(after.poll - before.poll)},
                   {"epoll_wait", static_cast<double>(after.epollWait - before.epollWait)},
                   {"seconds", seconds}});
}
