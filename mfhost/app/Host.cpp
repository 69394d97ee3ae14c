#include "Host.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <future>
#include <iostream>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <system_error>
#include <thread>
#include <utility>

#include "HostLog.h"
#include "IMDMConfiguration.h"
#include "InterfaceIds.h"
#include "MfDriverManager.h"
#include "Needed.h"
#include "PanelNames.h"
#include "Printable.h"
#include "QueueNames.h"
#include "TerminalModes.h"
#include "ThreadName.h"
#include "Words.h"
#include "WorkplaceCopy.h"
#include "WorkplaceFile.h"
#include "WorkplaceSnapshot.h"
#include "sal/Directory.h"
#include "sal/HostQueueDirectory.h"
#include "sal/Module.h"
#include "sal/Process.h"

namespace {

/// How long a terminal waits for a command before it offers the next prompt.
constexpr std::chrono::seconds s_promptDelay{2};
/// An output that is closed for good is not worth a line for each command.
constexpr std::chrono::minutes s_outputComplaintInterval{1};

/// What an end at once leaves for the last log lines and the queues.
constexpr std::chrono::milliseconds s_lastWords{300};

std::string signalName(int signal) {
    return std::string("SIG") + ::sigabbrev_np(signal);
}

/// A scan changes the working directory of the process, and may fail to change it back.
class WorkingDirectory {
public:
    WorkingDirectory()
        : m_fd(base::neededDescriptor(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC),
                                      "the working directory")) {}
    ~WorkingDirectory() { ::close(m_fd); }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

    void enter() const {
        if (::fchdir(m_fd) != 0)
            throw std::runtime_error(std::string("the working directory cannot be entered again: ") +
                                     std::strerror(errno));
    }

private:
    const int m_fd;
};

}  // namespace

Host::Host(Options options, StopSignals& signals, const sal::HostQueueDirectory& queueDirectory)
    : m_options(std::move(options)),
      m_signals(signals),
      m_queueDirectory(queueDirectory),
      m_roster(m_store),
      m_driverCalls(m_roster, m_surroundings),
      m_byHand(m_roster, [] { return sal::MessageQueue::statuses(); }),
      m_supervisor(
          m_roster,
          {.stopTimeout = m_options.stopTimeout,
           .hangTimeout = m_options.hangTimeout,
           .waitsUntilAttached = m_options.waitsUntilAttached,
           .restart = {.firstDelay = m_options.restartDelay, .limit = m_options.restartLimit}},
          {.activity = [this] { return m_commands.activity(); },
           .queues = [] { return sal::MessageQueue::statuses(); },
           .receiverGone = [](const std::string& name) { sal::MessageQueue::receiverGone(name); },
           .exitNow = [this](int exitCode) { exitNow(exitCode); },
           .restart =
               [this](const std::string& driverID) {
                   m_commands.postBehind("restart of " + driverID, [this, driverID] { restart(driverID); });
               },
           .refreshOthers = m_options.startDriverProcesses
                                ? std::function<void(const std::string&)>()
                                : [this](const std::string& driverID) { m_byHand.refresh(driverID); },
           .refusedQueues = [] { return sal::MessageQueue::refusals(); },
           .retireQueue = [](const std::string& name) { return sal::MessageQueue::retire(name); },
           .passQueue = [](const std::string& name) { sal::MessageQueue::passNextCreate(name); }}),
      m_system(std::set<std::string>(m_options.allowedCommands.begin(), m_options.allowedCommands.end()),
               [this](const std::string& line) {
                   return m_commands.post(line, [this, line] { execute(line, EOrigin::Driver); });
               }),
      m_admission(m_options.driverDirectories),
      m_hostCommands({.store = m_store,
                      .roster = m_roster,
                      .reply = [this]() -> std::ostream& { return *m_pReply; },
                      .quit = [this] { requestShutdown("quit", 0); },
                      .showModules = [this] { m_pManager->showModules(); },
                      .settle = [this] { settle(); }}),
      m_completion(m_roster, m_store),
      m_queueTrial(m_options.stopTimeout) {
    m_store.setRefresh([this](const std::string& driverID) { m_supervisor.refresh(driverID); });
}

