#include "StreamReader.h"

#include <random>
#include <set>

#include "Crc32c.h"
#include "KeyTable.h"
#include "StreamFixture.h"

using stream::EKind;
using stream::ERing;
using stream::StreamCursor;
using stream::StreamReader;
using stream::StreamSource;
using EResult = stream::IStreamReader::EResult;
using Lines = std::vector<std::string>;

namespace {

class StreamReaderTest : public StreamFixture {
protected:
    void SetUp() override {
        m_pRing = ringOf(small());
        m_pSource = std::make_unique<StreamSource>(*m_pRing);
    }
    std::unique_ptr<StreamReader> reader(const StreamCursor& from = StreamCursor::oldest()) const {
        return readerOf(*m_pSource, from);
    }
    std::string refusal(const StreamCursor& from) const {
        std::string error;
        EXPECT_EQ(StreamReader::open(*m_pSource, from, error), nullptr);
        return error;
    }
    void unwrite(ERing ring, std::uint64_t position) const {
        reinterpret_cast<std::uint64_t*>(m_pRing->base())[wordOf(ring, position)] = 0;
    }
    /// Gives the record, which has less than nine bytes of text, another number.
    void renumber(std::uint64_t position, std::uint64_t number) const {
        auto* const pWords =
            reinterpret_cast<std::uint64_t*>(m_pRing->base()) + wordOf(ERing::Audit, position);
        pWords[2] = number << 16 | (pWords[2] & 0xffffu);
        stream::StreamConstants constants;
        std::memcpy(&constants, m_pRing->base(), sizeof constants);
        const std::uint64_t checked[] = {position, pWords[1], pWords[2], pWords[3], pWords[4]};
        const std::uint64_t check = stream::crc32c(constants.salt, checked, 5);
        pWords[0] = check << 32 | (pWords[0] & 0xffffffffu);
    }
    StreamCursor both(std::uint64_t number) const {
        return {StreamCursor::EPlace::Exact, "i1", std::nullopt, number};
    }

    std::unique_ptr<stream::StreamRing> m_pRing;
    std::unique_ptr<StreamSource> m_pSource;
    const Clock::time_point m_now{std::chrono::seconds(1000)};
};

}  // namespace

TEST_F(StreamReaderTest, GivesBothRingsInTheOrderOfTheNumbers) {
    for (int i = 1; i <= 9; ++i)
        m_pRing->write(at(i), i % 3 == 0 ? value(i) : exit("e" + std::to_string(i)));
    EXPECT_EQ(all(*reader()), (Lines{"1:e1", "2:e2", "3:3", "4:e4", "5:e5", "6:6", "7:e7", "8:e8", "9:9"}));
}

TEST_F(StreamReaderTest, LongRunsOfOneRingDoNotHideTheOther) {
    for (int i = 0; i < 1500; ++i)
        m_pRing->write(at(i), value(i));
    m_pRing->write(at(1), exit("x"));
    for (int i = 0; i < 400; ++i)
        m_pRing->write(at(i), value(i));
    const auto found = all(*reader());
    ASSERT_EQ(found.size(), 1901u);
    EXPECT_EQ(found[1500], "1501:x");
    EXPECT_EQ(found[1900], "1901:399");
    // And the other way about.
    for (int i = 0; i < 500; ++i)
        m_pRing->write(at(i), exit(""));
    m_pRing->write(at(1), value(7));
    const auto more = all(*reader(both(1902)));
    ASSERT_EQ(more.size(), 501u);
    EXPECT_EQ(more.back(), "2402:7");
}

TEST_F(StreamReaderTest, GoesOnAsMoreComes) {
    const auto pSut = reader();
    EXPECT_EQ(pSut->next(m_now), EResult::Nothing);
    m_pRing->write(at(1), exit("a"));
    EXPECT_EQ(all(*pSut), (Lines{"1:a"}));
    m_pRing->write(at(1), value(2));
    EXPECT_EQ(all(*pSut), (Lines{"2:2"}));
    EXPECT_EQ(pSut->next(m_now), EResult::Nothing);
}

TEST_F(StreamReaderTest, DeadStreamHasAnEnd) {
    m_pRing->write(at(1), exit("a"));
    const auto pSource = sourceOf(copyOf(*m_pRing));
    const auto pSut = readerOf(*pSource);
    EXPECT_EQ(pSut->next(m_now), EResult::Record);
    EXPECT_EQ(pSut->next(m_now), EResult::End);
}

