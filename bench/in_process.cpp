// What happens inside one process: a FID from one driver to another, a state update to the panel's target,
// and an update in the look-ahead queue. Beside each the least that the work can cost: the look-up and the
// call, made by hand.

#include <benchmark/benchmark.h>
#include <fcntl.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>

#include "AllocationCount.h"
#include "FidFields.h"
#include "FollowPrinter.h"
#include "KeyTable.h"
#include "Roads.h"
#include "StreamRing.h"
#include "StreamWriter.h"
#include "UniqueFd.h"
#include "sal/LogManager.h"

namespace {

/// Counts allocations per iteration over the lifetime of one benchmark run.
class Allocations {
public:
    explicit Allocations(benchmark::State& state) : m_state(state), m_begin(allocationCount()) {}
    ~Allocations() {
        m_state.counters["allocs"] = benchmark::Counter(static_cast<double>(allocationCount() - m_begin),
                                                        benchmark::Counter::kAvgIterations);
    }

private:
    benchmark::State& m_state;
    std::uint64_t m_begin;
};

template <class Road>
void repeat(benchmark::State& state, Road& road) {
    const Allocations allocations(state);
    for (auto _ : state)
        road.step();
}

void fidToDriver(benchmark::State& state) {
    // Shared: several threads may send.
    static const roads::FidToDriver s_road;
    repeat(state, s_road);
}

void fidByHand(benchmark::State& state) {
    static const roads::Driver s_driver;
    static const std::map<std::string, const IFunctionID*> s_drivers = [] {
        std::map<std::string, const IFunctionID*> drivers;
        for (int i = 1; i <= 100; ++i)
            drivers[roads::driverID(i)] = &s_driver;
        return drivers;
    }();
    const std::string fid = "AXIS1.MOVE";
    const FIDParameterList parameters;
    const Allocations allocations(state);
    for (auto _ : state) {
        const auto dot = fid.find('.');
        const auto found = s_drivers.find(fid.substr(0, dot));
        if (found != s_drivers.end())
            found->second->sendFID(fid.substr(dot + 1), parameters);
    }
}

void updateToTarget(benchmark::State& state) {
    roads::UpdateToTarget road;
    repeat(state, road);
}

void updateToTargetLongName(benchmark::State& state) {
    roads::UpdateToTargetLongName road;
    repeat(state, road);
}

void updateToStore(benchmark::State& state) {
    roads::UpdateToStore road;
    repeat(state, road);
}

/// As with --follow, for a reader who is never slow. The store and the printer share the processors.
void updateToStoreFollowed(benchmark::State& state) {
    roads::UpdateToStore road;
    const base::UniqueFd output(open("/dev/null", O_WRONLY | O_CLOEXEC));
    FollowPrinter printer("", output.get());
    road.store.addListener(&printer);
    repeat(state, road);
    road.store.removeListener(&printer);
}

/// The argument is how many names are pending.
void lookAhead(benchmark::State& state) {
    roads::LookAhead road(state.range(0));
    repeat(state, road);
}

/// Per update.
void lookAheadBurst(benchmark::State& state) {
    roads::LookAheadBurst road(state.range(0));
    const Allocations allocations(state);
    while (state.KeepRunningBatch(state.range(0)))
        road.step();
}

/// What each tap asks once for what it records.
void clockOfStream(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(std::chrono::system_clock::now());
}

/// The rings as large as the host's, in memory; laps are a part of it.
struct Stream {
    std::string error;
    std::unique_ptr<stream::StreamRing> pRing = stream::StreamRing::create(
        {.path = {}, .instance = "bench"}, std::chrono::system_clock::now(), error);
    stream::KeyTable keys{*pRing};
    stream::StreamWriter writer{*pRing, keys};
    const stream::Time now = std::chrono::system_clock::now();
    const std::uint16_t driver = keys.driver("AXIS1", now);
    const stream::StreamWriter::Key key{keys.key(driver, "AXIS1.POSITION", now)};
};

Stream& sharedStream() {
    static Stream s_stream;
    return s_stream;
}

void streamValue(benchmark::State& state) {
    Stream& stream = sharedStream();
    const Allocations allocations(state);
    std::int32_t value = 0;
    for (auto _ : state)
        stream.writer.valueInt(stream.now, stream.key, ++value);
}

void streamText(benchmark::State& state) {
    Stream& stream = sharedStream();
    const Allocations allocations(state);
    for (auto _ : state)
        stream.writer.valueText(stream.now, stream.key, "moving to the left end");
}

/// Without a share, which after some laps would refuse them: at a time when all that is there is old.
void streamFid(benchmark::State& state) {
    Stream& stream = sharedStream();
    stream::FidFields fields("AXIS1.MOVE");
    fields.add("to", "12.5");
    fields.add("speed", "3");
    static stream::Time s_now = stream.now;
    const Allocations allocations(state);
    for (auto _ : state) {
        s_now += std::chrono::milliseconds(1);
        benchmark::DoNotOptimize(
            stream.writer.fid(s_now, {.sender = stream.driver, .fields = fields.bytes()}));
    }
}

}  // namespace

BENCHMARK(fidByHand);
BENCHMARK(clockOfStream);
BENCHMARK(streamValue);
BENCHMARK(streamValue)->Threads(2)->UseRealTime();
BENCHMARK(streamText);
BENCHMARK(streamFid);
BENCHMARK(fidToDriver);
BENCHMARK(fidToDriver)->Threads(2)->UseRealTime();
BENCHMARK(updateToTarget);
BENCHMARK(updateToTargetLongName);
BENCHMARK(updateToStore);
BENCHMARK(updateToStoreFollowed);
BENCHMARK(lookAhead)->Arg(1)->Arg(3)->Arg(10)->Arg(30)->Arg(100)->Arg(299);
BENCHMARK(lookAheadBurst)->Arg(1)->Arg(3)->Arg(10)->Arg(30)->Arg(100)->Arg(299);

int main(int argc, char** argv) {
    const sal::LogManager log({.level = sal::LogOutput::eInfo, .file = {}, .tag = {}});
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
