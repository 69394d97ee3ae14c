#include "Host.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "AlarmNotice.h"
#include "FIDHelper.h"
#include "FidWatch.h"
#include "HostLog.h"
#include "IMDMConfiguration.h"
#include "InterfaceIds.h"
#include "MfDriverManager.h"
#include "QueueNames.h"
#include "RecordingPlace.h"
#include "TerminalModes.h"
#include "TerminalRelay.h"
#include "TerminalView.h"
#include "ThreadName.h"
#include "Words.h"
#include "sal/Directory.h"
#include "sal/HostQueueDirectory.h"
#include "sal/MessageQueue.h"
#include "sal/Module.h"
#include "sal/Path.h"
#include "sal/Process.h"

namespace {

/// What an end at once leaves for the last log lines and the queues.
constexpr std::chrono::milliseconds s_lastWords{300};
constexpr std::chrono::milliseconds s_sendersPatience{200};
constexpr std::chrono::seconds s_recordingPatience{5};
/// The exit code of a host that was given lines which failed.
constexpr int s_linesFailed = 3;
/// In the working directory, which a start leaves as it is.
constexpr const char* s_parkMarks = "mfhost.parked";
constexpr const char* s_history = "mfhost.history";

/// Null where there is no memory for a stream.
std::unique_ptr<Recorder> makeRecorder(const Options& options, const RingPlace& place,
                                       std::vector<RingPlace::Left> left) {
    if (!place.ring())
        return nullptr;
    const auto report = [](const std::string& line, bool isGoodNews) {
        hostLog(isGoodNews ? sal::LogOutput::eInfo : sal::LogOutput::eWarning) << line << std::endl;
    };
    Recorder::Settings settings{.directory = {}, .keep = options.recordKeep, .secrets = options.secrets};
    if (options.records)
        settings.directory = recordingDirectory(options);
    return std::make_unique<Recorder>(*place.ring(), std::move(settings), std::move(left), report);
}

std::string signalName(int signal) {
    return std::string("SIG") + ::sigabbrev_np(signal);
}

}  // namespace

