#include "SupervisedWorkplace.h"

#include <signal.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "Files.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds g_patience{120};

/// "D03,D04" for 3 and 5.
std::string driverIDs(int begin, int end) {
    std::string list;
    for (int driver = begin; driver < end; ++driver)
        list += (list.empty() ? "" : ",") + HostProgram::driverID(driver);
    return list;
}

template <class Condition>
void waitFor(const std::string& what, Condition condition) {
    const auto end = Clock::now() + g_patience;
    while (!condition()) {
        if (Clock::now() > end)
            throw std::runtime_error(what + ": not in time");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

}  // namespace

SupervisedWorkplace::SupervisedWorkplace(fs::path directory, int receivers, int victims,
                                         const Results& results)
    : m_directory(std::move(directory)),
      m_receivers(receivers),
      m_victims(victims),
      m_results(results),
      m_host({m_directory, 1 + receivers + victims}) {
    m_host.start();
    waitFor("the host's start (" + m_host.logFile().string() + " tells)",
            [this] { return m_host.log().find("HOST: the workplace is started") != std::string::npos; });
    // Values that become stale with their driver.
    for (int victim = 1 + m_receivers; victim <= m_receivers + m_victims; ++victim)
        m_host.type("sendFID " + HostProgram::driverID(victim) + ".SEND kind=0 count=1000 name=8 value=8");
}

fs::path SupervisedWorkplace::heardFile(int driver) const {
    return m_directory / HostProgram::driverID(driver);
}

std::optional<SupervisedWorkplace::Heard> SupervisedWorkplace::heardBy(int driver) const {
    const std::string bytes = textOf(heardFile(driver));
    std::array<std::uint64_t, 2> counts{};
    if (bytes.size() < sizeof counts)
        return std::nullopt;
    std::memcpy(counts.data(), bytes.data(), sizeof counts);
    Heard heard{counts[0], counts[1], {}};
    heard.delays.resize((bytes.size() - sizeof counts) / sizeof(std::uint32_t));
    std::memcpy(heard.delays.data(), bytes.data() + sizeof counts,
                heard.delays.size() * sizeof(std::uint32_t));
    return heard;
}

std::map<int, pid_t> SupervisedWorkplace::killByTurns(const Load& load) const {
    std::map<int, pid_t> killed;
    const auto begin = Clock::now();
    for (unsigned int kill = 0; kill < load.kills; ++kill) {
        // The last one is back before the load ends.
        const auto when = std::chrono::milliseconds(500 + (load.seconds * 1000 - 3000) * kill / load.kills);
        std::this_thread::sleep_until(begin + when);
        const int victim = 1 + m_receivers + static_cast<int>(kill) % m_victims;
        const pid_t process = m_host.processOf(victim);
        if (process == 0)
            throw std::runtime_error(HostProgram::driverID(victim) + " is not running: " + m_host.log());
        ::kill(process, SIGKILL);
        killed[victim] = process;
    }
    return killed;
}

void SupervisedWorkplace::waitUntilAllRunAgain(const std::map<int, pid_t>& killed) const {
    for (const auto& [driver, process] : killed)
        waitFor(HostProgram::driverID(driver) + " is started again", [&, id = driver, before = process] {
            const pid_t now = m_host.processOf(id);
            return now != 0 && now != before;
        });
}

void SupervisedWorkplace::measure(int round, const Load& load) {
    const auto each = std::uint64_t{load.rate} * load.seconds / static_cast<unsigned int>(m_receivers);
    for (int receiver = 1; receiver <= m_receivers; ++receiver) {
        fs::remove(heardFile(receiver));
        m_host.type("sendFID " + HostProgram::driverID(receiver) + ".WATCH count=" + std::to_string(each) +
                    " file=" + heardFile(receiver).string());
    }
    m_host.type("sendFID D00.LOAD to=" + driverIDs(1, 1 + m_receivers) +
                " beside=" + driverIDs(1 + m_receivers, 1 + m_receivers + m_victims) +
                " rate=" + std::to_string(load.rate) +
                " count=" + std::to_string(each * static_cast<unsigned int>(m_receivers)));
    const auto killed = killByTurns(load);

    Heard all;
    for (int receiver = 1; receiver <= m_receivers; ++receiver) {
        waitFor("the last FID to " + HostProgram::driverID(receiver),
                [&] { return fs::exists(heardFile(receiver)); });
        const auto heard = heardBy(receiver);
        if (!heard)
            throw std::runtime_error("what " + HostProgram::driverID(receiver) + " has heard cannot be read");
        all.lost += heard->lost;
        all.wrong += heard->wrong;
        all.delays.insert(all.delays.end(), heard->delays.begin(), heard->delays.end());
    }
    waitUntilAllRunAgain(killed);
    if (all.wrong > 0)
        throw std::runtime_error(std::to_string(all.wrong) + " FIDs came out of order");
    const double longest = *std::max_element(all.delays.begin(), all.delays.end());
    m_results.addTimes("scheduled fids", "drivers", round,
                       {{"rate", load.rate},
                        {"kills", load.kills},
                        {"fids", static_cast<double>(all.delays.size())},
                        {"lost", static_cast<double>(all.lost)},
                        {"max_us", longest / 1000}},
                       all.delays);
}
