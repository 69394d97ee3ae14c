#include "HostApi.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <utility>
#include <variant>

#include "CheckCommand.h"
#include "FileReplacement.h"
#include "HostLog.h"
#include "RandomID.h"
#include "RegularFile.h"
#include "ShownMacros.h"
#include "sal/MessageQueue.h"

namespace {

/// In the working directory.
constexpr const char* s_sessionFile = "mfhost.sessions";

}  // namespace

HostApi::HostApi(Parts parts)
    : m_parts(std::move(parts)),
      m_sessionFile(std::filesystem::absolute(s_sessionFile)),
      m_controls({.isOpen = [this](std::uint64_t session) { return m_webSessions.isOpen(session); },
                  .lookAfter =
                      [this](std::chrono::milliseconds time) {
                          m_deadlines.after(time, [this] { m_controls.holder(); });
                      }}),
      m_context(context()),
      m_live(m_context),
      m_handler(m_context),
      m_server({.roles =
                    {
                        .starter = PeerRoles::isStartedAsService() ? std::nullopt : std::optional(::getuid()),
                        .isDriverProcess =
                            [this](int pid) {
                                const auto drivers = m_parts.drivers.drivers();
                                return std::any_of(drivers.begin(), drivers.end(),
                                                   [pid](const auto& driver) { return driver.pid == pid; });
                            },
                    },
                .limits = {},
                .sessionNumber = [this] { return m_webSessions.takeNumber(); }},
               [this](const ApiCall& call, std::function<void(ApiAnswer)> answer) {
                   m_handler.handle(call, [this, give = std::move(answer)](ApiAnswer given) {
                       m_answers.add(given.status);
                       give(std::move(given));
                   });
               }) {}

void HostApi::start(ControlSocket& socket, WebPort& port) {
    m_deadlines.start();
    m_readings.start();
    if (port.isOpen())
        addWeb(port);
    m_server.start(socket.takeListener());
}

void HostApi::addWeb(WebPort& port) {
    if (const std::string fault = m_webSessions.addTokens(port.tokens(), ::getuid()); !fault.empty())
        hostLog(sal::LogOutput::eError)
            << "no token for the web panel is taken over: " << m_parts.options.webTokens << ", " << fault
            << std::endl;
    const std::string fault = m_server.addWeb(
        {.port = port,
         .sessions = m_webSessions,
         .live = m_live,
         .workplace = m_parts.options.config,
         .pageFollower =
             [this](std::uint64_t session, bool isThere) {
                 if (isThere)
                     m_controls.pageCame(session);
                 else
                     m_controls.pageWent(session);
             },
         .recorder =
             [this](const ApiCaller& caller, const std::string& what) {
                 Observation::Command(m_context.pObservation,
                                      {.origin = stream::EOrigin::Panel, .who = caller.who()}, what)
                     .setResult(true);
             }});
    if (!fault.empty()) {
        hostLog(sal::LogOutput::eError) << "runs without the web panel: " << fault << std::endl;
        return;
    }
    restoreSessions();
    m_webUrl = port.url();
    m_webUrlElsewhere = port.urlElsewhere();
    hostLog(sal::LogOutput::eInfo) << "the web panel is at " << m_webUrl
                                   << "/; mfctl panel tells how to open it" << std::endl;
}

std::vector<ApiSession> HostApi::sessions() const {
    std::vector<ApiSession> sessions;
    for (const ApiServer::Session& session : m_server.sessions())
        sessions.push_back({session.id, session.user, session.uid, session.pid, session.role, session.since,
                            session.requests});
    for (const WebSessions::Session& session : m_webSessions.sessions())
        sessions.push_back({session.id, session.user, session.uid, std::nullopt, session.role, session.since,
                            session.requests, session.address, session.used, session.expires});
    return sessions;
}

ApiWebCode HostApi::webCode(const std::string& url, const std::function<std::string()>& make) const {
    ApiWebCode code;
    if (m_webUrl.empty())
        code.refusal = "the host has no web panel; --web PORT at its start gives it one";
    else
        code = {.refusal = {}, .code = make(), .url = url, .validFor = WebSessions::s_codeTime};
    return code;
}

/// A page that was open goes on when the host was started anew.
void HostApi::restoreSessions() {
    struct stat status {};
    if (::lstat(m_sessionFile.c_str(), &status) == 0) {
        const auto file = base::RegularFile::read(m_sessionFile);
        const std::size_t wrong = file ? m_webSessions.restore(file.bytes) : 0;
        if (!file || wrong > 0)
            hostLog(sal::LogOutput::eWarning)
                << m_sessionFile << ": "
                << (file ? std::to_string(wrong) + " lines are no sessions of the web panel" : file.reason)
                << "; who had these signs in again" << std::endl;
    }
    m_webSessions.setFollower([this] {
        if (!m_isSessionNews.exchange(true))
            m_parts.commands.post("keeping the web panel's sessions", [this] { saveSessions(); });
    });
}

