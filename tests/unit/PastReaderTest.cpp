#include "PastReader.h"

#include <gmock/gmock.h>

#include <map>
#include <stdexcept>

#include "SegmentWriter.h"
#include "StreamFixture.h"

using Lines = std::vector<std::string>;

namespace {

/// Rings, and segments that the test has made of them or of those of another host.
class PastReaderTest : public StreamFixture {
protected:
    void write(int from, int to) {
        for (int i = from; i <= to; ++i)
            m_pRing->write(at(i), exit("e" + std::to_string(i)));
    }
    void keep(const std::string& instance, std::uint64_t first, std::uint64_t last) {
        std::string error;
        const std::string path = m_directory.path(std::to_string(m_segments.size()) + ".seg");
        const auto pSegment = stream::SegmentWriter::create(path, instance, error);
        ASSERT_NE(nullptr, pSegment) << error;
        for (std::uint64_t number = first; number <= last; ++number) {
            stream::StreamRecord record;
            record.number = number;
            record.time = at(static_cast<std::int64_t>(number));
            record.kind = stream::EKind::Exit;
            record.text = instance + "-" + std::to_string(number);
            pSegment->add(record, {});
        }
        ASSERT_EQ("", pSegment->writeFrame());
        m_segments.push_back(path);
    }
    stream::PastReader::Parts parts() {
        return {.segments = m_segments.size(),
                .openSegment =
                    [this](std::size_t index) {
                        ++m_opened[index];
                        std::string error;
                        return stream::SegmentReader::open(m_segments[index], error);
                    },
                .pRings = m_hasRings ? &m_source : nullptr};
    }

    TemporaryDirectory m_directory;
    std::unique_ptr<stream::StreamRing> m_pRing = ringOf(small());
    stream::StreamSource m_source{*m_pRing};
    bool m_hasRings = true;
    std::vector<std::string> m_segments;
    std::map<std::size_t, int> m_opened;
};

}  // namespace

TEST_F(PastReaderTest, RingsGiveWhatStandsInSegmentsToo) {
    keep("i0", 1, 2);
    write(1, 4);
    keep("i1", 1, 2);
    stream::PastReader sut(parts(), {});
    EXPECT_EQ((Lines{"1:i0-1", "2:i0-2", "1:e1", "2:e2", "3:e3", "4:e4"}), all(sut));
}

TEST_F(PastReaderTest, PartsAreCounted) {
    keep("i0", 1, 1);
    keep("i2", 1, 1);
    write(1, 2);
    stream::PastReader sut(parts(), {});
    EXPECT_EQ(0u, sut.part());
    std::vector<std::size_t> counts;
    while (sut.next({}) == stream::IStreamReader::EResult::Record)
        counts.push_back(sut.part());
    EXPECT_EQ((std::vector<std::size_t>{1, 2, 3, 3}), counts);
}

TEST_F(PastReaderTest, SegmentThatIsNotOpenedIsPassedOver) {
    keep("i0", 1, 1);
    keep("i0", 2, 2);
    m_hasRings = false;
    m_directory.write("0.seg", "no segment");
    stream::PastReader sut(parts(), {});
    EXPECT_EQ((Lines{"2:i0-2"}), all(sut));
}

TEST_F(PastReaderTest, OnlyWhatIsOfTheSpanIsGiven) {
    keep("i0", 1, 9);
    m_hasRings = false;
    stream::PastReader sut(parts(), {.from = at(4), .to = at(6)});
    EXPECT_EQ((Lines{"4:i0-4", "5:i0-5", "6:i0-6"}), all(sut));
}

TEST_F(PastReaderTest, WhatCannotBeOpenedAtAllIsThrown) {
    m_segments = {"/nowhere"};
    m_hasRings = false;
    auto broken = parts();
    broken.openSegment = [](std::size_t) -> std::unique_ptr<stream::SegmentReader> {
        throw std::runtime_error("not allowed");
    };
    stream::PastReader sut(broken, {});
    EXPECT_THROW(sut.next({}), std::runtime_error);
}
