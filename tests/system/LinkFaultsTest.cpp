#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "BrokerClient.h"
#include "HangGuard.h"
#include "LinkFixture.h"
#include "LinkMessage.h"

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

/// What a broker or another site may do that no link does.
class LinkFaults : public Link {
protected:
    /// The messages of that topic that the client has.
    static std::vector<std::string> payloads(const BrokerClient& client, const std::string& topic) {
        std::vector<std::string> found;
        for (const LinkMessage& message : client.received()) {
            if (message.topic == topic)
                found.push_back(message.payload);
        }
        return found;
    }
};

}  // namespace

TEST_F(LinkFaults, BrokerThatRemembersBringsNothingOfTheDeadToLife) {
    giveMemory();
    startAll();
    expectSets("17");
    killBrokerThatRemembers();
    // Nobody is there to whom its end could be told.
    other().signal(SIGKILL);
    EXPECT_EQ(other().waitForEnd(), 128 + SIGKILL);
    expectStale("no broker: .*");
    startBroker();
    BrokerClient witness("STRANGER", "third");
    ASSERT_TRUE(witness.connect());
    ASSERT_TRUE(witness.subscribe("mf/1/SITE2/#"));
    // The broker says that the dead are alive.
    ASSERT_TRUE(witness.until([&] { return !payloads(witness, "mf/1/SITE2/state/E/N").empty(); }));
    EXPECT_THAT(payloads(witness, "mf/1/SITE2/state/E/N").front(), HasSubstr("\"v\": 17"));
    ASSERT_TRUE(witness.until([&] { return !payloads(witness, "mf/1/SITE2/up").empty(); }));
    EXPECT_THAT(payloads(witness, "mf/1/SITE2/up").front(), HasSubstr("\"up\": true"));
    EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK", "SITE2\\.LINK +string +SITE2 is not heard"))
        << host().output() << host().log();
    EXPECT_THAT(host().ask("state --now SITE2.E.N"), ContainsRegex("SITE2\\.E\\.N +int +17 .* stale for "));
    expectAnewFromAnotherHost("20");
    endAll();
}

TEST_F(LinkFaults, WhatChangedWhileTheBrokerWasAwayIsThereAfterwards) {
    giveMemory();
    startAll();
    expectSets("17");
    killBrokerThatRemembers();
    expectStale("no broker: .*");
    other().type("sendFID E.INT name=N value=18");
    EXPECT_TRUE(other().repliesWith("state --now E.N", "E\\.N +int +18 +E +[0-9]+ s +yes"))
        << other().output();
    startBroker();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.E.N", "SITE2\\.E\\.N +int +18 +SITE2 +[0-9]+ s +yes"))
        << host().output() << host().log();
    endAll();
}

TEST_F(LinkFaults, TwoHostsOfOneNameAreToldAndTheOneThatStaysIsHeardAgain) {
    startAll();
    expectSets("17");
    TestWorkplace third;
    equip(third, "SITE1", "SITE2");
    const std::unique_ptr<HostProcess> pThird = startBeside(third);
    const std::string told =
        "SITE2: another host calls itself SITE1 at the broker; give one of them another site=\"...\"\n";
    // Each comes back, so both are told.
    for (HostProcess* const pHost : {&host(), pThird.get()})
        EXPECT_TRUE(pHost->waitForLog(told)) << pHost->log();
    pThird->closeInput();
    EXPECT_EQ(pThird->waitForEnd(), 0) << pThird->log();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK", "SITE2\\.LINK +string +up ")) << host().log();
    EXPECT_TRUE(other().repliesWith("state --now SITE1.LINK", "SITE1\\.LINK +string +up ")) << other().log();
    expectSets("18");
    endAll();
}

