#include "LinkCore.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "Printable.h"

using linkpayload::EOutcome;
using linkpayload::Reply;

namespace {

using ELevel = sal::LogOutput::ELevel;

constexpr std::chrono::seconds s_tick{1};
/// A value is told so often at most.
constexpr std::chrono::milliseconds s_states{200};
/// Between two looks at the host's values, and for each value that changes faster than it may be told: much
/// of that is not worth many looks.
constexpr std::chrono::milliseconds s_look{10};
/// What a site may answer late by, beside its own limit.
constexpr std::chrono::seconds s_replyPatience{5};
constexpr std::size_t s_longestPayload = 64 * 1024;
/// Of what is remembered of others' messages: boot IDs with their numbers, correlation data.
constexpr std::size_t s_longestID = 128;
/// One tick tells of so many other sites; of further ones the next ticks do.
constexpr std::size_t s_mostHeard = 8;
/// How often a site tells what it has told, and of how many drivers at once.
constexpr std::chrono::seconds s_sums{1};
constexpr std::size_t s_mostSummed = 64;
constexpr const char* s_delay = "LINK_DELAY";
constexpr const char* s_rateIn = "LINK_IN";
constexpr const char* s_rateOut = "LINK_OUT";
constexpr const char* s_earlier = "of an earlier start of ";

std::string key(const LinkTopics::Parts& parts) {
    return parts.driver + "." + parts.name;
}

/// The boot ID in "BOOT:17"; empty where there is none, and for one that is longer than any: thousands are
/// kept.
std::string bootOf(const std::string& id) {
    const auto parsed = id.size() <= s_longestID ? linkpayload::Tick::parse(id) : std::nullopt;
    return parsed ? parsed->boot : std::string();
}

}  // namespace

LinkCore::LinkCore(std::string site, std::string boot, ILinkHost& host, Random random, Time now)
    : m_site(std::move(site)),
      m_boot(std::move(boot)),
      m_host(host),
      m_random(std::move(random)),
      m_begin(now),
      m_clock(m_boot) {
    for (const ILinkHost::Event& event : m_host.events(0))
        m_lastEvent = event.number;
}

LinkCore::Far* LinkCore::farOf(const std::string& site) {
    const auto found =
        std::find_if(m_fars.begin(), m_fars.end(), [&](const Far& far) { return far.site() == site; });
    return found == m_fars.end() ? nullptr : &*found;
}

LinkCore::Far* LinkCore::farOf(const ILink& link) {
    const auto found =
        std::find_if(m_fars.begin(), m_fars.end(), [&](const Far& far) { return &far.link == &link; });
    return found == m_fars.end() ? nullptr : &*found;
}

void LinkCore::add(ILink& link, Time now) {
    Far& far = m_fars.emplace_back(link);
    const LinkSettings::Broker& broker = link.settings().broker;
    far.heard = now;
    link.panel().setStateValue("LINK_SITE", m_site);
    link.panel().setStateValue("LINK_TO", far.site());
    link.panel().setStateValue("LINK_BROKER", broker.host + " port " + std::to_string(broker.port));
    if (m_pBroker) {
        subscribe(far);
        // What it exports has not been published yet.
        m_publishAll = now;
    }
    judge(far, now);
}

void LinkCore::remove(ILink& link) {
    for (auto taken = m_taken.begin(); taken != m_taken.end();)
        taken = taken->second.driverID == link.driverID() ? m_taken.erase(taken) : std::next(taken);
    m_fars.remove_if([&](const Far& far) { return &far.link == &link; });
}

/// By the clock that the ticks tell: right when this instance began, and then as steady as the machine's own,
/// so that nothing that was said becomes older or younger when somebody sets the clock.
linkpayload::Time LinkCore::clockAt(Time when) const {
    return m_since + std::chrono::duration_cast<linkpayload::Time::duration>(when - m_begin);
}

LinkMessage LinkCore::will() const {
    return {.topic = LinkTopics::up(m_site),
            .payload = linkpayload::text(linkpayload::Up{false, m_boot}),
            .isRetained = true};
}

bool LinkCore::publish(const LinkMessage& message) {
    return m_pBroker && m_pBroker->publish(message);
}

void LinkCore::publishUp(bool isComplete) {
    LinkMessage birth = will();
    birth.payload = linkpayload::text(linkpayload::Up{true, m_boot, m_since, isComplete, m_from});
    publish(birth);
}

