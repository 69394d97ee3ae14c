// What crosses processes in a workplace, from driver to panel and from driver to driver, beside what one
// would carry it with instead. Everything real: the manager, the driver processes, the queues; only the panel
// target and the drivers are made for it. The links take turns within a round; every message is checked. One
// JSON object a line on standard output; --help tells how much is done.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BenchWorkplace.h"
#include "CallRun.h"
#include "DBusCallPeer.h"
#include "DBusStartPeer.h"
#include "DBusTripPeer.h"
#include "DBusUpdatePeer.h"
#include "ForkedWork.h"
#include "GrpcCallPeer.h"
#include "GrpcStartPeer.h"
#include "GrpcTripPeer.h"
#include "GrpcUpdatePeer.h"
#include "HostCallPeer.h"
#include "HostNews.h"
#include "HostRecorder.h"
#include "HostRequests.h"
#include "HostStartPeer.h"
#include "HostValues.h"
#include "PeerRun.h"
#include "Results.h"
#include "Sandbox.h"
#include "SupervisedWorkplace.h"
#include "UnixTripPeer.h"

namespace {

struct Amounts {
    int rounds = 5;
    double seconds = 1;  ///< that a measurement takes at least, beside its warm-up
    std::uint64_t stopped = 1'000'000;
    std::uint64_t full = 200'000;
    std::uint64_t countedValues = 40'000;
    std::vector<int> valueDrivers{1, 10, 50};
    int drivers = 64;
    int stoppedDrivers = 50;
    double idleSeconds = 5;
    int longRounds = 2;  ///< what takes long is measured in the first so many rounds only
    int pairs = 11;      ///< with something and without it, by turns, in all rounds together
    HostRequests::Times memoryTimes = {};
    unsigned int killSeconds = 10;
    unsigned int kills = 8;
    std::vector<int> startedDrivers{1, 10, 50};
    int starts = 3;
    int restarts = 10;                     ///< of one driver each
    std::chrono::seconds healthyTime{61};  ///< after it the host starts a driver again at once
    std::vector<std::string> only;

    bool wants(const std::string& part) const {
        return only.empty() || std::find(only.begin(), only.end(), part) != only.end();
    }
    /// A round's share of the pairs.
    int pairsOf(int round) const { return pairs * round / rounds - pairs * (round - 1) / rounds; }
};

/// A temporary directory in memory, for queues and sockets; gone with the object.
class Directory {
public:
    Directory() {
        std::string name = "/dev/shm/mfd-bench-XXXXXX";
        if (!mkdtemp(name.data()))
            throw std::runtime_error("no directory in /dev/shm");
        m_path = name;
    }
    ~Directory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    /// One that is not there yet.
    std::string next() { return m_path + "/" + std::to_string(++m_made); }
    /// One that is.
    std::string make() {
        const std::string path = next();
        std::filesystem::create_directory(path);
        return path;
    }

private:
    std::string m_path;
    int m_made = 0;
};

const UpdatePeerKind g_bus{"D-Bus", DBusUpdatePeer::makeBus};
const UpdatePeerKind g_direct{"D-Bus, two processes", DBusUpdatePeer::makeDirect};
const UpdatePeerKind g_deep{"gRPC", GrpcUpdatePeer::makeDeep};
const UpdatePeerKind g_shallow{"gRPC, 300 together", GrpcUpdatePeer::makeShallow};
const UpdatePeerKind g_small{"gRPC, 16 together", GrpcUpdatePeer::makeSmall};
const UpdatePeerKind g_deepRelayed{"gRPC, three processes", GrpcUpdatePeer::makeDeepRelayed};
const UpdatePeerKind g_shallowRelayed{"gRPC, 300 together, three processes",
                                      GrpcUpdatePeer::makeShallowRelayed};
const std::vector<TripPeerKind> g_tripPeers{{"AF_UNIX packets", UnixTripPeer::makePacket},
                                            {"AF_UNIX stream", UnixTripPeer::makeStream},
                                            {"D-Bus", DBusTripPeer::make},
                                            {"gRPC", GrpcTripPeer::make}};
const std::vector<CallPeerKind> g_callPeers{
    {"mfctl send to a driver process", "API, to a driver process", HostCallPeer::makeToProcess},
    {"mfctl send to a driver in the host's process", "API, to a driver in the host's process",
     HostCallPeer::makeInHost},
    {"busctl call", "D-Bus", DBusCallPeer::make},
    {"small gRPC client (in place of grpcurl)", "gRPC", GrpcCallPeer::make}};

/// One round of everything. What is compared is measured by turns, each time by processes that were started
/// for it.
class Round {
public:
    Round(const Amounts& amounts, int round, Directory& directory, const Results& results)
        : m_amounts(amounts), m_round(round), m_directory(directory), m_results(results) {}

