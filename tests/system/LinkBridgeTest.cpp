#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <memory>
#include <string>
#include <tuple>

#include "BrokerClient.h"
#include "LinkFixture.h"
#include "LinkMessage.h"
#include "MqttLine.h"

namespace {

constexpr int c_farBroker = 1884;
constexpr int c_line = 1885;

/// SITE1 is at one broker, SITE2 at another; a bridge joins them over a line of the test's.
class LinkBridge : public Link {
protected:
    void prepare() override {
        Link::prepare();
        if (IsSkipped())
            return;
        const std::filesystem::path directory = workplace().directory();
        setPort(othersLink(), c_farBroker);
        const std::string settings = readFile(directory / "broker.conf");
        std::string far = settings;
        far.replace(far.find("1883"), 4, std::to_string(c_farBroker));
        writeFile(directory / "far.conf", far);
        // As the document on links has it.
        std::string bridge = "connection sector\naddress 127.0.0.1:" + std::to_string(c_line) +
                             "\nbridge_protocol_version mqttv50\ncleansession true\nnotifications false\n"
                             "keepalive_interval 5\nrestart_timeout 1\n"
                             "remote_username STRANGER\nremote_password third\n";
        for (const auto& [site, way, back] :
             {std::tuple("SITE1", " out ", " in "), {"SITE2", " in ", " out "}}) {
            const std::string tree = "topic mf/1/" + std::string(site);
            bridge += tree + "/state/#" + way + "1\n" + tree + "/event/#" + way + "1\n" + tree + "/reply/#" +
                      way + "1\n" + tree + "/up" + way + "1\n" + tree + "/tick" + way + "1\n" + tree +
                      "/fid/#" + back + "1\n";
        }
        writeFile(directory / "broker.conf", settings + bridge);
        m_pLine = std::make_unique<MqttLine>(c_line, c_farBroker);
    }
    void startBridged() {
        m_pFarBroker = startBroker("far");
        BrokerClient first("STRANGER", "third", c_farBroker);
        ASSERT_TRUE(first.connect());
        startAll();
    }
    /// What the broker at that port keeps below the topics.
    static std::size_t kept(int port, const std::string& topics) {
        BrokerClient witness("STRANGER2", "sixth", port);
        const bool isThere =
            witness.connect() && witness.subscribe(topics) && witness.subscribe("mf/1/SITE2/up") &&
            witness.until([&] {
                return !witness.received().empty() && witness.received().back().topic == "mf/1/SITE2/up";
            });
        return isThere ? witness.received().size() - 1 : 1000;
    }

    std::unique_ptr<MqttLine> m_pLine;
    std::unique_ptr<HostProcess> m_pFarBroker;
};

}  // namespace

TEST_F(LinkBridge, FidsValuesAnswersAndTheLastWillPass) {
    startBridged();
    expectSets("17");
    EXPECT_TRUE(host().repliesWith("events", "SITE2\\.OUTCOME.*E\\.INT: done")) << host().output();
    other().type("sendFID SITE1.E.INT name=N value=21");
    EXPECT_TRUE(other().repliesWith("state --now SITE1.E.N", "SITE1\\.E\\.N +int +21 +SITE1 +[0-9]+ s +yes"))
        << other().output() << other().log();
    other().signal(SIGKILL);
    EXPECT_EQ(other().waitForEnd(), 128 + SIGKILL);
    expectStale("SITE2 is away");
    expectAnewFromAnotherHost("20");
    endAll();
}

TEST_F(LinkBridge, CutIsToldOnBothSidesAndWhatWasMissedIsThereAfterwards) {
    startBridged();
    expectSets("17");
    other().type("sendFID E.INT name=GONE value=1");
    EXPECT_TRUE(host().repliesWith("state --now SITE2.E.GONE", "SITE2\\.E\\.GONE +int +1 +SITE2"))
        << host().output();
    m_pLine->cut();
    // Nobody has noticed yet.
    host().type("sendFID SITE2.E.INT name=LATE value=1");
    expectStale("SITE2 is not heard");
    EXPECT_TRUE(host().waitForLog("SITE2: E.INT: not known: SITE2 is not heard\n")) << host().log();
    EXPECT_TRUE(other().waitForLog("SITE1: SITE1 is not heard\n")) << other().log();
    host().type("sendFID SITE2.E.INT name=LATE value=2");
    EXPECT_TRUE(host().waitForLog("SITE2: E.INT is not sent: SITE2 is not heard\n")) << host().log();
    other().type("sendFID E.INT name=N value=18");
    other().type("sendFID E.UNSET name=GONE");
    EXPECT_TRUE(eventually([&] {
        return other().ask("state --now E.GONE").find("no state value matches E.GONE\n") != std::string::npos;
    })) << other().output();
    // The bridge cannot know that it is gone.
    EXPECT_EQ(kept(1883, "mf/1/SITE2/state/E/GONE"), 1U);
    m_pLine->heal();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.E.N", "SITE2\\.E\\.N +int +18 +SITE2 +[0-9]+ s +yes"))
        << host().output() << host().log();
    EXPECT_TRUE(eventually([&] {
        return host().ask("state --now SITE2.E.GONE").find("no state value matches SITE2.E.GONE\n") !=
               std::string::npos;
    })) << host().output();
    EXPECT_TRUE(eventually([] { return kept(1883, "mf/1/SITE2/state/E/GONE") == 0; }));
    expectSets("19");
    EXPECT_TRUE(other().ask("state --now E.LATE").find("no state value matches E.LATE\n") !=
                std::string::npos)
        << other().output();
    endAll(3);
}

TEST_F(LinkBridge, CommandThatIsKeptAtTheOtherBrokerIsNotDone) {
    startBridged();
    expectSets("17");
    m_pLine->cut();
    BrokerClient stranger("STRANGER2", "sixth", c_farBroker);
    ASSERT_TRUE(stranger.connect());
    for (const char* pTick : {"x:1", ""})
        ASSERT_TRUE(stranger.publish(
            {.topic = "mf/1/SITE1/fid/E/INT",
             .payload = R"({"p": [["name","N"],["value","666"]]})",
             .isRetained = true,
             .properties = {{"id", "x:1"}, {"from", "SITE2"}, {"path", "SITE2"}, {"tick", pTick}}}));
    m_pLine->heal();
    EXPECT_TRUE(host().waitForLog("SITE2: E.INT of SITE2 is expired: it is of before SITE1 was started\n"))
        << host().log();
    // Whoever comes later is given it as what it is.
    host().type("reloadDriver SITE2");
    EXPECT_TRUE(host().waitForLog(
        "SITE2: E.INT of SITE2 is dropped: it was kept by the broker, and is of nobody knows when\n"))
        << host().log();
    EXPECT_NE(host().ask("state --now E.N").find("no state value matches E.N\n"), std::string::npos);
    endAll();
}