void LinkCore::subscribe(const Far& far) {
    const LinkSettings& settings = far.link.settings();
    const std::string& site = settings.farSite;
    std::set<std::string> drivers = settings.imported.ids;
    if (settings.imported.areAll)
        drivers = {"*"};
    for (const std::string& driver : drivers) {
        m_pBroker->subscribe(LinkTopics::states(site, driver));
        m_pBroker->subscribe(LinkTopics::events(site, driver));
    }
    // Last: that the site is there is heard after what the broker has kept of it.
    for (const std::string& topic :
         {LinkTopics::up(site), LinkTopics::tick(site), LinkTopics::reply(site, m_boot)})
        m_pBroker->subscribe(topic);
}

void LinkCore::connected(IBroker& broker, Time now) {
    m_pBroker = &broker;
    m_isConnectedAgain = std::exchange(m_wasConnected, true);
    m_dirty.clear();
    m_pBroker->subscribe(LinkTopics::fids(m_site, "*"));
    m_pBroker->subscribe(LinkTopics::up(m_site));
    m_pBroker->subscribe(LinkTopics::states(m_site, "*"));
    std::chrono::seconds spread{0};
    for (Far& far : m_fars) {
        subscribe(far);
        spread = std::max(spread, far.link.settings().spread);
        // Only what is heard over this connection counts.
        far.isUp = false;
        far.isPublishing = false;
        far.isSilent = false;
        far.tick.reset();
        far.heard = now;
        far.asksSince.reset();
        far.losses.begin();
        far.summed.reset();
        ++far.round;
    }
    m_from = m_lastID + 1;
    m_isHeard = false;
    m_nextSums = now + s_sums;
    publishUp(false);
    m_isCompletePending = false;
    m_publishAll = now + m_random(spread);
    m_nextTick = now;
    step(now);
}

void LinkCore::lost(const std::string& reason, Time now) {
    m_pBroker = nullptr;
    m_lostReason = reason;
    m_wasTried = true;
    m_publishAll.reset();
    for (Far& far : m_fars) {
        giveUp(far, "the connection to the broker was lost before the answer came", now);
        judge(far, now);
    }
}

void LinkCore::leave() {
    publish(will());
}

void LinkCore::step(Time now) {
    takeOutcomes();
    for (Far& far : m_fars) {
        judge(far, now);
        for (const std::string& line : far.lines.due(now))
            far.link.say(ELevel::eWarning, line);
        std::vector<std::string> late;
        for (const auto& [correlation, sent] : far.sent) {
            if (sent.deadline <= now)
                late.push_back(correlation);
        }
        for (const std::string& correlation : late) {
            const std::string fid = far.sent.at(correlation).fid;
            far.sent.erase(correlation);
            tell(far, fid, {EOutcome::Unknown, "no answer came"}, now);
        }
    }
    // A broker may close the connection right after it has refused the first word: whoever writes on
    // meanwhile finds it closed, and does not read why.
    if (!m_pBroker || !(m_isHeard |= m_pBroker->pending() == 0))
        return;
    if (now >= m_nextTick) {
        m_nextTick = now + s_tick;
        const linkpayload::Tick tick = m_clock.next(now);
        publish({.topic = LinkTopics::tick(m_site),
                 .payload = linkpayload::text(tick, clockAt(now), heard(now)),
                 .qos = 0});
        for (Far& far : m_fars)
            measure(far, now);
    }
    answerAsking(now);
    if (m_publishAll && now >= *m_publishAll) {
        m_publishAll.reset();
        // What is not told anew from here on is gone.
        if (std::exchange(m_isAsked, false)) {
            m_from = m_lastID + 1;
            publishUp(false);
        }
        m_allPublished = now;
        m_version = 0;
        m_isCompletePending = true;
        m_nextStates = now;
    }
    const auto next = due();
    if (!m_publishAll && (now >= m_nextStates || (next && now >= *next)))
        collect(now);
    flush();
    if (now >= m_nextSums) {
        m_nextSums = now + s_sums;
        publishSums();
    }
}

std::optional<LinkCore::Time> LinkCore::due() const {
    // Before everything is published nothing is.
    if (!m_pBroker || m_publishAll || (!m_hasNews && !m_nextHeld))
        return std::nullopt;
    return std::max(m_notBefore, m_hasNews ? Time() : *m_nextHeld);
}

/// What has changed is told at once where it was quiet before, else when its pace allows it.
void LinkCore::collect(Time now) {
    m_hasNews = false;
    m_host.watch(m_site);
    collectStates(now);
    publishEvents();
    m_nextHeld.reset();
    for (auto held = m_held.begin(); held != m_held.end();) {
        const Time next = m_published[held->first].at + s_states;
        if (next > now) {
            m_nextHeld = std::min(m_nextHeld.value_or(next), next);
            ++held;
        } else {
            tell(held->first, held->second, now);
            held = m_held.erase(held);
        }
    }
    m_nextStates = now + s_states;
    m_notBefore = now + std::min<Duration>(s_states, s_look * (1 + m_held.size()));
}