TEST_F(LinkFaults, FidThatAStrangerHasLeftAtTheBrokerIsNotDone) {
    startBroker();
    BrokerClient stranger("STRANGER", "third");
    ASSERT_TRUE(stranger.connect());
    const auto plant = [&](const std::string& id, const std::string& tick) {
        return stranger.publish(
            {.topic = "mf/1/SITE1/fid/E/INT",
             .payload = R"({"p": [["name","N"],["value","666"]]})",
             .isRetained = true,
             .properties = {{"id", id}, {"from", "SITE2"}, {"path", "SITE2"}, {"tick", tick}}});
    };
    ASSERT_TRUE(plant("x:1", "x:1"));
    startOther();
    start();
    EXPECT_TRUE(host().waitForLog(
        "SITE2: E.INT of SITE2 is dropped: it was kept by the broker, and is of nobody knows when\n"))
        << host().log();
    ASSERT_TRUE(host().waitForLog("SITE2: SITE2 is there\n")) << host().log();
    // While the site is there it comes as any other, and its tick tells that it is no FID of now.
    ASSERT_TRUE(plant("x:2", "x:1"));
    EXPECT_TRUE(host().waitForLog("SITE2: E.INT of SITE2 is expired: it is of before SITE1 was started\n"))
        << host().log();
    ASSERT_TRUE(plant("x:3", ""));
    EXPECT_TRUE(eventually([&] {
        return host().log().find("is expired", host().log().find("is expired") + 1) != std::string::npos;
    })) << host().log();
    EXPECT_THAT(host().ask("state --now E.N"), HasSubstr("no state value matches E.N\n"));
    expectSets("17");
    endAll();
}