TEST_F(StreamReaderTest, NewestIsFromHereOn) {
    m_pRing->write(at(1), exit("a"));
    const auto pSut = reader(StreamCursor::newest());
    EXPECT_EQ(pSut->cursor().text(), "i1:both:2");
    m_pRing->write(at(1), exit("b"));
    EXPECT_EQ(all(*pSut), (Lines{"2:b"}));
}

TEST_F(StreamReaderTest, CursorGoesOnWhereAnotherStopped) {
    for (int i = 1; i <= 6; ++i)
        m_pRing->write(at(i), i % 2 == 0 ? value(i) : exit("e"));
    const auto pFirst = reader();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(pFirst->next(m_now), EResult::Record);
    EXPECT_EQ(pFirst->cursor().text(), "i1:both:4");
    EXPECT_EQ(all(*reader(pFirst->cursor())), (Lines{"4:4", "5:e", "6:6"}));
    // Where nothing more has come yet.
    EXPECT_EQ(all(*reader(both(7))), Lines{});
}

TEST_F(StreamReaderTest, CursorOfAnotherStreamIsRefused) {
    m_pRing->write(at(1), exit("a"));
    EXPECT_EQ(refusal({StreamCursor::EPlace::Exact, "i2", std::nullopt, 1}),
              "\"i2:both:1\" is a place in another stream than this one, which is i1");
    EXPECT_EQ(refusal(both(3)), "\"i1:both:3\" lies beyond the stream, which has come to 2");
    EXPECT_EQ(refusal({StreamCursor::EPlace::Exact, "i1", ERing::Audit, s_small + 96}),
              "\"i1:audit:65632\" lies beyond the stream, which has come to 65600");
    EXPECT_EQ(refusal({StreamCursor::EPlace::Exact, "i1", ERing::Audit, s_small + 1}),
              "\"i1:audit:65537\" lies beyond the stream, which has come to 65600");
}

TEST_F(StreamReaderTest, HoleIsWaitedForThenPassedAsACountedGap) {
    m_pRing->write(at(1), exit("a"));
    m_pRing->write(at(2), exit("b"));
    m_pRing->write(at(3), value(3));
    m_pRing->write(at(4), exit("c"));
    unwrite(ERing::Audit, s_small + 64);
    const auto pSut = reader();
    EXPECT_EQ(all(*pSut, m_now), (Lines{"1:a"}));
    EXPECT_TRUE(pSut->isWaiting());
    EXPECT_EQ(all(*pSut, m_now + std::chrono::milliseconds(99)), Lines{});
    EXPECT_EQ(all(*pSut, m_now + std::chrono::milliseconds(100)), (Lines{"gap 2-3", "3:3", "4:c"}));
    EXPECT_EQ(pSut->missed(), 1u);
    const auto& gap = pSut->gap();
    EXPECT_EQ(gap.reason, stream::StreamGap::EReason::Missing);
    EXPECT_EQ(gap.count, 1u);
    EXPECT_EQ(gap.from.time_since_epoch().count(), at(1).time_since_epoch().count());
    EXPECT_EQ(gap.to.time_since_epoch().count(), at(3).time_since_epoch().count());
}

TEST_F(StreamReaderTest, HoleDoesNotHoldUpWhatCameBeforeIt) {
    m_pRing->write(at(1), exit("a"));
    m_pRing->write(at(2), value(2));
    m_pRing->write(at(3), value(3));
    m_pRing->write(at(4), exit("d"));
    unwrite(ERing::Audit, s_small + 64);
    EXPECT_EQ(all(*reader(), m_now), (Lines{"1:a", "2:2", "3:3"}));
}

TEST_F(StreamReaderTest, FullMemoryDoesNotGiveUpAHole) {
    m_pRing->write(at(1), exit("a"));
    unwrite(ERing::Audit, s_small);
    for (int i = 0; i < 2000; ++i)
        m_pRing->write(at(i), value(i));
    const auto pSut = reader(both(1));
    EXPECT_EQ(all(*pSut, m_now), Lines{});
    EXPECT_EQ(all(*pSut, m_now + std::chrono::milliseconds(99)), Lines{});
    const auto found = all(*pSut, m_now + std::chrono::milliseconds(100));
    ASSERT_EQ(found.size(), 2001u);
    EXPECT_EQ(found[0], "gap 1-2");
    EXPECT_EQ(found[2000], "2001:1999");
}