void HostApi::saveSessions() {
    if (!m_isSessionNews.exchange(false))
        return;
    std::string fault = base::replaceFile(m_sessionFile, m_webSessions.stored());
    if (fault.empty() && ::chmod(m_sessionFile.c_str(), 0600) != 0)
        fault = std::strerror(errno);
    if (!fault.empty())
        hostLog(sal::LogOutput::eWarning)
            << "the web panel's sessions do not outlive this host: " << m_sessionFile << ": " << fault
            << std::endl;
}

void HostApi::stop() {
    beginShutdown();
    m_server.stop();
    m_readings.stop();
    saveSessions();
    m_deadlines.stop();
}

void HostApi::refresh() {
    const auto& records = m_parts.workplace.catalogue().records();
    auto entries = m_parts.workplace.entries();
    IMacroSystem* const pMacroSystem = m_parts.macroSystem();
    auto names = pMacroSystem ? pMacroSystem->macroNames() : std::vector<std::string>();
    const std::lock_guard lock(m_mutex);
    // The catalogue only grows.
    if (records.size() != m_catalogue.size())
        m_catalogue = records;
    m_entries = std::move(entries);
    m_macroNames = std::move(names);
}

ApiContext HostApi::context() {
    return {.drivers = m_parts.drivers,
            .store = m_parts.store,
            .controls = m_controls,
            .instance = {.version = MFHOST_VERSION,
                         .id = m_parts.pRecorder ? m_parts.pRecorder->source().instance() : base::randomID(),
                         .workplace = m_parts.options.config,
                         .started = std::chrono::system_clock::now(),
                         .pid = ::getpid(),
                         .ring = m_parts.ring,
                         .recording = m_parts.pRecorder ? m_parts.pRecorder->directory() : std::string()},
            .pObservation = m_parts.pRecorder ? &m_parts.pRecorder->observation() : nullptr,
            .pRecorded = m_parts.pRecorder ? &m_parts.pRecorder->recorded() : nullptr,
            .lookForEnds = m_parts.lookForEnds,
            .activity = [this] { return m_parts.commands.activity(); },
            .isStopping = [this] { return m_isStopping.load(); },
            .post =
                [this](const std::string& what, std::function<void()> task) {
                    return !m_isStopping && m_parts.commands.post(what, std::move(task));
                },
            .readPast = [this](auto task) { return m_readings.post(std::move(task)); },
            .after = [this](auto time, auto call) { m_deadlines.after(time, std::move(call)); },
            .changes = [this](const auto& glob, auto since) { return m_parts.store.changes(glob, since); },
            .reports = [this] { return reports(); },
            .queues = [] { return sal::MessageQueue::statuses(); },
            .deliveries = [this] { return m_parts.deliveries.histograms(); },
            .alarms = [this] { return m_parts.alarms.inSight(); },
            .alarmList = [this] { return m_parts.alarms.alarms(); },
            .acknowledge = [this](const std::string& key) { return m_parts.alarms.acknowledge(key); },
            .shelve = [this](const auto& key, auto time,
                             const auto& who) { return m_parts.alarms.shelve(key, time, who); },
            .macroNames = [this] { return macroNames(); },
            .complete = [this](const auto& before,
                               const auto& prefix) { return m_parts.shell.complete(before, prefix); },
            .catalogue =
                [this] {
                    const std::lock_guard lock(m_mutex);
                    return m_catalogue;
                },
            .place = [this](const std::string& driverID) -> std::optional<ApiContext::Place> {
                const std::lock_guard lock(m_mutex);
                for (const WorkplaceFile::Entry& entry : m_entries) {
                    if (entry.driverID == driverID)
                        return ApiContext::Place{.directory = entry.workingDirectory,
                                                 .networkAdapter = entry.networkAdapter};
                }
                return std::nullopt;
            },
            .log = [this](const ApiLogQuery& query) { return logLines(query); },
            .lastWords = [this](const std::string& driverID) { return m_parts.log.lastWords(driverID); },
            .sessions = [this] { return sessions(); },
            .fids = [this] { return m_parts.fids.counts(); },
            .answers = [this] { return m_answers.counts(); },
            .panelCode =
                [this](const auto& asker) {
                    return webCode(m_webUrl, [&] { return m_webSessions.addCode(asker); });
                },
            .pairCode =
                [this](const auto& asker, ERole role) {
                    return webCode(m_webUrlElsewhere, [&] { return m_webSessions.addDigits(asker, role); });
                },
            .consoleMeanwhile = [this](const std::string& line, unsigned columns) -> std::optional<ApiLine> {
                auto executed = m_parts.shell.executeMeanwhile(line, columns);
                if (!executed)
                    return std::nullopt;
                return ApiLine{.output = std::move(executed->output), .isDone = executed->isDone};
            },
            .endWebSession = [this](std::uint64_t id) { return m_webSessions.end(id); },
            .sendFid =
                [this](const auto& fid, const auto& parameters, auto waitFor, auto limit, auto told,
                       const auto& asker) {
                    m_parts.senders.send(
                        fid, parameters, waitFor, limit,
                        [this, fid, tell = std::move(told)](const FidOutcome& outcome) {
                            m_parts.shell.learn(fid, outcome);
                            tell(outcome);
                        },
                        asker);
                },
            .shutDown = [this](const std::string& who) { m_parts.shutDown("shutdown by " + who); },
            .recordWire = [this](const std::string& driverID,
                                 std::chrono::seconds time) { return recordWire(driverID, time); },
            .setState = [this](const auto& key, const auto& value) { setState(key, value); },
            .unsetState =
                [this](const std::string& key) {
                    const StateStore::ConsoleMark mark;
                    m_parts.store.unsetStateValue(key);
                },
            .triggerEvent =
                [this](const std::string& id, const std::string& value) {
                    const StateStore::ConsoleMark mark;
                    m_parts.store.triggerEvent(id, value);
                },
            .playMacro = [this](const std::string& name) { return playMacro(name); },
            .reload =
                [this](const std::string& driverID) {
                    return ApiOutcome{.refusal = m_parts.workplace.reload(driverID), .output = {}};
                },
            .debug =
                [this](const std::string& driverID) {
                    return ApiOutcome{.refusal = m_parts.workplace.debug(driverID), .output = {}};
                },
            .park =
                [this](const std::string& driverID, const std::string& who) {
                    return ApiOutcome{.refusal = m_parts.workplace.park(driverID, who), .output = {}};
                },
            .unpark =
                [this](const std::string& driverID, const std::string&) {
                    return ApiOutcome{.refusal = m_parts.workplace.unpark(driverID), .output = {}};
                },
            .plan = [this] { return m_parts.workplace.plan(); },
            .apply = [this](const auto& plan, const auto& who) { return m_parts.workplace.apply(plan, who); },
            .undo = [this](unsigned number, const auto& who) { return m_parts.workplace.undo(number, who); },
            .history = [this] { return m_parts.workplace.history(); },
            .historyFile = [this](unsigned number) -> std::optional<std::string> {
                std::string error;
                const auto state = m_parts.workplace.historyState(number, error);
                const auto* pFile = state ? state->find(WorkplaceState::EKind::Workplace) : nullptr;
                return pFile ? pFile->bytes : std::nullopt;
            },
            .check =
                [this] {
                    Options options = m_parts.options;
                    options.checkAsJson = true;
                    std::ostringstream report;
                    // Its modules are in use: none of them is tried out.
                    runCheck(options, ConfigurationCheck::Machine(), report);
                    return report.str();
                },
            .console =
                [this](const std::string& line, unsigned columns) {
                    CommandShell::Executed executed = m_parts.shell.executeFor(line, columns);
                    return ApiLine{.output = std::move(executed.output), .isDone = executed.isDone};
                }};
}