/// Other sites may ask each second; each has its budget. One that has to wait is not forgotten.
void LinkCore::answerAsking(Time now) {
    for (Far& far : m_fars) {
        if (!far.asksSince || m_publishAll || m_isCompletePending)
            continue;
        // What was published after it had heard that tick is on its way.
        if (*far.asksSince <= m_allPublished) {
            far.asksSince.reset();
        } else if (far.anew.take(now)) {
            far.asksSince.reset();
            m_publishAll = now + m_random(far.link.settings().spread);
            m_isAsked = true;
        }
    }
}

/// What the tick tells of the others, of all of them one after another.
std::vector<linkpayload::Heard> LinkCore::heard(Time now) {
    std::vector<linkpayload::Heard> heard;
    if (m_nextHeard >= m_fars.size())
        m_nextHeard = 0;
    auto next = std::next(m_fars.begin(), static_cast<std::ptrdiff_t>(m_nextHeard));
    for (; next != m_fars.end() && heard.size() < s_mostHeard; ++next, ++m_nextHeard) {
        if (next->tick)
            heard.push_back({next->site(), *next->tick,
                             std::chrono::duration_cast<std::chrono::microseconds>(now - next->heard),
                             next->isAsked});
    }
    return heard;
}

void LinkCore::measure(Far& far, Time now) {
    const auto rates = far.meter.take(now);
    if (!rates || !far.isLive)
        return;
    far.link.panel().setStateValueFloat(s_rateIn, rates->in);
    far.link.panel().setStateValueFloat(s_rateOut, rates->out);
}

LinkCore::Far* LinkCore::farOfDriver(const std::string& driverID) {
    const auto found = std::find_if(m_fars.begin(), m_fars.end(),
                                    [&](const Far& far) { return far.link.driverID() == driverID; });
    return found == m_fars.end() ? nullptr : &*found;
}

/// Those that let the driver's values and events out; all of them share the one message.
std::vector<LinkCore::Far*> LinkCore::exporters(const std::string& driverID) {
    const bool isLink = farOfDriver(driverID) != nullptr;
    std::vector<Far*> found;
    for (Far& far : m_fars) {
        const LinkSettings& settings = far.link.settings();
        if (settings.exported.contain(driverID) && (!isLink || settings.hasTransit))
            found.push_back(&far);
    }
    return found;
}

bool LinkCore::isExported(const std::string& driverID) {
    return !exporters(driverID).empty();
}

void LinkCore::countOut(const std::string& driverID) {
    for (Far* const pFar : exporters(driverID))
        pFar->meter.countOut();
}

/// With the next flush().
void LinkCore::tell(const std::string& topic, const ILinkHost::State& state, Time now) {
    m_published[topic] = {now, ++m_lastID};
    m_dirty[topic] = linkpayload::text(
        linkpayload::State{state.value, clockAt(state.reported), m_boot, m_lastID, state.staleCause});
}

void LinkCore::collectStates(Time now) {
    const ILinkHost::Changes changes = m_host.changes(m_version);
    m_version = changes.version;
    std::map<std::string, Told> former;
    if (changes.isComplete) {
        former.swap(m_published);
        m_held.clear();
    }
    const auto topicOf = [this](const std::string& stateKey) {
        const auto dot = stateKey.find('.');
        if (dot == std::string::npos || dot == 0 || dot + 1 == stateKey.size() ||
            !isExported(stateKey.substr(0, dot)))
            return std::string();
        return LinkTopics::state(m_site, stateKey.substr(0, dot), stateKey.substr(dot + 1));
    };
    for (const ILinkHost::State& state : changes.states) {
        const std::string topic = topicOf(state.key);
        if (topic.empty())
            continue;
        former.erase(topic);
        m_unset.erase(topic);
        const auto told = m_published.find(topic);
        if (told != m_published.end() && told->second.at + s_states > now) {
            m_held[topic] = state;
        } else {
            m_held.erase(topic);
            tell(topic, state, now);
        }
    }
    for (const std::string& unset : changes.unset) {
        const std::string topic = topicOf(unset);
        m_held.erase(topic);
        if (m_published.erase(topic) > 0)
            unpublish(topic);
    }
    for (const std::string& topic : std::exchange(m_left, {})) {
        if (!m_published.contains(topic))
            unpublish(topic);
    }
    // What there was and is no more.
    for (const auto& [topic, gone] : former)
        unpublish(topic);
    if (changes.isComplete) {
        // A bridge between brokers that was cut then has kept it.
        for (const std::string& topic : m_unset)
            m_dirty[topic].clear();
    }
}