    void run() {
        for (const Part& part : s_parts) {
            if (m_amounts.wants(part.name) && (!part.isLong || isLongRound()))
                (this->*part.measure)();
        }
    }

    static std::vector<std::string> parts() {
        std::vector<std::string> names;
        for (const Part& part : s_parts)
            names.emplace_back(part.name);
        return names;
    }

private:
    struct Part {
        const char* name;
        void (Round::*measure)();
        bool isLong;
    };
    static const std::vector<Part> s_parts;

    bool isLongRound() const { return m_round <= m_amounts.longRounds; }

    /// In a workplace of its own.
    void here(Request request, BenchWorkplace::Settings settings = {}) {
        settings.directory = m_directory.next();
        request.round = m_round;
        if (request.seconds == 0)
            request.seconds = m_amounts.seconds;
        BenchWorkplace workplace(settings, m_results);
        workplace.waitUntilStarted();
        workplace.measure(request);
    }
    void there(const UpdatePeerKind& kind, const Job& job) {
        PeerRun(m_directory.next(), m_results).updates(kind, job, m_amounts.seconds, m_round);
    }
    void both(const Job& job, const std::vector<UpdatePeerKind>& peers) {
        // Who is first in one round is last in the next.
        const bool isFirst = m_round % 2 == 1;
        if (isFirst)
            here({.kind = Request::EKind::Updates, .job = job}, {.drivers = 1});
        for (const UpdatePeerKind& kind : peers)
            there(kind, job);
        if (!isFirst)
            here({.kind = Request::EKind::Updates, .job = job}, {.drivers = 1});
    }

    void measureUpdates() {
        for (const auto kind : {Job::EKind::States, Job::EKind::Events})
            both({.kind = kind}, {g_bus, g_direct, g_deep, g_shallow, g_small});
        // Each is sent by itself, so there is but one gRPC.
        both({.kind = Job::EKind::Paced}, {g_bus, g_direct, g_deep});
    }
    void measureBursts() { both({.isInBursts = true}, {g_bus, g_direct, g_deep}); }
    void measureMerging() {
        for (const std::size_t names : {10, 100})
            both({.names = names}, {});
    }
    void measureSizes() {
        for (const std::size_t size : {8, 32, 128, 240})
            both({.kind = Job::EKind::Texts, .nameSize = size, .valueSize = size},
                 {g_bus, g_direct, g_deep, g_shallow, g_small});
    }
    /// Over the bus there are three processes anyway.
    void measureRelayed() {
        here({.kind = Request::EKind::Relayed});
        for (const UpdatePeerKind& kind : {g_deepRelayed, g_shallowRelayed})
            there(kind, {});
    }
    void measureFids() {
        for (const bool hasParameter : {false, true})
            here({.kind = Request::EKind::Fids, .hasParameter = hasParameter});
    }
    void measureStopped() {
        here({.kind = Request::EKind::Stopped, .job = {.count = m_amounts.stopped}});
        here({.kind = Request::EKind::Full, .job = {.count = m_amounts.full}});
    }

