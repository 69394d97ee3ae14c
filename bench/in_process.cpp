// What happens inside one process: a FID from one driver to another, a state update to the panel's target,
// and an update in the look-ahead queue. Beside each the least that the work can cost: the look-up and the
// call, made by hand.

#include <benchmark/benchmark.h>
#include <fcntl.h>

#include <map>
#include <string>

#include "AllocationCount.h"
#include "FollowPrinter.h"
#include "Roads.h"
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

}  // namespace

BENCHMARK(fidByHand);
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
