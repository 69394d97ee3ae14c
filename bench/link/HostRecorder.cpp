#include "HostRecorder.h"

#include <array>
#include <optional>
#include <string>

#include "HostProgram.h"
#include "JobLength.h"
#include "RingReaders.h"
#include "ThreadClock.h"
#include "ValueReports.h"

namespace fs = std::filesystem;

namespace {

/// What the first driver sends.
struct Load {
    const char* name;
    const char* parameters;  ///< of REPORT
    bool isInBursts = false;
};
constexpr std::array<Load, 5> g_loads{Load{"values", ""}, Load{"events", " what=events"},
                                      Load{"fids to a process", " what=fids to=D01"},
                                      Load{"fids to the host's process", " what=fids to=D02"},
                                      Load{"fids in bursts to a process", " to=D01", true}};

ValueReports reportsOf(const HostProgram& host, const fs::path& directory, const std::string& parameters) {
    return {directory, [&host, parameters](int driver, const std::string& count, const std::string& file) {
                host.type("sendFID " + HostProgram::driverID(driver) + ".REPORT count=" + count +
                          " file=" + file + parameters);
            }};
}

}  // namespace

void HostRecorder::measure(bool isRecorded, const fs::path& directory, int pair, double seconds,
                           int round) const {
    measure({.directory = directory,
             .work = "recorded",
             .field = "recorded",
             .value = isRecorded ? 1 : 0,
             .isRecorded = isRecorded},
            pair, seconds, round);
}

void HostRecorder::measureRead(int readers, const fs::path& directory, int pair, double seconds,
                               int round) const {
    measure({.directory = directory,
             .work = "recorded and read",
             .field = "readers",
             .value = readers,
             .readers = readers},
            pair, seconds, round);
}

void HostRecorder::measure(const Run& run, int pair, double seconds, int round) const {
    HostProgram host(
        {.directory = run.directory,
         .drivers = 3,
         .driversInHost = 1,
         .options = {"--start-wait=attached", run.isRecorded ? "--record-keep=1G" : "--record-off"}});
    host.start();
    reportsOf(host, run.directory, "").report(2, 1);
    std::optional<RingReaders> readers;
    if (run.readers > 0)
        readers.emplace(run.directory / "queues", run.readers);
    for (const Load& load : g_loads) {
        const std::string gate = load.isInBursts ? " gate=" + (run.directory / "gate").string() : "";
        const ValueReports reports = reportsOf(host, run.directory, load.parameters + gate);
        for (JobLength length(seconds);;) {
            const ThreadClock receiving(host.pid(), HostProgram::driverID(0) + " receive");
            const double taken = reports.report(1, length.count()).seconds();
            const double used = receiving.seconds();
            if (!length.isEnough(taken))
                continue;
            const auto count = static_cast<double>(length.count());
            m_results.add(run.work, load.name, round,
                          {{"pair", pair},
                           {run.field, run.value},
                           {"thread_ns", used * 1e9 / count},
                           {"rate", count / taken},
                           {"seconds", taken}});
            break;
        }
    }
}