    void measureValues() {
        const HostValues host(m_results);
        for (const int drivers : m_amounts.valueDrivers) {
            for (const auto panel : {BenchWorkplace::EPanel::Empty, BenchWorkplace::EPanel::Store,
                                     BenchWorkplace::EPanel::Followed})
                here({.kind = Request::EKind::Values, .drivers = drivers},
                     {.drivers = drivers, .panel = panel});
            host.measure(m_directory.next(), drivers, m_amounts.seconds, m_round);
            host.measureFollow(m_directory.next(), {"reader"}, drivers, m_amounts.seconds, m_round);
        }
        host.measureFollow(m_directory.next(), {"slow reader", 50'000}, 1, m_amounts.seconds, m_round);
        host.measureCalls(m_directory.next(), m_amounts.countedValues, m_round);
    }

    void measureTrips() {
        for (const int cores : {1, 2}) {
            if (cores > static_cast<int>(std::thread::hardware_concurrency()))
                continue;
            here({.kind = Request::EKind::Trips}, {.cores = cores});
            for (const TripPeerKind& kind : g_tripPeers)
                PeerRun(m_directory.next(), m_results).trips(kind, m_amounts.seconds, cores, m_round);
        }
    }

    void measureCommands() {
        std::vector<CallPeerKind> kinds = g_callPeers;
        if (m_round % 2 == 0)
            std::reverse(kinds.begin(), kinds.end());
        for (const CallPeerKind& kind : kinds) {
            CallRun(m_directory.next(), m_results).programs(kind, m_amounts.seconds, m_round);
            CallRun(m_directory.next(), m_results).connection(kind, m_amounts.seconds, m_round);
        }
    }

    void measureRequests() {
        const HostRequests host(m_results);
        host.measureLoss(m_directory.next(), m_amounts.pairsOf(m_round), m_amounts.seconds, m_round);
        if (isLongRound())
            host.measureMemory(m_directory.next(), m_amounts.memoryTimes, m_round);
    }

    void measureRecorder() {
        const HostRecorder recorder(m_results);
        for (int pair = 0; pair < m_amounts.pairsOf(m_round); ++pair) {
            const bool isRecordedFirst = (m_round + pair) % 2 == 0;
            for (const bool isRecorded : {isRecordedFirst, !isRecordedFirst})
                recorder.measure(isRecorded, m_directory.next(), pair, m_amounts.seconds, m_round);
        }
    }

    void measureReaders() {
        const HostRecorder recorder(m_results);
        for (int pair = 0; pair < m_amounts.pairsOf(m_round); ++pair) {
            const bool isReadFirst = (m_round + pair) % 2 == 0;
            for (const bool isRead : {isReadFirst, !isReadFirst})
                recorder.measureRead(isRead ? 20 : 0, m_directory.next(), pair, m_amounts.seconds, m_round);
        }
    }

    void measurePages() {
        const HostRecorder recorder(m_results);
        for (int pair = 0; pair < m_amounts.pairsOf(m_round); ++pair) {
            const bool isShownFirst = (m_round + pair) % 2 == 0;
            for (const bool isShown : {isShownFirst, !isShownFirst})
                recorder.measureShown(isShown ? 1 : 0, m_directory.next(), pair, m_amounts.seconds, m_round);
        }
    }

    /// The observers are there from the start of a workplace to its end.
    void measureObservers() {
        for (int pair = 0; pair < m_amounts.pairsOf(m_round); ++pair) {
            const bool isObservedFirst = (m_round + pair) % 2 == 0;
            for (const int driversInHost : {0, 1}) {
                for (const bool isObserved : {isObservedFirst, !isObservedFirst})
                    here({.kind = Request::EKind::Observed, .pair = pair},
                         {.driversInHost = driversInHost, .isObserved = isObserved});
            }
        }
    }

    void measureFleet() {
        here({.kind = Request::EKind::Shutdown}, {.drivers = m_amounts.stoppedDrivers});
        here({.kind = Request::EKind::Memory}, {.drivers = m_amounts.drivers});
        here({.kind = Request::EKind::Idle, .seconds = m_amounts.idleSeconds},
             {.drivers = m_amounts.drivers});
        for (int drivers = 1; drivers <= m_amounts.drivers; drivers *= 2)
            here({.kind = Request::EKind::Updates, .drivers = drivers, .isSeries = true},
                 {.drivers = drivers});
    }

    /// The same with kills and without, first the one and then the other by turns.
    void measureKills() {
        for (const bool isFirst : {true, false}) {
            SupervisedWorkplace workplace(m_directory.next(), 4, 4, m_results);
            workplace.measure(m_round, {.seconds = m_amounts.killSeconds,
                                        .kills = m_amounts.kills,
                                        .isQuiet = isFirst == (m_round % 2 == 1)});
        }
    }

    /// Until each of so many drivers has answered its first message; then each of the first ones is killed.
    void measureStart(const std::string& name, StartPeer& peer, int drivers, int restarts) {
        m_results.add("start", name, m_round, {{"drivers", drivers}, {"ms", peer.start(drivers)}});
        for (int driver = 0; driver < restarts; ++driver)
            m_results.add("restart", name, m_round, {{"ms", peer.restart(driver)}});
    }

    void measureStarts() {
        for (const int drivers : m_amounts.startedDrivers) {
            const bool isMost = drivers == m_amounts.startedDrivers.back();
            for (int repetition = 0; repetition < m_amounts.starts; ++repetition) {
                const int restarts = isMost && repetition + 1 == m_amounts.starts ? m_amounts.restarts : 0;
                HostStartPeer host(m_directory.next(), "attached");
                measureStart(hostName("attached"), host, drivers, 0);
                DBusStartPeer bus(m_directory.make());
                measureStart("D-Bus activation", bus, drivers, restarts);
                ForkedWork::run([&, path = m_directory.make()] {
                    GrpcStartPeer calls(path);
                    measureStart("gRPC with a supervisor", calls, drivers, restarts);
                });
            }
            if (!isMost && (drivers == 1 || m_round == 1)) {
                HostStartPeer host(m_directory.next(), "second");
                measureStart(hostName("second"), host, drivers, 0);
            }
        }
        if (isLongRound())
            measureRestarts("attached");
        if (m_round == 1 && isLongRound())
            measureRestarts("second");
    }

    /// Before it restarts a driver at once the host wants to see it healthy, and with the full second a start
    /// takes as many seconds as there are drivers.
    void measureRestarts(const char* startWait) {
        HostStartPeer host(m_directory.next(), startWait);
        const std::string name = hostName(startWait);
        measureStart(name, host, m_amounts.startedDrivers.back(), 0);
        for (int driver = 0; driver < m_amounts.restarts; ++driver)
            m_results.add("restart by command", name, m_round, {{"ms", host.reload(driver)}});
        std::this_thread::sleep_for(m_amounts.healthyTime);
        for (int driver = 0; driver < m_amounts.restarts; ++driver)
            m_results.add("restart", name, m_round, {{"ms", host.restart(driver)}});
    }

    /// Of the same drivers as are killed by other measurements, and as often.
    void measureNews() {
        HostNews host(m_directory.next(), m_amounts.restarts);
        for (int driver = 0; driver < m_amounts.restarts; ++driver)
            m_results.add("news", "this system", m_round, {{"ms", host.kill(driver)}});
    }

    static std::string hostName(const std::string& startWait) {
        return "this system, --start-wait=" + startWait;
    }

    const Amounts& m_amounts;
    const int m_round;
    Directory& m_directory;
    const Results& m_results;
};

const std::vector<Round::Part> Round::s_parts{
    {"updates", &Round::measureUpdates, false},     {"bursts", &Round::measureBursts, false},
    {"relayed", &Round::measureRelayed, false},     {"merging", &Round::measureMerging, false},
    {"sizes", &Round::measureSizes, true},          {"fids", &Round::measureFids, false},
    {"observers", &Round::measureObservers, false}, {"recorder", &Round::measureRecorder, false},
    {"readers", &Round::measureReaders, false},     {"pages", &Round::measurePages, false},
    {"stopped", &Round::measureStopped, false},     {"values", &Round::measureValues, false},
    {"requests", &Round::measureRequests, false},   {"commands", &Round::measureCommands, false},
    {"trips", &Round::measureTrips, false},         {"kills", &Round::measureKills, false},
    {"news", &Round::measureNews, false},           {"starts", &Round::measureStarts, false},
    {"fleet", &Round::measureFleet, true}};

void run(const Amounts& amounts) {
    if (const std::string refusal = enterSandbox({}); !refusal.empty())
        throw std::runtime_error("no namespaces of its own: " + refusal);
    const Results results(dup(STDOUT_FILENO));
    Directory directory;
    for (int round = 1; round <= amounts.rounds; ++round)
        Round(amounts, round, directory, results).run();
}

}  // namespace

int main(int argc, char** argv) {
    Amounts amounts;
    bool isQuick = false;
    CLI::App app("Measures what crosses processes in a workplace.");
    app.add_option("--rounds", amounts.rounds, "how often everything is measured")->check(CLI::Range(1, 100));
    app.add_option("--long-rounds", amounts.longRounds, "how often what takes long is measured")
        ->check(CLI::Range(0, 100));
    app.add_option("--seconds", amounts.seconds, "how long a measurement takes at least, beside its warm-up")
        ->check(CLI::Range(0.01, 100.0));
    app.add_option("--drivers", amounts.drivers, "how many drivers are many")->check(CLI::Range(1, 64));
    app.add_option("--only", amounts.only, "only these parts")->check(CLI::IsMember(Round::parts()));
    app.add_flag("--quick", isQuick, "little of everything: shows that it works, not how fast");
    CLI11_PARSE(app, argc, argv);
    if (isQuick) {
        amounts.seconds = 0.05;
        amounts.stopped = amounts.full = 50'000;
        amounts.countedValues = 4'000;
        amounts.valueDrivers = {1, 2};
        amounts.idleSeconds = 1;
        amounts.pairs = 1;
        amounts.memoryTimes = {1, 1};
        amounts.killSeconds = 4;
        amounts.kills = 2;
        amounts.startedDrivers = {1, 2};
        amounts.starts = 1;
        amounts.restarts = 1;
        amounts.healthyTime = std::chrono::seconds(0);
        amounts.stoppedDrivers = std::min(amounts.drivers, 4);
        amounts.drivers = std::min(amounts.drivers, 4);
    }
    signal(SIGPIPE, SIG_IGN);
    // One that hangs ends the run.
    alarm(static_cast<unsigned int>(300 + 600 * amounts.rounds));
    try {
        run(amounts);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench: %s\n", e.what());
        return 1;
    }
    return 0;
}
