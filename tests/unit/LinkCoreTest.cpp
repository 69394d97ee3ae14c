#include "LinkCore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Lines = std::vector<std::string>;

/// What stands at the panel, and what a host does with FIDs: those to "BAD" are refused, those to "SLOW"
/// wait.
class FakeHost : public ILinkHost, public IPanelState {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }

    Changes changes(std::uint64_t since) const override {
        Changes found{version, since == 0, {}, since == 0 ? Lines() : unset};
        for (const auto& [stateKey, state] : own)
            if (since == 0 || state.second > since)
                found.states.push_back(
                    {stateKey, state.first, stale.contains(stateKey) ? "killed" : "", moment});
        return found;
    }
    std::vector<Event> events(std::uint64_t since) const override {
        std::vector<Event> found;
        for (const Event& event : ownEvents)
            if (event.number > since)
                found.push_back(event);
        return found;
    }
    void setFar(const std::string& stateKey, const Value& value, const std::string& cause,
                LinkCore::Time reported) override {
        const std::string key = stateKey.substr(stateKey.find('.') + 1);
        const auto* const pText = std::get_if<std::string>(&value);
        shown[key] =
            pText && cause.empty() ? *pText : text(value) + (cause.empty() ? "" : " stale: " + cause);
        times[key] = reported;
    }
    void makeStale(const std::string&, const Lines& keys, const std::string& cause) override {
        for (const std::string& stateKey : keys) {
            std::string& value = shown[stateKey.substr(stateKey.find('.') + 1)];
            if (value.find(" stale: ") == std::string::npos)
                value += " stale: " + cause;
        }
    }
    void open(const std::string&, int, int) override {}
    void watch(const std::string&) override {}
    void close(const std::string&) override {}
    std::uint64_t send(const std::string&, const std::string& fid, const FIDParameterList& parameters,
                       const std::string& passed) override {
        done.push_back(fid + " x=" + parameters.value("x") + " by " + passed);
        const bool isBad = fid.starts_with("BAD.");
        if (!fid.starts_with("SLOW."))
            waiting.push_back(
                {++number, isBad ? EOutcome::Refused : EOutcome::Done, isBad ? "it is bad" : ""});
        return fid.starts_with("SLOW.") ? ++number : number;
    }
    std::vector<Outcome> outcomes(const std::string&) override { return std::exchange(waiting, {}); }
    std::string path() const override { return way; }

    void setStateValue(const std::string& id, const std::string& value) override { shown[id] = value; }
    void setStateValueFloat(const std::string& id, float value) override { shown[id] = text(value); }
    void setStateValueInt(const std::string& id, int value) override { shown[id] = text(value); }
    void setStateValueBool(const std::string& id, bool value) override { shown[id] = text(value); }
    void unsetStateValue(const std::string& id) override { shown.erase(id); }
    void triggerEvent(const std::string& id, const std::string& value) override {
        events_.push_back(id + " " + value);
    }

    void set(const std::string& stateKey, Value value) {
        std::erase(unset, stateKey);
        own[stateKey] = {std::move(value), ++version};
    }
    void unsetOwn(const std::string& stateKey) {
        own.erase(stateKey);
        unset = {stateKey};
        ++version;
    }
    void trigger(const std::string& id, const std::string& value) {
        ownEvents.push_back({ownEvents.size() + 1, id, value, std::chrono::system_clock::now()});
    }
    std::string operator[](const std::string& id) const {
        const auto found = shown.find(id);
        return found == shown.end() ? "none" : found->second;
    }

    std::map<std::string, std::pair<Value, std::uint64_t>> own;
    std::set<std::string> stale;
    Lines unset;
    std::uint64_t version = 1;
    std::vector<Event> ownEvents;
    std::map<std::string, std::string> shown;
    std::map<std::string, LinkCore::Time> times;  ///< when what is shown was reported
    LinkCore::Time moment{};                      ///< when its own values were
    Lines events_;
    Lines done;
    std::vector<Outcome> waiting;
    std::uint64_t number = 0;
    std::string way;

private:
    /// As it stands in a message.
    static std::string text(const Value& value) {
        const std::string whole = linkpayload::text(linkpayload::State{value, {}, "", 0, ""});
        return whole.substr(6, whole.find(", \"t\"") - 6);
    }
};

/// A broker for all sites of a test: keeps what is retained, and brings each message to whom it is for when
/// it is told to.
class FakeBroker {
public:
    class End : public IBroker {
    public:
        explicit End(FakeBroker& broker) : m_broker(broker) {}
        bool publish(const LinkMessage& message) override {
            if (!isCut)
                m_broker.publish(*this, message);
            if (message.isRetained && room > 0)
                --room;
            return true;
        }
        bool subscribe(const std::string& topics) override {
            filters.push_back(topics);
            for (const auto& [topic, kept] : m_broker.retained)
                if (matches(topics, topic))
                    inbox.push_back(kept);
            return true;
        }
        std::size_t pending() const override { return room > 0 ? 0 : LinkCore::s_mostPending; }

        bool isCut = false;
        std::size_t room = std::numeric_limits<std::size_t>::max();  ///< for so many more retained messages
        Lines filters;
        std::deque<LinkMessage> inbox;

    private:
        FakeBroker& m_broker;
    };

    void publish(const End& from, LinkMessage message) {
        all.push_back(message);
        if (message.isRetained) {
            if (message.payload.empty())
                retained.erase(message.topic);
            else
                retained[message.topic] = message;
        }
        message.isRetained = false;
        for (End* const pEnd : ends)
            if (pEnd != &from &&
                std::any_of(pEnd->filters.begin(), pEnd->filters.end(),
                            [&](const auto& filter) { return matches(filter, message.topic); }))
                pEnd->inbox.push_back(message);
    }
    static bool matches(const std::string& filter, const std::string& topic) {
        std::size_t f = 0;
        std::size_t t = 0;
        while (f < filter.size()) {
            if (filter[f] == '+') {
                t = std::min(topic.find('/', t), topic.size());
                ++f;
            } else if (t >= topic.size() || filter[f++] != topic[t++]) {
                return false;
            }
        }
        return t == topic.size();
    }

    std::vector<End*> ends;
    std::map<std::string, LinkMessage> retained;
    std::vector<LinkMessage> all;
};

/// One site with one link.
class Site : public ILink {
public:
    Site(FakeBroker& broker, const std::string& site, const std::string& other, const std::string& boot)
        : m_broker(broker),
          m_other(other),
          core(
              site, boot, host, [](auto longest) { return longest; }, LinkCore::Time() + 1h) {
        m_settings.site = site;
        m_settings.farSite = other;
        m_settings.broker.host = "broker";
        m_settings.broker.port = 1883;
        m_settings.exported.ids = {"AXIS1"};
        m_settings.imported.areAll = true;
        m_settings.allowed.ids = {"AXIS1", "BAD", "SLOW"};
        m_settings.spread = 0s;
    }
    ~Site() override { cut(); }