/// The broker is to forget the value.
void LinkCore::unpublish(const std::string& topic) {
    m_dirty[topic].clear();
    if (m_unset.size() < s_mostValues)
        m_unset.insert(topic);
}

void LinkCore::flush() {
    while (!m_dirty.empty() && m_pBroker->pending() < s_mostPending) {
        auto next = m_dirty.extract(m_dirty.begin());
        LinkMessage message{.topic = next.key(), .payload = next.mapped(), .isRetained = true};
        if (message.payload.empty())
            message.properties = {{"id", m_boot + ":" + std::to_string(++m_lastID)}};
        publish(message);
        if (const auto parts = LinkTopics::parse(next.key()))
            countOut(parts->driver);
    }
    if (m_isCompletePending && m_dirty.empty() && m_version != 0) {
        m_isCompletePending = false;
        publishUp(true);
    }
}

/// Of some drivers after the other; of none while values wait. In the order of the values, which ticks of QoS
/// 0 may overtake.
void LinkCore::publishSums() {
    linkpayload::Sums sums{m_boot, {}};
    const bool areWaiting = m_publishAll || m_isCompletePending || !m_dirty.empty();
    auto next = areWaiting ? m_published.end() : m_published.upper_bound(m_lastSummed);
    if (next == m_published.end() && !areWaiting)
        next = m_published.begin();
    for (m_lastSummed.clear(); next != m_published.end(); ++next) {
        const auto parts = LinkTopics::parse(next->first);
        if (!parts)
            continue;
        if (sums.drivers.size() >= s_mostSummed && !sums.drivers.contains(parts->driver))
            break;
        auto& [count, numbers] = sums.drivers[parts->driver];
        ++count;
        numbers += next->second.number;
        m_lastSummed = next->first;
    }
    publish({.topic = LinkTopics::tick(m_site), .payload = linkpayload::text(sums)});
}

void LinkCore::publishEvents() {
    for (const ILinkHost::Event& event : m_host.events(m_lastEvent)) {
        m_lastEvent = event.number;
        const auto dot = event.id.find('.');
        if (dot == std::string::npos || dot == 0 || dot + 1 == event.id.size() ||
            !isExported(event.id.substr(0, dot)) || m_pBroker->pending() >= s_mostPending)
            continue;
        countOut(event.id.substr(0, dot));
        publish({.topic = LinkTopics::event(m_site, event.id.substr(0, dot), event.id.substr(dot + 1)),
                 .payload = linkpayload::text(linkpayload::Event{
                     event.value, event.when, m_boot + ":" + std::to_string(++m_lastID)})});
    }
}

std::string LinkCore::causeOf(const Far& far, Time now) const {
    if (!m_pBroker)
        return "no broker: " + m_lostReason;
    if (far.boot.empty())
        return far.site() + " has not been heard yet";
    if (!far.isUp)
        return far.site() + " is away";
    // Where the broker waits for a confirmation that does not come through, ticks of QoS 0 come and values do
    // not.
    if (!far.tick || far.tick->boot != far.boot || now - far.heard > s_silence ||
        (far.summed && now - *far.summed > s_silence))
        return far.site() + " is not heard";
    return {};
}

/// Whether the far site is there, and what follows when that has changed.
void LinkCore::judge(Far& far, Time now) {
    const std::string cause = causeOf(far, now);
    far.isSilent |= m_pBroker && far.isUp &&
                    (now - far.heard > s_silence || (far.summed && now - *far.summed > s_silence));
    if (cause.empty() ? far.isLive : !far.isLive && cause == far.cause)
        return;
    const bool wasLive = std::exchange(far.isLive, cause.empty());
    far.cause = cause;
    if (far.isLive) {
        // A broker may have kept what it has heard before the silence, and nobody says what has changed
        // since.
        if (std::exchange(far.isSilent, false)) {
            far.isAsked = true;
            ++far.round;
        }
        showAll(far, now);
        far.link.say(ELevel::eInfo, far.site() + " is there");
    } else {
        std::vector<std::string> keys;
        far.meter.forget();
        for (const char* const pFigure : {s_delay, s_rateIn, s_rateOut})
            keys.push_back(far.link.driverID() + "." + pFigure);
        for (const auto& [stateKey, value] : far.values)
            keys.push_back(far.link.driverID() + "." + stateKey);
        m_host.makeStale(far.link.driverID(), keys, cause);
        // On the way to the other site's first word each step is no news; that there is no broker is.
        if (wasLive || (!m_pBroker && m_wasTried))
            far.link.say(ELevel::eWarning, cause);
        if (wasLive)
            giveUp(far, cause, now);
    }
    far.link.panel().setStateValue("LINK", cause.empty() ? "up" : cause);
}