TEST_F(StreamReaderTest, PlaceBeforeAnotherMayBearTheHigherNumber) {
    // Two threads: the first to have a place is the second to have a number.
    m_pRing->write(at(1), exit("a"));
    m_pRing->write(at(2), exit("b"));
    renumber(s_small, 2);
    renumber(s_small + 64, 1);
    m_pRing->write(at(3), exit("c"));
    EXPECT_EQ(all(*reader(both(1))), (Lines{"1:b", "2:a", "3:c"}));
    EXPECT_EQ(all(*reader()), (Lines{"1:b", "2:a", "3:c"}));
}

TEST_F(StreamReaderTest, HoleAfterARecordThatWaitsIsNotGivenUpWithFullMemory) {
    m_pRing->write(at(1), exit("a"));
    m_pRing->write(at(2), exit("b"));
    renumber(s_small, 2);
    unwrite(ERing::Audit, s_small + 64);
    for (int i = 0; i < 1900; ++i)
        m_pRing->write(at(i), value(i));
    const auto pSut = reader(both(1));
    EXPECT_EQ(all(*pSut, m_now), Lines{});
    EXPECT_EQ(all(*pSut, m_now + std::chrono::milliseconds(99)), Lines{});
    const auto found = all(*pSut, m_now + std::chrono::milliseconds(100));
    ASSERT_EQ(found.size(), 1902u);
    EXPECT_EQ(found[0], "gap 1-2");
    EXPECT_EQ(found[1], "2:a");
}

TEST_F(StreamReaderTest, LappedReaderIsToldTheIntervalAndTheNumber) {
    const auto pSut = reader();
    m_pRing->write(at(0), exit("a"));
    EXPECT_EQ(all(*pSut), (Lines{"1:a"}));
    for (int i = 2; i <= 5000; ++i)
        m_pRing->write(at(i), exit(""));
    EXPECT_EQ(pSut->next(m_now), EResult::Gap);
    const auto gap = pSut->gap();
    EXPECT_EQ(gap.reason, stream::StreamGap::EReason::Lapped);
    EXPECT_EQ(gap.first, 2u);
    EXPECT_EQ(gap.count, gap.next - 2);
    EXPECT_EQ(gap.from.time_since_epoch().count(), at(0).time_since_epoch().count());
    std::uint64_t records = 0;
    while (pSut->next(m_now) == EResult::Record)
        ++records;
    EXPECT_EQ(gap.count + records, 4999u);
    EXPECT_EQ(pSut->missed(), gap.count);
}