Host::~Host() = default;

int Host::run() {
    if (m_options.console) {
        m_pConsole = std::make_unique<Console>(Console::Handlers{
            .line = [this](const std::string& line) { readConsoleLine(line); },
            .end =
                [this] {
                    if (!Console::isInteractive())
                        m_isStartOver.wait(false);
                    m_commands.stopWhenDone();
                },
            .complete = [this](const auto& before,
                               const auto& prefix) { return m_completion.words(before, prefix); }});
    }
    if (m_options.follow) {
        std::function<void()> redraw;
        if (m_pConsole && Console::isInteractive())
            redraw = [this] { m_pConsole->redraw(); };
        m_pFollow = std::make_unique<FollowPrinter>(*m_options.follow, STDOUT_FILENO, redraw);
        m_store.addListener(m_pFollow.get());
    }
    sal::Process::setObserver(&m_supervisor);
    sal::Module::setObserver(&m_driverCalls);
    sal::Directory::setFileFilter(&WorkplaceAdmission::acceptsDescriptor);

    m_supervisor.start();
    const auto onActivity = [this] {
        m_supervisor.wake();
        m_store.forgetSettled();
        recoverOutput();
        m_surroundings.restore("a driver in the host's process");
    };
    m_commands.start(
        onActivity, [this] { shutDown(); }, [this] { m_signals.interrupt(); });
    m_commands.post("start-up", [this] {
        startUp();
        m_isStartOver = true;
        m_isStartOver.notify_all();
    });
    bool isAsked = false;
    while (const int signal = m_signals.wait()) {
        if (isAsked) {
            hostLog(sal::LogOutput::eWarning)
                << signalName(signal) << " again: the host ends at once" << std::endl;
            exitNow(128 + signal);
        }
        isAsked = true;
        requestShutdown(signalName(signal), m_exitCode);
    }

    m_commands.join();
    // The printer uses the console.
    if (m_pConsole)
        m_pConsole->stop();
    if (m_pFollow)
        m_store.removeListener(m_pFollow.get());
    m_pFollow.reset();
    m_pConsole.reset();
    return m_exitCode;
}

void Host::startUp() {
    try {
        // A prompt would come in the middle of what the start prints.
        if (m_pConsole && !Console::isInteractive())
            m_pConsole->start();
        if (!startManager()) {
            requestShutdown("the start failed", 1);
            return;
        }
        m_isStarted = true;
        hostLog(sal::LogOutput::eInfo) << "the workplace is started" << std::endl;
        if (m_pConsole && Console::isInteractive())
            m_pConsole->start();
    } catch (const std::exception& error) {
        hostLog(sal::LogOutput::eCritical) << error.what() << std::endl;
        requestShutdown("the start failed", 1);
    }
}

bool Host::startManager() {
    const WorkplaceSnapshot workplace(m_options.config);
    std::string reason = workplace.refusal(m_options.requireSignature);
    if (reason.empty() && !m_admission.acceptsStart(workplace.file()))
        return false;
    if (reason.empty())
        reason = handToModule(workplace);
    if (!reason.empty()) {
        hostLog(sal::LogOutput::eCritical) << reason << "; the workplace is not started" << std::endl;
        return false;
    }
    m_pManager = std::make_unique<MfDriverManager>();
    if (!m_options.startDriverProcesses) {
        m_pManager->dontStartMFDs();
        hostLog(sal::LogOutput::eInfo)
            << "driver processes that are started by hand need MFD_QUEUE_DIR=" << m_queueDirectory.path()
            << std::endl;
    }
    m_pManager->init();
    m_pManager->setSystemInterface(&m_system);
    m_pManager->setVirtualPanelStateInterface(&m_store);
    m_hostCommands.registerCommands();
    m_completion.begin(m_processor.names());
    m_system.sender().setTarget(dynamic_cast<IFunctionID*>(m_pManager->queryInterface(IID_IFunctionID)));
    m_pConfiguration = dynamic_cast<IMDMConfiguration*>(m_pManager->queryInterface(IID_IMDMConfiguration));
    if (!m_pConfiguration) {
        hostLog(sal::LogOutput::eCritical) << "the module does not let drivers be configured" << std::endl;
        return false;
    }
    searchDrivers();
    return startDrivers(workplace);
}

