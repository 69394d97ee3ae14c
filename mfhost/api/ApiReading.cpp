#include "ApiReading.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <limits>
#include <optional>
#include <utility>
#include <variant>

#include "DriverRuns.h"
#include "DriverStatus.h"
#include "JsonText.h"
#include "LinkFile.h"
#include "Metrics.h"
#include "Nearest.h"
#include "PanelNames.h"
#include "Printable.h"
#include "QueueNames.h"
#include "StreamText.h"
#include "TimeText.h"
#include "ValueHistory.h"
#include "Words.h"
#include "sal/LogOutput.h"

namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

constexpr int s_apiVersion = 1;
/// Of a completion: more cannot be chosen from.
constexpr std::size_t s_mostWords = 1'000;
/// A command of that age makes the host busy; most take less.
constexpr std::chrono::seconds s_busyAfter{5};
/// Of a driver's own page.
constexpr std::size_t s_driverLines = 20;
/// Of a value's history, where no other span is asked for.
constexpr std::chrono::hours s_usualSpan{1};

milliseconds since(ApiContext::Clock::time_point begin, ApiContext::Clock::time_point now) {
    return std::max(milliseconds(0), duration_cast<milliseconds>(now - begin));
}

std::optional<std::string> parameter(const ApiTarget& target, const std::string& name) {
    const auto found = target.query.find(name);
    return found == target.query.end() ? std::nullopt : std::optional(found->second);
}

std::uint64_t number(const ApiTarget& target, const std::string& name, std::uint64_t least,
                     std::uint64_t most, std::uint64_t usual) {
    const auto text = parameter(target, name);
    if (!text)
        return usual;
    std::uint64_t value = 0;
    const char* pEnd = text->data() + text->size();
    const auto result = std::from_chars(text->data(), pEnd, value);
    if (result.ec != std::errc() || result.ptr != pEnd || value < least || value > most)
        throw ApiFault(ApiFault::ECode::RequestInvalid,
                       name + " is " + base::quoted(*text) + " where a whole number from " +
                           std::to_string(least) + " to " + std::to_string(most) + " is needed");
    return value;
}

/// A time that a parameter names.
std::optional<stream::Time> timeParameter(const ApiTarget& target, const std::string& name) {
    const auto text = parameter(target, name);
    if (!text)
        return std::nullopt;
    const auto time = base::utcTime(*text);
    if (!time || *time < std::chrono::system_clock::time_point())
        throw ApiFault(
            ApiFault::ECode::RequestInvalid,
            name + " is " + base::quoted(*text) + " where a time such as 2026-11-22T14:03:22.181Z is needed");
    return stream::Time(*time);
}

void writeQueue(JsonText& json, const sal::MessageQueue::Status& queue) {
    json.beginObject()
        .member("name", queue.name)
        .member("driver", protocol::ownerOf(queue.name))
        .member("capacity", queue.capacity)
        .member("depth", queue.depth)
        .member("highWater", queue.highWater)
        .member("messages", queue.messages)
        .member("bytes", queue.bytes)
        .member("received", queue.received)
        .member("waits", queue.waits)
        .member("waitingForMs", queue.waitingForMs)
        .member("lockedForMs", queue.lockedForMs)
        .member("holders", queue.holders)
        .member("receiver", queue.receiverAttached)
        .member("receiverPid",
                queue.receiverPid > 0 ? std::optional<unsigned int>(queue.receiverPid) : std::nullopt)
        .member("broken", queue.isBroken)
        .endObject();
}

void writeLine(JsonText& json, const ApiLogLine& line) {
    json.beginObject()
        .member("time", line.when)
        .member("level", line.level)
        .member("output", line.output)
        .member("driver", line.driverID)
        .member("text", line.text)
        .endObject();
}

void writeRecord(JsonText& json, const DescriptorCatalogue::Record& record) {
    json.member("type", record.type)
        .member("version", record.version)
        .member("name", record.name)
        .member("module", record.module)
        .member("descriptor", record.file)
        .member("line", record.line);
}

void writeHistory(JsonText& json, const HistoryEntry& entry) {
    json.member("number", entry.number)
        .member("when", entry.when)
        .member("who", entry.who)
        .member("digest", entry.digest)
        .member("outcome", entry.outcome);
}

