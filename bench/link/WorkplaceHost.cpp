#include "WorkplaceHost.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <thread>

#include "BurstGate.h"
#include "CpuClock.h"
#include "FIDParameterList.h"
#include "Files.h"
#include "IFunctionID.h"
#include "IMDMConfiguration.h"
#include "InterfaceIds.h"
#include "JobLength.h"
#include "MessageCodes.h"
#include "OwnMemoryPeak.h"
#include "ProbeWorkplace.h"
#include "ProcessMemory.h"
#include "QueueNames.h"
#include "ThreadClock.h"
#include "UpdateFigures.h"
#include "sal/Module.h"

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

/// What the results call a panel.
const char* nameOf(BenchWorkplace::EPanel panel) {
    switch (panel) {
        case BenchWorkplace::EPanel::Checked:
            return "checked target";
        case BenchWorkplace::EPanel::Empty:
            return "empty target";
        case BenchWorkplace::EPanel::Store:
            return "store";
        case BenchWorkplace::EPanel::Followed:
            return "store, followed";
    }
    return "";
}

}  // namespace

WorkplaceHost::WorkplaceHost(BenchWorkplace::Settings settings, const Results& results)
    : m_settings(std::move(settings)),
      m_directory(m_settings.directory),
      m_results(results),
      m_reports(m_directory, [this](int driver, const std::string& count, const std::string& file) {
          send(static_cast<std::size_t>(driver), "REPORT", {{"count", count}, {"file", file}});
      }) {
    writeProbeWorkplace(m_directory, m_settings.drivers, m_settings.driversInHost);
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
    if (m_settings.panel == BenchWorkplace::EPanel::Followed) {
        m_pFollow = std::make_unique<FollowPrinter>("", open("/dev/null", O_WRONLY | O_CLOEXEC));
        m_store.addListener(m_pFollow.get());
    }
    sal::Process::setObserver(this);
    if (m_settings.isObserved) {
        sal::Module::setObserver(&m_tap);
        sal::MessageQueue::setObserver(&m_tap, sal::MessageQueue::EObserved::Sent);
    }
    m_pManager = std::make_unique<MfDriverManager>();
    m_pManager->init();
    m_pManager->setSystemInterface(&m_system);
    m_pManager->setVirtualPanelStateInterface(panel());
    m_pSender = dynamic_cast<IFunctionID*>(m_pManager->queryInterface(IID_IFunctionID));
    m_pConfiguration = dynamic_cast<IMDMConfiguration*>(m_pManager->queryInterface(IID_IMDMConfiguration));
    if (!m_pSender || !m_pConfiguration)
        throw std::runtime_error("the manager does not answer");
    m_system.sender().setTarget(m_pSender);
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
    sal::Module::setObserver(nullptr);
    sal::MessageQueue::setObserver(nullptr);
    if (m_pFollow)
        m_store.removeListener(m_pFollow.get());
}

IPanelState* WorkplaceHost::panel() {
    switch (m_settings.panel) {
        case BenchWorkplace::EPanel::Empty:
            return &m_empty;
        case BenchWorkplace::EPanel::Store:
        case BenchWorkplace::EPanel::Followed:
            return &m_store;
        case BenchWorkplace::EPanel::Checked:
            break;
    }
    return &m_target;
}

void WorkplaceHost::measure(const Request& request) {
    switch (request.kind) {
        case Request::EKind::Updates:
            return measureUpdates(request);
        case Request::EKind::Relayed:
            return measureRelayed(request);
        case Request::EKind::Fids:
        case Request::EKind::Observed:
            return measureFids(request);
        case Request::EKind::Trips:
            return measureTrips(request);
        case Request::EKind::Stopped:
        case Request::EKind::Full:
            return measureStopped(request);
        case Request::EKind::Values:
            return measureValues(request);
        case Request::EKind::Memory:
            return measureMemory(request);
        case Request::EKind::Idle:
            return measureIdle(request);
        case Request::EKind::Shutdown:
            return measureShutdown(request);
    }
}

void WorkplaceHost::processStarted(const sal::Process::Started& process) {
    m_processes.push_back(process);
}

void WorkplaceHost::awaitStart(int, unsigned int seconds) {
    std::vector<std::string> queues;
    for (int driver = 0; driver < m_settings.drivers; ++driver)
        queues.push_back(protocol::inputQueue(PanelTarget::driverID(static_cast<std::size_t>(driver))));
    const std::size_t most = 2 * std::max(std::thread::hardware_concurrency(), 1U) - 1;
    sal::MessageQueue::waitForReaders(queues, most, static_cast<int>(seconds) * 1000);
}

