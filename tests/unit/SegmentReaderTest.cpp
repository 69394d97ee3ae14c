#include "SegmentReader.h"

#include <filesystem>

#include "SegmentWriter.h"
#include "StreamFixture.h"

using stream::EKind;
using stream::FrameHead;
using stream::SegmentReader;
using stream::StreamGap;
using Lines = std::vector<std::string>;
using EResult = stream::IStreamReader::EResult;

namespace {

class SegmentReaderTest : public StreamFixture {
protected:
    /// Frames of two records each: 1:a 2:b, 3:c 4:d, ...; one a second.
    std::string frames(int count) {
        std::string error;
        const std::string path = m_directory.path("made");
        const auto pWriter = stream::SegmentWriter::create(path, "i1", error);
        EXPECT_NE(pWriter, nullptr) << error;
        stream::KeyNames names;
        names.define(1u << 16, "AXIS1");
        m_ends.clear();
        for (int i = 0; i < 2 * count; ++i) {
            stream::StreamRecord record;
            record.number = static_cast<std::uint64_t>(i) + 1;
            record.time = at(i / 2 * 1'000'000 + i % 2);
            record.kind = EKind::Exit;
            record.key = 1u << 16;
            record.text = std::string(1, static_cast<char>('a' + i));
            pWriter->add(record, names);
            if (i % 2 == 1) {
                EXPECT_EQ(pWriter->writeFrame(), "");
                m_ends.push_back(pWriter->size());
            }
        }
        std::string bytes = m_directory.read("made");
        std::filesystem::remove(path);
        return bytes;
    }
    static std::unique_ptr<SegmentReader> reader(std::string bytes) {
        std::string error;
        auto pReader = SegmentReader::ofBytes(std::move(bytes), error);
        EXPECT_NE(pReader, nullptr) << error;
        return pReader;
    }

    TemporaryDirectory m_directory;
    std::vector<std::size_t> m_ends;
};

}  // namespace

TEST_F(SegmentReaderTest, TellsWhatIsInIt) {
    const auto pSut = reader(frames(3));
    EXPECT_EQ(pSut->instance(), "i1");
    EXPECT_EQ(pSut->firstNumber(), 1u);
    EXPECT_EQ(pSut->lastNumber(), 6u);
    EXPECT_EQ(pSut->records(), 6u);
    EXPECT_EQ(pSut->firstTime(), at(0));
    EXPECT_EQ(pSut->lastTime(), at(2'000'001));
    EXPECT_EQ(all(*pSut), (Lines{"1:a", "2:b", "3:c", "4:d", "5:e", "6:f"}));
    EXPECT_EQ(pSut->cursor().text(), "i1:both:7");
}

TEST_F(SegmentReaderTest, MissingNumbersAreNoGap) {
    const std::string bytes = frames(3);
    const auto pSut = reader(bytes.substr(0, m_ends[0]) + bytes.substr(m_ends[1]));
    EXPECT_EQ(all(*pSut), (Lines{"1:a", "2:b", "5:e", "6:f"}));
}

TEST_F(SegmentReaderTest, EveryCutLeavesTheWholeFrames) {
    const std::string bytes = frames(3);
    for (std::size_t size = m_ends[0]; size <= bytes.size(); ++size) {
        const auto pSut = reader(bytes.substr(0, size));
        Lines expected{"1:a", "2:b"};
        if (size >= m_ends[1])
            expected.insert(expected.end(), {"3:c", "4:d"});
        if (size >= m_ends[2])
            expected.insert(expected.end(), {"5:e", "6:f"});
        ASSERT_EQ(all(*pSut), expected) << size;
    }
}

TEST_F(SegmentReaderTest, DamagedFrameIsPassedOverAndTold) {
    const std::string whole = frames(3);
    for (std::size_t place = m_ends[0]; place < m_ends[1]; ++place) {
        std::string bytes = whole;
        bytes[place] = static_cast<char>(bytes[place] ^ 0x10);
        const auto pSut = reader(bytes);
        ASSERT_EQ(all(*pSut), (Lines{"1:a", "2:b", "gap 3-5", "5:e", "6:f"})) << place;
        ASSERT_EQ(pSut->gap().reason, StreamGap::EReason::Damaged);
        ASSERT_EQ(pSut->gap().count, 0u);
    }
}

TEST_F(SegmentReaderTest, FrameAfterATornOneIsFound) {
    const std::string bytes = frames(3);
    const std::string torn = bytes.substr(0, m_ends[1] - 10) + bytes.substr(m_ends[1]);
    EXPECT_EQ(all(*reader(torn)), (Lines{"1:a", "2:b", "gap 3-5", "5:e", "6:f"}));
    EXPECT_EQ(all(*reader("rubbish" + bytes)), (Lines{"gap 0-1", "1:a", "2:b", "3:c", "4:d", "5:e", "6:f"}));
}

TEST_F(SegmentReaderTest, WhatIsNoSegmentIsRefused) {
    std::string error;
    EXPECT_EQ(SegmentReader::ofBytes("", error), nullptr);
    EXPECT_EQ(error, "no recording is in it");
    EXPECT_EQ(SegmentReader::ofBytes(std::string(1000, 'x'), error), nullptr);
    EXPECT_EQ(SegmentReader::open("/nowhere/1.seg", error), nullptr);
    EXPECT_EQ(error, "\"/nowhere/1.seg\" cannot be read: No such file or directory");
    m_directory.write("x.seg", "x");
    EXPECT_EQ(SegmentReader::open(m_directory.path("x.seg"), error), nullptr);
    EXPECT_EQ(error, '"' + m_directory.path("x.seg") + "\": no recording is in it");
}

TEST_F(SegmentReaderTest, GoesOnFromATime) {
    const std::string bytes = frames(3);
    auto pSut = reader(bytes);
    pSut->seek(at(1'000'001));
    EXPECT_EQ(all(*pSut), (Lines{"4:d", "5:e", "6:f"}));
    pSut = reader(bytes);
    pSut->seek(at(9'000'000));
    EXPECT_EQ(all(*pSut), Lines{});
    pSut = reader(bytes);
    pSut->seek(stream::Time());
    EXPECT_EQ(all(*pSut).size(), 6u);
}
