#include "Watcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class WatcherTest : public testing::Test {
protected:
    WatcherTest() { sut.hostBegins(); }
    Watcher sut;
};

}  // namespace

TEST_F(WatcherTest, MissingEventIsCounted) {
    for (const char* line : {"event T1.E 4:0:70", "event T1.E 4:1:71", "event T1.E 4:3:72"})
        sut.output(line);
    const auto events = sut.events().at(4);
    EXPECT_EQ(events.seen, 3u);
    EXPECT_EQ(events.missing, 1u);
    EXPECT_EQ(events.disordered, 0u);
}

TEST_F(WatcherTest, RepeatedEventIsCounted) {
    for (const char* line : {"event T1.E 4:0:70", "event T1.E 4:1:71", "event T1.E 4:1:71"})
        sut.output(line);
    EXPECT_EQ(sut.events().at(4).disordered, 1u);
}

TEST_F(WatcherTest, EventBehindAnOpenLineIsSeen) {
    sut.output("Loading MF driver /opt/mf/Chatter.so (ID: T3)...event T1.E 4:0:70");
    EXPECT_EQ(sut.events().at(4).seen, 1u);
}

TEST_F(WatcherTest, EventInTheMiddleOfALongListIsSeen) {
    sut.output("F4     Faulty   1.0      queevent T1.E 4:0:70");
    sut.output("ue   4711  running");
    EXPECT_EQ(sut.events().at(4).seen, 1u);
}

TEST_F(WatcherTest, ValueOfTheDeadShownLiveIsFound) {
    for (const char* line : {"T1.N = 4:17", "T1: 2 values stale: signal 9 (Killed)", "T1.N = 4:18"})
        sut.output(line);
    EXPECT_THAT(sut.deadShownLive(), ElementsAre("T1.N = 4:18"));
}

TEST_F(WatcherTest, AnswerOfTheDeadShownLiveIsFound) {
    for (const char* line : {"F1.PONG = p6", "F1: 1 value stale: exit code 2", "F1.PONG = p6"})
        sut.output(line);
    EXPECT_THAT(sut.deadShownLive(), ElementsAre("F1.PONG = p6"));
}

TEST_F(WatcherTest, LateValueShownStaleIsRight) {
    for (const char* line : {"T1.N = 4:17", "T1: 2 values stale: exit code 0",
                             "T1.N = 4:18  (stale: exit code 0)", "T1.N = 5:0"})
        sut.output(line);
    EXPECT_THAT(sut.deadShownLive(), IsEmpty());
}

TEST_F(WatcherTest, LatestMomentOfAPrintedEventIsTheHostsHorizon) {
    sut.output("event T1.E 4:0:70");
    sut.output("event T2.E 5:0:69");
    sut.hostBegins();
    sut.output("event T1.E 6:0:80");
    const auto lives = sut.lives();
    ASSERT_EQ(lives.size(), 2u);
    EXPECT_EQ(lives[0].horizon, 70);
    EXPECT_EQ(lives[1].horizon, 80);
    EXPECT_LE(lives[0].begun, lives[1].begun);
}

TEST_F(WatcherTest, EndThatNobodyExpectedIsFound) {
    sut.expect("T1", {"ended unexpectedly: signal 9"});
    sut.log("2026-11-21 17:14:34.073 error    HOST: T1: process 41 ended unexpectedly: signal 9 (Killed)");
    sut.expectNothing("T1");
    EXPECT_THAT(sut.unexpectedEnds(), IsEmpty());
    const std::string line =
        "2026-11-21 17:14:35.073 error    HOST: T1: process 42 hangs: it has taken none of 3 messages for 2 "
        "s "
        "and does not compute; it is ended";
    sut.log(line);
    EXPECT_THAT(sut.unexpectedEnds(), ElementsAre(line));
    EXPECT_THAT(sut.falseVerdicts(), IsEmpty());
}

TEST_F(WatcherTest, InnocentThatIsEndedIsFound) {
    const std::string line =
        "2026-11-21 17:14:35.073 warning  HOST: T1: process 42 has not taken a message for 1 s and holds up "
        "\"sendFID T1.PING\"; it is ended";
    sut.log(line);
    EXPECT_THAT(sut.unexpectedEnds(), ElementsAre(line));
}