    const std::string& driverID() const override { return m_other; }
    const LinkSettings& settings() const override { return m_settings; }
    IPanelState& panel() const override { return host; }
    void say(sal::LogOutput::ELevel, const std::string& text) const override { lines.push_back(text); }

    void connect(LinkCore::Time now) {
        pEnd = std::make_unique<FakeBroker::End>(m_broker);
        m_broker.ends.push_back(pEnd.get());
        core.connected(*pEnd, now);
    }
    void cut() {
        std::erase(m_broker.ends, pEnd.get());
        if (pEnd)
            pEnd->isCut = true;
    }
    /// After cut(), which the core has not been told of: the line holds again.
    void heal() {
        m_broker.ends.push_back(pEnd.get());
        pEnd->isCut = false;
    }
    bool take(LinkCore::Time now) {
        if (!pEnd || pEnd->inbox.empty())
            return false;
        const LinkMessage message = pEnd->inbox.front();
        pEnd->inbox.pop_front();
        core.received(message, now);
        return true;
    }

    FakeBroker& m_broker;
    const std::string m_other;
    LinkSettings m_settings;
    mutable FakeHost host;
    LinkCore core;
    std::unique_ptr<FakeBroker::End> pEnd;
    mutable Lines lines;
};

class LinkCoreTest : public testing::Test {
protected:
    LinkCoreTest() {
        m_one.core.add(m_one, m_now);
        m_two.core.add(m_two, m_now);
    }
    /// Time passes in steps, and messages arrive.
    void pass(std::chrono::milliseconds time) {
        for (auto left = time; left >= 0ms; left -= 100ms) {
            for (Site* const pSite : {&m_one, &m_two})
                pSite->core.step(m_now);
            while (m_one.take(m_now) || m_two.take(m_now)) {
            }
            if (left > 0ms)
                m_now += 100ms;
        }
    }
    void connectBoth() {
        m_one.connect(m_now);
        m_two.connect(m_now);
        pass(1s);
    }
    bool send(const std::string& fid, const std::string& x = "5") {
        FIDParameterList parameters;
        parameters.add("x", x);
        return m_one.core.send(m_one, fid, parameters, m_now);
    }
    /// SITE1 asks SITE2 with a tick.
    void askForEverything() {
        const auto heard = linkpayload::tick(last("mf/1/SITE2/tick").payload);
        ASSERT_TRUE(heard);
        m_two.core.received(
            {.topic = "mf/1/SITE1/tick",
             .payload = linkpayload::text(linkpayload::Tick{"b1", 100}, {}, {{"SITE2", *heard, 0us, true}})},
            m_now);
    }
    /// The last message of that topic, sums aside.
    LinkMessage last(const std::string& topic) const {
        const auto found = std::find_if(m_broker.all.rbegin(), m_broker.all.rend(), [&](const auto& message) {
            return message.topic == topic && !linkpayload::sums(message.payload);
        });
        return found == m_broker.all.rend() ? LinkMessage() : *found;
    }

    FakeBroker m_broker;
    LinkCore::Time m_now = LinkCore::Time() + 1h;
    Site m_one{m_broker, "SITE1", "SITE2", "b1"};
    Site m_two{m_broker, "SITE2", "SITE1", "b2"};
};

}  // namespace

TEST_F(LinkCoreTest, ValuesOfTheOtherSiteAreHereWithTheirTypes) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.host.set("AXIS1.a.b", 0.5F);
    m_two.host.set("AXIS1.NAME", std::string("x"));
    m_two.host.set("OTHER.POS", 1);
    EXPECT_EQ(m_one.host["LINK"], "no broker: not connected yet");
    connectBoth();
    EXPECT_EQ(m_one.host["LINK"], "up");
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40");
    EXPECT_EQ(m_one.host["AXIS1.a.b"], "0.5");
    EXPECT_EQ(m_one.host["AXIS1.NAME"], "x");
    EXPECT_EQ(m_one.host["OTHER.POS"], "none");
    m_two.host.set("AXIS1.POS", 41);
    m_two.host.unsetOwn("AXIS1.NAME");
    pass(300ms);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "41");
    EXPECT_EQ(m_one.host["AXIS1.NAME"], "none");
    EXPECT_FALSE(m_broker.retained.contains("mf/1/SITE2/state/AXIS1/NAME"));
    EXPECT_THAT(m_one.lines, ElementsAre("SITE2 is there"));
}

TEST_F(LinkCoreTest, AfterASilenceEverythingIsToldAnewAndWhatIsGoneIsGone) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.host.set("AXIS1.SPEED", 1);
    m_two.host.set("AXIS1.NAME", std::string("x"));
    connectBoth();
    // Of a bridge between two brokers nobody hears that it is cut.
    m_one.cut();
    pass(12s);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: SITE2 is not heard");
    EXPECT_EQ(m_one.lines.back(), "SITE2 is not heard");
    m_two.host.set("AXIS1.SPEED", 2);
    pass(300ms);
    m_two.host.unsetOwn("AXIS1.NAME");
    pass(300ms);
    // The other broker has kept it.
    m_broker.retained["mf/1/SITE2/state/AXIS1/NAME"] = {.topic = "mf/1/SITE2/state/AXIS1/NAME"};
    m_one.heal();
    const LinkMessage tick{.topic = "mf/1/SITE2/tick",
                           .payload = linkpayload::text(linkpayload::Tick{"b2", 99}, {})};
    m_broker.publish(*m_two.pEnd, tick);
    m_broker.publish(*m_two.pEnd,
                     {.topic = "mf/1/SITE2/tick", .payload = linkpayload::text(linkpayload::Sums{"b2", {}})});
    // What it has said of itself before is no answer.
    m_broker.publish(*m_two.pEnd, m_broker.retained["mf/1/SITE2/up"]);
    for (int i = 0; i < 3; ++i)
        m_one.take(m_now);
    EXPECT_EQ(m_one.host["LINK"], "up");
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: SITE2 has not told it anew yet");
    EXPECT_EQ(m_one.host["AXIS1.NAME"], "\"x\" stale: SITE2 has not told it anew yet");
    pass(4s);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40");
    EXPECT_EQ(m_one.host["AXIS1.SPEED"], "2");
    EXPECT_EQ(m_one.host["AXIS1.NAME"], "none");
    EXPECT_FALSE(m_broker.retained.contains("mf/1/SITE2/state/AXIS1/NAME"));
    // Once is enough.
    const std::size_t before = m_broker.all.size();
    pass(5s);
    EXPECT_EQ(std::count_if(m_broker.all.begin() + static_cast<long>(before), m_broker.all.end(),
                            [](const auto& message) { return !message.topic.ends_with("/tick"); }),
              0);
}