/// Is to run, and does not.
bool isMissing(const DriverTable::Driver& driver) {
    switch (driver.state) {
        case EDriverState::Hung:
        case EDriverState::Waiting:
        case EDriverState::Due:
        case EDriverState::Ended:
            return true;
        case EDriverState::NotLoaded:
            // The check says where no panel driver is announced; entries of other kinds are never loaded.
            return driver.id != protocol::panelDriverID && (driver.interfaceType == EInterfaceTypes::Direct ||
                                                            driver.interfaceType == EInterfaceTypes::Queue);
        default:
            return false;
    }
}

std::string alarmsText(const std::vector<AlarmList::Alarm>& alarms, AlarmList::Clock::time_point now,
                       bool withTimes) {
    JsonText json;
    json.beginArray();
    for (const AlarmList::Alarm& alarm : alarms) {
        std::optional<std::chrono::milliseconds> shelved;
        if (alarm.shelvedUntil && *alarm.shelvedUntil > now)
            shelved = std::chrono::duration_cast<std::chrono::milliseconds>(*alarm.shelvedUntil - now);
        json.beginObject()
            .member("key", alarm.key)
            .member("text", alarm.text)
            .member("raised", alarm.raised)
            .member("count", alarm.count)
            .member("over", alarm.isOver);
        if (withTimes)
            json.member("shelvedForMs", shelved);
        else
            json.member("shelved", shelved.has_value());
        json.member("shelvedBy", shelved ? alarm.shelvedBy : std::string()).endObject();
    }
    json.endArray();
    return json.take();
}

}  // namespace

std::string ApiReading::host(const ApiCaller& caller) const {
    JsonText json;
    json.beginObject()
        .member("version", m_context.instance.version)
        .member("api", s_apiVersion)
        .member("instance", m_context.instance.id)
        .member("workplace", m_context.instance.workplace)
        .member("started", m_context.instance.started)
        .member("pid", m_context.instance.pid)
        .name("recording")
        .beginObject()
        .member("ring", m_context.instance.ring)
        .member("directory", m_context.instance.recording)
        .endObject()
        .member("role", inWords(caller.role))
        .member("user", caller.name)
        .endObject();
    return json.take();
}

std::string ApiReading::health() const {
    m_context.lookForEnds();
    std::size_t configured = 0;
    std::size_t running = 0;
    std::size_t parked = 0;
    bool isDegraded = false;
    for (const DriverTable::Driver& driver : m_context.drivers.drivers()) {
        ++configured;
        running += driver.state == EDriverState::Running ? 1 : 0;
        parked += driver.state == EDriverState::Parked ? 1 : 0;
        isDegraded = isDegraded || isMissing(driver);
    }
    const CommandActivity activity = m_context.activity();
    const auto now = m_context.now();
    const bool isBusy = activity.busy && now - activity.since > s_busyAfter;
    JsonText json;
    json.beginObject()
        .member("status", m_context.isStopping() ? "stopping"
                          : isBusy               ? "busy"
                          : isDegraded           ? "degraded"
                                                 : "ok")
        .member("configured", configured)
        .member("running", running)
        .member("parked", parked)
        .member("alarms", m_context.alarms())
        .name("command");
    if (activity.busy) {
        auto call = m_context.drivers.oldestCall();
        // One that is older is none of the command's.
        if (call && call->since < activity.since)
            call.reset();
        json.beginObject()
            .member("what", activity.what)
            .member("driver", call ? call->driverID : activity.driverID)
            .member("operation", call ? call->operation : std::string())
            .member("forMs", since(activity.since, now))
            .endObject();
    } else {
        json.null();
    }
    json.endObject();
    return json.take();
}

ApiReading::Queues ApiReading::queuesByName() const {
    Queues queues;
    for (sal::MessageQueue::Status& queue : m_context.queues())
        queues.emplace(queue.name, queue);
    return queues;
}

std::map<std::string, std::uint64_t> ApiReading::losses() const {
    std::map<std::string, std::uint64_t> lost;
    for (const StateStore::Loss& loss : m_context.store.losses()) {
        if (loss.owner.kind == StateStore::EOwner::Driver)
            lost[loss.owner.driverID] = loss.values;
    }
    return lost;
}

