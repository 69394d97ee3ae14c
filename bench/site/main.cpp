// Many workplaces at one broker: what it costs the broker and each of them, how long values and FIDs take,
// and how long it takes until all are complete again after the broker was away. Everything is real but the
// hosts: the link driver's own code with its threads, the connections, a mosquitto that is started for it
// with the rights that mfctl link acl gives. Beside them, in the same run, bare clients of libmosquitto. One
// JSON object a line on standard output; --help tells how much is done.

#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "BareTraffic.h"
#include "BrokerCounts.h"
#include "CpuClock.h"
#include "FIDParameterList.h"
#include "Fleet.h"
#include "LinkPayload.h"
#include "MachineLoad.h"
#include "OwnBroker.h"
#include "Patience.h"
#include "ProcessMemory.h"
#include "Results.h"
#include "ReturnModel.h"
#include "SteadyTime.h"
#include "TemporaryDirectory.h"
#include "ValueNames.h"

namespace {

constexpr const char* s_password = "bare";
constexpr double s_nanoseconds = 1e-9;

struct Amounts {
    std::vector<std::size_t> workplaces{20, 100, 200, 500, 1000, 1500, 2000};
    int drivers = 10;
    int values = 20;
    int rounds = 1;
    int seconds = 20;
    int warmup = 5;
    int patience = 60;  ///< seconds until all are complete
    int spread = 5;
    int away = 5;
    bool isPlainBroker = false;
    std::size_t memoryWorkplaces = 200;
    ReturnModel::Costs costs{};
    std::vector<std::string> only;

    bool wants(const std::string& part) const {
        return only.empty() || std::find(only.begin(), only.end(), part) != only.end();
    }
};

double processCpu() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * s_nanoseconds;
}

std::string lineOf(const char* pUser, const std::string& topic) {
    return std::string("user ") + pUser + "\ntopic " + topic + "\n";
}

/// As large as those of the links.
BareTraffic::Sizes sizes() {
    const linkpayload::State state{17, std::chrono::system_clock::now(), std::string(32, 'b'), 12345, {}};
    FIDParameterList parameters;
    parameters.add("percent", "40");
    return {linkpayload::text(state).size(), linkpayload::text(parameters).value().size(),
            linkpayload::text(linkpayload::Reply{linkpayload::EOutcome::Done, {}}).size()};
}

/// A broker with so many workplaces.
class Run {
public:
    Run(const Amounts& amounts, const ValueNames& names, std::size_t workplaces, bool hasNeighbours = true)
        : m_amounts(amounts),
          m_plan{workplaces, 0, std::chrono::seconds(amounts.spread), hasNeighbours},
          m_broker(m_directory.path(), users(m_plan), rights(names, m_plan),
                   amounts.isPlainBroker ? "" : "set_tcp_nodelay true\nmax_queued_messages 100000\n") {
        m_plan.port = m_broker.port();
        m_broker.start();
        m_pFleet = std::make_unique<Fleet>(names, m_plan);
        m_pCounts = std::make_unique<BrokerCounts>(m_broker.port(), s_password);
    }

