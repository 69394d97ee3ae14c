#include "HostRecorder.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "HostProgram.h"
#include "JobLength.h"
#include "OpenPages.h"
#include "Patience.h"
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

void HostRecorder::measureShown(int pages, const fs::path& directory, int pair, double seconds,
                                int round) const {
    measure({.directory = directory,
             .work = "recorded and shown",
             .field = "pages",
             .value = pages,
             .pages = pages},
            pair, seconds, round);
}

void HostRecorder::measure(const Run& run, int pair, double seconds, int round) const {
    std::vector<std::string> options{"--start-wait=attached",
                                     run.isRecorded ? "--record-keep=1G" : "--record-off"};
    // Beside the directory, which the host's makes.
    if (run.pages >= 0)
        options.insert(options.end(),
                       {"--web=0", "--web-tokens=" + OpenPages::makeTokens(run.directory.parent_path())});
    HostProgram host({.directory = run.directory, .drivers = 3, .driversInHost = 1, .options = options});
    host.start();
    reportsOf(host, run.directory, "").report(2, 1);
    std::optional<RingReaders> readers;
    if (run.readers > 0)
        readers.emplace(run.directory / "queues", run.readers);
    std::optional<OpenPages> pages;
    if (run.pages > 0)
        pages.emplace(host.log(), run.pages);
    const std::uint64_t toldBefore = pages ? pages->told() : 0;
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
    // Else there is nothing beside which it was measured.
    if (pages)
        waitUntil("the news of the open pages", [&] { return pages->told() > toldBefore; });
}
