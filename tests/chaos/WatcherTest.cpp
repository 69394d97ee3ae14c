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
    for (const char* line : {"event T1.E 4:0", "event T1.E 4:1", "event T1.E 4:3"})
        sut.output(line);
    const auto events = sut.events().at(4);
    EXPECT_EQ(events.seen, 3u);
    EXPECT_EQ(events.missing, 1u);
    EXPECT_EQ(events.disordered, 0u);
}

TEST_F(WatcherTest, RepeatedEventIsCounted) {
    for (const char* line : {"event T1.E 4:0", "event T1.E 4:1", "event T1.E 4:1"})
        sut.output(line);
    EXPECT_EQ(sut.events().at(4).disordered, 1u);
}

TEST_F(WatcherTest, EventBehindAnOpenLineIsSeen) {
    sut.output("Loading MF driver /opt/mf/Chatter.so (ID: T3)...event T1.E 4:0");
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

TEST_F(WatcherTest, EndThatNobodyExpectedIsFound) {
    sut.expectEnds("T1");
    sut.log("2026-11-21 17:14:34.073 error    HOST: T1: process 41 ended unexpectedly: signal 9 (Killed)");
    sut.expectNoEnds("T1");
    EXPECT_THAT(sut.unexpectedEnds(), IsEmpty());
    sut.log("2026-11-21 17:14:35.073 error    HOST: T1: process 42 hangs: it has taken none of 3 messages");
    EXPECT_EQ(sut.unexpectedEnds().size(), 1u);
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
