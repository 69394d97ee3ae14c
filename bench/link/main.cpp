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
#include <vector>

#include "DBusStartPeer.h"
#include "DBusTripPeer.h"
#include "DBusUpdatePeer.h"
#include "ForkedWork.h"
#include "GrpcStartPeer.h"
#include "GrpcTripPeer.h"
#include "GrpcUpdatePeer.h"
#include "HostStartPeer.h"
#include "PeerRun.h"
#include "Results.h"
#include "Sandbox.h"
#include "SupervisedWorkplace.h"
#include "UnixTripPeer.h"
#include "Workplace.h"

namespace {

/// A few seconds of work for each measurement of a round.
struct Amounts {
    int rounds = 5;
    std::uint64_t updates = 500'000;
    std::uint64_t peerUpdates = 50'000;
    std::uint64_t fids = 300'000;
    std::uint64_t trips = 10'000;
    std::uint64_t paced = 5'000;
    std::uint64_t stopped = 1'000'000;
    int drivers = 64;
    int stoppedDrivers = 50;
    unsigned int idleSeconds = 5;
    int fleetRounds = 2;
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

const std::vector<UpdatePeerKind> g_updatePeers{{"D-Bus", true, DBusUpdatePeer::makeBus},
                                                {"D-Bus, two processes", true, DBusUpdatePeer::makeDirect},
                                                {"gRPC", false, GrpcUpdatePeer::makeDeep},
                                                {"gRPC, 300 together", false, GrpcUpdatePeer::makeShallow},
                                                {"gRPC, 16 together", true, GrpcUpdatePeer::makeSmall}};
const std::vector<TripPeerKind> g_tripPeers{{"AF_UNIX packets", UnixTripPeer::makePacket},
                                            {"AF_UNIX stream", UnixTripPeer::makeStream},
                                            {"D-Bus", DBusTripPeer::make},
                                            {"gRPC", GrpcTripPeer::make}};

Job peerJob(Job job, std::uint64_t count) {
    if (job.kind != Job::ePaced)
        job.count = count;
    return job;
}

void measureUpdates(const Amounts& amounts, int round, Directory& directory, const Results& results) {
    Workplace workplace({directory.next(), 2, 0}, results);
    workplace.waitUntilStarted();
    const PeerRun peers(directory.next(), results);
    const auto both = [&](const Job& job, bool isSweep) {
        workplace.measure({Request::eUpdates, round, job, 1, false, isSweep});
        for (const UpdatePeerKind& kind : g_updatePeers)
            peers.updates(kind, peerJob(job, kind.isSlow ? amounts.peerUpdates : job.count), round, isSweep);
    };
    // First, while the queues still have no more memory than at the start.
    if (amounts.wants("stopped"))
        workplace.measure({Request::eStopped, round, {Job::eStates, amounts.stopped, 8, 8}, 1, false, false});
    if (amounts.wants("updates")) {
        both({Job::eStates, amounts.updates, 8, 8}, false);
        both({Job::eEvents, amounts.updates, 8, 8}, false);
        both({Job::ePaced, amounts.paced, 8, 8}, false);
    }
    if (amounts.wants("sizes"))
        for (const std::size_t size : {8, 16, 32, 64, 128, 240})
            both({Job::eTexts, amounts.updates / 4, size, size}, true);
    if (amounts.wants("fids"))
        for (const bool hasParameter : {false, true})
            workplace.measure(
                {Request::eFids, round, {Job::eStates, amounts.fids, 8, 8}, 1, hasParameter, false});
    if (amounts.wants("reload"))
        workplace.measure({Request::eReload, round, {}, 1, false, false});
}

void measureTrips(const Amounts& amounts, int round, Directory& directory, const Results& results) {
    const PeerRun peers(directory.next(), results);
    for (const int cores : {1, 2}) {
        if (cores > static_cast<int>(std::thread::hardware_concurrency()))
            continue;
        Workplace workplace({directory.next(), 2, cores}, results);
        workplace.waitUntilStarted();
        workplace.measure({Request::eTrips, round, {Job::eStates, amounts.trips, 8, 8}, 2, false, false});
        for (const TripPeerKind& kind : g_tripPeers)
            peers.trips(kind, static_cast<unsigned int>(amounts.trips), cores, round);
    }
}

/// Each driver takes a second to start, so two workplaces start side by side.
void measureFleet(const Amounts& amounts, int round, Directory& directory, const Results& results) {
    Workplace leaving({directory.next(), amounts.stoppedDrivers, 0}, results);
    Workplace fleet({directory.next(), amounts.drivers, 0}, results);
    leaving.waitUntilStarted();
    fleet.waitUntilStarted();
    leaving.measure({Request::eShutdown, round, {}, amounts.stoppedDrivers, false, false});
    fleet.measure({Request::eMemory, round, {}, amounts.drivers, false, false});
    fleet.measure(
        {Request::eIdle, round, {Job::eStates, amounts.idleSeconds, 8, 8}, amounts.drivers, false, false});
    for (int drivers = 1; drivers <= amounts.drivers; drivers *= 2)
        fleet.measure(
            {Request::eUpdates, round, {Job::eStates, amounts.updates, 8, 8}, drivers, false, true});
}

/// The same with kills and without, first the one and then the other by turns.
void measureKills(const Amounts& amounts, int round, Directory& directory, const Results& results) {
    SupervisedWorkplace workplace(directory.next(), 4, 4, results);
    for (const bool isFirst : {true, false}) {
        const bool hasKills = isFirst == (round % 2 == 0);
        workplace.measure(round, {.seconds = amounts.killSeconds, .kills = hasKills ? amounts.kills : 0});
    }
}

/// Until each of so many drivers has answered its first message; then each of the first ones is killed.
void measureStart(const std::string& name, StartPeer& peer, int drivers, int restarts, int round,
                  const Results& results) {
    results.add("start", name, round, {{"drivers", drivers}, {"ms", peer.start(drivers)}});
    for (int driver = 0; driver < restarts; ++driver)
        results.add("restart", name, round, {{"ms", peer.restart(driver)}});
}

void measureHostStart(const Amounts& amounts, const char* startWait, int drivers, int restarts, int round,
                      Directory& directory, const Results& results) {
    HostStartPeer host(directory.next(), startWait);
    const std::string name = std::string("this system, --start-wait=") + startWait;
    measureStart(name, host, drivers, 0, round, results);
    if (restarts == 0)
        return;
    for (int driver = 0; driver < restarts; ++driver)
        results.add("restart by command", name, round, {{"ms", host.reload(driver)}});
    std::this_thread::sleep_for(amounts.healthyTime);
    for (int driver = 0; driver < restarts; ++driver)
        results.add("restart", name, round, {{"ms", host.restart(driver)}});
}

/// With the full second a start takes as many seconds as there are drivers, and before a restart at once the
/// host wants to see a driver healthy: both in some rounds only.
void measureStarts(const Amounts& amounts, int round, Directory& directory, const Results& results) {
    for (const int drivers : amounts.startedDrivers) {
        for (int repetition = 0; repetition < amounts.starts; ++repetition) {
            const bool isLast = drivers == amounts.startedDrivers.back() && repetition + 1 == amounts.starts;
            const int restarts = isLast ? amounts.restarts : 0;
            measureHostStart(amounts, "attached", drivers, round <= amounts.fleetRounds ? restarts : 0, round,
                             directory, results);
            DBusStartPeer bus(directory.make());
            measureStart("D-Bus activation", bus, drivers, restarts, round, results);
            ForkedWork::run([&, path = directory.make()] {
                GrpcStartPeer calls(path);
                measureStart("gRPC with a supervisor", calls, drivers, restarts, round, results);
            });
        }
        const bool isMost = drivers == amounts.startedDrivers.back();
        if (round <= amounts.fleetRounds || drivers == 1)
            measureHostStart(amounts, "second", drivers, isMost ? amounts.restarts : 0, round, directory,
                             results);
    }
}

void run(const Amounts& amounts) {
    if (const std::string refusal = enterSandbox({}); !refusal.empty())
        throw std::runtime_error("no namespaces of its own: " + refusal);
    const Results results(dup(STDOUT_FILENO));
    Directory directory;
    for (int round = 1; round <= amounts.rounds; ++round) {
        if (amounts.wants("updates") || amounts.wants("sizes") || amounts.wants("fids") ||
            amounts.wants("stopped") || amounts.wants("reload"))
            measureUpdates(amounts, round, directory, results);
        if (amounts.wants("trips"))
            measureTrips(amounts, round, directory, results);
        if (amounts.wants("kills"))
            measureKills(amounts, round, directory, results);
        if (amounts.wants("starts"))
            measureStarts(amounts, round, directory, results);
        if (amounts.wants("fleet") && round <= amounts.fleetRounds)
            measureFleet(amounts, round, directory, results);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Amounts amounts;
    bool isQuick = false;
    CLI::App app("Measures what crosses processes in a workplace.");
    app.add_option("--rounds", amounts.rounds, "how often everything is measured")->check(CLI::Range(1, 100));
    app.add_option("--fleet-rounds", amounts.fleetRounds, "how often of these with many drivers")
        ->check(CLI::Range(0, 100));
    app.add_option("--updates", amounts.updates, "how many updates a measurement sends")
        ->check(CLI::Range(1000, 1'000'000'000));
    app.add_option("--drivers", amounts.drivers, "how many drivers are many")->check(CLI::Range(1, 64));
    app.add_option("--only", amounts.only, "only these parts")
        ->check(CLI::IsMember(
            {"updates", "sizes", "fids", "stopped", "reload", "trips", "kills", "starts", "fleet"}));
    app.add_flag("--quick", isQuick, "little of everything: shows that it works, not how fast");
    CLI11_PARSE(app, argc, argv);
    if (isQuick) {
        amounts.updates = amounts.fids = 20'000;
        amounts.peerUpdates = 2'000;
        amounts.trips = amounts.paced = 500;
        amounts.stopped = 50'000;
        amounts.idleSeconds = 1;
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
