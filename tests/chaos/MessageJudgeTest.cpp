#include "MessageJudge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

/// Drivers 0 that sends, 1 that hears and 2 that hears as well, with ledgers as they would have written them.
class MessageJudgeTest : public testing::Test {
protected:
    MessageJudgeTest() {
        char name[] = "/tmp/mfd-judge-XXXXXX";
        m_directory = mkdtemp(name);
        m_sender = made(0);
        m_receiver = made(1);
        m_other = made(2);
        m_sender->ready = 1;
        m_receiver->ready = 10;
        m_other->ready = 10;
    }
    ~MessageJudgeTest() override { fs::remove_all(m_directory); }

    /// Driver N is in process 100 + N.
    Ledger made(std::uint32_t driver) const {
        Ledger ledger = Ledger::create(m_directory, driver);
        ledger->pid = static_cast<std::int32_t>(100 + driver);
        ledger->created = 1;
        return ledger;
    }
    void sent(std::uint32_t first, std::uint32_t count, std::int64_t begun = 20) {
        Ledger::Sent& entry = m_sender->sent[m_sender->sentCount++];
        entry.target = 1;
        entry.first = first;
        entry.count = count;
        entry.begun = begun;
        entry.done = begun + count;
    }
    void heardBy(Ledger& receiver, std::uint32_t first, std::uint32_t count, std::int64_t begun = 30) const {
        Ledger::Heard& entry = receiver->heard[receiver->heardCount++];
        entry.sender = m_sender->instance;
        entry.first = first;
        entry.count = count;
        entry.begun = begun;
        entry.done = begun + count;
    }
    void heard(std::uint32_t first, std::uint32_t count) { heardBy(m_receiver, first, count); }

    MessageJudge::Verdict judge(const std::set<std::int32_t>& survivors,
                                const Watcher::EventsByInstance& events = {},
                                const std::vector<Watcher::Life>& hosts = {{1, 0}}) const {
        return MessageJudge(m_directory, survivors).judge(events, hosts);
    }

    fs::path m_directory;
    Ledger m_sender;
    Ledger m_receiver;
    Ledger m_other;
};

}  // namespace

TEST_F(MessageJudgeTest, AllThatWasSentBetweenSurvivorsIsJudged) {
    sent(0, 100);
    heard(0, 100);
    const auto verdict = judge({100, 101});
    EXPECT_EQ(verdict.judged, 100u);
    EXPECT_EQ(verdict.lost, 0u);
    EXPECT_THAT(verdict.findings, IsEmpty());
}

TEST_F(MessageJudgeTest, MissingTailBetweenSurvivorsIsLost) {
    sent(0, 100);
    heard(0, 97);
    EXPECT_EQ(judge({100, 101}).lost, 3u);
}

TEST_F(MessageJudgeTest, NothingHeardBetweenSurvivorsIsAllLost) {
    sent(0, 100);
    const auto verdict = judge({100, 101});
    EXPECT_EQ(verdict.judged, 100u);
    EXPECT_EQ(verdict.lost, 100u);
}

TEST_F(MessageJudgeTest, GapIsLostThoughTheReceiverEndedLater) {
    sent(0, 100);
    heard(0, 40);
    heard(42, 8);
    const auto verdict = judge({100});
    EXPECT_EQ(verdict.judged, 50u);
    EXPECT_EQ(verdict.lost, 2u);
    EXPECT_THAT(verdict.findings, SizeIs(1));
}

TEST_F(MessageJudgeTest, WhatWasOnItsWayWhenTheReceiverEndedIsNotJudged) {
    sent(0, 100);
    heard(0, 60);
    const auto verdict = judge({100});
    EXPECT_EQ(verdict.judged, 60u);
    EXPECT_EQ(verdict.lost, 0u);
}

TEST_F(MessageJudgeTest, WhatWasSentBeforeTheReceiverCouldBeReachedIsNotJudged) {
    sent(0, 50, 5);
    sent(50, 50, 20);
    heard(50, 50);
    const auto verdict = judge({100, 101});
    EXPECT_EQ(verdict.judged, 50u);
    EXPECT_EQ(verdict.lost, 0u);
}

TEST_F(MessageJudgeTest, WhatWasNotSentWholeIsNotMissed) {
    sent(0, 50);
    sent(51, 49);
    heard(0, 50);
    heard(51, 49);
    const auto verdict = judge({100, 101});
    EXPECT_EQ(verdict.judged, 99u);
    EXPECT_EQ(verdict.lost, 0u);
    EXPECT_EQ(verdict.disordered, 0u);
}

