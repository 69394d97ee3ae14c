#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "BrokerClient.h"
#include "LinkFixture.h"
#include "LinkMessage.h"

using testing::SizeIs;

namespace {

/// Three workplaces, each linked with both others; SITE2 and SITE3 let through what came over a link.
class LinkRing : public Link {
protected:
    void prepare() override {
        Link::prepare();
        if (IsSkipped())
            return;
        m_pThird = std::make_unique<TestWorkplace>();
        m_pThird->addModule("Echo");
        equipRing(workplace(), "SITE1", "first", "SITE2", "SITE3");
        equipRing(*m_pOther, "SITE2", "second", "SITE1", "SITE3");
        equipRing(*m_pThird, "SITE3", "seventh", "SITE1", "SITE2");
        const std::filesystem::path directory = workplace().directory();
        writeFile(directory / "third", "SITE3:seventh\n");
        ASSERT_TRUE(PrivateMachine::shell("cd " + directory.string() +
                                          " && mosquitto_passwd -U third && cat third >>passwords"));
        for (const TestWorkplace* const pPlace : {&workplace(), m_pOther.get(), m_pThird.get()})
            addRights(*pPlace);
    }
    static void equipRing(const TestWorkplace& place, const std::string& site, const std::string& password,
                          const std::string& one, const std::string& other) {
        place.configure(TestWorkplace::entry("E", "Echo", "queue") +
                        TestWorkplace::entry(one, "Link", "direct") +
                        TestWorkplace::entry(other, "Link", "direct"));
        for (const auto& [far, next] : {std::pair(one, other), {other, one}}) {
            const std::filesystem::path directory = place.workdir() / "data" / far;
            std::filesystem::create_directories(directory);
            writeFile(directory / "password", password + "\n");
            ::chmod((directory / "password").c_str(), 0600);
            writeFile(directory / "link.xml",
                      "<link site='" + site + "' spread='0' transit='" +
                          (site == "SITE1" ? "false" : "true") +
                          "'>\n<broker host='127.0.0.1' credentials='password'/>\n<export driver='E'/>\n"
                          "<import driver='E'/>\n<allow driver='E'/>\n<allow driver='" +
                          next + "'/>\n</link>\n");
        }
    }
    void startRing() {
        startBroker();
        m_pThirdHost = startBeside(*m_pThird);
        startHosts();
        ASSERT_TRUE(host().waitForLog("SITE3: SITE3 is there\n")) << host().log();
        ASSERT_TRUE(other().waitForLog("SITE3: SITE3 is there\n")) << other().log();
        for (const char* pSite : {"SITE1", "SITE2"})
            ASSERT_TRUE(m_pThirdHost->waitForLog(std::string(pSite) + ": " + pSite + " is there\n"))
                << m_pThirdHost->log();
    }
    void endRing() {
        m_pThirdHost->closeInput();
        EXPECT_EQ(m_pThirdHost->waitForEnd(), 0) << m_pThirdHost->log();
        endAll();
    }

    std::unique_ptr<TestWorkplace> m_pThird;
    std::unique_ptr<HostProcess> m_pThirdHost;
};

}  // namespace

TEST_F(LinkRing, FidGoesByWayOfAnotherSiteWhereThatLetsItAndEndsWhereItHasBeen) {
    startRing();
    BrokerClient witness("STRANGER", "third");
    ASSERT_TRUE(witness.connect());
    ASSERT_TRUE(witness.subscribe("mf/1/+/fid/+/+"));
    const auto hasHeard = [&](std::size_t count) {
        return witness.until([&] { return witness.received().size() >= count; });
    };
    host().type("sendFID SITE2.SITE3.E.INT name=N value=7");
    EXPECT_TRUE(m_pThirdHost->repliesWith("state --now E.N", "E\\.N +int +7 +E +[0-9]+ s +yes"))
        << m_pThirdHost->output() << other().log();
    ASSERT_TRUE(hasHeard(2));
    EXPECT_EQ(witness.received().back().property("path"), "SITE1,SITE2");

    host().type("sendFID SITE2.SITE3.SITE1.E.INT name=N value=8");
    EXPECT_TRUE(
        host().waitForLog("SITE3: E.INT of SITE3 is refused: it goes round: it has passed "
                          "SITE1,SITE2,SITE3 and comes to SITE1 again\n"))
        << host().log();
    EXPECT_TRUE(
        m_pThirdHost->waitForLog("SITE1: E.INT: refused: it goes round: it has passed "
                                 "SITE1,SITE2,SITE3 and comes to SITE1 again\n"))
        << m_pThirdHost->log();
    ASSERT_TRUE(hasHeard(5));
    EXPECT_NE(host().ask("state --now E.N").find("no state value matches E.N\n"), std::string::npos);

    // SITE1 lets nothing through.
    m_pThirdHost->type("sendFID SITE1.SITE2.E.INT name=N value=9");
    EXPECT_TRUE(
        host().waitForLog("SITE2: E.INT is not sent: it came over a link (SITE3), and only "
                          "transit=\"true\" lets it go out over another\n"))
        << host().log();
    EXPECT_TRUE(m_pThirdHost->waitForLog("SITE1: SITE2.E.INT: refused: SITE2 has refused it\n"))
        << m_pThirdHost->log();
    // No other message than one for each site on each way.
    ASSERT_TRUE(hasHeard(6));
    EXPECT_THAT(witness.received(), SizeIs(6));
    endRing();
}
