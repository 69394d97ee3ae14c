#include "SupervisedWorkplace.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "PanelTarget.h"
#include "sal/Path.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds g_patience{120};

fs::path builtFile(const std::string& name) {
    return fs::canonical(fs::path(sal::Path::getExeBasePath().getPathString()) / ".." / name);
}

std::string driverID(int driver) {
    return PanelTarget::driverID(static_cast<std::size_t>(driver));
}

/// "D03,D04" for 3 and 5.
std::string driverIDs(int begin, int end) {
    std::string list;
    for (int driver = begin; driver < end; ++driver)
        list += (list.empty() ? "" : ",") + driverID(driver);
    return list;
}

std::string textOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

pid_t parentOf(pid_t pid) {
    const std::string stat = textOf("/proc/" + std::to_string(pid) + "/stat");
    const auto nameEnd = stat.rfind(')');
    if (nameEnd == std::string::npos)
        return 0;
    char state = 0;
    pid_t parent = 0;
    std::istringstream(stat.substr(nameEnd + 1)) >> state >> parent;
    return parent;
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
    : m_directory(std::move(directory)), m_receivers(receivers), m_victims(victims), m_results(results) {
    writeFiles();
    std::array<int, 2> input{};
    if (pipe2(input.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    m_host.emplace([this, &input] { runHost(input[0]); });
    close(input[0]);
    m_input = input[1];
    waitFor("the host's start (" + (m_directory / "log").string() + " tells)",
            [this] { return log().find("HOST: the workplace is started") != std::string::npos; });
    // Values that become stale with their driver.
    for (int victim = 1 + m_receivers; victim <= m_receivers + m_victims; ++victim)
        type("sendFID " + driverID(victim) + ".SEND kind=0 count=1000 name=8 value=8");
}

SupervisedWorkplace::~SupervisedWorkplace() {
    // The end of its input ends the host.
    close(m_input);
    const auto end = Clock::now() + std::chrono::seconds(10);
    while (m_host->isRunning() && Clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

void SupervisedWorkplace::writeFiles() const {
    for (const char* name : {"drivers", "work", "queues"})
        fs::create_directories(m_directory / name);
    fs::permissions(m_directory / "queues", fs::perms::owner_all);
    fs::create_symlink(builtFile("lib/benchmodules/probe.so"), m_directory / "drivers" / "probe.so");
    std::ofstream(m_directory / "drivers" / "probe.xml")
        << "<mfDriverModule><module_type name=\"probe.so\" type=\"Probe\" "
           "version=\"1.0\"/></mfDriverModule>\n";
    std::ofstream workplace(m_directory / "workplace.xml");
    workplace << "<workplaces><workplace id=\"0\">\n";
    for (int driver = 0; driver <= m_receivers + m_victims; ++driver)
        workplace << "<mainframeDriver driverID=\"" << driverID(driver)
                  << "\" driverType=\"Probe\" version=\"1.0\" workingDirectory=\"data/" << driverID(driver)
                  << "\" interfaceType=\"queue\"/>\n";
    workplace << "</workplace></workplaces>\n";
}

void SupervisedWorkplace::runHost(int input) const {
    const int log = open((m_directory / "log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(input, STDIN_FILENO);
    dup2(log, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
    setenv("MFD_QUEUE_DIR", (m_directory / "queues").c_str(), 1);
    const std::string program = builtFile("bin/mfhost");
    execl(program.c_str(), program.c_str(), "--drivers", builtFile("lib/mfdrivers").c_str(), "--drivers",
          (m_directory / "drivers").c_str(), "--config", (m_directory / "workplace.xml").c_str(), "--workdir",
          (m_directory / "work").c_str(), nullptr);
    _exit(127);
}

void SupervisedWorkplace::type(const std::string& line) const {
    const std::string text = line + "\n";
    if (write(m_input, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("the host takes no commands: " + log());
}

std::string SupervisedWorkplace::log() const {
    return textOf(m_directory / "log");
}

fs::path SupervisedWorkplace::heardFile(int driver) const {
    return m_directory / driverID(driver);
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

pid_t SupervisedWorkplace::processOf(int driver) const {
    const std::string title = driverID(driver) + " MFD Console";
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid > 0 && parentOf(pid) == m_host->pid() && textOf(entry.path() / "cmdline").starts_with(title))
            return pid;
    }
    return 0;
}

std::map<int, pid_t> SupervisedWorkplace::killByTurns(const Load& load) const {
    std::map<int, pid_t> killed;
    const auto begin = Clock::now();
    for (unsigned int kill = 0; kill < load.kills; ++kill) {
        // The last one is back before the load ends.
        const auto when = std::chrono::milliseconds(500 + (load.seconds * 1000 - 3000) * kill / load.kills);
        std::this_thread::sleep_until(begin + when);
        const int victim = 1 + m_receivers + static_cast<int>(kill) % m_victims;
        const pid_t process = processOf(victim);
        if (process == 0)
            throw std::runtime_error(driverID(victim) + " is not running: " + log());
        ::kill(process, SIGKILL);
        killed[victim] = process;
    }
    return killed;
}

void SupervisedWorkplace::waitUntilAllRunAgain(const std::map<int, pid_t>& killed) const {
    for (const auto& [driver, process] : killed)
        waitFor(driverID(driver) + " is started again", [&, id = driver, before = process] {
            const pid_t now = processOf(id);
            return now != 0 && now != before;
        });
}

void SupervisedWorkplace::measure(int round, const Load& load) {
    const auto each = std::uint64_t{load.rate} * load.seconds / static_cast<unsigned int>(m_receivers);
    for (int receiver = 1; receiver <= m_receivers; ++receiver) {
        fs::remove(heardFile(receiver));
        type("sendFID " + driverID(receiver) + ".WATCH count=" + std::to_string(each) +
             " file=" + heardFile(receiver).string());
    }
    type("sendFID D00.LOAD to=" + driverIDs(1, 1 + m_receivers) + " beside=" +
         driverIDs(1 + m_receivers, 1 + m_receivers + m_victims) + " rate=" + std::to_string(load.rate) +
         " count=" + std::to_string(each * static_cast<unsigned int>(m_receivers)));
    const auto killed = killByTurns(load);

    Heard all;
    for (int receiver = 1; receiver <= m_receivers; ++receiver) {
        waitFor("the last FID to " + driverID(receiver), [&] { return fs::exists(heardFile(receiver)); });
        const auto heard = heardBy(receiver);
        if (!heard)
            throw std::runtime_error("what " + driverID(receiver) + " has heard cannot be read");
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
