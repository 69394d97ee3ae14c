#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "AnewBudget.h"
#include "FIDParameterList.h"
#include "FarClock.h"
#include "IBroker.h"
#include "ILink.h"
#include "ILinkHost.h"
#include "LineLimit.h"
#include "LinkMeter.h"
#include "LinkPath.h"
#include "LinkPayload.h"
#include "LinkTopics.h"
#include "LossWatch.h"
#include "SeenIDs.h"
#include "Throttle.h"
#include "TickClock.h"

/// What one site says and does over a broker, for all of its links: its birth, ticks, values and events, what
/// it makes of the others', FIDs in both directions and their outcomes. Knows no thread, no clock and no
/// network; LinkSite owns it and calls it under its lock.
class LinkCore {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Duration = Time::duration;
    /// A part of the longest, chosen anew each time.
    using Random = std::function<Duration(Duration longest)>;

    /// A site that was not heard for so long is not there.
    static constexpr std::chrono::seconds s_silence{10};
    /// Of values per far site, and of FIDs that wait for their reply.
    static constexpr std::size_t s_mostValues = 16384;
    static constexpr std::size_t s_mostSent = 1024;
    /// So many messages may be on their way to the broker.
    static constexpr std::size_t s_mostPending = 512;

    /// The host outlives the object. The boot ID is this instance's own.
    LinkCore(std::string site, std::string boot, ILinkHost& host, Random random, Time now);

    /// The link outlives its removal.
    void add(ILink& link, Time now);
    void remove(ILink& link);

    /// The broker has taken the connection, without a session; it stays until lost().
    void connected(IBroker& broker, Time now);
    void lost(const std::string& reason, Time now);
    void received(const LinkMessage& message, Time now);
    /// The broker does not take a message of this site, for that reason.
    void refused(const std::string& reason);
    /// The host has new values or events.
    void noteChange() { m_hasNews = true; }
    /// What is due by now; often, and when due() says so.
    void step(Time now);
    /// When values or events are to be collected that wait for their pace; nothing while none do.
    std::optional<Time> due() const;
    /// The last that is said before the connection is closed in order.
    void leave();

    /// "AXIS1.MOVE" to the link's far site. False, with a line of the link's, when it cannot be sent. What
    /// becomes of it is the event OUTCOME.
    bool send(ILink& link, const std::string& fid, const FIDParameterList& parameters, Time now);

    /// What the broker says when this instance is gone.
    LinkMessage will() const;

private:
    struct Sent {
        std::string fid;
        Time deadline;
    };
    /// A value of the other side.
    struct Value {
        linkpayload::State state;
        std::uint64_t round = 0;  ///< of the site, when it came
    };
    /// The other side of a link.
    struct Far {
        explicit Far(ILink& its) : link(its) {}
        const std::string& site() const { return link.settings().farSite; }

        ILink& link;
        std::string boot;  ///< of the instance that was heard last
        bool isUp = false;
        bool isComplete = false;
        std::optional<linkpayload::Tick> tick;
        Time heard{};
        std::optional<Time> summed;  ///< when its sums were heard last, which come in the order of its values
        FarClock clock;
        std::string clockBoot;  ///< of the instance whose clock that is
        bool isLive = false;
        std::string cause;  ///< why it is not
        std::map<std::string, Value> values;
        /// The ends of values, for what they may have overtaken.
        std::map<std::string, linkpayload::Tick> ends;
        /// Counts how often it has begun to publish everything, or is heard over a new connection.
        std::uint64_t round = 0;
        bool isPublishing = false;  ///< it has begun, and not said that it has ended
        bool isSilent = false;      ///< it is said to be there, and was not heard for long
        bool isAsked = false;       ///< to publish everything anew, and has not begun to
        LossWatch losses;
        std::optional<Time> asksSince;     ///< for everything anew, after that tick of ours
        AnewBudget anew;                   ///< for that
        std::map<std::string, Sent> sent;  ///< by correlation data
        base::Throttle isFull;
        LineLimit lines;
        LinkMeter meter;
    };
    /// A value of ours, as the broker has it.
    struct Told {
        Time at;
        std::uint64_t number = 0;
    };
    /// Why a FID from outside is not done.
    struct Refusal {
        const char* pCause;
        linkpayload::Reply reply;
    };
    /// A FID from outside that the host is doing.
    struct Taken {
        std::string fid;
        std::string driverID;  ///< of the link
        std::string replyTopic;
        std::string correlation;
    };