void Host::searchDrivers() {
    const WorkingDirectory workingDirectory;
    std::set<std::pair<dev_t, ino_t>> searched;
    for (const std::string& directory : m_options.driverDirectories) {
        // The admission has said where there is none, and where there is something else.
        struct stat status {};
        const bool isTold = ::stat(directory.c_str(), &status) == 0;
        if (!isTold && errno != ENOENT)
            hostLog(sal::LogOutput::eWarning) << directory << " cannot be searched: " << std::strerror(errno)
                                              << "; no drivers are found there" << std::endl;
        if (isTold && S_ISDIR(status.st_mode) && searched.emplace(status.st_dev, status.st_ino).second) {
            const int before = describedCount();
            m_pConfiguration->searchMfDriver(directory);
            workingDirectory.enter();
            // The module leaves out without a word what it cannot enter.
            if (describedCount() == before &&
                !sal::Directory(sal::Path(directory)).getFileList("xml", sal::Directory::eSortByName).empty())
                hostLog(sal::LogOutput::eWarning)
                    << directory << ": none of its descriptors could be read; no drivers are found there"
                    << std::endl;
        }
    }
}

bool Host::startDrivers(const WorkplaceSnapshot& workplace) {
    m_roster.configure(workplace.file().entries(), workplace.file().isWhole());
    std::vector<std::string> processDrivers;
    for (const DriverRoster::Driver& driver : m_roster.drivers()) {
        if (isProcessDriver(driver))
            processDrivers.push_back(driver.id);
    }
    // endStart() tells it, where there is one.
    std::map<std::string, std::string> queueFaults = m_queueTrial.faults(processDrivers);
    const bool isComplete = m_pConfiguration->startMfDrivers(m_pCopy ? m_pCopy->path() : std::string());
    m_pManager->onMfDriversStarted();
    const bool hasPanel = m_roster.isRunning(protocol::panelDriverID);
    if (!hasPanel && !isComplete) {
        hostLog(sal::LogOutput::eCritical) << "PANEL: the panel driver does not start" << std::endl;
        return false;
    }
    for (const DriverRoster::Driver& driver : m_roster.drivers())
        endStart(driver, queueFaults[driver.id]);
    if (hasPanel) {
        if (!isComplete)
            hostLog(sal::LogOutput::eWarning) << "not every driver of " << m_options.config
                                              << " was started; those that run go on" << std::endl;
        return true;
    }
    DriverRoster::Driver panel;
    panel.type = protocol::panelType;
    panel.version = protocol::panelVersion;
    // Where none announces it the check has said so.
    if (isDescribed(panel))
        hostLog(sal::LogOutput::eWarning)
            << "PANEL: the panel driver does not start; the workplace runs without a panel driver"
            << std::endl;
    return true;
}

std::string Host::handToModule(const WorkplaceSnapshot& workplace) {
    if (workplace.path().empty())
        return {};
    if (!m_pCopy)
        m_pCopy = std::make_unique<WorkplaceCopy>();
    std::string reason = m_pCopy->take(workplace);
    // Only then the module has something to say of the file, and it knows the copy alone.
    const bool isNamed = !workplace.file().isWhole() || !workplace.signatureFault().empty();
    if (reason.empty() && isNamed && !std::exchange(m_isCopyNamed, true))
        hostLog(sal::LogOutput::eInfo) << "what was checked of " << workplace.path() << " is loaded from "
                                       << m_pCopy->path() << std::endl;
    return reason;
}

