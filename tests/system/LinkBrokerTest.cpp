#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <string>

#include "BrokerClient.h"
#include "LinkFixture.h"
#include "LinkMessage.h"

namespace {

using namespace std::chrono_literals;

/// What may become of the broker and its machine.
class LinkBroker : public Link {
protected:
    /// How many of SITE2's values there are here that hold.
    std::size_t liveValues() {
        std::istringstream shown(host().ask("state --now SITE2.E.K*"));
        std::size_t count = 0;
        for (std::string line; std::getline(shown, line);)
            count += line.starts_with("SITE2.E.K") && line.find(" yes") != std::string::npos ? 1 : 0;
        return count;
    }
};

}  // namespace

TEST_F(LinkBroker, FullDiskOfTheBrokerHoldsNobodyUp) {
    const std::filesystem::path disk = workplace().directory() / "disk";
    std::filesystem::create_directories(disk);
    ASSERT_EQ(::mount("small", disk.c_str(), "tmpfs", 0, "size=64k"), 0);
    const std::filesystem::path settings = workplace().directory() / "broker.conf";
    writeFile(settings, readFile(settings) + "persistence true\npersistence_location " + disk.string() +
                            "/\nautosave_interval 0\n");
    startAll();
    expectSets("17");
    EXPECT_FALSE(PrivateMachine::shell("head -c 1000000 /dev/zero >" + (disk / "filler").string()));
    m_pBroker->signal(SIGUSR1);
    EXPECT_TRUE(m_pBroker->waitForLog("Saving in-memory database to ")) << m_pBroker->log();
    expectSets("18");
    // What it could not write down it does not know afterwards.
    m_pBroker->signal(SIGKILL);
    m_pBroker->waitForEnd();
    startBroker();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.E.N", "SITE2\\.E\\.N +int +18 +SITE2 +[0-9]+ s +yes"))
        << host().output() << host().log() << m_pBroker->log();
    expectSets("19");
    endAll();
    m_pBroker.reset();
    EXPECT_EQ(::umount2(disk.c_str(), MNT_DETACH), 0);
}

TEST_F(LinkBroker, BrokerThatWasStoppedAndGoesOnServesAgain) {
    startAll();
    expectSets("17");
    m_pBroker->signal(SIGSTOP);
    expectStale("(SITE2 is not heard|no broker: .*)");
    m_pBroker->signal(SIGCONT);
    // What was sent before it, and what names a tick that it has held up, comes too late.
    EXPECT_TRUE(eventually(
        [&] {
            host().type("sendFID SITE2.E.INT name=N value=18");
            return host().ask("state --now SITE2.E.N").find("int   18") != std::string::npos;
        },
        500ms))
        << host().log();
    expectSets("19");
    other().closeInput();
    EXPECT_EQ(other().waitForEnd(), 0) << other().log();
    // A FID that the link could not send is a line that failed.
    EXPECT_THAT(end(), testing::AnyOf(0, 3)) << host().log();
}

TEST_F(LinkBroker, BrokerThatDiesWhileEverythingIsPublishedGetsItAnew) {
    constexpr std::size_t count = 5000;
    startOther();
    other().type("sendFID E.FILL value=" + std::to_string(count));
    EXPECT_TRUE(other().repliesWith("state --now E.K4999", "E\\.K4999 +int +4999 ")) << other().output();
    start();
    startBroker();
    BrokerClient witness("STRANGER", "third");
    ASSERT_TRUE(witness.connect());
    ASSERT_TRUE(witness.subscribe("mf/1/SITE2/state/E/+"));
    ASSERT_TRUE(witness.until([&] { return witness.received().size() > 10; }));
    m_pBroker->signal(SIGKILL);
    m_pBroker->waitForEnd();
    startBroker();
    EXPECT_TRUE(eventually([&] { return liveValues() == count; }))
        << liveValues() << host().log() << m_pBroker->log();
    expectSets("18");
    endAll();
}