void WorkplaceHost::measureUpdates(const Request& request) {
    const auto drivers = static_cast<std::size_t>(request.drivers);
    Job job = request.job;
    const fs::path gateFile = m_directory / "gate";
    std::optional<BurstGate> gate;
    if (job.isInBursts)
        gate.emplace(gateFile);
    JobLength length(request.seconds, drivers * (gate ? BurstGate::s_size : 1));
    for (;;) {
        job.count = length.count() / drivers;
        Parameters parameters = parametersOf(job);
        if (gate)
            parameters.emplace_back("gate", gateFile);
        for (std::size_t driver = 0; driver < drivers; ++driver)
            m_target.expect(driver, job, gate ? &*gate : nullptr);
        const CpuClock cpu(processes());
        for (std::size_t driver = 0; driver < drivers; ++driver)
            send(driver, "SEND", parameters);
        std::int64_t first = INT64_MAX;
        std::int64_t last = 0;
        for (std::size_t driver = 0; driver < drivers; ++driver) {
            first = std::min(first, m_target.waitFor(driver, g_patience).time);
            last = std::max(last, m_target.check(driver).last());
        }
        const double used = cpu.seconds();
        const double seconds = static_cast<double>(last - first) / 1e9;
        if (!length.isEnough(seconds))
            continue;
        if (request.isSeries)
            m_results.add("drivers", g_product, request.round,
                          {{"drivers", request.drivers},
                           {"rate", static_cast<double>(job.count * drivers) / seconds},
                           {"seconds", seconds}});
        else
            UpdateFigures{job, seconds, used, m_target.check(0).count(), m_target.check(0).ages()}.add(
                m_results, g_product, request.round);
        return;
    }
}

void WorkplaceHost::measureRelayed(const Request& request) {
    Job job = request.job;
    JobLength length(request.seconds);
    for (;;) {
        job.count = length.count();
        m_target.expect(0, {});
        m_target.expect(1, {});
        Parameters parameters = parametersOf(job);
        send(1, "PANEL", parameters);
        parameters.emplace_back("to", PanelTarget::driverID(1));
        const CpuClock cpu(processes());
        send(0, "SEND", parameters);
        const std::int64_t first = m_target.waitFor(0, g_patience).time;
        const std::int64_t last = m_target.waitFor(1, g_patience).time;
        const double used = cpu.seconds();
        const double seconds = static_cast<double>(last - first) / 1e9;
        if (!length.isEnough(seconds))
            continue;
        UpdateFigures{job, seconds, used, job.count}.add(m_results, "drivers, panel in a process",
                                                         request.round);
        return;
    }
}

void WorkplaceHost::measureFids(const Request& request) {
    JobLength length(request.seconds);
    for (;;) {
        const std::string count = std::to_string(length.count());
        m_target.expect(0, {});
        m_target.expect(1, {});
        send(1, "EXPECT", {{"count", count}});
        Parameters parameters{{"to", PanelTarget::driverID(1)}, {"count", count}};
        if (request.hasParameter)
            parameters.emplace_back("parameter", "1");
        const CpuClock cpu(processes());
        const ThreadClock receiving(getpid(), PanelTarget::driverID(0) + " receive");
        send(0, "FIDS", parameters);
        const std::int64_t first = m_target.waitFor(0, g_patience).time;
        const std::int64_t last = m_target.waitFor(1, g_patience).time;
        const double used = cpu.seconds();
        const double seconds = static_cast<double>(last - first) / 1e9;
        const auto fids = static_cast<double>(length.count());
        if (!length.isEnough(seconds))
            continue;
        if (request.kind == Request::EKind::Observed)
            return m_results.add("observed fids",
                                 m_settings.driversInHost > 0 ? "to the host's process" : "to a process",
                                 request.round,
                                 {{"pair", request.pair},
                                  {"observed", m_settings.isObserved ? 1 : 0},
                                  {"thread_ns", receiving.seconds() * 1e9 / fids},
                                  {"rate", fids / seconds},
                                  {"seconds", seconds}});
        m_results.add(request.hasParameter ? "fids with a parameter" : "fids", g_product, request.round,
                      {{"rate", fids / seconds}, {"cpu_per_100k", used * 1e5 / fids}, {"seconds", seconds}});
        return;
    }
}

void WorkplaceHost::measureTrips(const Request& request) {
    const fs::path file = m_directory / "times";
    m_target.expect(0, {});
    send(1, "PEER", {{"id", PanelTarget::driverID(0)}});
    const auto milliseconds = static_cast<int>(request.seconds * 1000);
    send(0, "TRIPS",
         {{"to", PanelTarget::driverID(1)},
          {"warmup", std::to_string(milliseconds / 2)},
          {"time", std::to_string(milliseconds)},
          {"file", file.string()}});
    m_target.waitFor(0, g_patience);
    const std::string bytes = textOf(file);
    std::vector<std::uint32_t> times(bytes.size() / sizeof(std::uint32_t));
    std::memcpy(times.data(), bytes.data(), times.size() * sizeof times.front());
    m_results.addTimes("trips", g_product, request.round, {{"cores", m_settings.cores}}, times);
}