TEST_F(LinkCoreTest, SiteThatAsksForEverythingEachSecondIsToldThreeTimesAtOnceAndThenTwiceAMinute) {
    m_two.host.set("AXIS1.POS", 40);
    connectBoth();
    m_one.cut();
    const auto timesTold = [&] {
        return std::count_if(m_broker.all.begin(), m_broker.all.end(), [](const LinkMessage& message) {
            return message.topic == "mf/1/SITE2/state/AXIS1/POS";
        });
    };
    const auto before = timesTold();
    for (int second = 1; second <= 62; ++second) {
        askForEverything();
        pass(1s);
        if (second == 10) {
            EXPECT_EQ(timesTold() - before, 3);
        }
    }
    EXPECT_EQ(timesTold() - before, 5);
}

TEST_F(LinkCoreTest, SiteThatHasAskedTooOftenIsToldWhenItsPauseIsOver) {
    m_two.host.set("AXIS1.POS", 40);
    connectBoth();
    m_one.cut();
    for (int i = 0; i < 4; ++i) {
        askForEverything();
        pass(2s);
    }
    m_two.host.set("AXIS1.POS", 41);
    pass(1s);
    const auto number = linkpayload::state(last("mf/1/SITE2/state/AXIS1/POS").payload).value().number;
    pass(18s);
    EXPECT_EQ(linkpayload::state(last("mf/1/SITE2/state/AXIS1/POS").payload).value().number, number);
    pass(5s);
    EXPECT_GT(linkpayload::state(last("mf/1/SITE2/state/AXIS1/POS").payload).value().number, number);
}

TEST_F(LinkCoreTest, FidsThatAreRefusedAreALineASecond) {
    connectBoth();
    m_two.lines.clear();
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(send("OTHER.MOVE"));
    pass(0ms);
    const std::string line = "OTHER.MOVE of SITE1 is refused: SITE2 does not allow FIDs of SITE1 to OTHER";
    EXPECT_THAT(m_two.lines, ElementsAre(line));
    pass(1500ms);
    EXPECT_THAT(m_two.lines, ElementsAre(line, line + "; it is the last of 99 such within a second"));
}

TEST_F(LinkCoreTest, BrokerThatTakesNothingIsToldOnce) {
    connectBoth();
    m_one.lines.clear();
    for (int i = 0; i < 3; ++i)
        m_one.core.refused("Not authorized");
    EXPECT_THAT(
        m_one.lines,
        ElementsAre("the broker refuses what SITE1 says: Not authorized; \"mfctl link acl\" prints what "
                    "it must allow the user or certificate of SITE1"));
}

TEST_F(LinkCoreTest, ValueThatWasOvertakenByANewerOneIsNotShown) {
    connectBoth();
    for (const int value : {2, 3, 1})
        m_broker.publish(*m_two.pEnd, {.topic = "mf/1/SITE2/state/AXIS1/POS",
                                       .payload = linkpayload::text(linkpayload::State{
                                           value, {}, "b2", static_cast<std::uint64_t>(value), ""})});
    pass(0ms);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "3");
}

TEST_F(LinkCoreTest, ValueIsAsOldHereAsItIsThere) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.host.moment = m_now - 90s;
    connectBoth();
    // The ticks tell milliseconds.
    EXPECT_NEAR(std::chrono::duration<double>(m_now - 1s - m_one.host.times["AXIS1.POS"]).count(), 90, 0.01);
    m_two.host.moment = m_now;
    m_two.host.set("AXIS1.POS", 41);
    pass(300ms);
    EXPECT_NEAR(std::chrono::duration<double>(m_now - m_one.host.times["AXIS1.POS"]).count(), 0.3, 0.01);
}

TEST_F(LinkCoreTest, ClockThatGoesWrongThereMakesNothingOlder) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.host.moment = m_now - 90s;
    connectBoth();
    m_two.cut();
    // Another instance, whose clock is an hour ahead.
    const LinkMessage tick = last("mf/1/SITE2/tick");
    const auto told = linkpayload::tickTime(tick.payload);
    ASSERT_TRUE(told);
    m_broker.publish(*m_two.pEnd, {.topic = "mf/1/SITE2/up",
                                   .payload = linkpayload::text(linkpayload::Up{true, "b3", *told, true})});
    m_broker.publish(*m_two.pEnd, {.topic = "mf/1/SITE2/tick",
                                   .payload = linkpayload::text(linkpayload::Tick{"b3", 1}, *told + 1h)});
    m_broker.publish(*m_two.pEnd,
                     {.topic = "mf/1/SITE2/state/AXIS1/POS",
                      .payload = linkpayload::text(linkpayload::State{41, *told + 1h - 5s, "b3", 1, ""})});
    pass(0ms);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "41");
    EXPECT_EQ(m_now - m_one.host.times["AXIS1.POS"], 5s);
}

TEST_F(LinkCoreTest, ValuesArePublishedFiveTimesASecondAtMost) {
    connectBoth();
    const std::size_t before = m_broker.all.size();
    for (int i = 0; i < 100; ++i) {
        m_two.host.set("AXIS1.POS", i);
        pass(0ms);
        m_now += 10ms;
    }
    const auto count = std::count_if(m_broker.all.begin() + static_cast<long>(before), m_broker.all.end(),
                                     [](const auto& message) { return message.topic.ends_with("/POS"); });
    EXPECT_GE(count, 4);
    EXPECT_LE(count, 6);
    pass(300ms);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "99");
}