TEST_F(LinkFaults, MalformedMessagesOfAStrangerChangeNothing) {
    startAll();
    expectSets("17");
    BrokerClient stranger("STRANGER", "third");
    ASSERT_TRUE(stranger.connect());
    const std::vector<std::string> topics{"mf/1/SITE2/state/E/N",   "mf/1/SITE2/state/E/OTHER",
                                          "mf/1/SITE2/up",          "mf/1/SITE2/tick",
                                          "mf/1/SITE2/event/E/X",   "mf/1/SITE1/fid/E/INT",
                                          "mf/1/SITE2/reply/x",     "mf/1/SITE1/up",
                                          "mf/1/SITE1/state/E/N",   "mf/1/SITE2/state/E/%zz",
                                          "mf/1/SITE2/state/E/a/b", "mf/1/SITE1/fid/E%2FX/%00"};
    const std::vector<std::string> malformed{
        "x",
        "{",
        "[]",
        "null",
        std::string("\0\xff\xfe", 3),
        std::string(60'000, '['),
        std::string(100'000, '['),
        R"({"v": 666})",
        R"({"v": 666, "t": "int", "at": "yesterday", "boot": "x", "n": 1})",
        R"({"v": "666", "t": "int", "at": "2026-11-22T12:15:16.900Z", "boot": "x", "n": 1})",
        R"({"v": 666, "t": "int", "at": "2026-11-22T12:15:16.900Z", "boot": "x", "n": -1})",
        R"({"up": 1, "boot": "x"})",
        R"({"up": true, "boot": "", "since": "2026-11-22T12:15:16.900Z"})",
        R"({"boot": "x", "tick": "1"})",
        R"({"boot": "x", "tick": 1, "heard": {"SITE1": {"tick": "x:99999999999999999999", "us": 1e99}}})",
        R"({"outcome": "perhaps"})",
        R"({"p": [["name","N"],["value",666]]})",
    };
    for (const std::string& topic : topics) {
        for (const std::string& payload : malformed) {
            for (const bool isRetained : {false, true})
                ASSERT_TRUE(stranger.publish(
                    {.topic = topic,
                     .payload = payload,
                     .isRetained = isRetained,
                     .responseTopic = "mf/1/SITE2/up",
                     .correlation = std::string("\0\n", 2),
                     .properties = {{"from", "SITE2"}, {"path", ",,"}, {"id", ":"}, {"tick", ":"}}}))
                    << topic << " " << payload.substr(0, 80);
        }
    }
    // One that can be told from all of them, last.
    ASSERT_TRUE(
        stranger.publish({.topic = "mf/1/SITE2/event/E/LAST",
                          .payload = R"({"v": "x", "at": "2026-11-22T12:15:16.900Z", "id": "x:1"})"}));
    EXPECT_TRUE(host().repliesWith("events", "SITE2\\.E\\.LAST")) << host().output();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.E.N", "SITE2\\.E\\.N +int +17 +SITE2 +[0-9]+ s +yes"))
        << host().output();
    EXPECT_THAT(host().ask("state --now SITE2.E.*"), Not(HasSubstr("666")));
    EXPECT_THAT(other().ask("state --now *"), Not(HasSubstr("666")));
    EXPECT_THAT(host().ask("state --now E.N"), Not(HasSubstr("666")));
    EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK", "SITE2\\.LINK +string +up ")) << host().log();
    expectSets("19");
    endAll();
}

TEST_F(LinkFaults, WhoSubscribesToEverythingHearsWhatItsLineSaysAlone) {
    startBroker();
    BrokerClient nobody("NOBODY", "fourth");
    BrokerClient all("STRANGER", "third");
    ASSERT_TRUE(nobody.connect());
    ASSERT_TRUE(all.connect());
    ASSERT_TRUE(nobody.subscribe("#"));
    ASSERT_TRUE(all.subscribe("#"));
    startOther();
    start();
    ASSERT_TRUE(host().waitForLog("SITE2: SITE2 is there\n")) << host().log();
    expectSets("17");
    ASSERT_TRUE(all.until([&] {
        return !payloads(all, "mf/1/SITE2/state/E/N").empty() && !payloads(all, "mf/1/SITE1/tick").empty();
    }));
    // What it may hear comes: it lives, and has been asked for by then.
    ASSERT_TRUE(nobody.publish({.topic = "mf/1/SITE1/fid/E/INT", .payload = "{}"}));
    EXPECT_THAT(nobody.received(), testing::IsEmpty());
    EXPECT_THAT(payloads(all, "mf/1/SITE1/fid/E/INT"), Not(testing::Contains("{}")));
    endAll();
}

TEST_F(LinkFaults, FloodOfAStrangerHoldsNobodyUp) {
    startAll();
    expectSets("17");
    BrokerClient stranger("STRANGER", "third");
    ASSERT_TRUE(stranger.connect());
    constexpr int count = 2000;
    for (int i = 0; i < count; ++i) {
        const std::string id = std::to_string(i);
        // Commands that no site has sent, of ever new instances, and values of drivers that nobody imports.
        ASSERT_TRUE(stranger.publish(
            {.topic = "mf/1/SITE1/fid/E/INT",
             .payload = R"({"p": [["name","N"],["value","666"]]})",
             .correlation = id,
             .properties = {
                 {"id", "x" + id + ":1"}, {"from", "SITE2"}, {"path", "SITE2"}, {"tick", "x:1"}}}));
        ASSERT_TRUE(stranger.publish(
            {.topic = "mf/1/SITE2/state/X/N" + id,
             .payload = R"({"v": 666, "t": "int", "at": "2026-11-22T12:15:16.900Z", "boot": "x", "n": 1})",
             .isRetained = true}));
    }
    EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK", "SITE2\\.LINK +string +up ")) << host().log();
    EXPECT_THAT(host().ask("state --now *"), Not(HasSubstr("666")));
    EXPECT_THAT(other().ask("state --now *"), Not(HasSubstr("666")));
    expectSets("18");
    endAll();
}

TEST_F(LinkFaults, FloodOfRefusedFidsIsALineASecondForEachCause) {
    startAll();
    BrokerClient stranger("STRANGER", "third");
    ASSERT_TRUE(stranger.connect());
    ASSERT_TRUE(stranger.subscribe("mf/1/SITE1/tick"));
    ASSERT_TRUE(stranger.until([&] { return !stranger.received().empty(); }));
    const auto begin = std::chrono::steady_clock::now();
    constexpr int count = 1000;
    for (int i = 0; i < count; ++i) {
        // Such as nobody may, such as no driver knows, late ones, and those of a site that there is not.
        const std::string newest = stranger.received().back().payload;
        const auto number = newest.find("\"tick\": ") + 8;
        const std::string tick = newest.substr(10, newest.find('"', 10) - 10) + ":" +
                                 newest.substr(number, newest.find_first_of(",}", number) - number);
        const std::string id = std::to_string(i);
        for (const auto& [topic, from, told] : {std::tuple("mf/1/SITE1/fid/PANEL/ALARM", "SITE2", tick),
                                                {"mf/1/SITE1/fid/E/NOSUCH", "SITE2", tick},
                                                {"mf/1/SITE1/fid/E/INT", "SITE2", "x:1"},
                                                {"mf/1/SITE1/fid/E/INT", "NOSITE", tick}})
            ASSERT_TRUE(
                stranger.publish({.topic = topic,
                                  .payload = R"({"p": []})",
                                  .properties = {{"id", std::string(topic) + told.substr(0, 1) + ":" + id},
                                                 {"from", from},
                                                 {"path", from},
                                                 {"tick", told}}}));
    }
    EXPECT_TRUE(host().waitForLog(" such within a second\n")) << host().log();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK", "SITE2\\.LINK +string +up ")) << host().log();
    const std::string log = host().log();
    const auto seconds =
        std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now() - begin).count();
    // Those of the same second, and of the one before that has not ended yet.
    EXPECT_LT(std::count(log.begin(), log.end(), '\n'), 100 + 6 * (seconds + 2)) << log.substr(0, 20000);
    EXPECT_THAT(log,
                ContainsRegex("E\\.INT of \"NOSITE\" is dropped: there is no link to that site; it is the "
                              "last of [0-9]+ such within a second\n"));
    expectSets("18");
    endAll();
}

TEST_F(LinkFaults, FarDriverThatIsReloadedHasNoLiveValueOfBefore) {
    startAll();
    expectSets("17");
    other().type("reloadDriver E");
    EXPECT_TRUE(other().repliesWith("drivers", "E +Echo .* running ")) << other().output();
    // Its next instance has not set it: it is gone or stale, whichever the other host says.
    EXPECT_TRUE(eventually([&] {
        const std::string shown = host().ask("state --now SITE2.E.N");
        return shown.find(" stale ") != std::string::npos ||
               shown.find("no state value matches") != std::string::npos;
    })) << host().output();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK", "SITE2\\.LINK +string +up ")) << host().log();
    expectSets("18");
    endAll();
}

TEST_F(LinkFaults, SiteThatIsRenamedIsAwayUnderItsFormerName) {
    startAll();
    expectSets("17");
    const std::filesystem::path file = m_pOther->workdir() / "data/SITE1/link.xml";
    std::string link = readFile(file);
    link.replace(link.find("SITE2"), 5, "STRANGER");
    writeFile(file, link);
    writeFile(file.parent_path() / "password", "third\n");
    other().type("reloadDriver SITE1");
    expectStale("SITE2 is away");
    EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK", "SITE2\\.LINK +string +SITE2 is away"))
        << host().output();
    host().type("sendFID SITE2.E.INT name=N value=18");
    EXPECT_TRUE(host().waitForLog("SITE2: E.INT is not sent: SITE2 is away\n")) << host().log();
    EXPECT_TRUE(other().repliesWith("state --now E.N", "E\\.N +int +17 +E +[0-9]+ s +yes"))
        << other().output();
    endAll(3);
}

TEST_F(LinkFaults, BrokerWithAnExpiredCertificateGetsNothing) {
    secure("ca.pem", "-1");
    startBroker();
    start();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK",
                                   "SITE2\\.LINK +string +no broker: 127\\.0\\.0\\.1 port "
                                   "8883: A TLS error occurred\\."))
        << host().output() << host().log();
    EXPECT_THAT(m_pBroker->log(), Not(HasSubstr("SITE1")));
    EXPECT_EQ(end(), 0);
}
