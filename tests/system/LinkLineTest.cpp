#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "LinkFixture.h"
#include "MqttLine.h"

namespace {

using namespace std::chrono_literals;

constexpr int c_line = 1885;

/// SITE1 has a bad line to the broker.
class LinkLine : public Link {
protected:
    void prepare() override {
        Link::prepare();
        if (IsSkipped())
            return;
        setPort(ownLink(), c_line);
        m_pLine = std::make_unique<MqttLine>(c_line, 1883);
    }
    void onEachMessage(const MqttLine::Change& change) {
        for (const auto way : {MqttLine::EWay::ToBroker, MqttLine::EWay::FromBroker})
            m_pLine->change(way, [change](const std::string& packet) {
                return MqttLine::isPublish(packet) ? change(packet) : std::vector<std::string>{packet};
            });
    }
    static std::size_t countOf(const std::string& text, const std::string& word) {
        std::size_t count = 0;
        for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
            ++count;
        return count;
    }

    std::unique_ptr<MqttLine> m_pLine;
};

}  // namespace

TEST_F(LinkLine, FidThatComesTwiceIsDoneOnce) {
    std::atomic<int> doubled = 0;
    startAll();
    expectSets("17");
    onEachMessage([&](const std::string& packet) {
        ++doubled;
        return std::vector<std::string>{packet, packet};
    });
    constexpr std::size_t count = 20;
    for (std::size_t i = 0; i < count; ++i) {
        other().type("sendFID SITE1.E.EVENT name=HERE value=x");
        host().type("sendFID SITE2.E.EVENT name=THERE value=x");
    }
    // Each side has of the other's as many as of its own, which nobody has doubled.
    EXPECT_TRUE(eventually([&] {
        return countOf(host().ask("events"), "SITE2.OUTCOME") >= count + 1 &&
               countOf(other().ask("events"), "SITE1.OUTCOME") >= count;
    })) << host().log();
    EXPECT_GT(doubled, 2 * static_cast<int>(count));
    const std::string here = host().ask("events");
    const std::string there = other().ask("events");
    EXPECT_EQ(countOf(here, " E.HERE"), count) << here;
    EXPECT_EQ(countOf(there, " E.THERE"), count) << there;
    EXPECT_EQ(countOf(here, "SITE2.OUTCOME"), count + 1) << here;
    EXPECT_EQ(countOf(there, "SITE1.OUTCOME"), count) << there;
    m_pLine->heal();
    expectSets("18");
    endAll();
}

TEST_F(LinkLine, MessagesThatOvertakeOneAnotherLeaveTheLastValue) {
    startAll();
    expectSets("0");
    std::string held;
    // Of each two the second comes first.
    m_pLine->change(MqttLine::EWay::FromBroker, [&held](const std::string& packet) {
        if (!MqttLine::isPublish(packet))
            return std::vector<std::string>{packet};
        if (held.empty()) {
            held = packet;
            return std::vector<std::string>();
        }
        return std::vector<std::string>{packet, std::exchange(held, {})};
    });
    for (int i = 1; i <= 10; ++i) {
        const std::string value = std::to_string(i);
        other().type("sendFID E.INT name=N value=" + value);
        EXPECT_TRUE(other().repliesWith("state --now E.N", "E\\.N +int +" + value + " ")) << other().output();
    }
    EXPECT_TRUE(host().repliesWith("state --now SITE2.E.N", "SITE2\\.E\\.N +int +10 +SITE2 +[0-9]+ s +yes"))
        << host().output() << host().log();
    m_pLine->heal();
    expectSets("11");
    endAll();
}

TEST_F(LinkLine, SlowLineIsMeasuredAndServes) {
    m_pLine->delay(400ms);
    startAll();
    expectSets("17");
    EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK_DELAY",
                                   "SITE2\\.LINK_DELAY +float +([89][0-9][0-9]|[1-9][0-9]{3,})"))
        << host().output();
    EXPECT_TRUE(host().repliesWith("events", "SITE2\\.OUTCOME.*E\\.INT: done")) << host().output();
    endAll();
}

/// What is sent to the site waits somewhere, and nobody says so.
TEST_F(LinkLine, FidThatWasHeldUpIsNotDone) {
    startAll();
    expectSets("17");
    m_pLine->set(MqttLine::EWay::FromBroker, MqttLine::EState::Still);
    other().type("sendFID SITE1.E.INT name=N value=666");
    EXPECT_TRUE(other().waitForLog("SITE1: E.INT: not known: ")) << other().log();
    m_pLine->heal();
    expectSets("18");
    EXPECT_TRUE(other().repliesWith("state --now SITE1.LINK", "SITE1\\.LINK +string +up ")) << other().log();
    EXPECT_NE(host().ask("state --now E.N").find("no state value matches E.N\n"), std::string::npos);
    endAll();
}

TEST_F(LinkLine, CutLineHeals) {
    startAll();
    expectSets("17");
    for (const char* pValue : {"18", "19", "20"}) {
        m_pLine->cut();
        expectStale("no broker: .*");
        m_pLine->heal();
        expectSets(pValue);
    }
    endAll();
}