TEST_F(LinkCoreTest, QuietValueIsToldAtOnceAndTheNextChangeWhenItsPaceAllowsIt) {
    m_two.host.set("AXIS1.POS", 0);
    m_two.host.set("AXIS1.SPEED", 0);
    connectBoth();
    const auto change = [&](const std::string& stateKey, int value) {
        m_two.host.set(stateKey, value);
        m_two.core.noteChange();
        m_two.core.step(m_now);
    };
    const auto passExactly = [&](std::chrono::milliseconds time) {
        m_now += time;
        m_two.core.step(m_now);
    };
    m_now += 50ms;
    EXPECT_EQ(m_two.core.due(), std::nullopt);
    change("AXIS1.POS", 1);
    EXPECT_THAT(last("mf/1/SITE2/state/AXIS1/POS").payload, HasSubstr("\"v\": 1,"));
    const LinkCore::Time told = m_now;
    m_now += 9ms;
    change("AXIS1.SPEED", 1);
    EXPECT_THAT(last("mf/1/SITE2/state/AXIS1/SPEED").payload, HasSubstr("\"v\": 0,"));
    EXPECT_EQ(m_two.core.due(), told + 10ms);
    passExactly(1ms);
    EXPECT_THAT(last("mf/1/SITE2/state/AXIS1/SPEED").payload, HasSubstr("\"v\": 1,"));
    m_now += 20ms;
    change("AXIS1.POS", 2);
    m_now += 50ms;
    change("AXIS1.POS", 3);
    EXPECT_THAT(last("mf/1/SITE2/state/AXIS1/POS").payload, HasSubstr("\"v\": 1,"));
    EXPECT_EQ(m_two.core.due(), told + 200ms);
    passExactly(119ms);
    EXPECT_THAT(last("mf/1/SITE2/state/AXIS1/POS").payload, HasSubstr("\"v\": 1,"));
    passExactly(1ms);
    EXPECT_THAT(last("mf/1/SITE2/state/AXIS1/POS").payload, HasSubstr("\"v\": 3,"));
    EXPECT_EQ(m_two.core.due(), std::nullopt);
}

TEST_F(LinkCoreTest, ValueThatIsUnsetWhileItWaitsForItsPaceIsNotToldAnyMore) {
    m_two.host.set("AXIS1.POS", 0);
    connectBoth();
    for (int value = 1; value < 3; ++value) {
        m_two.host.set("AXIS1.POS", value);
        m_two.core.noteChange();
        m_two.core.step(m_now += 10ms);
    }
    m_two.host.unsetOwn("AXIS1.POS");
    pass(1s);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "none");
    EXPECT_FALSE(m_broker.retained.contains("mf/1/SITE2/state/AXIS1/POS"));
}

TEST_F(LinkCoreTest, TheMoreValuesChangeFasterThanTheyMayBeToldTheLessOftenTheyAreLookedAt) {
    const auto changeAll = [&](int value) {
        for (int i = 0; i < 30; ++i)
            m_two.host.set("AXIS1.V" + std::to_string(i), value);
        m_two.core.noteChange();
        m_two.core.step(m_now);
    };
    changeAll(0);
    connectBoth();
    m_now += 50ms;
    changeAll(1);
    m_now += 10ms;
    changeAll(2);
    m_two.core.noteChange();
    EXPECT_EQ(m_two.core.due(), m_now + 200ms);
}

TEST_F(LinkCoreTest, ValueThatIsStaleThereIsStaleHereWithItsCause) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.host.stale.insert("AXIS1.POS");
    connectBoth();
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: killed");
}

TEST_F(LinkCoreTest, EveryWayToLoseTheOtherSideHasItsCause) {
    m_two.host.set("AXIS1.POS", 40);
    connectBoth();
    m_one.core.lost("Connection refused", m_now);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: no broker: Connection refused");
    EXPECT_EQ(m_one.host["LINK"], "no broker: Connection refused");
    m_one.cut();
    m_one.connect(m_now);
    pass(1s);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40");
    m_broker.publish(*m_two.pEnd, m_two.core.will());
    pass(0ms);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: SITE2 is away");
    m_two.cut();
    m_two.connect(m_now);
    pass(1s);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40");
    m_two.cut();
    pass(9s);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40");
    pass(2s);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: SITE2 is not heard");
}

TEST_F(LinkCoreTest, ValuesThatABrokerHasKeptAreNotLiveBeforeTheirSiteIsHeard) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.connect(m_now);
    pass(1s);
    m_two.cut();
    m_one.connect(m_now);
    pass(500ms);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: SITE2 is not heard");
    // Not by a tick that somebody has left at the broker, either.
    LinkMessage left = last("mf/1/SITE2/tick");
    left.isRetained = true;
    m_one.core.received(left, m_now);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: SITE2 is not heard");
    left.isRetained = false;
    m_one.core.received(left, m_now);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40");
}

TEST_F(LinkCoreTest, ValuesOfAnEarlierInstanceAreStaleUntilTheNextIsComplete) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.host.set("AXIS1.OLD", 1);
    connectBoth();
    m_two.cut();
    Site next(m_broker, "SITE2", "SITE1", "b3");
    next.m_settings.spread = 3s;
    next.core.add(next, m_now);
    next.host.set("AXIS1.POS", 50);
    next.connect(m_now);
    while (m_one.take(m_now)) {
    }
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: of an earlier start of SITE2");
    for (int i = 0; i < 40; ++i) {
        m_now += 100ms;
        next.core.step(m_now);
        pass(0ms);
    }
    EXPECT_EQ(m_one.host["AXIS1.POS"], "50");
    EXPECT_EQ(m_one.host["AXIS1.OLD"], "none");
}

TEST_F(LinkCoreTest, LateWillOfAnEarlierInstanceChangesNothing) {
    connectBoth();
    LinkMessage will = m_two.core.will();
    will.payload = R"({"up": false, "boot": "b0"})";
    m_one.core.received(will, m_now);
    EXPECT_EQ(m_one.host["LINK"], "up");
    FakeBroker::End broker(m_broker);
    m_broker.publish(broker, will);
    pass(0ms);
    EXPECT_EQ(m_one.host["LINK"], "up");
    // For those who come later it is put right.
    EXPECT_THAT(m_broker.retained["mf/1/SITE2/up"].payload, HasSubstr(R"("up": true, "boot": "b2")"));
}

TEST_F(LinkCoreTest, EverythingIsPublishedAnewAfterTheSpreadAndThenComplete) {
    m_two.m_settings.spread = 2s;
    m_two.host.set("AXIS1.POS", 40);
    m_two.connect(m_now);
    pass(1900ms);
    EXPECT_FALSE(m_broker.retained.contains("mf/1/SITE2/state/AXIS1/POS"));
    EXPECT_THAT(m_broker.retained["mf/1/SITE2/up"].payload, HasSubstr(R"("complete": false)"));
    pass(200ms);
    EXPECT_TRUE(m_broker.retained.contains("mf/1/SITE2/state/AXIS1/POS"));
    EXPECT_THAT(m_broker.retained["mf/1/SITE2/up"].payload, HasSubstr(R"("complete": true)"));
}

TEST_F(LinkCoreTest, WhatAnEarlierInstanceHasLeftAtTheBrokerGoes) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.host.set("AXIS1.OLD", 1);
    m_two.connect(m_now);
    pass(1s);
    m_two.cut();
    Site next(m_broker, "SITE2", "SITE1", "b3");
    next.core.add(next, m_now);
    next.host.set("AXIS1.POS", 50);
    next.connect(m_now);
    for (int i = 0; i < 10; ++i) {
        while (next.take(m_now)) {
        }
        m_now += 100ms;
        next.core.step(m_now);
    }
    EXPECT_FALSE(m_broker.retained.contains("mf/1/SITE2/state/AXIS1/OLD"));
    EXPECT_THAT(m_broker.retained["mf/1/SITE2/state/AXIS1/POS"].payload, HasSubstr("50"));
}

