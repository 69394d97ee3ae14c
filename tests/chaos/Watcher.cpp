#include "Watcher.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <string_view>

#include "Ledger.h"

namespace {

/// Texts are looked for among the last lines.
constexpr std::size_t s_keptLines = 4000;

/// Takes a number from the front of the text.
template <class Number>
bool take(std::string& text, Number& number) {
    const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc())
        return false;
    text.erase(0, static_cast<std::size_t>(pEnd - text.data()));
    return true;
}

/// "17:300"
bool readNumbered(std::string text, std::uint32_t& instance, std::uint32_t& number) {
    if (!take(text, instance) || !text.starts_with(':'))
        return false;
    text.erase(0, 1);
    return take(text, number) && text.empty();
}

/// "17:300:123456789": a number, and when its event was triggered
bool readStamped(const std::string& text, std::uint32_t& instance, std::uint32_t& number,
                 std::int64_t& stamp) {
    const auto colon = text.rfind(':');
    std::string rest = colon == std::string::npos ? std::string() : text.substr(colon + 1);
    return readNumbered(text.substr(0, colon), instance, number) && take(rest, stamp) && rest.empty();
}

constexpr std::string_view s_beingEnded = "it is ended";
constexpr std::string_view s_notHeeded = "did not heed SIGTERM";

/// What the host says of a process: how it ended, that it hangs, or why it is being ended.
bool isVerdict(const std::string& text) {
    return text.starts_with("ended") || text.ends_with(s_beingEnded) || text.ends_with("and is killed");
}

/// The end of a process that was asked to end may take its time, whatever has ended it.
constexpr std::string_view s_asked = "ended: ";
/// Of a reload that was asked for at the end of a fault, and has waited for others: the next fault of its
/// driver may be under way by then.
constexpr std::string_view s_replaced = "ended: exit code 0; a newer process had replaced it";

/// "p300"
bool readAnswer(std::string text, std::uint32_t& number) {
    if (!text.starts_with('p'))
        return false;
    text.erase(0, 1);
    return take(text, number) && text.empty();
}

bool split(const std::string& key, std::string& driverID, std::string& name) {
    const auto dot = key.find('.');
    if (dot == std::string::npos || key.find(' ') != std::string::npos)
        return false;
    driverID = key.substr(0, dot);
    name = key.substr(dot + 1);
    return true;
}

bool isAnswer(const std::string& name) {
    return name == "PONG" || name == "MARK";
}

}  // namespace

void Watcher::output(const std::string& line) {
    {
        const std::lock_guard lock(m_mutex);
        // What is printed may begin in a line that a start, an end or a long list has left open.
        const auto open = line.rfind("...");
        const auto event = line.rfind("event ");
        if (!parse(line) && (open == std::string::npos || !parse(line.substr(open + 3))) &&
            event != std::string::npos)
            parse(line.substr(event));
        keep(line);
    }
    m_changed.notify_all();
}

void Watcher::log(const std::string& line) {
    {
        const std::lock_guard lock(m_mutex);
        for (const char* sign : {"AddressSanitizer", "ThreadSanitizer", "LeakSanitizer", ": runtime error: "})
            if (line.find(sign) != std::string::npos)
                m_sanitizer.push_back(line);
        for (const char* level : {" warning  HOST: ", " error    HOST: ", " critical HOST: ",
                                  " warning  QUEUE: ", " error    QUEUE: "})
            m_warnings += line.find(level) != std::string::npos ? 1 : 0;
        m_isHostStarted = m_isHostStarted || line.find("the workplace is started") != std::string::npos;
        const auto parked = line.find(": is parked; startDriver ");
        if (parked != std::string::npos)
            ++m_timesParked[line.substr(line.rfind(' ', parked) + 1, parked - line.rfind(' ', parked) - 1)];
        const auto process = line.find(": process ");
        const auto name = line.rfind(' ', process - 1);
        if (process != std::string::npos && name != std::string::npos) {
            const std::string driverID = line.substr(name + 1, process - name - 1);
            std::string rest = line.substr(process + 10);
            std::uint32_t pid = 0;
            if (take(rest, pid) && rest.starts_with(' ') && isVerdict(rest.substr(1))) {
                const std::string verdict = rest.substr(1);
                if (verdict.starts_with("ended") || verdict.starts_with("hangs") ||
                    verdict.starts_with("cannot be reached"))
                    m_notices.try_emplace(static_cast<pid_t>(pid), Clock::now());
                m_ends[driverID] += verdict.starts_with("ended") ? 1 : 0;
                judgeVerdict(driverID, static_cast<pid_t>(pid), verdict, line);
            }
        }
        keep(line);
    }
    m_changed.notify_all();
}