Host::Host(Options options, StopSignals& signals, const sal::HostQueueDirectory& queueDirectory,
           ControlSocket& controlSocket, WebPort& webPort, ServiceManager& service, LineOwner& lineOwner,
           RingPlace& ringPlace, std::vector<RingPlace::Left> leftRings, TerminalRelay* pRelay)
    : m_options(std::move(options)),
      m_signals(signals),
      m_queueDirectory(queueDirectory),
      m_controlSocket(controlSocket),
      m_webPort(webPort),
      m_pRelay(pRelay),
      m_service(service),
      m_lineOwner(lineOwner),
      m_ringPlace(ringPlace),
      m_pRecorder(makeRecorder(m_options, ringPlace, std::move(leftRings))),
      m_pWire(m_pRecorder ? std::make_unique<WireTap>(m_pRecorder->observation()) : nullptr),
      m_drivers(m_store,
                RestartPlan::Settings{.firstDelay = m_options.restartDelay, .limit = m_options.restartLimit}),
      m_log([this] {
          std::set<std::string> ids;
          for (const DriverTable::Driver& driver : m_drivers.drivers())
              ids.insert(driver.id);
          return ids;
      }),
      m_errors([this](const auto& driverID, const auto& line,
                      bool isBare) { takeDriverLine(driverID, line, isBare); },
               {.onCrash = [this](int pid, const auto& crash) { m_supervisor.processCrashes(pid, crash); }}),
      m_driverCalls(m_drivers, m_surroundings),
      m_fidTap(m_drivers, m_driverCalls, m_log),
      m_byHand(m_drivers, [] { return sal::MessageQueue::statuses(); }),
      m_supervisor(m_drivers,
                   {.stopTimeout = m_options.stopTimeout,
                    .hangTimeout = m_options.hangTimeout,
                    .waitsUntilAttached = m_options.waitsUntilAttached},
                   {.activity = [this] { return m_commands.activity(); },
                    .waits = [this] { return m_commands.waits(); },
                    .queues = [] { return sal::MessageQueue::statuses(); },
                    .receiverGone = &sal::MessageQueue::receiverGone,
                    .exitNow = [this](int exitCode) { exitNow(exitCode); },
                    .restart =
                        [this](const std::string& driverID) {
                            m_commands.postBehind("restart of " + driverID,
                                                  [this, driverID] { m_workplace.restart(driverID); });
                        },
                    .lookAtOthers = m_options.startDriverProcesses ? std::function<void()>()
                                                                   : [this] { m_byHand.look(); },
                    .goesRound = m_service.isThere()
                                     ? [this](const CommandActivity& activity,
                                              ProcessSupervisor::Clock::time_point
                                                  now) { return m_service.watch(activity, m_drivers, now); }
                                     : decltype(ProcessSupervisor::Environment::goesRound)(),
                    .refusedQueues = [] { return sal::MessageQueue::refusals(); },
                    .retireQueue = [](const std::string& name) { return sal::MessageQueue::retire(name); },
                    .passQueue = sal::MessageQueue::passNextCreate,
                    .takeErrors = [this](auto& id, int pid, int fd) { m_errors.add(id, pid, fd); },
                    .formerErrors = m_pRelay ? m_pRelay->formerErrors() : -1,
                    .endErrors = [this](auto& id, int pid) { return endErrors(id, pid); },
                    .noteStack = [this](int pid, auto& lines) { m_errors.noteStack(pid, lines); }}),
      m_workplace({.file = m_options.config,
                   .driverDirectories = m_options.driverDirectories,
                   .parkMarks = std::filesystem::absolute(s_parkMarks),
                   .history = std::filesystem::absolute(s_history),
                   .isSignatureRequired = m_options.requireSignature,
                   .startsProcesses = m_options.startDriverProcesses,
                   .byHand = "MFD_QUEUE_DIR=" + base::shellWord(m_queueDirectory.path()) + " " +
                             base::shellWord(sal::Path::getExeBasePath().getPathString() + "/mfddllwrap"),
                   .queuePatience = m_options.stopTimeout},
                  m_drivers, m_supervisor,
                  {.concerns = [this](const std::string& driverID) { m_commands.setDriver(driverID); },
                   .tellPanel = [this] { tellPanel(); },
                   .loadFault = [this](const auto& path) { return m_driverCalls.loadFault(path); },
                   .forgetLoadFaults = [this] { m_driverCalls.forgetLoadFaults(); }}),
      m_following(m_store, STDOUT_FILENO, [this] { m_supervisor.lookForEnds(); }),
      m_shell({.commands = m_commands,
               .store = m_store,
               .drivers = m_drivers,
               .workplace = m_workplace,
               .alarms = m_alarms,
               .log = m_log,
               .lookForEnds = [this] { m_supervisor.lookForEnds(); },
               .quit = [this] { requestShutdown("quit", 0); },
               .showModules = [this] { m_pManager->showModules(); },
               .follow = [this](const std::string& glob) { m_following.start(glob); },
               .unfollow = [this] { return m_following.stop(); },
               .fidSent = [this](const auto& driverID,
                                 const auto& outcome) { m_fidCounts.add(driverID, outcome); },
               .queuePatience = m_options.stopTimeout}),
      m_system(std::set<std::string>(m_options.allowedCommands.begin(), m_options.allowedCommands.end()),
               [this](const std::string& line) {
                   const std::string& caller = sal::Module::caller();
                   return m_shell.postDriverCommand(
                       line, caller.empty() ? std::string(FidTrail::driverOfThread()) : caller);
               }),
      m_fidSenders(m_drivers, m_system.sender(),
                   {.fidSent = [this](const auto& driverID,
                                      const auto& outcome) { m_fidCounts.add(driverID, outcome); }}),
      m_links(m_store, m_fidSenders),
      m_api({.options = m_options,
             .commands = m_commands,
             .store = m_store,
             .drivers = m_drivers,
             .workplace = m_workplace,
             .alarms = m_alarms,
             .shell = m_shell,
             .log = m_log,
             .senders = m_fidSenders,
             .fids = m_fidCounts,
             .deliveries = m_deliveries,
             .pRecorder = m_pRecorder.get(),
             .pWire = m_pWire.get(),
             .ring = m_ringPlace.path(),
             .lookForEnds = [this] { m_supervisor.lookForEnds(); },
             .shutDown = [this](const std::string& reason) { requestShutdown(reason, 0); },
             .macroSystem =
                 [this] {
                     return m_pManager
                                ? dynamic_cast<IMacroSystem*>(m_pManager->queryInterface(IID_IMacroSystem))
                                : nullptr;
                 }}) {
    m_system.setLinks(m_links);
    m_lineOwner.setDrivers(
        [this](const std::string& driverID) { return m_drivers.find(driverID).has_value(); });
    observe();
}

