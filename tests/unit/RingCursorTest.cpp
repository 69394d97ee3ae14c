#include "RingCursor.h"

#include "StreamFixture.h"

using stream::ERing;
using stream::RingCursor;
using stream::StreamRecord;
using stream::StreamSource;
using EStep = RingCursor::EStep;

namespace {

class RingCursorTest : public StreamFixture {
protected:
    void SetUp() override { m_pRing = ringOf(small()); }
    /// Takes away the first word of a record, as if its writer were still at it.
    void unwrite(std::uint64_t position) const {
        auto* const pWords = reinterpret_cast<std::uint64_t*>(m_pRing->base());
        pWords[wordOf(ERing::Audit, position)] = 0;
    }

    std::unique_ptr<stream::StreamRing> m_pRing;
    StreamRecord m_record;
    const Clock::time_point m_now{std::chrono::seconds(1000)};
};

}  // namespace

TEST_F(RingCursorTest, GoesFromRecordToRecord) {
    m_pRing->write(at(1), exit("a"));
    m_pRing->write(at(1), exit("b"));
    const StreamSource source(*m_pRing);
    RingCursor sut(source, ERing::Audit);
    EXPECT_EQ(sut.step(m_record, m_now), EStep::Record);
    EXPECT_EQ(m_record.text, "a");
    EXPECT_EQ(sut.step(m_record, m_now), EStep::Record);
    EXPECT_EQ(m_record.text, "b");
    EXPECT_EQ(sut.step(m_record, m_now), EStep::Empty);
    EXPECT_EQ(sut.position(), s_small + 128);
}

TEST_F(RingCursorTest, WaitsAHundredMillisecondsForWhatIsBeingWritten) {
    m_pRing->write(at(1), exit("a"));
    m_pRing->write(at(1), exit("b"));
    unwrite(s_small);
    const StreamSource source(*m_pRing);
    RingCursor sut(source, ERing::Audit);
    EXPECT_EQ(sut.step(m_record, m_now), EStep::Wait);
    EXPECT_TRUE(sut.isAtHole());
    EXPECT_EQ(sut.step(m_record, m_now + std::chrono::milliseconds(99)), EStep::Wait);
    EXPECT_EQ(sut.step(m_record, m_now + std::chrono::milliseconds(100)), EStep::Passed);
    EXPECT_EQ(sut.step(m_record, m_now + std::chrono::milliseconds(100)), EStep::Record);
    EXPECT_EQ(m_record.text, "b");
}

TEST_F(RingCursorTest, WhatWasReservedWhileItWaitedHasItsOwnTime) {
    m_pRing->write(at(1), exit("a"));
    unwrite(s_small);
    const StreamSource source(*m_pRing);
    RingCursor sut(source, ERing::Audit);
    EXPECT_EQ(sut.step(m_record, m_now), EStep::Wait);
    m_pRing->write(at(1), exit("b"));
    m_pRing->write(at(1), exit("c"));
    unwrite(s_small + 64);
    const auto later = m_now + std::chrono::milliseconds(100);
    EXPECT_EQ(sut.step(m_record, later), EStep::Passed);
    EXPECT_EQ(sut.step(m_record, later), EStep::Wait);
    EXPECT_EQ(sut.position(), s_small + 64);
}

TEST_F(RingCursorTest, WhatComesInTimeIsRead) {
    m_pRing->write(at(1), exit("a"));
    auto* const pWords = reinterpret_cast<std::uint64_t*>(m_pRing->base());
    const std::uint64_t word = pWords[wordOf(ERing::Audit, s_small)];
    unwrite(s_small);
    const StreamSource source(*m_pRing);
    RingCursor sut(source, ERing::Audit);
    EXPECT_EQ(sut.step(m_record, m_now), EStep::Wait);
    pWords[wordOf(ERing::Audit, s_small)] = word;
    EXPECT_EQ(sut.step(m_record, m_now), EStep::Record);
    EXPECT_EQ(m_record.text, "a");
    EXPECT_FALSE(sut.isAtHole());
}

TEST_F(RingCursorTest, DeadRingIsNotWaitedFor) {
    m_pRing->write(at(1), exit("a"));
    m_pRing->write(at(1), exit("b"));
    unwrite(s_small);
    const auto pSource = sourceOf(copyOf(*m_pRing));
    RingCursor sut(*pSource, ERing::Audit);
    EXPECT_EQ(sut.step(m_record, m_now), EStep::Passed);
    EXPECT_EQ(sut.step(m_record, m_now), EStep::Record);
    EXPECT_EQ(m_record.text, "b");
}

TEST_F(RingCursorTest, LappedOneGoesOnWithWhatIsThere) {
    const StreamSource source(*m_pRing);
    RingCursor sut(source, ERing::Audit);
    for (int i = 0; i < 3000; ++i)
        m_pRing->write(at(i), exit(std::to_string(i)));
    EXPECT_EQ(sut.step(m_record, m_now), EStep::Lapped);
    EXPECT_GT(sut.position(), m_pRing->head(ERing::Audit) - s_small);
    int records = 0;
    for (auto step = sut.step(m_record, m_now); step != EStep::Empty; step = sut.step(m_record, m_now)) {
        ASSERT_TRUE(step == EStep::Record || step == EStep::Passed);
        records += step == EStep::Record;
    }
    EXPECT_EQ(records, 1024 * 7 / 8);
    EXPECT_EQ(m_record.text, "2999");
}

TEST_F(RingCursorTest, OldestOneMayBeginInTheMiddleOfARecord) {
    for (int i = 0; i < 1000; ++i)
        m_pRing->write(at(i), exit(std::string(i % 200, 'x')));
    const StreamSource source(*m_pRing);
    RingCursor sut(source, ERing::Audit);
    int records = 0;
    for (auto step = sut.step(m_record, m_now); step != EStep::Empty; step = sut.step(m_record, m_now)) {
        ASSERT_TRUE(step == EStep::Record || (records == 0 && step == EStep::Passed));
        records += step == EStep::Record;
    }
    EXPECT_GT(records, 100);
}
