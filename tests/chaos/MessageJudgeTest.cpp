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

/// Two drivers, 0 that sends and 1 that hears, with ledgers as they would have written them.
class MessageJudgeTest : public testing::Test {
protected:
    MessageJudgeTest() {
        char name[] = "/tmp/mfd-judge-XXXXXX";
        m_directory = mkdtemp(name);
        m_sender = Ledger::create(m_directory, 0);
        m_receiver = Ledger::create(m_directory, 1);
        m_sender->pid = 100;
        m_receiver->pid = 101;
        m_sender->ready = 1;
        m_receiver->ready = 10;
    }
    ~MessageJudgeTest() override { fs::remove_all(m_directory); }

    void sent(std::uint32_t first, std::uint32_t count, std::int64_t begun = 20) {
        Ledger::Sent& entry = m_sender->sent[m_sender->sentCount++];
        entry.target = 1;
        entry.first = first;
        entry.count = count;
        entry.begun = begun;
    }
    void heard(std::uint32_t first, std::uint32_t count) {
        Ledger::Heard& entry = m_receiver->heard[m_receiver->heardCount++];
        entry.sender = m_sender->instance;
        entry.first = first;
        entry.count = count;
    }
    MessageJudge::Verdict judge(const std::set<std::int32_t>& survivors,
                                std::map<std::uint32_t, Watcher::Events> events = {}) {
        for (const Ledger* pLedger : {&m_sender, &m_receiver})
            events.try_emplace((*pLedger)->instance);
        return MessageJudge(m_directory, survivors).judge(events);
    }

    fs::path m_directory;
    Ledger m_sender;
    Ledger m_receiver;
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

TEST_F(MessageJudgeTest, WhatASenderLeftAtItsEndIsCountedApart) {
    sent(0, 100);
    heard(0, 90);
    const auto verdict = judge({101});
    EXPECT_EQ(verdict.judged, 90u);
    EXPECT_EQ(verdict.lost, 0u);
    EXPECT_EQ(verdict.judgedOfDead, 100u);
    EXPECT_EQ(verdict.lostOfDead, 10u);
}

TEST_F(MessageJudgeTest, WhatAStoppedSenderLeftIsOnlyCounted) {
    m_sender->isStopped = 1;
    sent(0, 100);
    heard(0, 90);
    const auto verdict = judge({101});
    EXPECT_EQ(verdict.lostOfStopped, 10u);
    EXPECT_EQ(verdict.lostOfDead, 0u);
    EXPECT_EQ(verdict.judgedOfDead, 0u);
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
    Ledger newer = Ledger::create(m_directory, 1);
    newer->pid = 101;
    sent(0, 100);
    heard(0, 60);
    EXPECT_EQ(judge({100, 101}, {{newer->instance, {}}}).lost, 0u);
}

TEST_F(MessageJudgeTest, EventThatASurvivorTriggeredMustHaveBeenSeen) {
    m_sender->events = 10;
    const auto verdict = judge({100, 101}, {{m_sender->instance, {.next = 8, .seen = 8}}});
    EXPECT_EQ(verdict.events, 10u);
    EXPECT_EQ(verdict.eventsLost, 2u);
}

TEST_F(MessageJudgeTest, LastEventsOfTheDeadAreNotJudged) {
    m_sender->events = 10;
    EXPECT_EQ(judge({101}, {{m_sender->instance, {.next = 8, .seen = 8}}}).eventsLost, 0u);
}

TEST_F(MessageJudgeTest, LedgerOfADriverThatEndedWhileItMadeItIsLeftOut) {
    Ledger unfinished = Ledger::create(m_directory, 1);
    unfinished->isWhole = 0;
    std::ofstream(m_directory / "99.1.ledger") << "short";
    EXPECT_EQ(judge({100, 101}).instances, 2u);
}

TEST_F(MessageJudgeTest, FullLedgerIsSaid) {
    m_receiver->isFull = 1;
    EXPECT_EQ(judge({100, 101}).full, 1u);
}