/// From here on what happens is recorded; what the taps use is there by now.
void Host::observe() {
    if (!m_ringPlace.warning().empty())
        hostLog(sal::LogOutput::eWarning) << m_ringPlace.warning() << std::endl;
    if (!m_pRecorder)
        return;
    Observation& observation = m_pRecorder->observation();
    m_pTrail = std::make_unique<FidTrail>(
        observation,
        [this](const std::string& fid, const auto* pParameters) { return whyNobody(fid, pParameters); },
        [this](const std::string& driverID) { m_store.recordHeldBack(driverID); });
    m_store.setObservation(&observation);
    m_drivers.setObservation(&observation);
    m_fidTap.setStream(&observation, m_pTrail.get(), m_pWire.get());
    m_shell.setStream(&observation, m_pTrail.get());
    m_system.sender().setTrail(m_pTrail.get());
}

stream::EFidOutcome Host::whyNobody(const std::string& fid, const FIDParameterList* pParameters) const {
    const FIDHelper helper(fid);
    const auto driver = m_drivers.find(helper.getDriverID());
    if (!helper.hasFunction() || !driver)
        return stream::EFidOutcome::NoSuchDriver;
    if (driver->state != EDriverState::Running && driver->state != EDriverState::Hung)
        return stream::EFidOutcome::NotRunning;
    if (driver->pid > 0 && pParameters && !FidWatch::whyTooLong(fid, *pParameters).empty())
        return stream::EFidOutcome::TooLong;
    return stream::EFidOutcome::TakesNoFids;
}

Host::~Host() {
    stopRecording();
    sal::LogManager::getInstance()->setObserver(nullptr);
    m_lineOwner.setDrivers(nullptr);
}

void Host::makeTerminal() {
    if (m_options.console) {
        m_pConsole = std::make_unique<Console>(
            Console::Handlers{
                .line = [this](const std::string& line) { m_shell.readLine(line); },
                .end = [this] { m_shell.endInput(); },
                .complete = [this](const auto& before,
                                   const auto& prefix) { return m_shell.complete(before, prefix); },
                .lineTooLong = [this] { m_shell.skipLine(); }},
            LineEditor::Settings{.pRelay = m_pRelay,
                                 .historyFile = HistoryFile::usualPath(),
                                 .notice = [this] { return alarmNotice(m_alarms.inSight()); },
                                 .hasColours = hasTerminalColours(),
                                 .historyLost =
                                     [](const std::string& reason) {
                                         hostLog(sal::LogOutput::eWarning)
                                             << "the console's history is not kept: " << reason << std::endl;
                                     }});
    }
    if (m_pRelay)
        m_pRelay->watchLines([this](const std::string& line) { m_shell.learn(line); });
    m_store.addListener(&m_alarms);
    if (m_options.follow)
        m_following.start(*m_options.follow);
}

void Host::driverChanged(const DriverTable::Driver& driver) {
    m_alarms.changed(driver);
    if (m_pNews)
        m_pNews->changed(driver);
}