void Watcher::judgeVerdict(const std::string& driverID, pid_t pid, const std::string& verdict,
                           const std::string& line) {
    // The watch sees what becomes of the drivers of a host that is killed only now and then.
    if (m_isHostGone)
        return;
    // While nobody reads the log its lines come late: the next process may have served by then, and what was
    // done to its driver be over.
    if (verdict.starts_with(s_notHeeded) && m_rightlyEnded.contains(pid))
        return;
    const auto reloads = m_reloads.find(driverID);
    if (verdict == s_replaced && reloads != m_reloads.end() && reloads->second > 0) {
        --reloads->second;
        return;
    }
    const auto expected = m_expected.find(driverID);
    if (expected == m_expected.end()) {
        if (!verdict.starts_with(s_asked))
            m_unexpected.push_back(line);
        return;
    }
    const auto begins = [&](const std::string& begin) { return verdict.starts_with(begin); };
    const auto befalls = [&](const OfAll* pOfAll) {
        return begins(pOfAll->m_verdict) && !pOfAll->m_unharmed.contains(pid);
    };
    if (std::none_of(expected->second.begin(), expected->second.end(), begins) &&
        std::none_of(m_expectedOfAll.begin(), m_expectedOfAll.end(), befalls))
        m_false.push_back(line);
    else if (verdict.ends_with(s_beingEnded))
        m_rightlyEnded.insert(pid);
}

void Watcher::keep(const std::string& line) {
    m_lines.push_back({++m_position, Clock::now(), line});
    if (m_lines.size() > s_keptLines)
        m_lines.pop_front();
}

bool Watcher::parse(const std::string& text) {
    return parseEvent(text) || parseValue(text) || parseMark(text) || parseRow(text) || parseStale(text);
}

bool Watcher::parseEvent(const std::string& text) {
    if (!text.starts_with("event "))
        return false;
    const auto blank = text.find(' ', 6);
    if (blank == std::string::npos)
        return false;
    std::uint32_t instance = 0;
    std::uint32_t number = 0;
    std::int64_t triggered = 0;
    if (text.substr(6, blank - 6).ends_with(".E") &&
        readStamped(text.substr(blank + 1), instance, number, triggered))
        countEvent(instance, number, triggered);
    return true;
}

void Watcher::countEvent(std::uint32_t instance, std::uint32_t number, std::int64_t triggered) {
    if (!m_lives.empty())
        m_lives.back().horizon = std::max(m_lives.back().horizon, triggered);
    Events& events = m_events[instance];
    ++events.seen;
    if (number < events.next) {
        ++events.disordered;
        return;
    }
    events.missing += number - events.next;
    events.next = number + 1;
}

bool Watcher::parseValue(const std::string& text) {
    if (text.starts_with("... ") && text.ends_with(" lines dropped")) {
        std::string rest = text.substr(4);
        std::uint32_t count = 0;
        if (take(rest, count))
            m_dropped += count;
        return true;
    }
    const auto equals = text.find(" = ");
    std::string driverID;
    std::string name;
    if (equals == std::string::npos || !split(text.substr(0, equals), driverID, name))
        return false;
    const std::string value = text.substr(equals + 3);
    std::uint32_t instance = 0;
    std::uint32_t number = 0;
    // What is stale has its cause behind it, and so is none of these.
    if (name == "N" && readNumbered(value, instance, number)) {
        showLive(driverID, instance, 0, text);
    } else if (isAnswer(name) && readAnswer(value, number)) {
        showLive(driverID, 0, number, text);
        m_answers[driverID] = Clock::now();
    }
    return true;
}

