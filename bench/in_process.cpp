// What happens inside one process: a FID from one driver to another, a state update to the panel's target,
// and an update in the look-ahead queue. Beside each the least that the work can cost: the look-up and the
// call, made by hand.

#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "AllocationCount.h"
#include "FIDParameterList.h"
#include "MDMDriverIPCI.h"
#include "MDMFidDistributor.h"
#include "StateStore.h"
#include "sal/LogManager.h"

namespace {

class Driver : public IFunctionID {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    bool sendFID(const std::string& fid, const FIDParameterList&) const override {
        benchmark::DoNotOptimize(fid.data());
        return true;
    }
    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }
};

class EmptyTarget : public IPanelState {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void setStateValue(const std::string& id, const std::string&) override { take(id); }
    void setStateValueFloat(const std::string& id, float) override { take(id); }
    void setStateValueInt(const std::string& id, int) override { take(id); }
    void setStateValueBool(const std::string& id, bool) override { take(id); }
    void unsetStateValue(const std::string& id) override { take(id); }
    void triggerEvent(const std::string& id, const std::string&) override { take(id); }

private:
    static void take(const std::string& id) { benchmark::DoNotOptimize(id.data()); }
};

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

std::string driverID(int number) {
    return "AXIS" + std::to_string(number);
}

/// A distributor with a hundred drivers.
struct Workplace {
    Driver driver;
    EmptyTarget target;
    MDMFidDistributor distributor;
    std::vector<IPanelState*> ports;

    Workplace() {
        distributor.setPanelStateInterface(&target);
        for (int i = 1; i <= 100; ++i)
            ports.push_back(distributor.addDriverPort(driverID(i), &driver));
    }
};

Workplace& workplace() {
    static Workplace s_workplace;
    return s_workplace;
}

void fidToDriver(benchmark::State& state) {
    const MDMFidDistributor& distributor = workplace().distributor;
    const std::string fid = "AXIS1.MOVE";
    const FIDParameterList parameters;
    const Allocations allocations(state);
    for (auto _ : state)
        distributor.dispatchFID(fid, parameters);
}

void fidByHand(benchmark::State& state) {
    static const Driver s_driver;
    static const std::map<std::string, const IFunctionID*> s_drivers = [] {
        std::map<std::string, const IFunctionID*> drivers;
        for (int i = 1; i <= 100; ++i)
            drivers[driverID(i)] = &s_driver;
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
    IPanelState& port = *workplace().ports.front();
    const std::string id = "POSITION";
    int value = 0;
    const Allocations allocations(state);
    for (auto _ : state)
        port.setStateValueInt(id, ++value);
}

void updateToTargetLongName(benchmark::State& state) {
    IPanelState& port = *workplace().ports.front();
    const std::string id = "POSITION.ACTUAL.MILLIMETRES";
    int value = 0;
    const Allocations allocations(state);
    for (auto _ : state)
        port.setStateValueInt(id, ++value);
}

void updateToStore(benchmark::State& state) {
    StateStore store;
    MDMFidDistributor distributor;
    distributor.setPanelStateInterface(&store);
    IPanelState& port = *distributor.addDriverPort("AXIS1", nullptr);
    std::vector<std::string> ids;
    for (int i = 0; i < 1000; ++i)
        ids.push_back("VALUE" + std::to_string(i));
    std::size_t next = 0;
    int value = 0;
    const Allocations allocations(state);
    for (auto _ : state) {
        port.setStateValueInt(ids[next], ++value);
        next = next + 1 == ids.size() ? 0 : next + 1;
    }
}

/// One update of the newest pending name, which a look from the oldest on finds last; the argument is how many
/// names are pending.
void lookAhead(benchmark::State& state) {
    EmptyTarget target;
    MDMDriverIPCI proxy("", "AXIS1");
    proxy.setPanelStateInterface(&target);
    MDMDriverIPCI::QueueCmd command;
    command.cmdType = MDMDriverIPCI::QueueCmd::SetInt;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        command.name = "VALUE" + std::to_string(i);
        proxy.lookAhead(command);
    }
    const Allocations allocations(state);
    for (auto _ : state)
        proxy.lookAhead(command);
}

/// A burst of updates that none replaces another, delivered at its end, per update.
void lookAheadBurst(benchmark::State& state) {
    EmptyTarget target;
    MDMDriverIPCI proxy("", "AXIS1");
    proxy.setPanelStateInterface(&target);
    std::vector<MDMDriverIPCI::QueueCmd> commands(static_cast<std::size_t>(state.range(0)));
    for (std::size_t i = 0; i < commands.size(); ++i) {
        commands[i].cmdType = MDMDriverIPCI::QueueCmd::SetInt;
        commands[i].name = "VALUE" + std::to_string(i);
    }
    const Allocations allocations(state);
    while (state.KeepRunningBatch(state.range(0))) {
        for (const auto& command : commands)
            proxy.lookAhead(command);
        proxy.flushLAQueue();
    }
}

}  // namespace

BENCHMARK(fidByHand);
BENCHMARK(fidToDriver);
BENCHMARK(fidToDriver)->Threads(2)->UseRealTime();
BENCHMARK(updateToTarget);
BENCHMARK(updateToTargetLongName);
BENCHMARK(updateToStore);
BENCHMARK(lookAhead)->Arg(1)->Arg(10)->Arg(100)->Arg(299);
BENCHMARK(lookAheadBurst)->Arg(1)->Arg(10)->Arg(100)->Arg(299);

int main(int argc, char** argv) {
    const sal::LogManager log({.level = sal::LogOutput::eInfo, .file = {}, .tag = {}});
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