TEST_F(LinkCoreTest, EventsComeOnce) {
    m_two.host.trigger("AXIS1.FAULT", "hot");
    connectBoth();
    m_two.host.trigger("AXIS1.FAULT", "cold");
    m_two.host.trigger("OTHER.FAULT", "x");
    pass(300ms);
    const LinkMessage message = last("mf/1/SITE2/event/AXIS1/FAULT");
    m_one.core.received(message, m_now);
    EXPECT_EQ(std::count(m_one.host.events_.begin(), m_one.host.events_.end(), "AXIS1.FAULT cold"), 1);
    EXPECT_THAT(m_one.host.events_, Contains("AXIS1.FAULT hot"));
    EXPECT_EQ(m_one.host.events_.size(), 2U);
}

TEST_F(LinkCoreTest, FidIsDoneThereOnceAndAnswered) {
    connectBoth();
    EXPECT_TRUE(send("AXIS1.MOVE"));
    const LinkMessage message = last("mf/1/SITE2/fid/AXIS1/MOVE");
    EXPECT_FALSE(message.isRetained);
    EXPECT_EQ(message.payload, R"({"p": [["x","5"]]})");
    EXPECT_EQ(message.responseTopic, "mf/1/SITE2/reply/b1");
    EXPECT_EQ(message.expiry, 5U);
    EXPECT_EQ(message.property("from"), "SITE1");
    EXPECT_EQ(message.property("path"), "SITE1");
    EXPECT_EQ(message.property("id"), "b1:" + message.correlation);
    EXPECT_EQ(message.property("tick").substr(0, 3), "b2:");
    pass(100ms);
    m_two.core.received(message, m_now);
    pass(100ms);
    EXPECT_THAT(m_two.host.done, ElementsAre("AXIS1.MOVE x=5 by SITE1"));
    EXPECT_THAT(m_one.host.events_, ElementsAre("OUTCOME AXIS1.MOVE: done"));
}

TEST_F(LinkCoreTest, RefusedFidIsToldWithItsReason) {
    connectBoth();
    EXPECT_TRUE(send("BAD.MOVE"));
    EXPECT_TRUE(send("OTHER.MOVE"));
    pass(300ms);
    EXPECT_THAT(m_two.host.done, ElementsAre("BAD.MOVE x=5 by SITE1"));
    EXPECT_THAT(m_one.host.events_,
                ElementsAre("OUTCOME OTHER.MOVE: refused: SITE2 does not allow FIDs of SITE1 to OTHER",
                            "OUTCOME BAD.MOVE: refused: it is bad"));
    EXPECT_THAT(m_one.lines, Contains("BAD.MOVE: refused: it is bad"));
    EXPECT_THAT(m_two.lines,
                Contains("OTHER.MOVE of SITE1 is refused: SITE2 does not allow FIDs of SITE1 to OTHER"));
}

TEST_F(LinkCoreTest, ValueThatMayHaveChangedMeanwhileIsStaleUntilItIsToldAnew) {
    m_two.m_settings.spread = 5s;
    m_two.host.set("AXIS1.POS", 40);
    connectBoth();
    pass(6s);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40");
    m_two.core.lost("cut", m_now);
    m_two.cut();
    m_two.host.set("AXIS1.POS", 41);
    m_two.connect(m_now);
    pass(3s);
    EXPECT_EQ(m_one.host["LINK"], "up");
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: SITE2 has not told it anew yet");
    pass(3s);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "41");
}

TEST_F(LinkCoreTest, LateWillInTheMiddleOfThePublishingLosesNothing) {
    m_two.host.set("AXIS1.POS", 40);
    connectBoth();
    LinkMessage up = last("mf/1/SITE2/up");
    const LinkMessage state = last("mf/1/SITE2/state/AXIS1/POS");
    const auto say = [&](bool isComplete) {
        up.payload = linkpayload::text(linkpayload::Up{true, "b2", {}, isComplete});
        m_one.core.received(up, m_now);
    };
    say(false);
    m_one.core.received(state, m_now);
    // The broker notices late that the former connection has gone, and the site says that it is there.
    m_one.core.received(m_two.core.will(), m_now);
    say(false);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40");
    say(true);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40");
}

TEST_F(LinkCoreTest, WhoConnectsInTheMiddleOfThePublishingHasAllValues) {
    m_two.m_settings.spread = 5s;
    m_two.host.set("AXIS1.A", 1);
    m_two.host.set("AXIS1.B", 2);
    m_two.connect(m_now);
    m_two.pEnd->room = 1;
    pass(6s);
    ASSERT_TRUE(m_broker.retained.contains("mf/1/SITE2/state/AXIS1/A"));
    ASSERT_FALSE(m_broker.retained.contains("mf/1/SITE2/state/AXIS1/B"));
    m_one.connect(m_now);
    pass(1s);
    EXPECT_EQ(m_one.host["AXIS1.A"], "1");
    m_two.pEnd->room = 10;
    pass(1s);
    EXPECT_THAT(last("mf/1/SITE2/up").payload, HasSubstr(R"("complete": true)"));
    EXPECT_EQ(m_one.host["AXIS1.A"], "1");
    EXPECT_EQ(m_one.host["AXIS1.B"], "2");
}

TEST_F(LinkCoreTest, ValueThatIsOvertakenByANewerOneChangesNothing) {
    m_two.host.set("AXIS1.POS", 40);
    connectBoth();
    LinkMessage late = last("mf/1/SITE2/state/AXIS1/POS");
    late.isRetained = false;
    m_two.host.set("AXIS1.POS", 41);
    pass(1s);
    m_one.core.received(late, m_now);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "41");
}

TEST_F(LinkCoreTest, EndOfAValueThatOvertakesTheValueIsItsEnd) {
    m_two.host.set("AXIS1.POS", 40);
    connectBoth();
    m_two.host.set("AXIS1.POS", 41);
    m_two.core.step(m_now += 300ms);
    m_two.host.unsetOwn("AXIS1.POS");
    m_two.core.step(m_now += 300ms);
    std::reverse(m_one.pEnd->inbox.begin(), m_one.pEnd->inbox.end());
    pass(0ms);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "none");
    m_two.host.set("AXIS1.POS", 42);
    pass(300ms);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "42");
}