void LinkCore::showAll(Far& far, Time now) {
    for (const auto& [stateKey, value] : far.values)
        show(far, stateKey, value, now);
}

void LinkCore::show(Far& far, const std::string& stateKey, const Value& value, Time now) {
    const linkpayload::State& state = value.state;
    const std::string cause = !far.isLive                ? far.cause
                              : state.boot != far.boot   ? s_earlier + far.site()
                              : value.round != far.round ? far.site() + " has not told it anew yet"
                                                         : state.staleCause;
    m_host.setFar(far.link.driverID() + "." + stateKey, state.value, cause, far.clock.here(state.at, now));
}

void LinkCore::received(const LinkMessage& message, Time now) {
    const auto parts = LinkTopics::parse(message.topic);
    if (!parts)
        return;
    if (message.payload.size() > s_longestPayload) {
        if (Far* const pFar = farOf(parts->site))
            pFar->losses.exclude(parts->driver);
        return;
    }
    if (parts->site == m_site) {
        if (parts->kind == LinkTopics::EKind::Fid)
            takeFid(*parts, message, now);
        else if (parts->kind == LinkTopics::EKind::Up)
            takeOwnUp(message);
        else if (parts->kind == LinkTopics::EKind::State)
            takeOwnState(message);
        return;
    }
    Far* const pFar = farOf(parts->site);
    if (!pFar)
        return;
    if (parts->kind != LinkTopics::EKind::Tick)
        pFar->meter.countIn();
    switch (parts->kind) {
        case LinkTopics::EKind::Up:
            takeUp(*pFar, message, now);
            break;
        case LinkTopics::EKind::Tick:
            takeTick(*pFar, message, now);
            break;
        case LinkTopics::EKind::State:
            takeState(*pFar, *parts, message, now);
            break;
        case LinkTopics::EKind::Event:
            takeEvent(*pFar, *parts, message);
            break;
        case LinkTopics::EKind::Reply:
            if (parts->driver == m_boot)
                takeReply(*pFar, message, now);
            break;
        default:
            break;
    }
}

void LinkCore::refused(const std::string& reason) {
    if (!m_fars.empty() && m_refused.passes())
        m_fars.front().link.say(
            ELevel::eWarning,
            "the broker refuses what " + m_site + " says: " + reason +
                "; \"mfctl link acl\" prints what it must allow the user or certificate of " + m_site);
}

void LinkCore::takeOwnUp(const LinkMessage& message) {
    const auto up = linkpayload::up(message.payload);
    if (up && up->boot == m_boot) {
        m_rivals = message.isRetained ? 0 : m_rivals;
        return;
    }
    // The broker keeps the word of an instance that came after this one was connected last. Once a broker
    // that has lost its last minutes may do so.
    const bool isRival =
        up && (message.isRetained ? m_isConnectedAgain && ++m_rivals > 1 : up->isUp) && !m_fars.empty();
    if (isRival && m_strange.passes())
        m_fars.front().link.say(ELevel::eError, "another host calls itself " + m_site +
                                                    " at the broker; give one of them another site=\"...\"");
    // The last will of another instance comes late, or what the broker keeps was spoilt.
    if (!up || !up->isUp)
        publishUp(!m_publishAll && !m_isCompletePending);
}

/// What an instance before this one has left at the broker, and this one does not have, goes.
void LinkCore::takeOwnState(const LinkMessage& message) {
    const auto state = linkpayload::state(message.payload);
    if (message.isRetained && (!state || state->boot != m_boot) && m_left.size() < s_mostValues)
        m_left.insert(message.topic);
}

void LinkCore::takeUp(Far& far, const LinkMessage& message, Time now) {
    const auto up = linkpayload::up(message.payload);
    if (!up && !message.payload.empty())
        return;
    if (!up || !up->isUp) {
        // That of another instance than the last one says nothing of it.
        if (up && !far.boot.empty() && up->boot != far.boot)
            return;
        if (up)
            far.boot = up->boot;
        far.isUp = false;
        judge(far, now);
        return;
    }
    const bool isOther = far.boot != up->boot;
    if (isOther) {
        far.ends.clear();
        far.summed.reset();
    }
    if (isOther && !far.boot.empty())
        giveUp(far, far.site() + " was started anew", now);
    far.boot = up->boot;
    far.isUp = true;
    far.isComplete = up->isComplete;
    // What it had before may have changed since: it was not heard meanwhile.
    const bool isAnew = !far.isComplete && (isOther || !far.isPublishing);
    if (isAnew) {
        far.losses.begin();
        ++far.round;
        // Who has connected in the middle of it has had the first ones from the broker already.
        for (auto& [stateKey, value] : far.values) {
            if (up->from > 0 && value.state.boot == far.boot && value.state.number >= up->from)
                value.round = far.round;
        }
    }
    far.isPublishing = !far.isComplete;
    if (isOther || far.isPublishing)
        far.isSilent = far.isAsked = false;
    // Of one that is asked for everything it is that of before.
    if (far.isComplete && !far.isAsked) {
        for (auto value = far.values.begin(); value != far.values.end();) {
            if (value->second.state.boot == far.boot && value->second.round == far.round) {
                ++value;
                continue;
            }
            far.link.panel().unsetStateValue(value->first);
            value = far.values.erase(value);
        }
    }
    judge(far, now);
    if (isOther || (isAnew && far.isLive))
        showAll(far, now);
}