    /// Without the broker no workplace waits for its answer to a goodbye.
    ~Run() {
        m_pCounts.reset();
        m_broker.kill();
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    OwnBroker& broker() { return m_broker; }
    Fleet& fleet() { return *m_pFleet; }
    BrokerCounts& counts() { return *m_pCounts; }
    /// Its connection ends with the broker's.
    void forgetCounts() { m_pCounts.reset(); }

    /// Seconds from now; nothing when it takes too long.
    std::optional<double> untilComplete() {
        const std::int64_t begin = steadyNanoseconds();
        for (;;) {
            const double passed = static_cast<double>(steadyNanoseconds() - begin) * s_nanoseconds;
            if (m_pFleet->complete() == m_plan.workplaces)
                return passed;
            if (passed > m_amounts.patience)
                return std::nullopt;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }

private:
    static std::string users(const Fleet::Plan& plan) {
        std::string users = Fleet::users(plan);
        for (const char* const pUser :
             {BareTraffic::s_asker, BareTraffic::s_answerer, BareTraffic::s_reader, BrokerCounts::s_user})
            users += std::string(pUser) + ":" + s_password + "\n";
        return users;
    }
    static std::string rights(const ValueNames& names, const Fleet::Plan& plan) {
        return Fleet::rights(names, plan) + lineOf(BareTraffic::s_asker, "readwrite bare/#") +
               lineOf(BareTraffic::s_answerer, "readwrite bare/#") +
               lineOf(BareTraffic::s_reader, "readwrite bare/#") +
               lineOf(BrokerCounts::s_user, "read $SYS/#");
    }

    const Amounts& m_amounts;
    const TemporaryDirectory m_directory;
    Fleet::Plan m_plan;
    OwnBroker m_broker;
    std::unique_ptr<Fleet> m_pFleet;
    std::unique_ptr<BrokerCounts> m_pCounts;
};

/// What is measured, one part after another.
class Measurements {
public:
    Measurements(const Amounts& amounts, const Results& results)
        : m_amounts(amounts),
          m_results(results),
          m_names(amounts.drivers, amounts.values),
          m_costs(amounts.costs) {}

    void run(int round) {
        m_round = round;
        if (m_amounts.wants("memory"))
            measureMemory();
        if (m_amounts.wants("load"))
            measureLoads();
        if (m_amounts.wants("return"))
            measureReturn();
        if (m_amounts.wants("model"))
            simulate();
    }

private:
    /// In KiB and in seconds of the broker, of one retained value and of one connection.
    void measureMemory() {
        constexpr int drivers = 100;
        const ValueNames many(drivers, drivers);
        Run values(m_amounts, many, 1, false);
        const double before = ProcessMemory::resident(values.broker().pid());
        values.fleet().start();
        waitUntil("all values at the broker",
                  [&] { return values.counts().next().retained >= static_cast<double>(many.size()); });
        const double value = (ProcessMemory::resident(values.broker().pid()) - before) * 1024 /
                             static_cast<double>(many.size());

        const auto count = static_cast<double>(m_amounts.memoryWorkplaces);
        const ValueNames none(m_amounts.drivers, 0);
        Run connections(m_amounts, none, m_amounts.memoryWorkplaces, false);
        const pid_t broker = connections.broker().pid();
        const double empty = ProcessMemory::resident(broker);
        const CpuClock clock({broker});
        connections.fleet().start();
        waitUntil("all connections", [&] { return connections.counts().next().connected > count; });
        std::this_thread::sleep_for(std::chrono::seconds(m_amounts.spread + 1));
        const double cpu = clock.seconds();
        m_costs.connecting = cpu / count;
        m_results.add("memory", "broker", m_round,
                      {{"retained_bytes", value},
                       {"connection_KiB", (ProcessMemory::resident(broker) - empty) / count},
                       {"connection_ms", cpu / count * 1000}});
    }

    void measureLoads() {
        for (const std::size_t workplaces : m_amounts.workplaces) {
            const std::string gave = measureLoad(workplaces);
            if (!gave.empty()) {
                std::fprintf(stderr, "bench_site: with %zu workplaces: %s\n", workplaces, gave.c_str());
                break;
            }
            m_largest = workplaces;
        }
    }

    /// All counters at one moment: just after the broker has told its own.
    struct Seen {
        BrokerCounts::Count counts;
        double told = 0;
        double bareMessages = 0;
        double cpu = 0;
    };
    static Seen see(Run& run, const BareTraffic& bare) {
        Seen seen;
        seen.counts = run.counts().next();
        seen.told = static_cast<double>(run.fleet().told());
        seen.bareMessages = static_cast<double>(bare.messages());
        seen.cpu = processCpu() - bare.cpu();
        return seen;
    }

    /// What was too little for them; empty where nothing was.
    std::string measureLoad(std::size_t workplaces) {
        const auto count = static_cast<double>(workplaces);
        Run run(m_amounts, m_names, workplaces);
        run.fleet().start();
        const auto complete = run.untilComplete();
        if (!complete)
            return std::to_string(run.fleet().complete()) + " are complete after " +
                   std::to_string(m_amounts.patience) + " s";
        run.fleet().beginTraffic();
        BareTraffic bare(run.broker().port(), sizes());
        std::this_thread::sleep_for(std::chrono::seconds(m_amounts.warmup));

        const MachineLoad machine;
        const CpuClock broker({run.broker().pid()});
        const Seen first = see(run, bare);
        run.fleet().takeDelays();
        run.fleet().takeLag();
        std::this_thread::sleep_for(std::chrono::seconds(m_amounts.seconds));
        const Seen last = see(run, bare);
        const double brokerCpu = broker.seconds();
        const double idle = machine.idle();
        const double busy = machine.busy();
        const Delays delays = run.fleet().takeDelays();
        const double lag = run.fleet().takeLag();
        const BareTraffic::Result bareResult = bare.stop();

        const double seconds = static_cast<double>(last.counts.at - first.counts.at) * s_nanoseconds;
        const double bareMessages = (last.bareMessages - first.bareMessages) / seconds;
        // Of the bare clients' seven messages a turn three go in, one of them retained, and four out.
        const double out = (last.counts.out - first.counts.out) / seconds - bareMessages * 4 / 7;
        const double in = (last.told - first.told + last.counts.plain - first.counts.plain) / seconds -
                          bareMessages * 2 / 7;
        const double messages = in + out + bareMessages;
        const double dropped = last.counts.dropped - first.counts.dropped;
        const double brokerShare = brokerCpu / machine.seconds();
        const double ownShare = (last.cpu - first.cpu) / seconds;
        m_costs.running = brokerShare * (messages - bareMessages) / messages / count;
        m_results.add("load", "links", m_round,
                      {{"workplaces", count},
                       {"seconds", seconds},
                       {"complete_s", *complete},
                       {"in", in},
                       {"out", out},
                       {"dropped", dropped},
                       {"broker_cores", brokerShare},
                       {"broker_us_message", brokerShare / messages * 1e6},
                       {"broker_MiB", ProcessMemory::resident(run.broker().pid()) / 1024},
                       {"workplace_ms_s", ownShare / count * 1000},
                       {"workplace_us_message", ownShare / (messages - bareMessages) * 1e6},
                       {"others_cores", busy - brokerShare - ownShare},
                       {"idle_cores", idle},
                       {"lag_s", lag},
                       {"not_done", static_cast<double>(delays.notDone)}});
        m_results.add("load", "bare", m_round,
                      {{"workplaces", count},
                       {"us_message", bareResult.cpu / static_cast<double>(bareResult.messages) * 1e6}});
        addTimes("value", "links", count, delays.values);
        addTimes("state way", "links", count, delays.ways);
        addTimes("state way", "bare", count, bareResult.publishes);
        addTimes("fid", "links", count, delays.fids);
        addTimes("fid", "bare", count, bareResult.trips);
        return whatGave({brokerShare, ownShare, lag, dropped}, delays, run.fleet().complete() == workplaces);
    }

    void addTimes(const std::string& work, const std::string& transport, double workplaces,
                  const std::vector<std::uint32_t>& times) {
        m_results.addTimes(work, transport, m_round,
                           {{"workplaces", workplaces}, {"count", static_cast<double>(times.size())}}, times);
    }

    struct Load {
        double broker = 0;  ///< processors
        double own = 0;
        double lag = 0;
        double dropped = 0;
    };

    static std::string whatGave(const Load& load, Delays delays, bool areComplete) {
        if (!areComplete)
            return "not all are complete any more";
        if (load.dropped > 0)
            return "the broker drops messages";
        std::sort(delays.ways.begin(), delays.ways.end());
        if (!delays.ways.empty() && delays.ways[delays.ways.size() * 99 / 100] > 1'000'000'000)
            return "a value in a hundred takes more than a second after its link has taken it";
        if (load.broker > 0.95)
            return "the broker's processor is full";
        if (load.broker + load.own > 0.9 * std::thread::hardware_concurrency())
            return "this machine's processors are full, the broker's share of one is " +
                   std::to_string(static_cast<int>(load.broker * 100)) + " %";
        if (load.lag > 1)
            return "the program cannot change the values at their pace any more";
        return {};
    }

    /// With the most that the machine could bear.
    void measureReturn() {
        const std::size_t workplaces = m_largest > 0 ? m_largest : m_amounts.workplaces.back();
        const auto count = static_cast<double>(workplaces);
        Run run(m_amounts, m_names, workplaces);
        run.fleet().start();
        const auto first = run.untilComplete();
        run.fleet().beginTraffic();
        // As long as a connection needs to count as a good one.
        std::this_thread::sleep_for(std::chrono::seconds(11));
        run.forgetCounts();
        run.broker().kill();
        std::this_thread::sleep_for(std::chrono::seconds(m_amounts.away));
        run.broker().start();
        const CpuClock clock({run.broker().pid()});
        const auto again = run.untilComplete();
        const double cpu = clock.seconds();
        if (!first || !again)
            throw std::runtime_error("not all workplaces are complete in time");
        const double costs = (cpu - m_costs.running * count * *again) / count;
        m_costs.publishing = std::max(0.0, costs - m_costs.connecting);
        m_results.add("return", "links", m_round,
                      {{"workplaces", count},
                       {"away_s", static_cast<double>(m_amounts.away)},
                       {"spread_s", static_cast<double>(m_amounts.spread)},
                       {"first_s", *first},
                       {"complete_s", *again},
                       {"broker_s", cpu},
                       {"broker_ms_workplace", costs * 1000}});
    }

    /// With the costs that were measured, or given.
    void simulate() {
        for (const std::size_t workplaces : {20, 200, 500, 1000, 2000, 5000, 100'000}) {
            for (const double spread : {5, 60}) {
                for (const double away : {5, 60, 600})
                    simulate({workplaces, away, spread, m_costs, static_cast<std::uint64_t>(m_round)});
            }
        }
    }
    void simulate(const ReturnModel::Plan& plan) {
        const ReturnModel::Outcome outcome = ReturnModel::run(plan);
        m_results.add("model", "links", m_round,
                      {{"workplaces", static_cast<double>(plan.workplaces)},
                       {"away_s", plan.away},
                       {"spread_s", plan.spread},
                       {"connecting_ms", plan.costs.connecting * 1000},
                       {"publishing_ms", plan.costs.publishing * 1000},
                       {"running_ms", plan.costs.running * 1000},
                       {"is_over", outcome.isOver ? 1.0 : 0.0},
                       {"half_s", outcome.half},
                       {"all_s", outcome.all},
                       {"queue_s", outcome.longestQueue},
                       {"refused", static_cast<double>(outcome.refused)},
                       {"unanswered", static_cast<double>(outcome.unanswered)}});
    }

    const Amounts& m_amounts;
    const Results& m_results;
    const ValueNames m_names;
    int m_round = 0;
    std::size_t m_largest = 0;
    ReturnModel::Costs m_costs;
};

void allowDescriptors() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
    Amounts amounts;
    bool isQuick = false;
    double connecting = 0;
    double publishing = 0;
    double running = 0;
    CLI::App app("Measures many linked workplaces at one broker.");
    app.add_option("--workplaces", amounts.workplaces,
                   "how many, one number after another until something gives")
        ->delimiter(',')
        ->check(CLI::Range(3, 10000));
    app.add_option("--drivers", amounts.drivers, "of each workplace")->check(CLI::Range(1, 1000));
    app.add_option("--values", amounts.values, "of each driver")->check(CLI::Range(1, 1000));
    app.add_option("--rounds", amounts.rounds, "how often everything is measured")->check(CLI::Range(1, 100));
    app.add_option("--seconds", amounts.seconds, "how long each load is measured")->check(CLI::Range(1, 600));
    app.add_option("--patience", amounts.patience, "seconds until all must be complete")
        ->check(CLI::Range(1, 3600));
    app.add_option("--spread", amounts.spread, "of the links, in seconds")->check(CLI::Range(0, 600));
    app.add_option("--away", amounts.away, "seconds that the broker is away")->check(CLI::Range(0, 600));
    app.add_flag("--plain-broker", amounts.isPlainBroker,
                 "leave out set_tcp_nodelay and max_queued_messages of the broker's settings");
    app.add_option("--only", amounts.only, "only these parts")
        ->check(CLI::IsMember({"memory", "load", "return", "model"}));
    app.add_option("--connecting-ms", connecting,
                   "for the model alone: the broker's work for one connection");
    app.add_option("--publishing-ms", publishing, "the same for all values of one workplace");
    app.add_option("--running-ms", running, "the same for each further second");
    app.add_flag("--quick", isQuick, "little of everything: shows that it works, not how fast");
    CLI11_PARSE(app, argc, argv);
    amounts.costs = {connecting / 1000, publishing / 1000, running / 1000};
    if (isQuick) {
        amounts.workplaces = {5};
        amounts.seconds = amounts.warmup = amounts.spread = amounts.away = 1;
        amounts.memoryWorkplaces = 5;
    }
    signal(SIGPIPE, SIG_IGN);
    allowDescriptors();
    try {
        const Results results(STDOUT_FILENO);
        Measurements measurements(amounts, results);
        for (int round = 1; round <= amounts.rounds; ++round)
            measurements.run(round);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_site: %s\n", e.what());
        return 1;
    }
    return 0;
}