void ApiReading::writeDriver(JsonText& json, const DriverTable::Driver& driver, const Queues& queues,
                             std::uint64_t lost) const {
    std::vector<sal::MessageQueue::Status> own;
    const auto depth = [&](const std::string& name) -> std::optional<unsigned int> {
        const auto queue = queues.find(name);
        if (queue == queues.end())
            return std::nullopt;
        own.push_back(queue->second);
        return queue->second.depth;
    };
    const auto queuedIn = depth(protocol::inputQueue(driver.id));
    const auto queuedOut = depth(protocol::outputQueue(driver.id));
    std::optional<milliseconds> nextTry;
    if (driver.nextTry)
        nextTry = since(m_context.now(), *driver.nextTry);
    json.member("id", driver.id)
        .member("type", driver.type)
        .member("version", driver.version)
        .member("mode", inWords(driver.interfaceType))
        .member("state", inWords(driver.state))
        .member("status", driverStatus(driver, own))
        .member("alive", driver.isAlive)
        .member("pid", driver.pid > 0 ? std::optional(driver.pid) : std::nullopt)
        .member("byHand", driver.isByHand)
        .member("start", driver.start)
        .member("since", driver.state == EDriverState::NotLoaded ? std::nullopt : std::optional(driver.since))
        .member("cause", driver.cause)
        .member("restarts", driver.restarts)
        .member("nextTryMs", nextTry)
        .member("receivedPerSecond", driver.receivedPerSecond)
        .member("sentPerSecond", driver.sentPerSecond)
        .member("queuedIn", queuedIn)
        .member("queuedOut", queuedOut)
        .member("valuesLost", lost);
}

std::string ApiReading::drivers() const {
    m_context.lookForEnds();
    const Queues queues = queuesByName();
    auto lost = losses();
    JsonText json;
    json.beginObject().name("drivers").beginArray();
    for (const DriverTable::Driver& driver : m_context.drivers.drivers()) {
        json.beginObject();
        writeDriver(json, driver, queues, lost[driver.id]);
        json.endObject();
    }
    json.endArray().endObject();
    return json.take();
}

std::vector<ApiReading::DriverText> ApiReading::driverTexts() const {
    const Queues queues = queuesByName();
    auto lost = losses();
    std::vector<DriverText> texts;
    for (DriverTable::Driver& driver : m_context.drivers.drivers()) {
        const auto text = [&] {
            JsonText json;
            json.beginObject();
            writeDriver(json, driver, queues, lost[driver.id]);
            json.endObject();
            return json.take();
        };
        DriverText& added = texts.emplace_back(DriverText{driver.id, text(), {}});
        added.constant = added.json;
        if (driver.nextTry) {
            // The time is the same, only the way to it is shorter.
            const auto time = driver.nextTry->time_since_epoch();
            driver.nextTry.reset();
            added.constant = std::to_string(time.count()) + text();
        }
    }
    return texts;
}

std::vector<std::string> ApiReading::driverIDs() const {
    std::vector<std::string> driverIDs;
    for (const DriverTable::Driver& driver : m_context.drivers.drivers())
        driverIDs.push_back(driver.id);
    return driverIDs;
}

ApiFault ApiReading::unknownDriver(const std::string& driverID) const {
    return {ApiFault::ECode::DriverUnknown, "there is no driver " + driverID,
            base::nearest(driverID, driverIDs())};
}

void ApiReading::addDriver(JsonText& json, const std::string& driverID) const {
    const auto driver = m_context.drivers.find(driverID);
    if (!driver)
        return;
    json.name("driver").beginObject();
    writeDriver(json, *driver, queuesByName(), losses()[driverID]);
    json.endObject();
}

std::string ApiReading::driver(const std::string& driverID) const {
    m_context.lookForEnds();
    const auto driver = m_context.drivers.find(driverID);
    if (!driver)
        throw unknownDriver(driverID);
    const Queues queues = queuesByName();
    const auto records = m_context.catalogue();
    const auto record = std::find_if(records.begin(), records.end(), [&](const auto& candidate) {
        return candidate.type == driver->type && candidate.version == driver->version;
    });
    const bool isDescribed = record != records.end();
    const auto place = m_context.place(driverID).value_or(ApiContext::Place());
    JsonText json;
    json.beginObject();
    writeDriver(json, *driver, queues, losses()[driverID]);
    json.member("module", isDescribed ? record->module : std::string())
        .member("descriptor", isDescribed ? record->file : std::string())
        .member("directory", place.directory)
        .member("networkAdapter", place.networkAdapter);
    json.name("queues").beginArray();
    for (const std::string& name : {protocol::inputQueue(driverID), protocol::outputQueue(driverID)}) {
        if (const auto queue = queues.find(name); queue != queues.end())
            writeQueue(json, queue->second);
    }
    json.endArray().name("log").beginArray();
    for (const ApiLogLine& line :
         m_context.log({.driverID = driverID, .lines = s_driverLines, .level = sal::LogOutput::eTrace}))
        writeLine(json, line);
    json.endArray().name("lastWords").beginArray();
    for (const std::string& line : m_context.lastWords(driverID))
        json.value(line);
    json.endArray().endObject();
    return json.take();
}