void Watcher::showLive(const std::string& driverID, std::uint32_t instance, std::uint32_t ping,
                       const std::string& text) {
    const Shown& stale = m_staleUpTo[driverID];
    if ((instance > 0 && instance <= stale.instance) || (ping > 0 && ping <= stale.ping))
        m_deadShownLive.push_back(text);
    Shown& shown = m_shown[driverID];
    shown.instance = std::max(shown.instance, instance);
    shown.ping = std::max(shown.ping, ping);
}

bool Watcher::parseStale(const std::string& text) {
    const auto colon = text.find(": ");
    const auto stale = text.find(" stale: ");
    if (colon == std::string::npos || stale == std::string::npos || stale < colon || text.find(' ') < colon)
        return false;
    const std::string driverID = text.substr(0, colon);
    m_staleUpTo[driverID] = m_shown[driverID];
    ++m_timesStale[driverID];
    return true;
}

bool Watcher::parseMark(const std::string& text) {
    const std::string begin = "unknown command \"mark";
    if (!text.starts_with(begin))
        return false;
    std::string rest = text.substr(begin.size());
    std::uint32_t mark = 0;
    if (!take(rest, mark))
        return false;
    m_reply = {mark, Clock::now(), std::move(m_rows)};
    m_rows.clear();
    return true;
}

bool Watcher::parseRow(const std::string& text) {
    std::istringstream words(text);
    std::string key;
    std::string type;
    std::string value;
    std::string owner;
    std::string age;
    std::string unit;
    std::string holds;
    words >> key >> type >> value >> owner >> age >> unit >> holds;
    Row row;
    if (type != "string" || (holds != "yes" && holds != "stale") || !split(key, row.driverID, row.name))
        return false;
    if (!(row.name == "N" && readNumbered(value, row.instance, row.number)) &&
        !(isAnswer(row.name) && readAnswer(value, row.number)))
        return false;
    row.isLive = holds == "yes";
    m_rows.push_back(row);
    return true;
}

void Watcher::hostBegins() {
    const std::lock_guard lock(m_mutex);
    m_isHostGone = false;
    m_isHostStarted = false;
    m_rows.clear();
    m_notices.clear();
    m_rightlyEnded.clear();
    m_lives.push_back({Ledger::now(), 0});
}

void Watcher::hostEnds() {
    {
        const std::lock_guard lock(m_mutex);
        m_isHostGone = true;
    }
    m_changed.notify_all();
}

bool Watcher::isHostGone() const {
    const std::lock_guard lock(m_mutex);
    return m_isHostGone;
}

bool Watcher::isHostStarted() const {
    const std::lock_guard lock(m_mutex);
    return m_isHostStarted && !m_isHostGone;
}

void Watcher::forgetNotice(pid_t pid) {
    const std::lock_guard lock(m_mutex);
    m_notices.erase(pid);
}

std::optional<Watcher::Clock::time_point> Watcher::waitForNotice(pid_t pid,
                                                                 std::chrono::milliseconds patience) {
    std::optional<Clock::time_point> when;
    wait(patience, [&] {
        if (const auto notice = m_notices.find(pid); notice != m_notices.end())
            when = notice->second;
        return when.has_value();
    });
    return when;
}

unsigned int Watcher::endsOf(const std::string& driverID) const {
    const std::lock_guard lock(m_mutex);
    const auto ends = m_ends.find(driverID);
    return ends == m_ends.end() ? 0 : ends->second;
}

bool Watcher::waitForEnds(const std::string& driverID, unsigned int count,
                          std::chrono::milliseconds patience) {
    return wait(patience, [&] { return m_ends[driverID] >= count; });
}

std::uint32_t Watcher::nextPing() {
    const std::lock_guard lock(m_mutex);
    return ++m_pings;
}

std::optional<Watcher::Clock::time_point> Watcher::waitForAnswer(const std::string& driverID,
                                                                 std::uint32_t ping,
                                                                 std::chrono::milliseconds patience) {
    std::optional<Clock::time_point> when;
    wait(patience, [&] {
        if (m_shown[driverID].ping >= ping)
            when = m_answers[driverID];
        return when.has_value();
    });
    return when;
}

std::uint32_t Watcher::lastAnswer(const std::string& driverID) const {
    const std::lock_guard lock(m_mutex);
    const auto shown = m_shown.find(driverID);
    return shown == m_shown.end() ? 0 : shown->second.ping;
}