int Host::run() {
    makeTerminal();
    if (m_options.tellsPanel) {
        m_pNews = std::make_unique<DriverNews>([this](const std::string& fid, const auto& parameters) {
            return m_system.sender().sendFID(fid, parameters);
        });
    }
    m_drivers.setFollower([this](const DriverTable::Driver& driver) { driverChanged(driver); });
    sal::LogManager::getInstance()->setObserver(&m_fidTap);
    sal::Process::setObserver(&m_supervisor);
    sal::Module::setObserver(&m_fidTap);
    sal::MessageQueue::setObserver(
        &m_fidTap, m_pTrail ? sal::MessageQueue::EObserved::Both : sal::MessageQueue::EObserved::Sent);
    sal::Directory::setFileFilter(&WorkplaceAdmission::acceptsDescriptor);

    if (m_pRecorder)
        m_pRecorder->start([this] {
            m_store.recordHeldBack();
            m_deliveries.look(sal::MessageQueue::statuses(), DeliveryTimes::Clock::now());
        });
    m_errors.start();
    m_supervisor.start();
    startApi();
    const auto onActivity = [this] {
        m_supervisor.wake();
        m_store.forgetSettled();
        m_shell.recoverOutput();
        m_api.refresh();
        m_surroundings.restore("a driver in the host's process");
    };
    m_commands.start(
        onActivity, [this] { shutDown(); }, [this] { m_signals.interrupt(); });
    m_commands.post("start-up", [this] {
        startUp();
        m_shell.endStart();
    });
    bool isAsked = false;
    while (const int signal = m_signals.wait()) {
        if (signal == SIGHUP && !m_signals.isTerminalGone()) {
            postApply();
            continue;
        }
        if (isAsked) {
            hostLog(sal::LogOutput::eWarning)
                << signalName(signal) << " again: the host ends at once" << std::endl;
            exitNow(128 + signal);
        }
        isAsked = true;
        requestShutdown(signalName(signal), m_exitCode);
    }

    m_commands.join();
    m_following.stop();
    if (m_pConsole)
        m_pConsole->stop();
    m_pConsole.reset();
    if (m_pRelay)
        m_pRelay->watchLines(nullptr);
    stopRecording();
    // A script learns what came of its lines; a workplace that ended in order otherwise did so all the same.
    if (m_shell.sayFailedLines() && m_exitCode == 0)
        return s_linesFailed;
    return m_exitCode;
}

/// All that there is is on the disk when this returns, unless the disk takes nothing.
void Host::stopRecording() {
    if (!m_pRecorder || m_pRecorder->stop(s_recordingPatience))
        return;
    hostLog(sal::LogOutput::eWarning) << "the recording is not whole: the disk takes nothing" << std::endl;
    // Its thread, which uses what would be destroyed, cannot be waited for.
    exitNow(m_exitCode);
}

/// Without it the host does its work all the same.
void Host::startApi() {
    if (m_controlSocket.path().empty() && !m_webPort.isOpen())
        return;
    if (!m_controlSocket.warning().empty())
        hostLog(sal::LogOutput::eWarning) << m_controlSocket.warning() << std::endl;
    m_api.start(m_controlSocket, m_webPort);
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
        m_shell.open();
        hostLog(sal::LogOutput::eInfo) << "the workplace is started" << std::endl;
        m_service.started();
        if (m_pConsole && Console::isInteractive())
            m_pConsole->start();
    } catch (const std::exception& error) {
        hostLog(sal::LogOutput::eCritical) << error.what() << std::endl;
        requestShutdown("the start failed", 1);
    }
}

bool Host::startManager() {
    if (!m_workplace.prepareStart())
        return false;
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
    m_shell.begin();
    m_system.sender().setTarget(dynamic_cast<IFunctionID*>(m_pManager->queryInterface(IID_IFunctionID)));
    auto* pModule = dynamic_cast<IMDMConfiguration*>(m_pManager->queryInterface(IID_IMDMConfiguration));
    if (!pModule) {
        hostLog(sal::LogOutput::eCritical) << "the module does not let drivers be configured" << std::endl;
        return false;
    }
    return m_workplace.start(*pModule);
}

void Host::tellPanel() {
    m_pManager->onMfDriversStarted();
    if (m_pNews)
        m_pNews->panelStarted(m_drivers.drivers());
}