void ApiReading::addValue(JsonText& json, const StateStore::Entry& entry,
                          ApiContext::Clock::time_point now) const {
    json.beginObject().member("key", entry.key).member("type", entry.value.typeName());
    std::visit([&](const auto& value) { json.member("value", value); }, entry.value.value());
    json.member("text", entry.value.text())
        .member("owner", entry.owner.text())
        .member("start", entry.start)
        .member("ageMs", since(entry.reported, now))
        .member("version", entry.version)
        .name("stale");
    if (entry.isStale())
        json.beginObject()
            .member("cause", entry.staleCause)
            .member("forMs", since(entry.staleSince, now))
            .endObject();
    else
        json.null();
    json.endObject();
}

std::string ApiReading::state(const ApiTarget& target) const {
    const std::string glob = parameter(target, "glob").value_or("");
    if (glob.size() > s_longestGlob || glob.find('\0') != std::string::npos)
        throw ApiFault(ApiFault::ECode::RequestInvalid, "glob has a zero byte, or more than " +
                                                            std::to_string(s_longestGlob) +
                                                            " bytes: " + base::quoted(glob));
    const std::uint64_t version = number(target, "since", 0, std::numeric_limits<std::uint64_t>::max(), 0);
    m_context.lookForEnds();
    const StateStore::Changes changes = m_context.changes(glob, version);
    const auto now = m_context.now();
    JsonText json;
    json.beginObject().member("version", changes.version).member("complete", changes.isComplete);
    json.name("values").beginArray();
    for (const StateStore::Entry& entry : changes.entries)
        addValue(json, entry, now);
    json.endArray().name("unset").beginArray();
    for (const std::string& key : changes.unset)
        json.value(key);
    json.endArray();
    if (number(target, "counts", 0, 1, 0) == 1) {
        json.name("counts").beginArray();
        for (const ApiReports& reports : m_context.reports())
            json.beginObject()
                .member("driver", reports.driverID)
                .member("received", reports.received)
                .member("merged", reports.merged)
                .member("delivered", reports.received - reports.merged)
                .member("changes", reports.changes)
                .endObject();
        json.endArray();
    }
    json.endObject();
    return json.take();
}

std::string ApiReading::events() const {
    JsonText json;
    json.beginObject().name("events").beginArray();
    for (const StateStore::Event& event : m_context.store.events())
        json.beginObject()
            .member("id", event.id)
            .member("value", event.value)
            .member("owner", event.owner.text())
            .member("time", event.when)
            .endObject();
    json.endArray().endObject();
    return json.take();
}

std::string ApiReading::queues() const {
    JsonText json;
    json.beginObject().name("queues").beginArray();
    for (const sal::MessageQueue::Status& queue : m_context.queues())
        writeQueue(json, queue);
    json.endArray().endObject();
    return json.take();
}

std::string ApiReading::macros() const {
    JsonText json;
    json.beginObject().name("macros").beginArray();
    for (const std::string& name : m_context.macroNames())
        json.beginObject().member("name", name).endObject();
    json.endArray().endObject();
    return json.take();
}

/// From what each link reports of itself; of one that does not run, from the table of drivers.
std::string ApiReading::links() const {
    m_context.lookForEnds();
    const auto now = m_context.now();
    JsonText json;
    json.beginObject().name("links").beginArray();
    for (const DriverTable::Driver& driver : m_context.drivers.drivers()) {
        if (driver.type != LinkFile::s_driverType)
            continue;
        const auto find = [&](const char* pName) { return m_context.store.find(driver.id + "." + pName); };
        const auto text = [&](const char* pName) {
            const auto entry = find(pName);
            return entry ? entry->value.text() : std::string();
        };
        const auto figure = [&](const char* pName) {
            const auto entry = find(pName);
            const auto* const pNumber =
                entry && !entry->isStale() ? std::get_if<float>(&entry->value.value()) : nullptr;
            return pNumber ? std::optional(*pNumber) : std::nullopt;
        };
        const auto link = find("LINK");
        const bool isUp = link && !link->isStale() && link->value.text() == "up";
        std::string cause;
        if (link && !isUp)
            cause = link->isStale() ? link->staleCause : link->value.text();
        else if (!link)
            cause = driver.cause.empty() ? inWords(driver.state) : driver.cause;
        json.beginObject()
            .member("driver", driver.id)
            .member("site", text("LINK_SITE"))
            .member("to", text("LINK_TO"))
            .member("broker", text("LINK_BROKER"))
            .member("up", isUp)
            .member("cause", cause)
            .member("forMs",
                    link ? std::optional(since(link->isStale() ? link->staleSince : link->reported, now))
                         : std::nullopt)
            .member("delayMs", figure("LINK_DELAY"))
            .member("inPerSecond", figure("LINK_IN"))
            .member("outPerSecond", figure("LINK_OUT"))
            .name("error");
        if (const auto error = find("LINK_ERROR"))
            json.beginObject()
                .member("text", error->value.text())
                .member("ageMs", since(error->reported, now))
                .endObject();
        else
            json.null();
        json.endObject();
    }
    json.endArray().endObject();
    return json.take();
}