TEST_F(StreamReaderTest, LapOfOneRingLosesNothingOfTheOther) {
    const auto pSut = reader();
    for (int i = 1; i <= 10'000; ++i)
        m_pRing->write(at(i), i % 100 == 0 ? exit("e" + std::to_string(i)) : value(i));
    std::set<std::string> found;
    std::uint64_t missed = 0;
    std::uint64_t records = 0;
    for (auto result = pSut->next(m_now); result != EResult::Nothing; result = pSut->next(m_now)) {
        if (result == EResult::Gap) {
            missed += pSut->gap().count;
            continue;
        }
        ++records;
        if (pSut->record().kind == EKind::Exit)
            found.insert(pSut->record().text);
    }
    EXPECT_EQ(found.size(), 100u);
    EXPECT_GT(missed, 5000u);
    EXPECT_EQ(pSut->cursor().position, 10'001u);
    EXPECT_EQ(missed + records, 10'000u);
}

TEST_F(StreamReaderTest, WhatOneLappedRingLacksBetweenRecordsOfTheOtherIsLapped) {
    for (int i = 1; i <= 10'000; ++i)
        m_pRing->write(at(i), i % 100 == 0 ? exit("e") : value(i));
    // The last value but one.
    unwrite(ERing::Values, m_pRing->head(ERing::Values) - 64);
    for (const auto& from : {both(1), StreamCursor::oldest()}) {
        const auto pSut = reader(from);
        std::vector<stream::StreamGap> gaps;
        for (const auto now : {m_now, m_now + std::chrono::seconds(1)}) {
            for (auto result = pSut->next(now); result != EResult::Nothing; result = pSut->next(now)) {
                if (result != EResult::Gap)
                    continue;
                gaps.push_back(pSut->gap());
                EXPECT_EQ(pSut->isInLappedStretch(), gaps.back().next % 100 == 0);
            }
        }
        ASSERT_GT(gaps.size(), 70u);
        EXPECT_EQ(gaps.back().reason, stream::StreamGap::EReason::Missing);
        EXPECT_EQ(gaps.back().first, 9998u);
        gaps.pop_back();
        for (const auto& gap : gaps)
            EXPECT_EQ(gap.reason, stream::StreamGap::EReason::Lapped) << gap.first;
    }
}

TEST_F(StreamReaderTest, CursorThatWasLappedTellsAGap) {
    for (int i = 1; i <= 5000; ++i)
        m_pRing->write(at(i), exit(""));
    const auto pSut = reader(both(1));
    EXPECT_EQ(pSut->next(m_now), EResult::Gap);
    EXPECT_EQ(pSut->gap().reason, stream::StreamGap::EReason::Lapped);
    EXPECT_EQ(pSut->gap().first, 1u);
    EXPECT_EQ(pSut->gap().from, stream::Time());
    EXPECT_EQ(pSut->gap().next, 5000u - s_small / 32 + 1);
}

TEST_F(StreamReaderTest, GoesOnAtAnyNumberOfALappedRing) {
    const auto pRing = ringOf(small());
    for (int i = 0; i < 5000; ++i) {
        pRing->write(at(i), value(i));
        if (i % 3 == 0)
            pRing->write(at(i), exit(std::string(static_cast<std::size_t>(i % 50), 'x')));
    }
    const StreamSource source(*pRing);
    const std::uint64_t last = source.lastNumber();
    for (std::uint64_t number = last - 600; number <= last; number += 7) {
        const auto pSut = readerOf(source, {StreamCursor::EPlace::Exact, "i1", {}, number});
        ASSERT_EQ(pSut->next({}), EResult::Record) << number;
        EXPECT_EQ(pSut->record().number, number);
    }
}

TEST_F(StreamReaderTest, BeginsWithTheNewestOfTheAuditRing) {
    const auto pRing = ringOf(small());
    for (int i = 0; i < 3000; ++i) {
        pRing->write(at(i), exit("e"));
        pRing->write(at(i), value(i));
    }
    const StreamSource source(*pRing);
    const auto pSut = StreamReader::openNewest(source, 640, {});
    ASSERT_EQ(pSut->next({}), EResult::Record);
    EXPECT_EQ(pSut->record().number, 6000u - 19);
    std::size_t records = 1;
    for (auto result = pSut->next({}); result != EResult::Nothing; result = pSut->next({})) {
        if (result == EResult::Record) {
            EXPECT_EQ(pSut->record().kind, EKind::Exit);
            ++records;
        }
    }
    EXPECT_EQ(records, 10u);
    pRing->write(at(1), value(7));
    while (pSut->next({}) == EResult::Gap) {
    }
    EXPECT_EQ(pSut->record().value, 7u);
}

TEST_F(StreamReaderTest, OneThatWasLappedBeforeItsFirstRecordIsTold) {
    const auto pRing = ringOf(small());
    pRing->write(at(0), exit("before"));
    const StreamSource source(*pRing);
    const auto pSut = readerOf(source, StreamCursor::newest());
    for (int i = 0; i < 3000; ++i)
        pRing->write(at(i), exit("e"));
    ASSERT_EQ(pSut->next({}), EResult::Gap);
    EXPECT_EQ(pSut->gap().reason, stream::StreamGap::EReason::Lapped);
    EXPECT_EQ(pSut->gap().first, 2u);
    EXPECT_EQ(pSut->gap().count, pSut->gap().next - 2);
}

TEST_F(StreamReaderTest, OneRingGivesItsOwn) {
    for (int i = 1; i <= 6; ++i)
        m_pRing->write(at(i), i % 2 == 0 ? value(i) : exit("e"));
    EXPECT_EQ(all(*reader(StreamCursor::oldest(ERing::Audit))), (Lines{"1:e", "3:e", "5:e"}));
    const auto pValues = reader(StreamCursor::oldest(ERing::Values));
    EXPECT_EQ(pValues->next(m_now), EResult::Record);
    EXPECT_EQ(pValues->cursor().text(), "i1:values:65568");
    EXPECT_EQ(all(*reader(pValues->cursor())), (Lines{"4:4", "6:6"}));
}

TEST_F(StreamReaderTest, OneRingTellsItsGaps) {
    m_pRing->write(at(1), exit("a"));
    m_pRing->write(at(2), exit("b"));
    m_pRing->write(at(3), exit("c"));
    unwrite(ERing::Audit, s_small + 64);
    const auto pSut = reader(StreamCursor::oldest(ERing::Audit));
    EXPECT_EQ(all(*pSut, m_now), (Lines{"1:a"}));
    EXPECT_EQ(all(*pSut, m_now + std::chrono::milliseconds(100)), (Lines{"gap 2-3", "3:c"}));
    EXPECT_EQ(pSut->gap().count, 0u);
}

TEST_F(StreamReaderTest, KnowsTheNamesThatWereDefinedBeforeItBegan) {
    stream::KeyTable keys(*m_pRing);
    const auto driver = keys.driver("AXIS1", at(0));
    const auto key = keys.key(driver, "AXIS1.POSITION", at(0));
    m_pRing->write(at(1), {.kind = EKind::Int, .key = key, .value = 7});
    for (const auto& from : {both(3), StreamCursor::newest(), StreamCursor::oldest(ERing::Values)}) {
        const auto pSut = reader(from);
        m_pRing->write(at(1), {.kind = EKind::Int, .key = key, .value = 8});
        ASSERT_EQ(pSut->next(m_now), EResult::Record);
        EXPECT_EQ(pSut->names().key(pSut->record()), "AXIS1.POSITION");
        EXPECT_EQ(pSut->names().driver(pSut->record().driver()), "AXIS1");
    }
}

TEST_F(StreamReaderTest, RingOfValuesLearnsNamesThatComeLater) {
    stream::KeyTable keys(*m_pRing);
    const auto pSut = reader(StreamCursor::oldest(ERing::Values));
    const auto key = keys.key(keys.driver("AXIS1", at(0)), "AXIS1.POSITION", at(0));
    m_pRing->write(at(1), {.kind = EKind::Int, .key = key, .value = 7});
    ASSERT_EQ(pSut->next(m_now), EResult::Record);
    EXPECT_EQ(pSut->names().key(pSut->record()), "AXIS1.POSITION");
}

// A twelfth of the pages is lost: whatever is left comes in order, and none of it is wrong.
TEST_F(StreamReaderTest, PagesSetToZeroCostOnlyWhatLayInThem) {
    stream::StreamRing::Settings settings = small();
    settings.sizes = {std::size_t{1} << 20, std::size_t{1} << 20};
    const auto pRing = ringOf(settings);
    for (int i = 0; i < 60'000; ++i) {
        const std::string text = std::to_string(i);
        if (i % 2 == 0)
            pRing->write(at(i), value(i));
        else
            pRing->write(at(i), {.kind = EKind::Exit,
                                 .key = 1u << 16,
                                 .value = static_cast<std::uint32_t>(i),
                                 .texts = {text}});
    }
    const auto whole = copyOf(*pRing);
    std::size_t before = 0;
    const auto pWhole = sourceOf(whole);
    const auto pReader = readerOf(*pWhole);
    for (auto result = pReader->next({}); result != EResult::End; result = pReader->next({}))
        before += result == EResult::Record;
    std::mt19937 random(1);
    for (int round = 0; round < 10; ++round) {
        auto words = whole;
        const std::size_t pages = words.size() * 8 / 4096;
        for (std::size_t i = 0; i < pages / 12; ++i) {
            // One of the two headers is left.
            const std::size_t page = random() % (pages - 1);
            std::fill_n(words.begin() + static_cast<std::ptrdiff_t>(page * 512), 512, 0u);
        }
        const auto pSource = sourceOf(std::move(words));
        const auto pSut = readerOf(*pSource);
        std::uint64_t last = 0;
        std::size_t records = 0;
        for (auto result = pSut->next({}); result != EResult::End; result = pSut->next({})) {
            if (result == EResult::Gap)
                continue;
            const auto& record = pSut->record();
            ASSERT_GT(record.number, last);
            last = record.number;
            ASSERT_EQ(record.number, record.value + 1);
            if (record.kind == EKind::Exit) {
                ASSERT_EQ(record.text, std::to_string(record.value));
            }
            ++records;
        }
        EXPECT_GT(records, before * 8 / 10);
        EXPECT_LT(records, before);
    }
}