// While the target stands still the queue fills up and then the driver waits; afterwards everything arrives.
// The pages of the queue that the host reads are its own too; they count once, as the queue's.
void WorkplaceHost::measureStopped(const Request& request) {
    const bool isFull = request.kind == Request::EKind::Full;
    const Usage before = usage();
    OwnMemoryPeak peak;
    m_target.stop();
    if (isFull) {
        const std::string count = std::to_string(request.job.count);
        m_target.expect(0, {Job::EKind::States, 1});
        m_target.expect(1, {});
        send(1, "EXPECT", {{"count", count}});
        send(0, "FILL", {{"to", PanelTarget::driverID(1)}, {"count", count}});
    } else {
        m_target.expect(0, request.job);
        send(0, "SEND", parametersOf(request.job));
    }
    const sal::MessageQueue::Status queue = waitUntilFull(0);
    const double length = static_cast<double>(queue.bytes) / static_cast<double>(queue.messages);
    if (isFull && length < static_cast<double>(protocol::maximumLength - 1))
        throw std::runtime_error("messages of " + std::to_string(length) + " bytes do not fill the queue");
    const Usage stopped = usage();
    m_target.goOn();
    if (isFull)
        m_target.waitFor(1, g_patience);
    m_target.waitFor(0, g_patience);
    m_results.add(isFull ? "stopped target, full messages" : "stopped target", g_product, request.round,
                  {{"updates", static_cast<double>(request.job.count)},
                   {"held_messages", queue.highWater},
                   {"message_bytes", length},
                   {"resident_kib", stopped.resident - before.resident},
                   {"own_kib", stopped.own - before.own},
                   {"own_peak_kib", peak.end() - before.own},
                   {"queue_kib", std::max(stopped.queues, queueMemory()) - before.queues},
                   {"capacity_kib", queue.capacity * static_cast<double>(protocol::maximumLength) / 1024}});
}

void WorkplaceHost::measureValues(const Request& request) {
    m_reports.measure(request.drivers, request.seconds, m_results, nameOf(m_settings.panel), request.round);
}

void WorkplaceHost::measureMemory(const Request& request) {
    const double drivers = m_settings.drivers;
    double processProportional = 0;
    double processResident = 0;
    for (const auto& process : m_processes) {
        processProportional += ProcessMemory::proportional(process.pid);
        processResident += ProcessMemory::resident(process.pid);
    }
    m_results.add("memory", g_product, request.round,
                  {{"drivers", drivers},
                   {"resident_kib", (ProcessMemory::resident() - m_residentBefore) / drivers},
                   {"proportional_kib", (ProcessMemory::proportional() - m_proportionalBefore) / drivers},
                   {"process_proportional_kib", processProportional / drivers},
                   {"process_resident_kib", processResident / drivers},
                   {"queue_files_kib", queueMemory() / drivers}});
}

void WorkplaceHost::measureIdle(const Request& request) {
    const auto begin = Clock::now();
    const double before = threadTime();
    std::this_thread::sleep_for(std::chrono::duration<double>(request.seconds));
    const double used = threadTime() - before;
    m_results.add("idle", g_product, request.round,
                  {{"drivers", m_settings.drivers},
                   {"percent", used * 1e5 / millisecondsSince(begin) / m_settings.drivers}});
}

void WorkplaceHost::measureShutdown(const Request& request) {
    const auto begin = Clock::now();
    m_pManager.reset();
    const double managerGone = millisecondsSince(begin);
    waitForProcesses();
    m_results.add(
        "shutdown", g_product, request.round,
        {{"drivers", m_settings.drivers}, {"manager_ms", managerGone}, {"ms", millisecondsSince(begin)}});
}

void WorkplaceHost::send(std::size_t driver, const std::string& function,
                         const Parameters& parameters) const {
    FIDParameterList list;
    for (const auto& [name, value] : parameters)
        list.add(name, value);
    m_pSender->sendFID(PanelTarget::driverID(driver) + "." + function, list);
}

WorkplaceHost::Parameters WorkplaceHost::parametersOf(const Job& job) {
    return {{"kind", std::to_string(static_cast<int>(job.kind))},
            {"count", std::to_string(job.count)},
            {"name", std::to_string(job.nameSize)},
            {"value", std::to_string(job.valueSize)},
            {"names", std::to_string(job.names)}};
}

void WorkplaceHost::waitUntilDriversAnswer() {
    m_reports.report(m_settings.drivers, 1);
}

// Full is a queue that has not got a message further for half a second.
sal::MessageQueue::Status WorkplaceHost::waitUntilFull(std::size_t driver) const {
    sal::MessageQueue::Status found;
    for (int still = 0; still < 5;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        for (const auto& status : sal::MessageQueue::statuses()) {
            if (status.name != protocol::outputQueue(PanelTarget::driverID(driver)))
                continue;
            still = status.messages == found.messages && status.depth > 0 ? still + 1 : 0;
            found = status;
        }
    }
    return found;
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

WorkplaceHost::Usage WorkplaceHost::usage() const {
    return {ProcessMemory::resident(), ProcessMemory::own(), queueMemory()};
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