/// What is merged is known of driver processes, where it is recorded.
std::vector<ApiReports> HostApi::reports() const {
    std::vector<ApiReports> found;
    for (const StateStore::Arrivals& arrivals : m_parts.store.arrivalsByDriver()) {
        const Observation::Reports sent = m_parts.pRecorder
                                              ? m_parts.pRecorder->observation().reports(arrivals.driverID)
                                              : Observation::Reports();
        const std::uint64_t merged = sent.received - std::min(sent.received, sent.delivered);
        found.push_back({arrivals.driverID, arrivals.all + merged, merged, arrivals.changes});
    }
    return found;
}

/// The panel driver publishes them, unless there are too many for a value.
std::vector<std::string> HostApi::macroNames() const {
    ShownMacros shown = ShownMacros::of(m_parts.store);
    if (shown.isWhole)
        return std::move(shown.names);
    const std::lock_guard lock(m_mutex);
    return m_macroNames;
}

bool HostApi::recordWire(const std::string& driverID, std::chrono::seconds time) const {
    if (m_parts.pWire)
        m_parts.pWire->watch(driverID, WireTap::Clock::now() + time);
    return m_parts.pWire != nullptr;
}

std::vector<ApiLogLine> HostApi::logLines(const ApiLogQuery& query) const {
    std::vector<ApiLogLine> lines;
    for (LogMemory::Line& line : m_parts.log.lines(
             {.driver = query.driverID, .level = query.level, .most = query.lines, .after = query.after}))
        lines.push_back({line.time, line.level, std::move(line.output), std::move(line.driver),
                         std::move(line.text), line.number});
    return lines;
}

ApiOutcome HostApi::playMacro(const std::string& name) const {
    IMacroSystem* const pMacroSystem = m_parts.macroSystem();
    if (!pMacroSystem)
        return {.refusal = "there is no panel driver with macros", .output = {}};
    return {.refusal = pMacroSystem->play(name)
                           ? std::string()
                           : "a macro is being recorded or played, or there is none " + name,
            .output = {}};
}

void HostApi::setState(const std::string& key, const StateValue& value) const {
    const StateStore::ConsoleMark mark;
    struct Setter {
        StateStore& store;
        const std::string& key;
        void operator()(const std::string& text) const { store.setStateValue(key, text); }
        void operator()(float number) const { store.setStateValueFloat(key, number); }
        void operator()(int number) const { store.setStateValueInt(key, number); }
        void operator()(bool flag) const { store.setStateValueBool(key, flag); }
    };
    std::visit(Setter{m_parts.store, key}, value.value());
}