void Host::readConsoleLine(const std::string& line) {
    if (!Console::isInteractive()) {
        readScriptLine(line);
        return;
    }
    // The prompt waits for the reply, but not for a command that takes long.
    auto pDone = std::make_shared<std::promise<void>>();
    auto done = pDone->get_future();
    const bool isPosted = m_commands.post(line, [this, line, pDone] {
        execute(line, EOrigin::Console);
        pDone->set_value();
    });
    pDone.reset();
    if (!isPosted)
        std::cout << "the host is stopping or has too much to do; \"" << base::printable(line)
                  << "\" is ignored" << std::endl;
    else if (done.wait_for(s_promptDelay) == std::future_status::timeout)
        std::cout << "\"" << base::printable(line) << "\" goes on; its reply comes later" << std::endl;
}

void Host::readScriptLine(const std::string& line) {
    if (!m_isStartOver && base::splitWords(line).words == std::vector<std::string>{"quit"}) {
        // As at the end of the input, the drivers that are being started are not held to the shutdown's time.
        hostLog(sal::LogOutput::eInfo) << "shutting down: quit" << std::endl;
        m_commands.stopAfterCurrent();
        return;
    }
    m_isStartOver.wait(false);
    m_commands.postWaiting(line, [this, line] { execute(line, EOrigin::Console); });
}

void Host::execute(const std::string& line, EOrigin origin) {
    std::ostringstream driverReply;
    std::ostream& reply = origin == EOrigin::Console ? std::cout : driverReply;
    m_pReply = &reply;
    executeChecked(line, reply);
    m_pReply = nullptr;
    reply << std::flush;
    std::istringstream lines(driverReply.str());
    for (std::string text; std::getline(lines, text);)
        hostLog(sal::LogOutput::eInfo) << "a driver's command \"" << line << "\": " << text << std::endl;
}

void Host::executeChecked(const std::string& line, std::ostream& reply) {
    const std::vector<std::string> words = base::splitWords(line).words;
    if (!m_isStarted)
        return;
    const std::string command = words.empty() ? std::string() : words.front();
    if (command == "reloadDriver" && words.size() > 1 && words[1] != "--help") {
        reload(line, words[1], reply);
        return;
    }
    // Without an ID there is nothing to reload, only the command's use to tell.
    if (command == "reloadDriver") {
        m_processor.help(command, reply);
        return;
    }
    std::optional<StateStore::ConsoleMark> mark;
    if (HostCommands::setsState(command))
        mark.emplace();
    m_processor.execute(line, reply);
}

void Host::reload(const std::string& line, const std::string& driverID, std::ostream& reply) {
    const WorkplaceSnapshot workplace(m_options.config);
    const std::string reason = prepareReload(workplace, driverID);
    if (!reason.empty()) {
        reply << base::printable(driverID + " is not reloaded, nothing is unloaded: " + reason) << std::endl;
        return;
    }
    m_supervisor.beginReload(driverID);
    m_commands.setDriver(driverID);
    m_processor.execute(line, reply);
    m_commands.setDriver({});
    m_roster.configure(workplace.file().entries(), workplace.file().isWhole());
    endStart(driverID);
    // The old panel's macro system is gone with it.
    if (driverID == protocol::panelDriverID)
        m_pManager->onMfDriversStarted();
}

std::string Host::prepareReload(const WorkplaceSnapshot& workplace, const std::string& driverID) {
    if (workplace.path().empty())
        return "there is no configuration";
    std::string reason = workplace.refusal(m_options.requireSignature);
    if (reason.empty())
        reason = m_admission.reloadRefusal(workplace.file(), driverID);
    if (reason.empty())
        reason = queueFault(workplace, driverID);
    if (reason.empty())
        reason = handToModule(workplace);
    return reason;
}

