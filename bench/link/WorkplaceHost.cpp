#include "WorkplaceHost.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "CpuClock.h"
#include "FIDParameterList.h"
#include "Files.h"
#include "IFunctionID.h"
#include "IMDMConfiguration.h"
#include "InterfaceIds.h"
#include "ProcessMemory.h"
#include "QueueNames.h"
#include "sal/MessageQueue.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int g_patience = 120;  ///< seconds that one measurement may take
constexpr const char* g_product = "drivers";

double millisecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

/// Processor time of the threads of this process, in seconds.
double threadTime() {
    double sum = 0;
    for (const auto& thread : fs::directory_iterator("/proc/self/task")) {
        std::ifstream file(thread.path() / "schedstat");
        double nanoseconds = 0;
        file >> nanoseconds;
        sum += nanoseconds * 1e-9;
    }
    return sum;
}

}  // namespace

WorkplaceHost::WorkplaceHost(const fs::path& directory, int drivers, int cores, const Results& results)
    : m_directory(directory), m_drivers(drivers), m_cores(cores), m_results(results) {
    fs::create_directories(m_directory / "queues");
    fs::permissions(m_directory / "queues", fs::perms::owner_all);
    fs::create_directories(m_directory / "drivers");
    fs::create_directories(m_directory / "work");
    fs::create_symlink(builtFile("lib/benchmodules/probe.so"), m_directory / "drivers" / "probe.so");
    std::ofstream(m_directory / "drivers" / "probe.xml")
        << "<mfDriverModule><module_type name=\"probe.so\" type=\"Probe\" "
           "version=\"1.0\"/></mfDriverModule>\n";
    std::ofstream workplace(m_directory / "workplace.xml");
    workplace << "<workplaces><workplace id=\"0\">";
    for (int i = 0; i < drivers; ++i) {
        const std::string id = PanelTarget::driverID(static_cast<std::size_t>(i));
        workplace << "<mainframeDriver driverID=\"" << id
                  << "\" driverType=\"Probe\" version=\"1.0\" workingDirectory=\"data/" << id
                  << "\" interfaceType=\"queue\"/>\n";
    }
    workplace << "</workplace></workplaces>\n" << std::flush;

    setenv("MFD_QUEUE_DIR", (m_directory / "queues").c_str(), 1);
    setenv("MFD_LOG_LEVEL", "2", 1);
    // Standard output is for the results.
    const int log = open((m_directory / "stdout").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    dup2(log, STDOUT_FILENO);
    close(log);
    fs::current_path(m_directory / "work");

    m_pLog = std::make_unique<sal::LogManager>(
        sal::LogManager::Settings{.level = sal::LogOutput::eError, .file = {}, .tag = {}});
    m_pCommands = std::make_unique<sal::CmdProcessor>();
    sal::Process::setObserver(this);
    m_pManager = std::make_unique<MfDriverManager>();
    m_pManager->init();
    m_pManager->setSystemInterface(&m_system);
    m_pManager->setVirtualPanelStateInterface(&m_target);
    m_pSender = dynamic_cast<IFunctionID*>(m_pManager->queryInterface(IID_IFunctionID));
    m_pConfiguration = dynamic_cast<IMDMConfiguration*>(m_pManager->queryInterface(IID_IMDMConfiguration));
    if (!m_pSender || !m_pConfiguration)
        throw std::runtime_error("the manager does not answer");
    m_pConfiguration->searchMfDriver(m_directory / "drivers");
    m_residentBefore = ProcessMemory::resident();
    m_proportionalBefore = ProcessMemory::proportional();
    if (!m_pConfiguration->startMfDrivers(m_directory / "workplace.xml"))
        throw std::runtime_error("the drivers do not start; " + (m_directory / "stdout").string() + " tells");
    m_pManager->onMfDriversStarted();
    waitUntilDriversAnswer();
}

WorkplaceHost::~WorkplaceHost() {
    m_pManager.reset();
    waitForProcesses();
    sal::Process::setObserver(nullptr);
}

void WorkplaceHost::measure(const Request& request) {
    switch (request.kind) {
        case Request::eUpdates:
            return measureUpdates(request);
        case Request::eFids:
            return measureFids(request);
        case Request::eTrips:
            return measureTrips(request);
        case Request::eStopped:
            return measureStopped(request);
        case Request::eReload:
            return measureReload(request);
        case Request::eMemory:
            return measureMemory(request);
        case Request::eIdle:
            return measureIdle(request);
        case Request::eShutdown:
            return measureShutdown(request);
    }
}

void WorkplaceHost::processStarted(const sal::Process::Started& process) {
    m_processes.push_back(process);
}

void WorkplaceHost::measureUpdates(const Request& request) {
    const auto drivers = static_cast<std::size_t>(request.drivers);
    Job job = request.job;
    job.count = std::max<std::uint64_t>(1, job.count / drivers);
    for (std::size_t driver = 0; driver < drivers; ++driver)
        m_target.expect(driver, job);
    const CpuClock cpu(processes());
    for (std::size_t driver = 0; driver < drivers; ++driver)
        sendJob(driver, job);
    std::int64_t first = INT64_MAX;
    std::int64_t last = 0;
    for (std::size_t driver = 0; driver < drivers; ++driver) {
        first = std::min(first, m_target.waitFor(driver, g_patience).time);
        last = std::max(last, m_target.check(driver).last());
    }
    const double used = cpu.seconds();
    const auto count = static_cast<double>(job.count * drivers);
    const double rate = count * 1e9 / static_cast<double>(last - first);
    if (job.kind == Job::ePaced)
        m_results.addTimes("latency", g_product, request.round, {}, m_target.check(0).ages());
    else if (request.isSweep && job.kind == Job::eTexts)
        m_results.add("sizes", g_product, request.round,
                      {{"name_bytes", static_cast<double>(job.nameSize)},
                       {"value_bytes", static_cast<double>(job.valueSize)},
                       {"rate", rate}});
    else if (request.isSweep)
        m_results.add("drivers", g_product, request.round,
                      {{"drivers", static_cast<double>(drivers)}, {"rate", rate}});
    else
        m_results.add(Job::name(job.kind), g_product, request.round,
                      {{"rate", rate}, {"cpu_per_100k", used * 1e5 / count}});
}

void WorkplaceHost::measureFids(const Request& request) {
    const std::string count = std::to_string(request.job.count);
    m_target.expect(0, {});
    m_target.expect(1, {});
    send(1, "EXPECT", {{"count", count}});
    Parameters parameters{{"to", PanelTarget::driverID(1)}, {"count", count}};
    if (request.hasParameter)
        parameters.emplace_back("parameter", "1");
    const CpuClock cpu(processes());
    send(0, "FIDS", parameters);
    const std::int64_t first = m_target.waitFor(0, g_patience).time;
    const std::int64_t last = m_target.waitFor(1, g_patience).time;
    const double used = cpu.seconds();
    const auto fids = static_cast<double>(request.job.count);
    m_results.add(
        request.hasParameter ? "fids with a parameter" : "fids", g_product, request.round,
        {{"rate", fids * 1e9 / static_cast<double>(last - first)}, {"cpu_per_100k", used * 1e5 / fids}});
}

void WorkplaceHost::measureTrips(const Request& request) {
    const fs::path file = m_directory / "times";
    m_target.expect(0, {});
    send(1, "PEER", {{"id", PanelTarget::driverID(0)}});
    send(0, "TRIPS",
         {{"to", PanelTarget::driverID(1)},
          {"count", std::to_string(request.job.count)},
          {"file", file.string()}});
    m_target.waitFor(0, g_patience);
    std::vector<std::uint32_t> times(request.job.count);
    std::ifstream(file, std::ios::binary)
        .read(reinterpret_cast<char*>(times.data()),
              static_cast<std::streamsize>(times.size() * sizeof times.front()));
    m_results.addTimes("trips", g_product, request.round, {{"cores", m_cores}}, times);
}

// While the target stands still the queue fills up and then the driver waits; afterwards everything arrives.
// What the host takes for it shows at the latest then: the pages of the queue that it reads are its own too.
void WorkplaceHost::measureStopped(const Request& request) {
    const double residentBefore = ProcessMemory::resident();
    const double queuesBefore = queueMemory();
    ProcessMemory::forgetPeak();
    m_target.expect(0, request.job);
    m_target.stop();
    sendJob(0, request.job);
    // Until the driver has not got a message further for half a second.
    std::uint64_t sent = 0;
    double capacity = 0;
    unsigned int highWater = 0;
    for (int still = 0; still < 5;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        for (const auto& status : sal::MessageQueue::statuses()) {
            if (status.name != protocol::outputQueue(PanelTarget::driverID(0)))
                continue;
            still = status.messages == sent && sent > 0 ? still + 1 : 0;
            sent = status.messages;
            capacity = status.capacity;
            highWater = status.highWater;
        }
    }
    const double stoppedHost = ProcessMemory::resident() - residentBefore;
    const double stoppedQueues = queueMemory() - queuesBefore;
    m_target.goOn();
    m_target.waitFor(0, g_patience);
    m_results.add("stopped target", g_product, request.round,
                  {{"updates", static_cast<double>(request.job.count)},
                   {"held_messages", highWater},
                   {"host_kib", stoppedHost},
                   {"queue_kib", stoppedQueues},
                   {"host_peak_kib", ProcessMemory::peak() - residentBefore},
                   {"capacity_kib", capacity}});
}

void WorkplaceHost::measureReload(const Request& request) {
    const auto begin = Clock::now();
    if (!m_pConfiguration->reloadMfDriver(PanelTarget::driverID(0)))
        throw std::runtime_error("the reload failed");
    const double back = millisecondsSince(begin);
    waitUntilDriversAnswer();
    m_results.add("reload", g_product, request.round,
                  {{"ms", back}, {"answers_ms", millisecondsSince(begin)}});
}

void WorkplaceHost::measureMemory(const Request& request) {
    const double resident = ProcessMemory::resident() - m_residentBefore;
    const double proportional = ProcessMemory::proportional() - m_proportionalBefore;
    m_results.add("memory", g_product, request.round,
                  {{"drivers", m_drivers},
                   {"resident_kib", resident / m_drivers},
                   {"proportional_kib", proportional / m_drivers},
                   {"queue_files_kib", queueMemory() / m_drivers}});
}

void WorkplaceHost::measureIdle(const Request& request) {
    const auto begin = Clock::now();
    const double before = threadTime();
    std::this_thread::sleep_for(std::chrono::seconds(request.job.count));
    const double used = threadTime() - before;
    m_results.add("idle", g_product, request.round,
                  {{"drivers", m_drivers}, {"percent", used * 1e5 / millisecondsSince(begin) / m_drivers}});
}

void WorkplaceHost::measureShutdown(const Request& request) {
    const auto begin = Clock::now();
    m_pManager.reset();
    const double managerGone = millisecondsSince(begin);
    waitForProcesses();
    m_results.add("shutdown", g_product, request.round,
                  {{"drivers", m_drivers}, {"manager_ms", managerGone}, {"ms", millisecondsSince(begin)}});
}

void WorkplaceHost::send(std::size_t driver, const std::string& function,
                         const Parameters& parameters) const {
    FIDParameterList list;
    for (const auto& [name, value] : parameters)
        list.add(name, value);
    m_pSender->sendFID(PanelTarget::driverID(driver) + "." + function, list);
}

void WorkplaceHost::sendJob(std::size_t driver, const Job& job) const {
    send(driver, "SEND",
         {{"kind", std::to_string(job.kind)},
          {"count", std::to_string(job.count)},
          {"name", std::to_string(job.nameSize)},
          {"value", std::to_string(job.valueSize)}});
}

void WorkplaceHost::waitUntilDriversAnswer() {
    const Job job{Job::eStates, 1, 8, 8};
    for (std::size_t driver = 0; driver < static_cast<std::size_t>(m_drivers); ++driver) {
        m_target.expect(driver, job);
        sendJob(driver, job);
    }
    for (std::size_t driver = 0; driver < static_cast<std::size_t>(m_drivers); ++driver)
        m_target.waitFor(driver, g_patience);
}

std::vector<pid_t> WorkplaceHost::processes() const {
    std::vector<pid_t> result{getpid()};
    for (const auto& process : m_processes) {
        pollfd fd{process.pidFd, POLLIN, 0};
        if (poll(&fd, 1, 0) == 0)
            result.push_back(process.pid);
    }
    return result;
}

void WorkplaceHost::waitForProcesses() {
    for (const auto& process : m_processes) {
        siginfo_t info{};
        waitid(P_PIDFD, static_cast<id_t>(process.pidFd), &info, WEXITED);
        close(process.pidFd);
    }
    m_processes.clear();
}

double WorkplaceHost::queueMemory() const {
    double blocks = 0;
    for (const auto& file : fs::directory_iterator(m_directory / "queues")) {
        struct stat info {};
        if (stat(file.path().c_str(), &info) == 0)
            blocks += static_cast<double>(info.st_blocks);
    }
    return blocks / 2;
}