TEST_F(LinkCoreTest, EndOfAValueThatTheNextValueOvertakesIsNone) {
    m_two.host.set("AXIS1.POS", 40);
    connectBoth();
    m_two.host.unsetOwn("AXIS1.POS");
    m_two.core.step(m_now += 300ms);
    m_two.host.set("AXIS1.POS", 41);
    m_two.core.step(m_now += 300ms);
    std::reverse(m_one.pEnd->inbox.begin(), m_one.pEnd->inbox.end());
    pass(0ms);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "41");
}

TEST_F(LinkCoreTest, ValueThatABrokerHasDroppedIsAskedForAnew) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.host.set("AXIS1.SPEED", 1);
    connectBoth();
    pass(20s);
    ASSERT_EQ(m_one.host["AXIS1.POS"], "40");
    m_one.lines.clear();
    m_two.host.set("AXIS1.POS", 41);
    m_two.core.step(m_now += 300ms);
    std::erase_if(m_one.pEnd->inbox,
                  [](const LinkMessage& message) { return message.topic.ends_with("/POS"); });
    // Others change meanwhile.
    for (int i = 2; i < 20; ++i) {
        m_two.host.set("AXIS1.SPEED", i);
        pass(1s);
    }
    EXPECT_EQ(m_one.host["AXIS1.POS"], "41");
    EXPECT_THAT(m_one.lines,
                ElementsAre("values of AXIS1 at SITE2 were lost on the way, and are asked for anew; "
                            "a broker drops what it may not keep (mosquitto: max_queued_messages)"));
}

TEST_F(LinkCoreTest, EndOfAValueThatABrokerHasDroppedIsFoundAsWell) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.host.set("AXIS1.SPEED", 1);
    connectBoth();
    m_two.host.unsetOwn("AXIS1.POS");
    m_two.core.step(m_now += 300ms);
    m_one.pEnd->inbox.clear();
    pass(20s);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "none");
    EXPECT_EQ(m_one.host["AXIS1.SPEED"], "1");
}

TEST_F(LinkCoreTest, NothingIsAskedForAnewWhereNothingWasLost) {
    m_two.host.set("AXIS1.POS", 0);
    m_two.host.set("AXIS1.NAME", std::string("x"));
    connectBoth();
    for (int i = 0; i < 300; ++i) {
        m_two.host.set("AXIS1.POS", i);
        if (i % 7 == 0)
            m_two.host.unsetOwn("AXIS1.NAME");
        else
            m_two.host.set("AXIS1.NAME", std::string("y"));
        pass(200ms);
    }
    EXPECT_THAT(m_one.lines, ElementsAre("SITE2 is there"));
    EXPECT_EQ(last("mf/1/SITE1/tick").payload.find("anew"), std::string::npos);
}

TEST_F(LinkCoreTest, SiteSaysAgainThatItIsThereWhereItsWordWasSpoilt) {
    connectBoth();
    pass(1s);
    const std::string word = last("mf/1/SITE2/up").payload;
    for (const char* pSpoilt : {"x", "", R"({"up": true})"}) {
        LinkMessage spoilt{.topic = "mf/1/SITE2/up", .payload = pSpoilt};
        m_broker.publish(*m_one.pEnd, spoilt);
        pass(100ms);
        EXPECT_EQ(last("mf/1/SITE2/up").payload, word) << pSpoilt;
    }
    EXPECT_EQ(m_one.host["LINK"], "up");
}

TEST_F(LinkCoreTest, RivalThatTheBrokerDoesNotNameIsKnownByTheWordThatItLeaves) {
    const std::string told =
        "another host calls itself SITE1 at the broker; give one of them another site=\"...\"";
    connectBoth();
    const auto comeBack = [&](const std::string& boot) {
        m_one.core.lost("cut", m_now);
        m_one.cut();
        LinkMessage word = m_one.core.will();
        word.payload = linkpayload::text(linkpayload::Up{false, boot, {}, false});
        m_broker.retained[word.topic] = word;
        m_one.connect(m_now);
        pass(1s);
    };
    comeBack("b9");
    EXPECT_THAT(m_one.lines, Not(Contains(told)));
    // Its own word lies between.
    comeBack("b1");
    comeBack("b9");
    EXPECT_THAT(m_one.lines, Not(Contains(told)));
    comeBack("b9");
    EXPECT_THAT(m_one.lines, Contains(told));
}

TEST_F(LinkCoreTest, ValueThatWasUnsetWhileTheLineWasCutIsGone) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.host.set("AXIS1.SPEED", 7);
    connectBoth();
    EXPECT_EQ(m_one.host["AXIS1.SPEED"], "7");
    m_one.core.lost("cut", m_now);
    m_one.cut();
    m_two.host.unsetOwn("AXIS1.SPEED");
    pass(1s);
    m_one.connect(m_now);
    pass(2s);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40");
    EXPECT_EQ(m_one.host["AXIS1.SPEED"], "none");
}

TEST_F(LinkCoreTest, NothingIsSaidAfterTheFirstWordUntilTheBrokerHasAnsweredIt) {
    m_two.host.set("AXIS1.POS", 40);
    m_two.pEnd = std::make_unique<FakeBroker::End>(m_broker);
    m_two.pEnd->room = 0;
    m_two.core.connected(*m_two.pEnd, m_now);
    m_two.core.step(m_now += 2s);
    ASSERT_EQ(m_broker.all.size(), 1U);
    EXPECT_EQ(m_broker.all.front().topic, "mf/1/SITE2/up");
    m_two.pEnd->room = 100;
    m_two.core.step(m_now);
    EXPECT_EQ(m_broker.all.at(1).topic, "mf/1/SITE2/tick");
}

TEST_F(LinkCoreTest, LinkSaysOfItselfWhereItLeads) {
    EXPECT_EQ(m_one.host["LINK_SITE"], "SITE1");
    EXPECT_EQ(m_one.host["LINK_TO"], "SITE2");
    EXPECT_EQ(m_one.host["LINK_BROKER"], "broker port 1883");
}

