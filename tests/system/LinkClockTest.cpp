#include <gtest/gtest.h>

#include <chrono>
#include <regex>
#include <string>

#include "BrokerClient.h"
#include "LinkFixture.h"
#include "LinkMessage.h"
#include "TimeText.h"

namespace {

using namespace std::chrono_literals;

/// SITE2's clock is wrong by so many seconds.
class LinkClock : public Link, public testing::WithParamInterface<int> {
protected:
    void startWrong() {
        startBroker();
        startOther({{"LD_PRELOAD", (TestWorkplace::build() / "lib/shifted/shifted_clock.so").string()},
                    {"MFD_TEST_CLOCK_SHIFT", std::to_string(GetParam())}});
        ASSERT_TRUE(other().waitForLog("HOST: the workplace is started\n")) << other().log();
    }
    /// How far SITE2's clock is ahead, as its ticks tell it.
    static std::chrono::seconds ahead() {
        BrokerClient witness("STRANGER", "third");
        const std::string field = "\"at\": \"";
        std::string tick;
        // Beside its sums.
        if (!witness.connect() || !witness.subscribe("mf/1/SITE2/tick") || !witness.until([&] {
                for (const auto& message : witness.received()) {
                    if (message.payload.find(field) != std::string::npos)
                        tick = message.payload;
                }
                return !tick.empty();
            }))
            return 0s;
        const auto begin = tick.find(field) + field.size();
        const auto told = base::utcTime(tick.substr(begin, tick.find('"', begin) - begin));
        const auto now = std::chrono::system_clock::now();
        return std::chrono::round<std::chrono::seconds>(told.value_or(now) - now);
    }
    /// In seconds.
    static int ageOf(HostProcess& host, const std::string& key) {
        std::smatch found;
        const std::string shown = host.ask("state --now " + key);
        return std::regex_search(shown, found, std::regex(" ([0-9]+) s +yes")) ? std::stoi(found[1]) : -1;
    }
};

}  // namespace

TEST_P(LinkClock, NeitherAgesNorFidsAreWrong) {
    startWrong();
    EXPECT_NEAR(static_cast<double>(ahead().count()), GetParam(), 300);
    other().type("sendFID E.INT name=N value=17");
    EXPECT_TRUE(other().repliesWith("state --now E.N", "E\\.N +int +17 +E +([3-9]|[1-9][0-9]+) s +yes"))
        << other().output();
    // A host that is new here sees that the value is not.
    start();
    EXPECT_TRUE(host().waitForLog("SITE2: SITE2 is there\n")) << host().log();
    const int there = ageOf(other(), "E.N");
    const int here = ageOf(host(), "SITE2.E.N");
    EXPECT_GE(here, there - 1) << host().output();
    EXPECT_LE(here, 600) << host().output();
    host().type("sendFID SITE2.E.INT name=N value=18");
    EXPECT_TRUE(host().repliesWith("events", "SITE2\\.OUTCOME.*E\\.INT: done")) << host().log();
    EXPECT_TRUE(other().repliesWith("state --now SITE1.LINK", "SITE1\\.LINK +string +up ")) << other().log();
    other().type("sendFID SITE1.E.INT name=N value=19");
    EXPECT_TRUE(other().repliesWith("events", "SITE1\\.OUTCOME.*E\\.INT: done")) << other().log();
    EXPECT_TRUE(
        other().repliesWith("state --now SITE1.E.N", "SITE1\\.E\\.N +int +19 +SITE1 +[0-9]{1,2} s +yes"))
        << other().output();
    endAll();
}

INSTANTIATE_TEST_SUITE_P(Of, LinkClock, testing::Values(3600, -3600),
                         [](const auto& tried) { return tried.param > 0 ? "AnHourAhead" : "AnHourBehind"; });
