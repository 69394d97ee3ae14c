#include "Scoreboard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using EKind = ChaosPlan::EKind;

namespace {

/// Of a run in which all was well.
class ScoreboardTest : public testing::Test {
protected:
    ScoreboardTest() {
        sut.messages.sent = sut.messages.judged = 1000;
        sut.messages.triggered = sut.messages.events = 100;
        sut.statesJudged = 9;
        sut.stateReplies = 50;
        sut.hostExit = 0;
    }

    Scoreboard sut;
};

}  // namespace

TEST_F(ScoreboardTest, RunInWhichAllWasWellIsGood) {
    sut.add(Scoreboard::EPhase::Single, {.kind = EKind::Crash, .target = "F1", .isStruck = true});
    sut.setPlanned({EKind::Crash});
    sut.addLifetime({{.descriptors = 70}, {.descriptors = 70}});
    EXPECT_THAT(sut.complaints(), IsEmpty());
    std::ostringstream text;
    sut.print(text);
    EXPECT_THAT(text.str(), HasSubstr("1 of 1 planned faults were injected"));
    EXPECT_THAT(text.str(), testing::EndsWith("\ngood\n"));
}

TEST_F(ScoreboardTest, EachRowThatMustBeNothingIsAComplaint) {
    sut.messages.lost = 1;
    sut.messages.lostOfDead = 2;
    sut.messages.twice = 3;
    sut.messages.disordered = 4;
    sut.messages.eventsLost = 5;
    sut.messages.eventsDisordered = 6;
    sut.messages.full = 7;
    sut.statesWrong = 8;
    sut.shownLive = 9ms;
    sut.mutesShownLive = 10;
    sut.deadShownLive = 11;
    sut.unanswered = 12;
    sut.untold = 13;
    sut.droppedLines = 14;
    sut.unexpectedEnds = 15;
    sut.falseVerdicts = 16;
    sut.sanitizerReports = 17;
    EXPECT_THAT(
        sut.complaints(),
        ElementsAre("1 FIDs between the living were lost",
                    "2 FIDs that a driver had sent whole before its death were lost", "3 FIDs came twice",
                    "4 FIDs came out of order", "5 events were lost", "6 events came twice or out of order",
                    "7 ledgers were full", "8 last state values were wrong",
                    "9 ms long values of the dead were shown as live",
                    "10 times a driver that owed an answer for too long was shown as live",
                    "11 values of the dead were printed as live", "12 questions at the console had no answer",
                    "13 times the console had to wait and nobody was told why",
                    "14 lines of the follower were dropped, so events cannot be judged",
                    "15 processes ended or were taken for hung that nobody had harmed",
                    "16 times something else was said of a driver than what was done to it",
                    "17 lines of a sanitizer"));
}

TEST_F(ScoreboardTest, LessThanNineTenthsOfTheFidsIsTooLittle) {
    sut.messages.judged = 900;
    EXPECT_THAT(sut.complaints(), IsEmpty());
    sut.messages.judged = 899;
    EXPECT_THAT(sut.complaints(), ElementsAre("only 89.9 % of the FIDs were judged"));
    sut.messages.judgedOfDead = 1;
    EXPECT_THAT(sut.complaints(), IsEmpty());
}

TEST_F(ScoreboardTest, LessThanNineTenthsOfTheEventsIsTooLittle) {
    sut.messages.events = 89;
    EXPECT_THAT(sut.complaints(), ElementsAre("only 89.0 % of the events were judged"));
}

TEST_F(ScoreboardTest, CampaignMayJudgeLessButMustSayWhatAnotherUserCouldDo) {
    sut.messages = {};
    sut.demandShares(false);
    EXPECT_THAT(sut.complaints(), IsEmpty());
    sut.addStrike("host killed at the start");
    sut.intrusions = {"could read /proc/41/mem"};
    EXPECT_THAT(sut.complaints(), ElementsAre("another user could read /proc/41/mem"));
    std::ostringstream text;
    sut.print(text);
    EXPECT_THAT(text.str(), HasSubstr("host killed at the start "));
}

TEST_F(ScoreboardTest, WhoHasSeenNothingSaysSo) {
    sut.messages = {};
    sut.statesJudged = 0;
    EXPECT_THAT(sut.complaints(), ElementsAre("only 0.0 % of the FIDs were judged",
                                              "only 0.0 % of the events were judged", "no state was judged"));
}

TEST_F(ScoreboardTest, PlannedFaultThatWasNotInjectedIsAComplaint) {
    sut.setPlanned({EKind::Crash, EKind::Kill});
    sut.add(Scoreboard::EPhase::Single, {.kind = EKind::Crash, .target = "F1", .isStruck = true});
    sut.add(Scoreboard::EPhase::Several, {.kind = EKind::Kill, .target = "T1", .isOvertaken = true});
    EXPECT_EQ(sut.faults(), 2u);
    EXPECT_EQ(sut.struck(), 1u);
    EXPECT_THAT(sut.complaints(),
                ElementsAre("1 planned faults were not injected", "kill -9 of a driver: has not come"));
}

TEST_F(ScoreboardTest, FaultOfWhichSomethingIsMissingIsAComplaint) {
    sut.add(Scoreboard::EPhase::Single,
            {.kind = EKind::Crash, .target = "F1", .isStruck = true, .failure = "an answer to a ping"});
    EXPECT_THAT(sut.complaints(), ElementsAre("crash of F1: there was not, in time, an answer to a ping"));
}

TEST_F(ScoreboardTest, WhateverIsLeftIsAComplaint) {
    sut.left = {"process 41: sleep 86400", "link /var/data/F9"};
    EXPECT_THAT(sut.complaints(),
                ElementsAre("left behind: process 41: sleep 86400", "left behind: link /var/data/F9"));
}

TEST_F(ScoreboardTest, HostThatHoldsMoreIsAComplaint) {
    for (const Holdings& more : {Holdings{.descriptors = 1}, Holdings{.threads = 1}, Holdings{.processes = 1},
                                 Holdings{.zombies = 1}, Holdings{.queues = 1}, Holdings{.temporary = 1}}) {
        Scoreboard board = sut;
        board.addLifetime({{}, more});
        EXPECT_THAT(board.complaints(), ElementsAre("a host held more or less at its end than at its start"));
    }
}

TEST_F(ScoreboardTest, HostWhoseMemoryGrowsIsAComplaint) {
    if (!Scoreboard::s_isMemoryJudged)
        GTEST_SKIP() << "a sanitizer keeps memory";
    Holdings after;
    after.memoryKb = Scoreboard::s_memoryToleranceKb + 1;
    sut.addLifetime({{}, after, 1});
    EXPECT_THAT(sut.complaints(), IsEmpty());
    sut.addLifetime({{}, after, 0});
    EXPECT_THAT(sut.complaints(), ElementsAre("a host's memory grew by 8193 KiB"));
}

TEST_F(ScoreboardTest, HostThatDidNotEndInOrderIsAComplaint) {
    sut.hostExit = 137;
    EXPECT_THAT(sut.complaints(), ElementsAre("the host ended with 137"));
    sut.hostExit.reset();
    EXPECT_THAT(sut.complaints(), ElementsAre("the host ended with nothing"));
    sut.hostExit = 3;
    EXPECT_THAT(sut.complaints(), IsEmpty());
}