TEST_F(WatcherTest, VerdictThatIsNotWhatWasDoneIsFalse) {
    sut.expect("F1", {"ended unexpectedly: signal 11"});
    const std::string hangs =
        "2026-11-21 17:14:34.073 error    HOST: F1: process 41 hangs: it has taken none of 3 messages for 2 "
        "s "
        "and does not compute; it is ended";
    const std::string asked =
        "2026-11-21 17:14:34.073 info     HOST: F1: process 41 ended: signal 11 (Segmentation fault)";
    sut.log(
        "2026-11-21 17:14:34.073 error    HOST: F1: process 40 ended unexpectedly: signal 11 (Segmentation "
        "fault)");
    EXPECT_THAT(sut.falseVerdicts(), IsEmpty());
    sut.log(hangs);
    sut.log(asked);
    EXPECT_THAT(sut.falseVerdicts(), ElementsAre(hangs, asked));
    EXPECT_THAT(sut.unexpectedEnds(), IsEmpty());
}

TEST_F(WatcherTest, ProcessThatIsRightlyEndedMayBeSaidToBeKilledWhenAllIsOver) {
    sut.expect("F1", {"hangs"});
    sut.log(
        "2026-11-21 17:14:34.073 error    HOST: F1: process 41 hangs: it has taken none of 3 messages for 2 "
        "s and does not compute; it is ended");
    sut.expectNothing("F1");
    sut.log("2026-11-21 17:14:34.573 warning  HOST: F1: process 41 did not heed SIGTERM and is killed");
    EXPECT_THAT(sut.unexpectedEnds(), IsEmpty());
    const std::string another =
        "2026-11-21 17:14:34.573 warning  HOST: F1: process 42 did not heed SIGTERM and is killed";
    sut.log(another);
    EXPECT_THAT(sut.unexpectedEnds(), ElementsAre(another));
}

TEST_F(WatcherTest, ProcessThatMadeRoomInOrderMayEndDuringTheNextFaultOnceForEachReload) {
    sut.expectReload("F1");
    sut.expect("F1", {"ended unexpectedly: signal 9"});
    const std::string replaced =
        "2026-11-21 17:14:34.573 info     HOST: F1: process 41 ended: exit code 0; a newer process had "
        "replaced it";
    sut.log(replaced);
    EXPECT_THAT(sut.falseVerdicts(), IsEmpty());
    sut.log(replaced);
    EXPECT_THAT(sut.falseVerdicts(), ElementsAre(replaced));
}

TEST_F(WatcherTest, ProcessThatWasKilledMadeNoRoomInOrder) {
    sut.expectReload("F1");
    sut.expect("F1", {"ended unexpectedly: signal 9"});
    const std::string killed =
        "2026-11-21 17:14:34.573 info     HOST: F1: process 41 ended: signal 9 (Killed); a newer process had "
        "replaced it";
    sut.log(killed);
    EXPECT_THAT(sut.falseVerdicts(), ElementsAre(killed));
}

TEST_F(WatcherTest, ProcessThatIsWronglyEndedIsFoundAsOftenAsItIsSaid) {
    const std::string hangs =
        "2026-11-21 17:14:34.073 error    HOST: T1: process 41 hangs: it has taken none of 3 messages for 2 "
        "s and does not compute; it is ended";
    const std::string killed =
        "2026-11-21 17:14:34.573 warning  HOST: T1: process 41 did not heed SIGTERM and is killed";
    sut.log(hangs);
    sut.log(killed);
    EXPECT_THAT(sut.unexpectedEnds(), ElementsAre(hangs, killed));
}

TEST_F(WatcherTest, WhatBefallsAllMayEndTheHarmedAndNobodyElse) {
    const std::string harmed =
        "2026-11-21 17:14:34.073 error    HOST: F1: process 41 ended unexpectedly: exit code 1; 0 values are "
        "stale";
    const std::string innocent =
        "2026-11-21 17:14:34.073 error    HOST: F2: process 42 ended unexpectedly: exit code 1";
    sut.expect("F1", {"ended unexpectedly: signal 9"});
    {
        const Watcher::OfAll sutOfAll(sut, "ended unexpectedly: exit code 1");
        sut.log(harmed);
        sut.log(innocent);
    }
    EXPECT_THAT(sut.falseVerdicts(), IsEmpty());
    EXPECT_THAT(sut.unexpectedEnds(), ElementsAre(innocent));
    sut.log(harmed);
    EXPECT_THAT(sut.falseVerdicts(), ElementsAre(harmed));
}

