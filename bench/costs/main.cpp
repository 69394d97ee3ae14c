// Takes one road through the module so many times, to be counted: allocations by itself, instructions by
// callgrind. Prints the allocations of these times; what came before, to warm up, is not among them.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>

#include "../AllocationCount.h"
#include "../Roads.h"
#include "sal/LogManager.h"

namespace {

constexpr std::uint64_t g_warmUp = 2000;
constexpr std::int64_t g_pending = 100;

template <class Road>
std::uint64_t take(Road& road, std::uint64_t times) {
    for (std::uint64_t i = 0; i < g_warmUp; ++i)
        road.step();
    const std::uint64_t before = allocationCount();
    for (std::uint64_t i = 0; i < times; ++i)
        road.step();
    return allocationCount() - before;
}

template <class Road, class... Arguments>
std::function<std::uint64_t(std::uint64_t)> taking(Arguments... arguments) {
    return [arguments...](std::uint64_t times) {
        Road road(arguments...);
        return take(road, times);
    };
}

const std::map<std::string, std::function<std::uint64_t(std::uint64_t)>> g_roads{
    {"fidToDriver", taking<roads::FidToDriver>()},
    {"updateToTarget", taking<roads::UpdateToTarget>()},
    {"updateToTargetLongName", taking<roads::UpdateToTargetLongName>()},
    {"updateToStore", taking<roads::UpdateToStore>()},
    {"lookAhead", taking<roads::LookAhead>(g_pending)},
    {"lookAheadBurst", taking<roads::LookAheadBurst>(g_pending)},
};

}  // namespace

int main(int argc, char** argv) {
    const sal::LogManager log({.level = sal::LogOutput::eInfo, .file = {}, .tag = {}});
    const auto road = argc == 3 ? g_roads.find(argv[1]) : g_roads.end();
    if (road == g_roads.end()) {
        std::fprintf(stderr, "usage: bench_costs ROAD TIMES\nThe roads:\n");
        for (const auto& [name, run] : g_roads)
            std::fprintf(stderr, "  %s\n", name.c_str());
        return 2;
    }
    const std::uint64_t allocations = road->second(std::strtoull(argv[2], nullptr, 10));
    std::printf("%llu\n", static_cast<unsigned long long>(allocations));
    return 0;
}