TEST_F(LinkCoreTest, DelayIsThatOfATickThereAndBackLessTheTimeItLayThere) {
    connectBoth();
    pass(3s);
    EXPECT_EQ(m_one.host["LINK_DELAY"], "0");
    LinkMessage back = last("mf/1/SITE2/tick");
    const std::string before = last("mf/1/SITE1/tick").payload;
    while (last("mf/1/SITE1/tick").payload == before)
        m_one.core.step(m_now += 100ms);
    const std::string own = linkpayload::tick(last("mf/1/SITE1/tick").payload)->text();
    m_now += 350ms;
    back.payload =
        R"({"boot": "b2", "tick": 99, "heard": {"SITE1": {"tick": ")" + own + R"(", "us": 300000}}})";
    m_one.core.received(back, m_now);
    EXPECT_EQ(m_one.host["LINK_DELAY"], "50");
    // Of a tick that this site has not told, and of a longer time than has passed, nothing follows.
    for (const char* pHeard : {R"("b1:999", "us": 1)", R"("b0:1", "us": 1)", R"("b1:1", "us": 3000000000)"}) {
        back.payload =
            R"({"boot": "b2", "tick": 99, "heard": {"SITE1": {"tick": )" + std::string(pHeard) + "}}}";
        m_one.core.received(back, m_now + 200ms);
        EXPECT_EQ(m_one.host["LINK_DELAY"], "50") << pHeard;
    }
}

TEST_F(LinkCoreTest, MessagesOfBothDirectionsAreCountedWithoutTicks) {
    connectBoth();
    pass(10s);
    EXPECT_EQ(m_one.host["LINK_IN"], "0");
    EXPECT_EQ(m_one.host["LINK_OUT"], "0");
    for (int i = 0; i < 12; ++i) {
        m_two.host.set("AXIS1.POS", i);
        send("AXIS1.MOVE");
        pass(500ms);
    }
    // Two values and two answers a second one way, two FIDs the other.
    EXPECT_NEAR(std::stof(m_one.host["LINK_IN"]), 4, 0.5);
    EXPECT_NEAR(std::stof(m_two.host["LINK_OUT"]), 4, 0.5);
    EXPECT_NEAR(std::stof(m_one.host["LINK_OUT"]), 2, 0.5);
    EXPECT_NEAR(std::stof(m_two.host["LINK_IN"]), 2, 0.5);
}

TEST_F(LinkCoreTest, FiguresOfALinkThatIsNotUpAreStale) {
    connectBoth();
    pass(2s);
    m_one.core.lost("cut", m_now);
    for (const char* pFigure : {"LINK_DELAY", "LINK_IN", "LINK_OUT"})
        EXPECT_EQ(m_one.host[pFigure], "0 stale: no broker: cut") << pFigure;
    pass(3s);
    EXPECT_EQ(m_one.host["LINK_IN"], "0 stale: no broker: cut");
}

TEST_F(LinkCoreTest, EveryOtherSiteHearsOfItsTickInItsTurn) {
    std::vector<std::unique_ptr<Site>> others;
    for (int i = 3; i <= 11; ++i) {
        others.push_back(std::make_unique<Site>(m_broker, "SITE1", "SITE" + std::to_string(i), "b1"));
        m_one.core.add(*others.back(), m_now);
    }
    connectBoth();
    const auto tick = [&](const std::string& site) {
        m_one.core.received({.topic = "mf/1/" + site + "/tick", .payload = R"({"boot": "b", "tick": 7})"},
                            m_now);
    };
    for (int i = 3; i <= 11; ++i)
        tick("SITE" + std::to_string(i));
    std::set<std::string> told;
    for (int i = 0; i < 2; ++i) {
        pass(1s);
        const std::string payload = last("mf/1/SITE1/tick").payload;
        std::size_t count = 0;
        for (int site = 2; site <= 11; ++site) {
            if (linkpayload::heard(payload, "SITE" + std::to_string(site))) {
                told.insert(std::to_string(site));
                ++count;
            }
        }
        EXPECT_LE(count, 8U);
    }
    EXPECT_EQ(told.size(), 10U);
    for (const auto& pSite : others)
        m_one.core.remove(*pSite);
}

TEST_F(LinkCoreTest, LateFidIsNotDone) {
    connectBoth();
    EXPECT_TRUE(send("AXIS1.MOVE"));
    // It lies somewhere meanwhile.
    const LinkMessage late = m_two.pEnd->inbox.back();
    m_two.pEnd->inbox.clear();
    m_now += 7s;
    m_two.core.received(late, m_now);
    EXPECT_THAT(m_two.host.done, IsEmpty());
    EXPECT_THAT(m_two.lines, Contains(HasSubstr("AXIS1.MOVE of SITE1 is expired: it came after ")));
    LinkMessage other = late;
    other.properties = {{"id", "b1:999"}, {"from", "SITE1"}, {"path", "SITE1"}, {"tick", "b0:1"}};
    m_two.core.received(other, m_now);
    EXPECT_THAT(m_two.host.done, IsEmpty());
    EXPECT_THAT(m_two.lines, Contains("AXIS1.MOVE of SITE1 is expired: it is of before SITE2 was started"));
}

TEST_F(LinkCoreTest, RetainedFidOrOneOfAStrangerIsNeverDone) {
    connectBoth();
    EXPECT_TRUE(send("AXIS1.MOVE"));
    LinkMessage planted = last("mf/1/SITE2/fid/AXIS1/MOVE");
    m_two.pEnd->inbox.clear();
    planted.isRetained = true;
    m_two.core.received(planted, m_now);
    planted.isRetained = false;
    planted.properties[1].second = "SITE9";
    m_two.core.received(planted, m_now);
    EXPECT_THAT(m_two.host.done, IsEmpty());
    EXPECT_THAT(m_two.lines,
                Contains("AXIS1.MOVE of SITE1 is dropped: it was kept by the broker, and is of nobody "
                         "knows when"));
    EXPECT_THAT(m_two.lines, Contains("AXIS1.MOVE of \"SITE9\" is dropped: there is no link to that site"));
}

TEST_F(LinkCoreTest, FidThatGoesRoundIsRefused) {
    connectBoth();
    EXPECT_TRUE(send("AXIS1.MOVE"));
    LinkMessage round = last("mf/1/SITE2/fid/AXIS1/MOVE");
    m_two.pEnd->inbox.clear();
    round.properties[2].second = "SITE2,SITE1";
    m_two.core.received(round, m_now);
    EXPECT_THAT(m_two.host.done, IsEmpty());
    EXPECT_THAT(m_two.lines, Contains(HasSubstr("AXIS1.MOVE of SITE1 is refused: it goes round: ")));
}

TEST_F(LinkCoreTest, WhatCameOverALinkGoesOutOverAnotherOnlyWithTransit) {
    connectBoth();
    m_one.host.way = "SITE3";
    EXPECT_FALSE(send("AXIS1.MOVE"));
    EXPECT_THAT(m_one.lines, Contains("AXIS1.MOVE is not sent: it came over a link (SITE3), and only "
                                      "transit=\"true\" lets it go out over another"));
    m_one.m_settings.hasTransit = true;
    EXPECT_TRUE(send("AXIS1.MOVE"));
    EXPECT_EQ(last("mf/1/SITE2/fid/AXIS1/MOVE").property("path"), "SITE3,SITE1");
}

