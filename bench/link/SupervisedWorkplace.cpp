#include "SupervisedWorkplace.h"

#include <signal.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "Files.h"
#include "Patience.h"
#include "UpdateSeries.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

/// How long after a kill FIDs are looked at, in nanoseconds.
constexpr std::int64_t g_afterKill = 250'000'000;

/// "D03,D04" for 3 and 5.
std::string driverIDs(int begin, int end) {
    std::string list;
    for (int driver = begin; driver < end; ++driver)
        list += (list.empty() ? "" : ",") + HostProgram::driverID(driver);
    return list;
}

}  // namespace

SupervisedWorkplace::SupervisedWorkplace(fs::path directory, int receivers, int victims,
                                         const Results& results)
    : m_directory(std::move(directory)),
      m_receivers(receivers),
      m_victims(victims),
      m_results(results),
      m_host({.directory = m_directory,
              .drivers = 1 + receivers + victims,
              .options = {"--start-wait=attached"}}) {
    m_host.start();
    m_host.waitUntilStarted();
    // Values that become stale with their driver.
    for (int victim = 1 + m_receivers; victim <= m_receivers + m_victims; ++victim)
        m_host.type("sendFID " + HostProgram::driverID(victim) + ".SEND kind=0 count=1000 name=8 value=8");
}

fs::path SupervisedWorkplace::heardFile(int driver) const {
    return m_directory / HostProgram::driverID(driver);
}

std::optional<SupervisedWorkplace::Heard> SupervisedWorkplace::heardBy(int driver) const {
    const std::string bytes = textOf(heardFile(driver));
    std::array<std::uint64_t, 3> counts{};
    if (bytes.size() < sizeof counts)
        return std::nullopt;
    std::memcpy(counts.data(), bytes.data(), sizeof counts);
    Heard heard{counts[0], counts[1], static_cast<std::int64_t>(counts[2]), {}};
    heard.delays.resize((bytes.size() - sizeof counts) / sizeof(std::uint32_t));
    std::memcpy(heard.delays.data(), bytes.data() + sizeof counts,
                heard.delays.size() * sizeof(std::uint32_t));
    return heard;
}

SupervisedWorkplace::Kills SupervisedWorkplace::killByTurns(const Load& load) const {
    Kills kills;
    const auto begin = Clock::now();
    for (unsigned int kill = 0; kill < load.kills; ++kill) {
        // The last one is back before the load ends.
        const auto when = std::chrono::milliseconds(500 + (load.seconds * 1000 - 3000) * kill / load.kills);
        std::this_thread::sleep_until(begin + when);
        if (!load.isQuiet) {
            const int victim = 1 + m_receivers + static_cast<int>(kill) % m_victims;
            const pid_t process = m_host.processOf(victim);
            if (process == 0)
                throw std::runtime_error(HostProgram::driverID(victim) + " is not running: " + m_host.log());
            ::kill(process, SIGKILL);
            kills.killed[victim] = process;
        }
        kills.times.push_back(UpdateSeries::now());
    }
    return kills;
}

std::vector<std::uint32_t> SupervisedWorkplace::longestAfter(const std::vector<std::int64_t>& kills,
                                                             const std::vector<Heard>& heard,
                                                             std::int64_t interval) {
    std::vector<std::uint32_t> longest(kills.size());
    for (const Heard& its : heard) {
        for (std::size_t number = 0; number < its.delays.size(); ++number) {
            const std::int64_t due = its.firstDue + static_cast<std::int64_t>(number) * interval;
            for (std::size_t kill = 0; kill < kills.size(); ++kill) {
                if (due >= kills[kill] && due < kills[kill] + g_afterKill)
                    longest[kill] = std::max(longest[kill], its.delays[number]);
            }
        }
    }
    return longest;
}

void SupervisedWorkplace::waitUntilAllRunAgain(const std::map<int, pid_t>& killed) const {
    for (const auto& [driver, process] : killed)
        waitUntil(HostProgram::driverID(driver) + " is started again", [&, id = driver, before = process] {
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
    const Kills kills = killByTurns(load);

    std::vector<Heard> heard;
    std::vector<std::uint32_t> delays;
    std::uint64_t lost = 0;
    std::uint64_t wrong = 0;
    for (int receiver = 1; receiver <= m_receivers; ++receiver) {
        waitUntil("the last FID to " + HostProgram::driverID(receiver),
                  [&] { return fs::exists(heardFile(receiver)); });
        const auto its = heardBy(receiver);
        if (!its)
            throw std::runtime_error("what " + HostProgram::driverID(receiver) + " has heard cannot be read");
        lost += its->lost;
        wrong += its->wrong;
        delays.insert(delays.end(), its->delays.begin(), its->delays.end());
        heard.push_back(*its);
    }
    waitUntilAllRunAgain(kills.killed);
    if (wrong > 0)
        throw std::runtime_error(std::to_string(wrong) + " FIDs came out of order");
    const double longest = *std::max_element(delays.begin(), delays.end());
    const double made = load.isQuiet ? 0 : load.kills;
    m_results.addTimes("scheduled fids", "drivers", round,
                       {{"rate", load.rate},
                        {"kills", made},
                        {"fids", static_cast<double>(delays.size())},
                        {"lost", static_cast<double>(lost)},
                        {"max_us", longest / 1000}},
                       delays);
    const std::int64_t interval = std::int64_t{1'000'000'000} * m_receivers / load.rate;
    for (const std::uint32_t after : longestAfter(kills.times, heard, interval))
        m_results.add("after a kill", "drivers", round, {{"kills", made}, {"longest_us", after / 1000.0}});
}