TEST_F(MessageJudgeTest, WhatASenderLeftAtItsDeathIsCountedApart) {
    sent(0, 100);
    heard(0, 90);
    const auto verdict = judge({101});
    EXPECT_EQ(verdict.judged, 90u);
    EXPECT_EQ(verdict.lost, 0u);
    EXPECT_EQ(verdict.judgedOfDead, 10u);
    EXPECT_EQ(verdict.lostOfDead, 10u);
}

TEST_F(MessageJudgeTest, WhatADeadSenderLeftIsJudgedOnceItsNextInstanceCouldBeReached) {
    sent(0, 100);
    heard(0, 90);
    m_receiver->horizon = 500;
    EXPECT_EQ(judge({}).judgedOfDead, 0u);
    Ledger next = made(0);
    next->ready = 600;
    EXPECT_EQ(judge({}).judgedOfDead, 0u) << "the receiver may have ended before";
    m_receiver->horizon = 601;
    EXPECT_EQ(judge({}).lostOfDead, 10u);
}

TEST_F(MessageJudgeTest, WhatAStoppedSenderLeftIsOnlyCounted) {
    m_sender->isStopped = 1;
    sent(0, 100);
    heard(0, 90);
    const auto verdict = judge({101});
    EXPECT_EQ(verdict.countedOfStopped, 10u);
    EXPECT_EQ(verdict.lostOfStopped, 10u);
    EXPECT_EQ(verdict.lostOfDead, 0u);
    EXPECT_EQ(verdict.judgedOfDead, 0u);
}

TEST_F(MessageJudgeTest, DeadReceiverThatHeardNothingAtAllIsJudged) {
    sent(0, 100);
    heardBy(m_other, 0, 100);  // so all of it had left the sender's queue by 130
    m_receiver->horizon = 131;
    const auto verdict = judge({100, 102});
    EXPECT_EQ(verdict.judged, 99u) << "the last round's FID to the other may have come before that";
    EXPECT_EQ(verdict.lost, 99u);
}

TEST_F(MessageJudgeTest, WhatLeftTheSenderAfterTheReceiversLastIsNotJudged) {
    sent(0, 100);
    heardBy(m_other, 0, 20, 30);
    heardBy(m_other, 20, 80, 70);
    m_receiver->horizon = 60;
    const auto verdict = judge({100, 102});
    EXPECT_EQ(verdict.judged, 19u) << "the other had heard of round 19 by then";
    EXPECT_EQ(verdict.lost, 19u);
}

TEST_F(MessageJudgeTest, TailAfterTheLastHeardIsJudgedAsFarAsItMustHaveCome) {
    sent(0, 100);
    heard(0, 40);
    heardBy(m_other, 0, 100);
    m_receiver->horizon = 131;
    const auto verdict = judge({100, 102});
    EXPECT_EQ(verdict.judged, 99u);
    EXPECT_EQ(verdict.lost, 59u);
}

TEST_F(MessageJudgeTest, WhatASenderInTheHostHasSentIsThereAtOnce) {
    m_sender->isInHost = 1;
    sent(0, 50, 20);   // done at 70
    sent(50, 50, 80);  // done at 130
    heard(0, 10);
    m_receiver->horizon = 71;
    auto verdict = judge({100});
    EXPECT_EQ(verdict.judged, 50u);
    EXPECT_EQ(verdict.lost, 40u);
    m_receiver->horizon = 131;
    verdict = judge({100});
    EXPECT_EQ(verdict.judged, 100u);
    EXPECT_EQ(verdict.lost, 90u);
}

TEST_F(MessageJudgeTest, AllIsJudgedFromTheFirstThatCame) {
    // Begun before it said that it could be reached, and so it could.
    sent(0, 50, 5);
    heard(20, 10);
    heard(31, 19);
    const auto verdict = judge({100, 101});
    EXPECT_EQ(verdict.judged, 30u);
    EXPECT_EQ(verdict.lost, 1u);
}