std::string Host::queueFault(const WorkplaceSnapshot& workplace, const std::string& driverID) {
    const auto drivers = m_roster.drivers();
    const auto& entries = workplace.file().entries();
    const bool hasQueues = std::any_of(drivers.begin(), drivers.end(), [&](const auto& driver) {
        return driver.id == driverID && driver.interfaceType == EInterfaceTypes::Queue;
    });
    const bool getsQueues = std::any_of(entries.begin(), entries.end(), [&](const auto& entry) {
        return entry.driverID == driverID && entry.interfaceType == EInterfaceTypes::Queue;
    });
    return hasQueues || getsQueues ? m_queueTrial.fault(driverID) : std::string();
}

void Host::restart(const std::string& driverID) {
    if (!m_supervisor.beginRestart(driverID))
        return;
    std::string reason;
    try {
        reason = tryRestart(driverID);
    } catch (const std::exception& error) {
        // Memory or a descriptor, which the next try may have again.
        m_commands.setDriver({});
        reason = error.what();
    }
    if (!reason.empty())
        m_supervisor.endStart(driverID, reason);
}

std::string Host::tryRestart(const std::string& driverID) {
    const WorkplaceSnapshot workplace(m_options.config);
    const WorkplaceFile& file = workplace.file();
    const bool hasEntry = std::any_of(file.entries().begin(), file.entries().end(),
                                      [&](const auto& entry) { return entry.driverID == driverID; });
    // A file that is not whole, or must not be read, is so for a moment only: it does not say that the driver
    // has left it.
    const bool isGone = file.isWhole() && !hasEntry && workplace.refusal(m_options.requireSignature).empty();
    std::string reason = prepareReload(workplace, driverID);
    if (isGone || workplace.path().empty()) {
        m_supervisor.giveUp(driverID, reason);
        return {};
    }
    if (!reason.empty())
        return reason;
    m_roster.addRestart(driverID);
    m_commands.setDriver(driverID);
    m_pConfiguration->reloadMfDriver(driverID);
    m_commands.setDriver({});
    m_roster.configure(file.entries(), file.isWhole());
    endStart(driverID);
    // Of a process the supervisor says it, when it has come up.
    if (m_roster.isRunning(driverID) && !m_roster.hasProcess(driverID))
        hostLog(sal::LogOutput::eInfo) << driverID << ": is started again" << std::endl;
    return {};
}

void Host::endStart(const std::string& driverID) {
    for (const DriverRoster::Driver& driver : m_roster.drivers()) {
        if (driver.id == driverID)
            endStart(driver, {});
    }
}

void Host::endStart(const DriverRoster::Driver& driver, const std::string& queueFault) {
    if (!isProcessDriver(driver))
        return;
    const bool isToAsk = queueFault.empty() && !m_roster.isRunning(driver.id);
    m_supervisor.endStart(driver.id, isToAsk ? m_queueTrial.fault(driver.id) : queueFault);
}

bool Host::isProcessDriver(const DriverRoster::Driver& driver) const {
    return m_options.startDriverProcesses && driver.interfaceType == EInterfaceTypes::Queue &&
           isDescribed(driver);
}

int Host::describedCount() const {
    // The module publishes what it found.
    const auto entry = m_store.find(protocol::catalogueCountKey);
    return entry ? std::atoi(entry->value.text().c_str()) : 0;
}

bool Host::isDescribed(const DriverRoster::Driver& driver) const {
    const auto value = [this](const std::string& key) {
        const auto entry = m_store.find(key);
        return entry ? entry->value.text() : std::string();
    };
    const int count = describedCount();
    for (int i = 0; i < count; ++i) {
        const std::string key = protocol::catalogueKey + std::to_string(i);
        if (value(key + ".TYPE") == driver.type && value(key + ".VERSION") == driver.version)
            return true;
    }
    return false;
}