void LinkCore::takeTick(Far& far, const LinkMessage& message, Time now) {
    // One that a broker keeps is of long ago.
    if (message.isRetained)
        return;
    auto tick = linkpayload::tick(message.payload);
    if (!tick) {
        if (const auto sums = linkpayload::sums(message.payload))
            takeSums(far, *sums, now);
        return;
    }
    if (far.clockBoot != tick->boot) {
        far.clockBoot = tick->boot;
        far.clock.forget();
    }
    const auto told = linkpayload::heard(message.payload, m_site);
    const auto age = told ? m_clock.age(told->tick, now) : std::nullopt;
    if (told && told->isAsking && age)
        far.asksSince = now - *age;
    const auto delay = age && *age >= told->ago ? std::optional<Duration>(*age - told->ago) : std::nullopt;
    if (const auto time = linkpayload::tickTime(message.payload))
        far.clock.take(*time, delay, now);
    far.tick = std::move(tick);
    far.heard = now;
    judge(far, now);
    if (far.isLive && delay)
        far.link.panel().setStateValueFloat(s_delay,
                                            std::chrono::duration<float, std::milli>(*delay).count());
}

/// A broker or a bridge that has dropped values has told nobody; which ones they were nobody knows.
void LinkCore::takeSums(Far& far, const linkpayload::Sums& sums, Time now) {
    if (sums.boot == far.boot)
        far.summed = now;
    judge(far, now);
    for (const auto& [driver, told] : sums.drivers) {
        if (!far.isLive || !far.isComplete || far.isAsked || sums.boot != far.boot)
            return;
        if (!far.link.settings().imported.contain(driver))
            continue;
        linkpayload::Sums::Sum here;
        const std::string prefix = driver + ".";
        for (auto value = far.values.lower_bound(prefix);
             value != far.values.end() && value->first.starts_with(prefix); ++value) {
            if (value->second.state.boot != far.boot)
                continue;
            ++here.count;
            here.numbers += value->second.state.number;
        }
        if (!far.losses.compare(driver, here == told, now))
            continue;
        far.isAsked = true;
        ++far.round;
        showAll(far, now);
        far.link.say(ELevel::eWarning, "values of " + base::printable(driver) + " at " + far.site() +
                                           " were lost on the way, and are asked for anew; a broker drops "
                                           "what it may not keep (mosquitto: max_queued_messages)");
    }
}

/// Values and events of ours that come back, or that have gone through too many sites.
bool LinkCore::isEcho(const std::string& driver, const std::string& name) const {
    std::string path = driver + "." + name;
    path.erase(path.rfind('.'));
    std::replace(path.begin(), path.end(), '.', ',');
    return !LinkPath(path).fault(m_site).empty();
}

/// The value is no more. One that has come meanwhile stays, whichever of both the broker has let overtake the
/// other.
void LinkCore::takeEnd(Far& far, const std::string& stateKey, const LinkMessage& message) {
    const std::string id = message.property("id");
    const auto end = bootOf(id).empty() ? std::nullopt : linkpayload::Tick::parse(id);
    const auto known = far.values.find(stateKey);
    if (end && known != far.values.end() && known->second.state.boot == end->boot &&
        known->second.state.number > end->number)
        return;
    // What is overtaken comes soon.
    if (far.ends.size() >= s_mostValues)
        far.ends.clear();
    if (end)
        far.ends[stateKey] = *end;
    if (known == far.values.end())
        return;
    far.values.erase(known);
    far.link.panel().unsetStateValue(stateKey);
}