std::string ApiReading::completion(const ApiTarget& target) const {
    target.allowQuery({"line"});
    const auto found = target.query.find("line");
    const std::string line = found == target.query.end() ? "" : found->second;
    std::vector<std::string> before = base::splitWords(line).words;
    std::string prefix;
    if (!before.empty() && line.back() != ' ') {
        prefix = std::move(before.back());
        before.pop_back();
    }
    std::vector<std::string> words = m_context.complete(before, prefix);
    words.resize(std::min(words.size(), s_mostWords));
    JsonText json;
    json.beginObject().name("words").beginArray();
    for (const std::string& word : words)
        json.value(word);
    json.endArray().endObject();
    return json.take();
}

std::string ApiReading::catalogue() const {
    JsonText json;
    json.beginObject().name("drivers").beginArray();
    for (const DescriptorCatalogue::Record& record : m_context.catalogue()) {
        json.beginObject();
        writeRecord(json, record);
        json.endObject();
    }
    json.endArray().endObject();
    return json.take();
}

std::string ApiReading::modules() const {
    std::map<std::pair<std::string, std::string>, std::vector<std::string>> users;
    for (const DriverTable::Driver& driver : m_context.drivers.drivers())
        users[{driver.type, driver.version}].push_back(driver.id);
    JsonText json;
    json.beginObject().name("modules").beginArray();
    for (const DescriptorCatalogue::Record& record : m_context.catalogue()) {
        json.beginObject();
        writeRecord(json, record);
        json.name("drivers").beginArray();
        for (const std::string& driverID : users[{record.type, record.version}])
            json.value(driverID);
        json.endArray().endObject();
    }
    json.endArray().endObject();
    return json.take();
}

std::string ApiReading::log(const ApiTarget& target) const {
    ApiLogQuery query;
    query.driverID = parameter(target, "driver").value_or("");
    query.lines = number(target, "lines", 1, s_mostLines, s_usualLines);
    query.level = static_cast<int>(
        number(target, "level", sal::LogOutput::eCritical, sal::LogOutput::eTrace, sal::LogOutput::eTrace));
    if (!query.driverID.empty() && !m_context.drivers.find(query.driverID))
        throw unknownDriver(query.driverID);
    JsonText json;
    json.beginObject().name("lines").beginArray();
    for (const ApiLogLine& line : m_context.log(query))
        writeLine(json, line);
    json.endArray().endObject();
    return json.take();
}

ApiReading::AlarmsText ApiReading::alarmsText() const {
    const std::vector<AlarmList::Alarm> alarms = m_context.alarmList();
    const auto now = m_context.now();
    return {.json = ::alarmsText(alarms, now, true), .constant = ::alarmsText(alarms, now, false)};
}

std::string ApiReading::alarms() const {
    JsonText json;
    json.beginObject().name("alarms").json(alarmsText().json).endObject();
    return json.take();
}

std::string ApiReading::controlsText() const {
    const auto holder = m_context.controls.holder();
    JsonText json;
    if (!holder)
        return json.null().take();
    const std::uint64_t session = holder->caller.webSession;
    json.beginObject()
        .member("name", holder->caller.name)
        .member("from", holder->from())
        .member("session", session > 0 ? std::optional(session) : std::nullopt)
        .member("since", holder->since)
        .endObject();
    return json.take();
}

std::string ApiReading::controls() const {
    JsonText json;
    json.beginObject().name("controls").json(controlsText()).endObject();
    return json.take();
}