/// A script cannot look again as an operator at a terminal can: it waits until no driver has messages left
/// and nothing has arrived for a moment, a second at most.
void Host::settle() const {
    using Clock = std::chrono::steady_clock;
    if (Console::isInteractive())
        return;
    constexpr std::chrono::milliseconds quietTime{100};
    const auto limit = Clock::now() + std::chrono::seconds(1);
    auto quietSince = Clock::now();
    for (auto arrivals = m_store.arrivals(); Clock::now() < limit;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const auto queues = sal::MessageQueue::statuses();
        const bool isAllTaken =
            std::all_of(queues.begin(), queues.end(), [](const auto& queue) { return queue.depth == 0; });
        const auto arrived = m_store.arrivals();
        if (!isAllTaken || arrived != std::exchange(arrivals, arrived))
            quietSince = Clock::now();
        else if (Clock::now() - quietSince >= quietTime)
            return;
    }
}

/// A disk that is full for a moment must not silence standard output for good. What was printed meanwhile is
/// lost.
void Host::recoverOutput() {
    if (std::cout && !std::ferror(stdout))
        return;
    std::cout.clear();
    std::clearerr(stdout);
    const auto now = std::chrono::steady_clock::now();
    if (m_outputLost && now - *m_outputLost < s_outputComplaintInterval)
        return;
    m_outputLost.emplace(now);
    hostLog(sal::LogOutput::eWarning)
        << "standard output could not be written; what was printed is lost" << std::endl;
}

void Host::requestShutdown(const std::string& reason, int exitCode) {
    m_exitCode = exitCode;
    hostLog(sal::LogOutput::eInfo) << "shutting down: " << reason << std::endl;
    m_supervisor.beginShutdown(exitCode);
    m_commands.stopAfterCurrent();
}

void Host::shutDown() {
    m_supervisor.beginShutdown(m_exitCode);
    // Drivers' calls that come from now on find a host that has stopped taking commands; the sender stays
    // until no driver is left.
    m_pManager.reset();
    m_system.sender().setTarget(nullptr);
    m_pConfiguration = nullptr;
    m_supervisor.endProcesses();
    removeLeftQueues();
    sal::Process::setObserver(nullptr);
    sal::Module::setObserver(nullptr);
    hostLog(sal::LogOutput::eInfo) << "all drivers are stopped" << std::endl;
}

void Host::removeLeftQueues() const {
    for (const DriverRoster::Driver& driver : m_roster.drivers()) {
        if (!m_roster.hasProcess(driver.id))
            continue;
        // A process that was killed could not do it.
        for (const std::string& queue : {protocol::inputQueue(driver.id), protocol::outputQueue(driver.id)})
            static_cast<void>(sal::MessageQueue::retire(queue));
    }
    m_queueDirectory.removeLeft();
}

void Host::exitNow(int exitCode) const {
    restoreTerminalModes();
    // What was logged is worth a moment, but not a wait for a pipe whose reader has stopped.
    struct Flush {
        std::mutex mutex;
        std::condition_variable changed;
        bool isDone = false;
    };
    auto pFlush = std::make_shared<Flush>();
    try {
        std::thread([pFlush] {
            base::nameThread("last lines");
            sal::LogManager::getInstance()->flush();
            const std::lock_guard lock(pFlush->mutex);
            pFlush->isDone = true;
            pFlush->changed.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        // The log has the same moment to get along by itself.
    }
    // Nor is a process that has just been killed and still holds its queues.
    const auto end = std::chrono::steady_clock::now() + s_lastWords;
    while (!sal::HostQueueDirectory::removeNow() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    {
        std::unique_lock lock(pFlush->mutex);
        pFlush->changed.wait_until(lock, end, [&] { return pFlush->isDone; });
    }
    ::_exit(exitCode);
}