void LinkCore::takeState(Far& far, const LinkTopics::Parts& parts, const LinkMessage& message, Time now) {
    if (!far.link.settings().imported.contain(parts.driver))
        return;
    if (isEcho(parts.driver, parts.name))
        return far.losses.exclude(parts.driver);
    const std::string stateKey = key(parts);
    if (message.payload.empty())
        return takeEnd(far, stateKey, message);
    auto state = linkpayload::state(message.payload);
    if (!state)
        return far.losses.exclude(parts.driver);
    // Left at the broker by an instance that is gone.
    if (far.isUp && far.isComplete && state->boot != far.boot)
        return;
    const auto known = far.values.find(stateKey);
    // A broker that has held messages up may have let a newer one overtake them.
    if (known != far.values.end() && known->second.state.boot == state->boot &&
        known->second.state.number > state->number)
        return;
    const auto end = far.ends.find(stateKey);
    if (end != far.ends.end()) {
        if (end->second.boot == state->boot && end->second.number > state->number)
            return;
        far.ends.erase(end);
    }
    if (far.values.size() >= s_mostValues && known == far.values.end()) {
        far.losses.exclude(parts.driver);
        if (far.isFull.passes())
            far.link.say(ELevel::eError, std::to_string(s_mostValues) + " values of " + far.site() +
                                             " are kept at most; " + base::quoted(stateKey) +
                                             " and further ones are dropped");
        return;
    }
    const Value& kept = far.values[stateKey] = Value{std::move(*state), far.round};
    show(far, stateKey, kept, now);
}

void LinkCore::takeEvent(Far& far, const LinkTopics::Parts& parts, const LinkMessage& message) {
    if (message.isRetained || !far.link.settings().imported.contain(parts.driver) ||
        isEcho(parts.driver, parts.name))
        return;
    const auto event = linkpayload::event(message.payload);
    if (event && !bootOf(event->id).empty() && m_seen.isNew(bootOf(event->id), event->id))
        far.link.panel().triggerEvent(key(parts), event->value);
}