void Host::postApply() {
    // One that has not begun will find what this one is about.
    if (m_isApplyPosted.exchange(true))
        return;
    m_service.reloadBegins();
    const bool isPosted = m_commands.post("apply by signal", [this] {
        m_isApplyPosted = false;
        m_workplace.apply({}, "signal");
        m_service.reloadEnded();
    });
    if (isPosted)
        return;
    m_isApplyPosted = false;
    m_service.reloadEnded();
    hostLog(sal::LogOutput::eWarning)
        << "apply by signal is refused, nothing is changed: the host is stopping or has too much to do"
        << std::endl;
}

void Host::takeDriverLine(const std::string& driverID, const sal::LogManager::Line& line, bool isBare) {
    if (m_pRecorder && isBare)
        m_pRecorder->observation().bareLine(driverID, line.text);
    else if (m_pRecorder)
        m_pRecorder->observation().driverLine(driverID, line.output, line.level, line.text);
    m_log.add(driverID, line);
    sal::LogManager::getInstance()->write(line);
}

std::string Host::endErrors(const std::string& driverID, int pid) {
    DriverErrors::Words words = m_errors.ended(pid);
    m_log.setLastWords(driverID, std::move(words.last));
    return words.loadFault;
}

void Host::requestShutdown(const std::string& reason, int exitCode) {
    m_exitCode = exitCode;
    m_service.stopping();
    hostLog(sal::LogOutput::eInfo) << "shutting down: " << reason << std::endl;
    // No prompt comes between the lines of the shutdown, and Ctrl-C is a signal again.
    if (m_pConsole && Console::isInteractive())
        m_pConsole->stop();
    m_supervisor.beginShutdown(exitCode);
    m_api.beginShutdown();
    m_commands.stopAfterCurrent();
}

void Host::shutDown() {
    m_supervisor.beginShutdown(m_exitCode);
    // Drivers' calls that come from now on find a host that has stopped taking commands; the sender stays
    // until no driver is left.
    m_api.stop();
    m_workplace.end();
    if (m_pNews)
        m_pNews->stop();
    // One that is held up by a driver comes back at the latest when the manager has let that driver go.
    m_fidSenders.stop(s_sendersPatience);
    m_pManager.reset();
    m_fidSenders.stop(s_sendersPatience);
    m_system.sender().setTarget(nullptr);
    m_supervisor.endProcesses();
    m_errors.stop();
    removeLeftQueues();
    sal::Process::setObserver(nullptr);
    sal::Module::setObserver(nullptr);
    sal::MessageQueue::setObserver(nullptr);
    hostLog(sal::LogOutput::eInfo) << "all drivers are stopped" << std::endl;
}

void Host::removeLeftQueues() const {
    for (const DriverTable::Driver& driver : m_drivers.drivers()) {
        if (driver.pid == 0 || driver.isByHand)
            continue;
        // A process that was killed could not do it.
        for (const std::string& queue : {protocol::inputQueue(driver.id), protocol::outputQueue(driver.id)})
            static_cast<void>(sal::MessageQueue::retire(queue));
    }
    m_queueDirectory.removeLeft();
}

void Host::exitNow(int exitCode) {
    restoreTerminalModes();
    if (m_shell.sayFailedLines() && exitCode == 0)
        exitCode = s_linesFailed;
    // What was logged is worth a moment, but not a wait for a pipe whose reader has stopped.
    struct Flush {
        std::mutex mutex;
        std::condition_variable changed;
        bool isDone = false;
    };
    auto pFlush = std::make_shared<Flush>();
    try {
        // This object stays: the process ends without destroying it.
        std::thread([this, pFlush] {
            base::nameThread("last lines");
            m_errors.drain();
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
    // What is not on the disk by then is left in the file of the stream for the next start.
    if (m_pRecorder && m_pRecorder->stop(s_lastWords))
        m_ringPlace.removeNow();
    if (m_pRelay)
        m_pRelay->settle(s_lastWords);
    ::_exit(exitCode);
}