TEST_F(MessageJudgeTest, ShareOfWhatWasSentIsTold) {
    sent(0, 50, 5);
    sent(50, 150, 20);
    heard(50, 150);
    m_sender->events = 4;
    const auto verdict = judge({100, 101, 102}, {{m_sender->instance, {.next = 3, .seen = 3}}});
    EXPECT_DOUBLE_EQ(verdict.judgedShare(), 75.0);
    EXPECT_EQ(verdict.eventsLost, 1u);
    EXPECT_DOUBLE_EQ(verdict.judgedEventsShare(), 100.0);
}

TEST_F(MessageJudgeTest, GapOfAStoppedSenderIsLost) {
    m_sender->isStopped = 1;
    sent(0, 100);
    heard(0, 40);
    heard(42, 50);
    EXPECT_EQ(judge({101}).lost, 2u);
}

TEST_F(MessageJudgeTest, WhatCameAgainCameTwice) {
    sent(0, 100);
    heard(0, 100);
    heard(98, 2);
    const auto verdict = judge({100, 101});
    EXPECT_EQ(verdict.twice, 2u);
    EXPECT_EQ(verdict.disordered, 1u);
    EXPECT_EQ(verdict.lost, 0u);
}

TEST_F(MessageJudgeTest, LateOneIsOutOfOrderAndNotLost) {
    sent(0, 100);
    heard(0, 50);
    heard(51, 49);
    heard(50, 1);
    const auto verdict = judge({100, 101});
    EXPECT_EQ(verdict.disordered, 1u);
    EXPECT_EQ(verdict.twice, 0u);
    EXPECT_EQ(verdict.lost, 0u);
}

TEST_F(MessageJudgeTest, OlderInstanceOfADriverIsNoSurvivor) {
    const Ledger newer = made(1);
    sent(0, 100);
    heard(0, 60);
    EXPECT_EQ(judge({100, 101}).lost, 0u);
}

TEST_F(MessageJudgeTest, FidOfAnInstanceThatNeverWasIsFound) {
    m_receiver->heardCount = 1;
    m_receiver->heard[0].sender = 99;
    m_receiver->heard[0].count = 1;
    EXPECT_EQ(judge({100, 101}).disordered, 1u);
}

TEST_F(MessageJudgeTest, EventThatASurvivorTriggeredMustHaveBeenSeen) {
    m_sender->events = 10;
    const auto verdict = judge({100, 101}, {{m_sender->instance, {.next = 8, .seen = 8}}});
    EXPECT_EQ(verdict.events, 10u);
    EXPECT_EQ(verdict.eventsLost, 2u);
}

TEST_F(MessageJudgeTest, SurvivorWithoutAnyEventSeenHasLostAll) {
    m_sender->events = 10;
    EXPECT_EQ(judge({100}).eventsLost, 10u);
}

TEST_F(MessageJudgeTest, LastEventsOfTheDeadAreNotJudged) {
    m_sender->events = 10;
    EXPECT_EQ(judge({101}, {{m_sender->instance, {.next = 8, .seen = 8}}}).eventsLost, 0u);
}

TEST_F(MessageJudgeTest, EventsOfTheDeadBeforeARoundThatWasHeardMustHaveBeenSeen) {
    m_sender->events = 10;
    sent(0, 10);
    heard(0, 10);
    EXPECT_EQ(judge({101}).eventsLost, 9u) << "nothing at all was seen";
    EXPECT_EQ(judge({101}, {{m_sender->instance, {.next = 8, .seen = 8}}}).eventsLost, 1u);
}

TEST_F(MessageJudgeTest, EventsOfAKilledHostAreJudgedUpToTheLastThatItPrinted) {
    m_sender->events = 10;
    sent(0, 10);
    heard(0, 5);
    heardBy(m_receiver, 5, 5, 60);
    const std::vector<Watcher::Life> hosts{{1, 50}, {1000, 2000}};
    EXPECT_EQ(judge({}, {}, hosts).eventsLost, 4u) << "round 4 was heard by 50";
}

TEST_F(MessageJudgeTest, LedgerOfADriverThatEndedWhileItMadeItIsLeftOut) {
    Ledger unfinished = Ledger::create(m_directory, 1);
    unfinished->isWhole = 0;
    std::ofstream(m_directory / "99.1.ledger") << "short";
    EXPECT_EQ(judge({100, 101}).instances, 3u);
}

TEST_F(MessageJudgeTest, FullLedgerIsSaid) {
    m_receiver->isFull = 1;
    EXPECT_EQ(judge({100, 101}).full, 1u);
}