std::string ApiReading::sessions() const {
    JsonText json;
    json.beginObject().name("sessions").beginArray();
    for (const ApiSession& session : m_context.sessions())
        json.beginObject()
            .member("id", session.id)
            .member("user", session.user)
            .member("uid", session.uid)
            .member("pid", session.pid)
            .member("role", inWords(session.role))
            .member("since", session.since)
            .member("requests", session.requests)
            .member("address", session.address)
            .member("used", session.used)
            .member("expires", session.expires)
            .endObject();
    json.endArray().endObject();
    return json.take();
}

std::vector<RecordedPast::Hole> ApiReading::readPast(const RecordedPast::Span& span,
                                                     const RecordedPast::Take& take) const {
    RecordedPast past(*m_context.pRecorded, m_context.instance.recording);
    if (!past.read(span, take, m_context.isStopping))
        throw ApiFault(ApiFault::ECode::Stopping, "the host is stopping");
    return past.holes();
}

std::string ApiReading::runs(const std::string& driverID, const ApiTarget& target) const {
    if (!m_context.drivers.find(driverID))
        throw unknownDriver(driverID);
    const auto most =
        static_cast<std::size_t>(number(target, "limit", 1, DriverRuns::s_most, DriverRuns::s_usual));
    DriverRuns runs(driverID, m_context.drivers.life(driverID), most);
    std::optional<stream::Time> since(m_context.instance.started);
    std::vector<RecordedPast::Hole> holes;
    if (const auto before = runs.missingBefore(m_context.instance.started); m_context.pRecorded && before) {
        since.reset();
        const auto take = [&](const auto& record, const auto& names, bool isAnew) {
            since = since ? since : record.time;
            if (record.time < *before)
                runs.take(record, names, isAnew);
        };
        holes = readPast({{}, *before}, take);
    }
    JsonText json;
    json.beginObject();
    runs.write(json, holes);
    json.member("recorded", m_context.pRecorded != nullptr)
        .name("since")
        .value(since ? std::optional(stream::utcText(*since)) : std::nullopt)
        .endObject();
    return json.take();
}

std::string ApiReading::stateHistory(const std::string& key, const ApiTarget& target) const {
    const auto points =
        static_cast<std::size_t>(number(target, "points", ValueHistory::s_leastPoints,
                                        ValueHistory::s_mostPoints, ValueHistory::s_usualPoints));
    const stream::Time now(std::chrono::system_clock::now());
    RecordedPast::Span span;
    span.to = std::min(timeParameter(target, "to").value_or(now), now);
    span.from = timeParameter(target, "from").value_or(span.to - s_usualSpan);
    if (span.from >= span.to)
        throw ApiFault(ApiFault::ECode::RequestInvalid,
                       "from is " + stream::utcText(span.from) + ", which is not before " +
                           stream::utcText(span.to) + ", where the span ends");
    if (!m_context.pRecorded)
        throw ApiFault(ApiFault::ECode::Refused,
                       "the host does not record (--record-off), so nothing is known of what was");
    ValueHistory history(key, span, points);
    const auto holes = readPast(span, [&](const auto& record, const auto& names, bool isAnew) {
        history.take(record, names, isAnew);
    });
    const auto entry = m_context.store.find(key);
    if (!entry && !history.isKnown())
        throw ApiFault(ApiFault::ECode::StateUnknown,
                       "there is no value " + key + ", and none was recorded in that time",
                       base::nearest(key, m_context.store.keys(key.substr(0, key.find('.') + 1))));
    JsonText json;
    json.beginObject();
    history.write(json, holes, entry && !entry->isStale());
    json.name("now");
    if (entry)
        addValue(json, *entry, m_context.now());
    else
        json.null();
    json.endObject();
    return json.take();
}

std::string ApiReading::metrics() const {
    return Metrics(m_context).text();
}

std::string ApiReading::history() const {
    JsonText json;
    json.beginObject().name("history").beginArray();
    for (const HistoryEntry& entry : m_context.history()) {
        json.beginObject();
        writeHistory(json, entry);
        json.endObject();
    }
    json.endArray().endObject();
    return json.take();
}

std::string ApiReading::historyEntry(unsigned number) const {
    const auto entries = m_context.history();
    const auto entry = std::find_if(entries.begin(), entries.end(), [&](const HistoryEntry& candidate) {
        return candidate.number == number;
    });
    const auto file = entry == entries.end() ? std::nullopt : m_context.historyFile(number);
    if (!file)
        throw ApiFault(ApiFault::ECode::NotFound,
                       "no state of the workplace with the number " + std::to_string(number) + " is kept");
    JsonText json;
    json.beginObject();
    writeHistory(json, *entry);
    json.member("file", *file).endObject();
    return json.take();
}
