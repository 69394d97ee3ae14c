#include "JoinedGaps.h"

#include "StreamFixture.h"

using stream::ERing;
using stream::JoinedGaps;
using stream::StreamCursor;
using EResult = stream::IStreamReader::EResult;

namespace {

/// Rings of 10,000 records, each hundredth of which is no value: most of the values are gone, nothing else.
class JoinedGapsTest : public StreamFixture {
protected:
    void SetUp() override {
        m_pRing = ringOf(small());
        for (int i = 1; i <= 10'000; ++i)
            m_pRing->write(at(i), i % 100 == 0 ? exit("e") : value(i));
        m_pSource = std::make_unique<stream::StreamSource>(*m_pRing);
    }
    static StreamCursor first() { return {StreamCursor::EPlace::Exact, "i1", std::nullopt, 1}; }

    struct Found {
        std::vector<stream::StreamGap> gaps;
        std::uint64_t records = 0;
        std::uint64_t afterGap = 0;  ///< number of the record after the first gap
    };
    static Found readAll(const stream::StreamSource& source, const StreamCursor& from) {
        JoinedGaps sut(readerOf(source, from));
        Found found;
        for (const auto now : {Clock::time_point(), Clock::time_point(std::chrono::seconds(1))}) {
            for (auto result = sut.next(now); result == EResult::Record || result == EResult::Gap;
                 result = sut.next(now)) {
                found.records += result == EResult::Record;
                if (result == EResult::Gap)
                    found.gaps.push_back(sut.gap());
                else if (found.gaps.size() == 1 && found.afterGap == 0)
                    found.afterGap = sut.record().number;
            }
        }
        return found;
    }

    std::unique_ptr<stream::StreamRing> m_pRing;
    std::unique_ptr<stream::StreamSource> m_pSource;
};

}  // namespace

TEST_F(JoinedGapsTest, LapOfOneRingIsOneGapHoweverMuchOfTheOtherLiesBetween) {
    const Found found = readAll(*m_pSource, first());
    ASSERT_EQ(found.gaps.size(), 1u);
    EXPECT_EQ(found.gaps[0].reason, stream::StreamGap::EReason::Lapped);
    EXPECT_EQ(found.gaps[0].first, 1u);
    EXPECT_EQ(found.gaps[0].from, stream::Time());
    EXPECT_EQ(found.gaps[0].next, found.afterGap);
    EXPECT_EQ(found.gaps[0].count + found.records, 10'000u);
}

TEST_F(JoinedGapsTest, OldestRecordIsTheFirstThatIsThere) {
    const Found found = readAll(*m_pSource, StreamCursor::oldest());
    ASSERT_EQ(found.gaps.size(), 1u);
    EXPECT_EQ(found.gaps[0].first, 101u);
    EXPECT_EQ(found.gaps[0].from.time_since_epoch().count(), at(100).time_since_epoch().count());
    EXPECT_EQ(found.gaps[0].count + found.records, 9'901u);
}

TEST_F(JoinedGapsTest, OtherGapsAreToldAsTheyAre) {
    // The last value but one.
    const std::uint64_t place = m_pRing->head(ERing::Values) - 64;
    reinterpret_cast<std::uint64_t*>(m_pRing->base())[wordOf(ERing::Values, place)] = 0;
    const Found found = readAll(*m_pSource, first());
    ASSERT_EQ(found.gaps.size(), 2u);
    EXPECT_EQ(found.gaps[0].reason, stream::StreamGap::EReason::Lapped);
    EXPECT_EQ(found.gaps[1].reason, stream::StreamGap::EReason::Missing);
    EXPECT_EQ(found.gaps[1].first, 9998u);
    EXPECT_EQ(found.gaps[1].count, 1u);
}

TEST_F(JoinedGapsTest, DeadRingsHaveItTooAndAnEnd) {
    const auto pSource = sourceOf(copyOf(*m_pRing));
    const Found found = readAll(*pSource, first());
    ASSERT_EQ(found.gaps.size(), 1u);
    EXPECT_EQ(found.gaps[0].reason, stream::StreamGap::EReason::Lapped);
    JoinedGaps sut(readerOf(*pSource, StreamCursor::newest()));
    EXPECT_EQ(sut.next({}), EResult::End);
}