TEST_F(LinkCoreTest, LongIDsOfAStrangerAreNotKept) {
    connectBoth();
    const std::string most = std::string(126, 'x') + ":1";
    for (const std::string& id : {most, "x" + most}) {
        LinkMessage event{.topic = "mf/1/SITE2/event/AXIS1/HOT"};
        event.payload = linkpayload::text(linkpayload::Event{"hot", {}, id});
        m_one.core.received(event, m_now);
        EXPECT_TRUE(send("AXIS1.MOVE"));
        LinkMessage fid = last("mf/1/SITE2/fid/AXIS1/MOVE");
        for (auto& [name, value] : fid.properties)
            value = name == "id" ? id : value;
        m_two.pEnd->inbox.clear();
        m_two.core.received(fid, m_now);
    }
    EXPECT_THAT(m_one.host.events_, ElementsAre("AXIS1.HOT hot"));
    EXPECT_THAT(m_two.host.done, ElementsAre("AXIS1.MOVE x=5 by SITE1"));
}

TEST_F(LinkCoreTest, ReplyGoesNowhereButWhereThisSiteAnswers) {
    connectBoth();
    EXPECT_TRUE(send("AXIS1.MOVE"));
    LinkMessage forged = last("mf/1/SITE2/fid/AXIS1/MOVE");
    m_two.pEnd->inbox.clear();
    forged.responseTopic = "mf/1/SITE9/fid/AXIS1/MOVE";
    m_two.core.received(forged, m_now);
    pass(300ms);
    EXPECT_EQ(last("mf/1/SITE9/fid/AXIS1/MOVE").payload, "");
    EXPECT_THAT(m_two.host.done, ElementsAre("AXIS1.MOVE x=5 by SITE1"));
    forged.responseTopic = "mf/1/SITE9/reply/b1";
    forged.properties[0].second = "b1:999";
    m_two.core.received(forged, m_now);
    pass(300ms);
    EXPECT_EQ(last("mf/1/SITE9/reply/b1").payload, "");
    EXPECT_EQ(m_two.host.done.size(), 2U);
}

TEST_F(LinkCoreTest, FidWithoutAnAnswerIsNotKnownWhether) {
    connectBoth();
    EXPECT_TRUE(send("SLOW.MOVE"));
    pass(9s);
    EXPECT_THAT(m_one.host.events_, IsEmpty());
    pass(2s);
    EXPECT_THAT(m_one.host.events_, ElementsAre("OUTCOME SLOW.MOVE: not known: no answer came"));
    EXPECT_TRUE(send("SLOW.MOVE"));
    m_one.core.lost("Connection refused", m_now);
    EXPECT_EQ(m_one.host.events_.back(),
              "OUTCOME SLOW.MOVE: not known: the connection to the broker was lost before the answer came");
}

TEST_F(LinkCoreTest, FidIsNotSentWhereItCannotArrive) {
    EXPECT_FALSE(send("AXIS1.MOVE"));
    connectBoth();
    EXPECT_FALSE(send("MOVE"));
    EXPECT_FALSE(send("AXIS1.MOVE", "\xff"));
    EXPECT_THAT(m_one.lines,
                ElementsAre("AXIS1.MOVE is not sent: no broker: not connected yet", "SITE2 is there",
                            "MOVE is not sent: a FID to another site is a driver there, \".\" and a function",
                            "AXIS1.MOVE is not sent: a parameter is no UTF-8"));
    for (int i = 0; i < 1024; ++i)
        EXPECT_TRUE(send("SLOW.MOVE"));
    EXPECT_FALSE(send("SLOW.MOVE"));
    EXPECT_EQ(m_one.lines.back(), "SLOW.MOVE is not sent: too many FIDs wait for the answer of SITE2");
}

TEST_F(LinkCoreTest, FidsThatAnOwnDriverFloodsToASiteThatIsAwayAreALineASecond) {
    for (int i = 0; i < 100; ++i)
        EXPECT_FALSE(send("AXIS1.MOVE"));
    const std::string line = "AXIS1.MOVE is not sent: no broker: not connected yet";
    EXPECT_THAT(m_one.lines, ElementsAre(line));
    pass(1500ms);
    EXPECT_THAT(m_one.lines, ElementsAre(line, line + "; it is the last of 99 such within a second"));
    EXPECT_EQ(m_one.host.events_, Lines(100, "OUTCOME AXIS1.MOVE: refused: no broker: not connected yet"));
}

TEST_F(LinkCoreTest, SiteWhoseTicksComeAndWhoseValuesAreHeldBackIsNotHeard) {
    m_two.host.set("AXIS1.POS", 40);
    connectBoth();
    pass(10s);
    for (int i = 0; i < 12; ++i) {
        m_two.host.set("AXIS1.POS", i);
        for (int step = 0; step < 10; ++step) {
            m_two.core.step(m_now += 100ms);
            std::erase_if(m_one.pEnd->inbox, [](const LinkMessage& message) { return message.qos > 0; });
            pass(0ms);
        }
    }
    EXPECT_EQ(m_one.host["LINK"], "SITE2 is not heard");
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: SITE2 is not heard");
    pass(15s);
    EXPECT_EQ(m_one.host["LINK"], "up");
    EXPECT_EQ(m_one.host["AXIS1.POS"], "11");
}

TEST_F(LinkCoreTest, OwnValuesDoNotComeBack) {
    connectBoth();
    LinkMessage echo{.topic = "mf/1/SITE2/state/SITE1/AXIS1.POS",
                     .payload = linkpayload::text(linkpayload::State{1, {}, "b2", 1, ""})};
    m_one.core.received(echo, m_now);
    EXPECT_EQ(m_one.host["SITE1.AXIS1.POS"], "none");
    echo.topic = "mf/1/SITE2/state/SITE3/AXIS1.POS";
    m_one.core.received(echo, m_now);
    EXPECT_EQ(m_one.host["SITE3.AXIS1.POS"], "1");
}

TEST_F(LinkCoreTest, AnotherHostOfThisNameIsTold) {
    connectBoth();
    m_one.core.received(
        {.topic = "mf/1/SITE1/up", .payload = linkpayload::text(linkpayload::Up{true, "b9", {}, true})},
        m_now);
    EXPECT_EQ(m_one.lines.back(),
              "another host calls itself SITE1 at the broker; give one of them another site=\"...\"");
}

TEST_F(LinkCoreTest, OrderlyEndIsAWord) {
    m_two.host.set("AXIS1.POS", 40);
    connectBoth();
    m_two.core.leave();
    pass(0ms);
    EXPECT_EQ(m_one.host["AXIS1.POS"], "40 stale: SITE2 is away");
}