TEST_F(WatcherTest, WhatBefallsNewProcessesIsNotSaidOfOldOnes) {
    const std::string old =
        "2026-11-21 17:14:34.073 error    HOST: F1: process 41 has not taken a message for 1 s; it is ended";
    const std::string fresh =
        "2026-11-21 17:14:34.073 error    HOST: F1: process 43 has not taken a message for 1 s; it is ended";
    sut.expect("F1", {"ended unexpectedly: signal 9"});
    const Watcher::OfAll sutOfAll(sut, "has not taken a message for", {40, 41});
    sut.log(fresh);
    EXPECT_THAT(sut.falseVerdicts(), IsEmpty());
    sut.log(old);
    EXPECT_THAT(sut.falseVerdicts(), ElementsAre(old));
}

TEST_F(WatcherTest, OnlyWarningsOfHostAndQueuesCount) {
    sut.log("2026-11-21 17:14:34.073 warning  VERIFY: w.xml: it is not signed");
    sut.log("2026-11-21 17:14:34.073 info     HOST: F1: is started again");
    EXPECT_EQ(sut.warnings(), 0u);
    sut.log("2026-11-21 17:14:34.073 warning  HOST: F1: its queue is full and holds up \"quit\"");
    sut.log("2026-11-21 17:14:34.073 error    QUEUE: queue F1_INQ: not created: no memory");
    EXPECT_EQ(sut.warnings(), 2u);
}

TEST_F(WatcherTest, EndThatWasAskedForMayComeLate) {
    sut.log("2026-11-21 17:14:34.073 info     HOST: T1: process 41 ended: exit code 0; 2 values are stale");
    EXPECT_THAT(sut.unexpectedEnds(), IsEmpty());
}

TEST_F(WatcherTest, EndOfAProcessIsNoticedOnce) {
    sut.log("2026-11-21 17:14:34.073 error    HOST: F3: process 41 ended unexpectedly: exit code 2");
    EXPECT_TRUE(sut.waitForNotice(41, 0ms));
    EXPECT_FALSE(sut.waitForNotice(42, 0ms));
    EXPECT_EQ(sut.endsOf("F3"), 1u);
}

TEST_F(WatcherTest, RowsBelongToTheMarkBehindThem) {
    for (const char* line :
         {"key    type    value  set by  age  holds", "T1.N   string  4:17   T1      0 s  yes",
          "F1.PONG  string  p6  F1  3 s  stale for 2 s (signal 9 (Killed))",
          "unknown command \"mark12\"; \"help\" lists all commands"})
        sut.output(line);
    EXPECT_FALSE(sut.waitForReply(11, 0ms));
    const auto reply = sut.waitForReply(12, 0ms);
    ASSERT_TRUE(reply);
    ASSERT_EQ(reply->rows.size(), 2u);
    EXPECT_EQ(reply->rows[0].instance, 4u);
    EXPECT_EQ(reply->rows[0].number, 17u);
    EXPECT_TRUE(reply->rows[0].isLive);
    EXPECT_EQ(reply->rows[1].number, 6u);
    EXPECT_FALSE(reply->rows[1].isLive);
}

TEST_F(WatcherTest, EarlierTextIsNotTakenForALaterOne) {
    sut.log("cannot load the driver module");
    const auto since = sut.position();
    EXPECT_FALSE(sut.waitForText("cannot load", since, 0ms));
    sut.log("cannot load the driver module");
    EXPECT_TRUE(sut.waitForText("cannot load", since, 0ms));
}

TEST_F(WatcherTest, WaitEndsWithTheHost) {
    sut.hostEnds();
    EXPECT_FALSE(sut.waitForAnswer("T1", 1, 1h));
}

TEST_F(WatcherTest, SanitizersAndDroppedLinesAreCounted) {
    sut.log("==12==ERROR: AddressSanitizer: heap-use-after-free on address 0x602");
    sut.output("... 25 lines dropped");
    EXPECT_EQ(sut.sanitizerReports().size(), 1u);
    EXPECT_EQ(sut.droppedLines(), 25u);
}
