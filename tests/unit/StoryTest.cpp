#include "testing/Story.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include "HangGuard.h"

namespace {

using mfd::testing::Story;

TEST(Story, HasALineForEachThing) {
    Story sut;
    sut.addState("LIT", "true");
    sut.addUnset("LIT");
    sut.addEvent("FAULT", "open");
    sut.addEvent("DONE", "");
    FIDParameterList parameters;
    parameters.add("to", "5");
    parameters.add("speed", "1");
    sut.addFid("FID", "MOVE", parameters);
    sut.addFid("send", "PANEL.ALARM", {});
    sut.add("killed");
    EXPECT_EQ(sut.lines(), (std::vector<std::string>{
                               "state LIT = true", "state LIT unset", "event FAULT open", "event DONE",
                               "FID MOVE to=5, speed=1", "send PANEL.ALARM", "killed"}));
    EXPECT_TRUE(sut.text().starts_with("  state LIT = true\n  state LIT unset\n"));
}

TEST(Story, KnowsWhatAStateIsNow) {
    Story sut;
    EXPECT_FALSE(sut.hasReported("LIT"));
    sut.addState("LIT", "true");
    sut.addState("LIT", "false");
    EXPECT_EQ(sut.state("LIT"), "false");
    sut.addUnset("LIT");
    EXPECT_EQ(sut.state("LIT"), std::nullopt);
    EXPECT_TRUE(sut.hasReported("LIT"));
}

TEST(Story, CountsEqualLines) {
    Story sut;
    sut.add("killed");
    sut.add("killed");
    EXPECT_EQ(sut.count("killed"), 2u);
    EXPECT_EQ(sut.count("kill"), 0u);
}

TEST(Story, WaitsForWhatComes) {
    Story sut;
    std::future<bool> waits = std::async(
        std::launch::async, [&] { return sut.wait([&] { return sut.count("three") == 1; }, c_hangGuard); });
    for (const char* line : {"one", "two", "three"})
        sut.add(line);
    EXPECT_TRUE(waits.get());
    EXPECT_FALSE(sut.wait([&] { return sut.count("four") == 1; }, std::chrono::milliseconds(1)));
}

}  // namespace
