#include "StateJudge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const StateJudge::Clock::time_point s_begin{};

class StateJudgeTest : public testing::Test {
protected:
    static Watcher::Row row(const std::string& driverID, std::uint32_t instance, std::uint32_t number,
                            bool isLive = true) {
        return {driverID, instance > 0 ? "N" : "PONG", instance, number, isLive};
    }
    static Watcher::Reply reply(StateJudge::Clock::time_point when, std::vector<Watcher::Row> rows) {
        return {1, when, std::move(rows)};
    }

    StateJudge sut{11s};
};

}  // namespace

TEST_F(StateJudgeTest, ValueOfTheDeadThatIsListedAsLiveIsFound) {
    sut.died("T1", {s_begin, 4, 0});
    sut.judge(reply(s_begin + 30ms, {row("T1", 4, 17)}), sut.deaths());
    sut.judge(reply(s_begin + 50ms, {row("T1", 4, 17)}), sut.deaths());
    EXPECT_EQ(sut.shownLive(), 50ms);
    EXPECT_EQ(sut.judgedDeaths(), 1u);
    EXPECT_THAT(sut.findings(), ElementsAre("T1.N was listed as live after its driver had died",
                                            "T1.N was listed as live after its driver had died"));
}

TEST_F(StateJudgeTest, StaleValueOfTheDeadAndLiveOneOfTheNextAreRight) {
    sut.died("T1", {s_begin, 4, 0});
    sut.died("F1", {s_begin, 0, 9});
    sut.judge(reply(s_begin + 30ms, {row("T1", 4, 17, false), row("F1", 0, 9, false)}), sut.deaths());
    sut.judge(reply(s_begin + 2s, {row("T1", 5, 0), row("F1", 0, 10)}), sut.deaths());
    EXPECT_EQ(sut.shownLive(), 0ms);
    EXPECT_EQ(sut.judgedDeaths(), 2u);
    EXPECT_THAT(sut.findings(), IsEmpty());
}

TEST_F(StateJudgeTest, AnswerOfTheDeadThatIsListedAsLiveIsFound) {
    sut.died("F1", {s_begin, 0, 9});
    sut.judge(reply(s_begin + 20ms, {row("F1", 0, 9)}), sut.deaths());
    EXPECT_EQ(sut.shownLive(), 20ms);
}

TEST_F(StateJudgeTest, DeathThatWasNotKnownBeforeTheQuestionIsNotJudged) {
    sut.died("T1", {s_begin, 4, 0});
    sut.judge(reply(s_begin + 30ms, {row("T1", 4, 17)}), {});
    EXPECT_EQ(sut.shownLive(), 0ms);
    EXPECT_EQ(sut.judgedDeaths(), 0u);
}

TEST_F(StateJudgeTest, MuteDriverThatIsListedAsLiveIsFound) {
    sut.rollCall().asked("F1", 7, s_begin);
    sut.judge(reply(s_begin + 11s, {row("F1", 0, 6)}), {});
    EXPECT_EQ(sut.mutesShownLive(), 0u) << "it may still answer";
    sut.judge(reply(s_begin + 12s, {row("F1", 0, 6), row("F1", 3, 6)}), {});
    EXPECT_EQ(sut.mutesShownLive(), 1u);
    EXPECT_THAT(sut.findings(), ElementsAre("F1 was listed as live, but has owed an answer for 12 s"));
}

TEST_F(StateJudgeTest, DriverOwesAnAnswerFromWhenItIsListedAsLive) {
    sut.asked({"F1", "F2"}, 7, reply(s_begin, {row("F1", 0, 6, false), row("F2", 0, 6)}));
    EXPECT_FALSE(sut.rollCall().owes("F1"));
    EXPECT_TRUE(sut.rollCall().owes("F2"));
    sut.asked({"F1", "F2"}, 8, reply(s_begin + 1s, {row("F1", 0, 6)}));
    EXPECT_TRUE(sut.rollCall().owes("F1"));
    EXPECT_FALSE(sut.rollCall().owes("F2")) << "it is not there any more";
}

TEST_F(StateJudgeTest, MuteDriverWhoseValuesAreStaleIsRight) {
    sut.rollCall().asked("F1", 7, s_begin);
    sut.judge(reply(s_begin + 12s, {row("F1", 0, 6, false)}), {});
    EXPECT_EQ(sut.mutesShownLive(), 0u);
    EXPECT_THAT(sut.findings(), IsEmpty());
}