bool LinkCore::send(ILink& link, const std::string& fid, const FIDParameterList& parameters, Time now) {
    Far* const pFar = farOf(link);
    const LinkPath path(m_host.path());
    const auto refuse = [&](const std::string& why, const char* pCause = nullptr) {
        const std::string line = base::printable(fid) + " is not sent: " + why;
        // Who has sent it from another process has no other answer.
        if (pFar && path.sites().empty())
            link.panel().triggerEvent("OUTCOME", fid + ": refused: " + why);
        if (pFar)
            warn(*pFar, pCause ? pCause : why, line, now);
        else
            link.say(ELevel::eWarning, line);
        return false;
    };
    const auto dot = fid.find('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == fid.size())
        return refuse("a FID to another site is a driver there, \".\" and a function");
    if (!pFar || !pFar->isLive)
        return refuse(pFar ? pFar->cause : "the link has ended");
    if (!path.sites().empty() && !link.settings().hasTransit)
        return refuse("it came over a link (" + base::printable(path.text()) +
                          "), and only transit=\"true\" lets it go out over another",
                      "transit");
    if (pFar->sent.size() >= s_mostSent || m_pBroker->pending() >= s_mostPending)
        return refuse("too many FIDs wait for the answer of " + pFar->site());
    const auto payload = linkpayload::text(parameters);
    if (!payload)
        return refuse("a parameter is no UTF-8");
    const std::string number = std::to_string(++m_lastID);
    const auto expiry = link.settings().expiry;
    const LinkMessage message{.topic = LinkTopics::fid(pFar->site(), fid.substr(0, dot), fid.substr(dot + 1)),
                              .payload = *payload,
                              .responseTopic = LinkTopics::reply(pFar->site(), m_boot),
                              .correlation = number,
                              .expiry = static_cast<std::uint32_t>(expiry.count()),
                              .properties = {{"id", m_boot + ":" + number},
                                             {"from", m_site},
                                             {"path", path.with(m_site).text()},
                                             {"tick", pFar->tick->text()}}};
    if (!publish(message))
        return refuse("the broker's library does not take it");
    pFar->meter.countOut();
    pFar->sent[number] = {fid, now + expiry + s_replyPatience};
    return true;
}

void LinkCore::takeReply(Far& far, const LinkMessage& message, Time now) {
    const auto found = far.sent.find(message.correlation);
    const auto answer = linkpayload::reply(message.payload);
    if (message.isRetained || found == far.sent.end() || !answer)
        return;
    const std::string fid = found->second.fid;
    far.sent.erase(found);
    tell(far, fid, *answer, now);
}

void LinkCore::tell(Far& far, const std::string& fid, const Reply& reply, Time now) {
    const std::string text =
        fid + ": " + linkpayload::inWords(reply.outcome) + (reply.text.empty() ? "" : ": " + reply.text);
    far.link.panel().triggerEvent("OUTCOME", text);
    if (reply.outcome != EOutcome::Done)
        warn(far, linkpayload::inWords(reply.outcome) + (": " + reply.text), base::printable(text), now);
}

void LinkCore::giveUp(Far& far, const std::string& why, Time now) {
    for (const auto& [correlation, sent] : std::exchange(far.sent, {}))
        tell(far, sent.fid, {EOutcome::Unknown, why}, now);
}

/// A line a second for each cause: others decide how often there is one.
void LinkCore::warn(Far& far, const std::string& cause, const std::string& line, Time now) {
    if (const auto passed = far.lines.take(cause, line, now))
        far.link.say(ELevel::eWarning, *passed);
}

void LinkCore::takeFid(const LinkTopics::Parts& parts, const LinkMessage& message, Time now) {
    const std::string fid = key(parts);
    const std::string from = message.property("from");
    const std::string id = message.property("id");
    Far* const pFar = farOf(from);
    if (!pFar) {
        if (!m_fars.empty())
            warn(m_fars.front(), "strange",
                 base::printable(fid) + " of " + base::quoted(from) +
                     " is dropped: there is no link to that site",
                 now);
        return;
    }
    pFar->meter.countIn();
    const std::string what = base::printable(fid) + " of " + pFar->site();
    if (message.isRetained) {
        warn(*pFar, "kept", what + " is dropped: it was kept by the broker, and is of nobody knows when",
             now);
        return;
    }
    if (bootOf(id).empty() || !m_seen.isNew(bootOf(id), id))
        return;
    const auto topic = LinkTopics::parse(message.responseTopic);
    // Nobody makes this site write anywhere but where it answers, and keep more than an answer needs.
    const bool hasReply = topic && topic->kind == LinkTopics::EKind::Reply && topic->site == m_site &&
                          topic->driver.size() <= s_longestID && message.correlation.size() <= s_longestID;
    const std::string replyTopic = hasReply ? message.responseTopic : std::string();
    if (const auto refused = refusal(*pFar, parts, message, now)) {
        const Reply& answer = refused->reply;
        warn(*pFar, refused->pCause,
             what + " is " + linkpayload::inWords(answer.outcome) + ": " + answer.text, now);
        reply(*pFar, replyTopic, message.correlation, answer);
        return;
    }
    const std::uint64_t number =
        m_host.send(m_site, fid, *linkpayload::parameters(message.payload), message.property("path"));
    m_taken[number] = {fid, pFar->link.driverID(), replyTopic, message.correlation};
}

/// Why the FID is not done; nothing when it is to be.
std::optional<LinkCore::Refusal> LinkCore::refusal(Far& far, const LinkTopics::Parts& parts,
                                                   const LinkMessage& message, Time now) const {
    const auto refused = [](const char* pCause, const std::string& why) {
        return Refusal{pCause, {EOutcome::Refused, why}};
    };
    const LinkPath path(message.property("path"));
    if (const std::string fault = path.fault(m_site); !fault.empty())
        return refused("path", fault);
    if (!far.link.settings().allowed.contain(parts.driver))
        return refused("right", m_site + " does not allow FIDs of " + far.site() + " to " +
                                    base::printable(parts.driver));
    const auto tick = linkpayload::Tick::parse(message.property("tick"));
    const auto expiry = far.link.settings().expiry;
    // Whoever names no tick that this instance has told has heard another one, or none.
    const Duration age = tick ? m_clock.age(*tick, now).value_or(Duration::max()) : Duration::max();
    if (age == Duration::max())
        return Refusal{"unknown tick", {EOutcome::Expired, "it is of before " + m_site + " was started"}};
    if (age > expiry)
        return Refusal{
            "late",
            {EOutcome::Expired,
             "it came after " +
                 std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(age).count()) +
                 " ms, and " + std::to_string(expiry.count()) + " s are allowed"}};
    if (!linkpayload::parameters(message.payload))
        return refused("parameters", "its parameters cannot be read");
    if (m_taken.size() >= s_mostSent)
        return refused("many", "too many FIDs are being done");
    return std::nullopt;
}

void LinkCore::takeOutcomes() {
    for (const ILinkHost::Outcome& outcome : m_host.outcomes(m_site)) {
        const auto taken = m_taken.extract(outcome.number);
        if (taken.empty())
            continue;
        const EOutcome what = outcome.what == ILinkHost::EOutcome::Done      ? EOutcome::Done
                              : outcome.what == ILinkHost::EOutcome::Refused ? EOutcome::Refused
                                                                             : EOutcome::Unknown;
        const auto& [fid, driverID, replyTopic, correlation] = taken.mapped();
        if (Far* const pFar = farOfDriver(driverID))
            reply(*pFar, replyTopic, correlation, {what, outcome.text});
    }
}

void LinkCore::reply(Far& far, const std::string& topic, const std::string& correlation, const Reply& reply) {
    if (topic.empty())
        return;
    far.meter.countOut();
    publish({.topic = topic, .payload = linkpayload::text(reply), .correlation = correlation});
}