    Far* farOf(const std::string& site);
    Far* farOf(const ILink& link);
    Far* farOfDriver(const std::string& driverID);
    void subscribe(const Far& far);
    bool publish(const LinkMessage& message);
    void publishUp(bool isComplete);
    linkpayload::Time clockAt(Time when) const;

    void collect(Time now);
    void collectStates(Time now);
    void tell(const std::string& topic, const ILinkHost::State& state, Time now);
    void unpublish(const std::string& topic);
    void flush();
    void publishEvents();
    std::vector<Far*> exporters(const std::string& driverID);
    bool isExported(const std::string& driverID);
    void countOut(const std::string& driverID);
    bool isEcho(const std::string& driver, const std::string& name) const;

    std::vector<linkpayload::Heard> heard(Time now);
    void measure(Far& far, Time now);
    void judge(Far& far, Time now);
    std::string causeOf(const Far& far, Time now) const;
    void showAll(Far& far, Time now);
    void show(Far& far, const std::string& key, const Value& value, Time now);
    void answerAsking(Time now);
    void publishSums();
    void takeSums(Far& far, const linkpayload::Sums& sums, Time now);
    void takeUp(Far& far, const LinkMessage& message, Time now);
    void takeTick(Far& far, const LinkMessage& message, Time now);
    void takeEnd(Far& far, const std::string& stateKey, const LinkMessage& message);
    void takeState(Far& far, const LinkTopics::Parts& parts, const LinkMessage& message, Time now);
    void takeEvent(Far& far, const LinkTopics::Parts& parts, const LinkMessage& message);
    void takeReply(Far& far, const LinkMessage& message, Time now);
    void takeOwnUp(const LinkMessage& message);
    void takeOwnState(const LinkMessage& message);
    static void warn(Far& far, const std::string& cause, const std::string& line, Time now);
    void takeFid(const LinkTopics::Parts& parts, const LinkMessage& message, Time now);
    std::optional<Refusal> refusal(Far& far, const LinkTopics::Parts& parts, const LinkMessage& message,
                                   Time now) const;
    void takeOutcomes();
    void reply(Far& far, const std::string& topic, const std::string& correlation,
               const linkpayload::Reply& reply);
    void tell(Far& far, const std::string& fid, const linkpayload::Reply& reply, Time now);
    void giveUp(Far& far, const std::string& why, Time now);

    const std::string m_site;
    const std::string m_boot;
    ILinkHost& m_host;
    const Random m_random;
    const linkpayload::Time m_since = std::chrono::system_clock::now();
    const Time m_begin;

    std::list<Far> m_fars;
    std::size_t m_nextHeard = 0;  ///< of these, the first that the next tick tells of
    IBroker* m_pBroker = nullptr;
    std::string m_lostReason = "not connected yet";
    bool m_wasTried = false;
    bool m_wasConnected = false;
    bool m_isHeard = false;           ///< the broker has answered the first word over this connection
    bool m_isConnectedAgain = false;  ///< not the first connection of this instance
    unsigned m_rivals = 0;  ///< so many connections in a row began with the word of another instance
    TickClock m_clock;
    SeenIDs m_seen;
    std::uint64_t m_lastID = 0;
    std::uint64_t m_from = 0;  ///< the first value that everything anew began with
    Time m_nextTick{};
    bool m_hasNews = false;                          ///< the host has said so
    Time m_nextStates{};                             ///< when to look for them without a word of the host
    Time m_notBefore{};                              ///< and with one not before
    std::map<std::string, ILinkHost::State> m_held;  ///< by topic, those that have changed too soon
    std::optional<Time> m_nextHeld;                  ///< when the first of them may be told
    std::optional<Time> m_publishAll;                ///< when everything is to be published anew
    bool m_isAsked = false;                          ///< by another site to do so
    bool m_isCompletePending = false;
    std::uint64_t m_version = 0;
    std::uint64_t m_lastEvent = 0;
    std::map<std::string, std::string> m_dirty;  ///< payloads to be published, by topic
    std::map<std::string, Told> m_published;     ///< by topic
    Time m_nextSums{};
    std::string m_lastSummed;                ///< topic of the last value that was summed up
    std::set<std::string> m_left;            ///< topics that another instance has left
    std::set<std::string> m_unset;           ///< topics of values that were there once
    Time m_allPublished{};                   ///< when everything was last
    std::map<std::uint64_t, Taken> m_taken;  ///< by the host's number
    base::Throttle m_strange;
    base::Throttle m_refused;
};