std::uint32_t Watcher::timesParked(const std::string& driverID) const {
    const std::lock_guard lock(m_mutex);
    const auto times = m_timesParked.find(driverID);
    return times == m_timesParked.end() ? 0 : times->second;
}

std::uint32_t Watcher::timesStale(const std::string& driverID) const {
    const std::lock_guard lock(m_mutex);
    const auto times = m_timesStale.find(driverID);
    return times == m_timesStale.end() ? 0 : times->second;
}

std::uint32_t Watcher::lastInstance(const std::string& driverID) const {
    const std::lock_guard lock(m_mutex);
    const auto shown = m_shown.find(driverID);
    return shown == m_shown.end() ? 0 : shown->second.instance;
}

std::uint64_t Watcher::position() const {
    const std::lock_guard lock(m_mutex);
    return m_position;
}

template <class IsMeant>
std::optional<Watcher::Line> Watcher::waitForKept(IsMeant isMeant, std::uint64_t since,
                                                  std::chrono::milliseconds patience) {
    std::optional<Line> found;
    std::uint64_t looked = since;
    wait(patience, [&] {
        for (auto line = m_lines.rbegin(); !found && line != m_lines.rend() && line->position > looked;
             ++line)
            if (isMeant(line->text))
                found = *line;
        looked = m_position;
        return found.has_value();
    });
    return found;
}

std::optional<Watcher::Clock::time_point> Watcher::waitForText(const std::string& text, std::uint64_t since,
                                                               std::chrono::milliseconds patience) {
    const auto holds = [&](const std::string& line) { return line.find(text) != std::string::npos; };
    return timeOf(waitForKept(holds, since, patience));
}

std::optional<std::string> Watcher::lineThatBegins(const std::string& begin, std::uint64_t since,
                                                   std::chrono::milliseconds patience) {
    const auto begins = [&](const std::string& line) { return line.starts_with(begin); };
    const auto line = waitForKept(begins, since, patience);
    return line ? std::optional(line->text) : std::nullopt;
}

std::optional<Watcher::Reply> Watcher::waitForReply(std::uint32_t mark, std::chrono::milliseconds patience) {
    std::optional<Reply> reply;
    wait(patience, [&] {
        if (m_reply.mark == mark)
            reply = m_reply;
        return reply.has_value();
    });
    return reply;
}

void Watcher::expect(const std::string& driverID, const Verdicts& verdicts) {
    const std::lock_guard lock(m_mutex);
    m_expected[driverID] = verdicts;
}

void Watcher::expectReload(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    ++m_reloads[driverID];
}

void Watcher::expectNothing(const std::string& driverID) {
    const std::lock_guard lock(m_mutex);
    m_expected.erase(driverID);
}

Watcher::OfAll::OfAll(Watcher& watcher, std::string verdict, std::set<pid_t> unharmed)
    : m_watcher(watcher), m_verdict(std::move(verdict)), m_unharmed(std::move(unharmed)) {
    const std::lock_guard lock(m_watcher.m_mutex);
    m_watcher.m_expectedOfAll.insert(this);
}

Watcher::OfAll::~OfAll() {
    const std::lock_guard lock(m_watcher.m_mutex);
    m_watcher.m_expectedOfAll.erase(this);
}

Watcher::EventsByInstance Watcher::events() const {
    const std::lock_guard lock(m_mutex);
    return m_events;
}

std::vector<Watcher::Life> Watcher::lives() const {
    const std::lock_guard lock(m_mutex);
    return m_lives;
}

std::vector<std::string> Watcher::deadShownLive() const {
    const std::lock_guard lock(m_mutex);
    return m_deadShownLive;
}

std::vector<std::string> Watcher::unexpectedEnds() const {
    const std::lock_guard lock(m_mutex);
    return m_unexpected;
}

std::vector<std::string> Watcher::falseVerdicts() const {
    const std::lock_guard lock(m_mutex);
    return m_false;
}

std::uint64_t Watcher::warnings() const {
    const std::lock_guard lock(m_mutex);
    return m_warnings;
}

std::vector<std::string> Watcher::sanitizerReports() const {
    const std::lock_guard lock(m_mutex);
    return m_sanitizer;
}

std::uint64_t Watcher::droppedLines() const {
    const std::lock_guard lock(m_mutex);
    return m_dropped;
}
