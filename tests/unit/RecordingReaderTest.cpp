#include "RecordingReader.h"

#include "RecordingFixture.h"

namespace {

using Lines = std::vector<std::string>;

class RecordingReaderTest : public RecordingFixture {
protected:
    void write(int from, int to) {
        for (int i = from; i <= to; ++i)
            m_pRing->write(at(i), exit("e" + std::to_string(i)));
    }
    Lines found(const RecordingReader::Bounds& bounds = {}, bool hasRing = true) const {
        RecordingFiles files;
        if (std::filesystem::exists(m_directory.path("recording")))
            files = RecordingFiles::in(m_directory.path("recording"));
        if (hasRing)
            files.ring = ringPath();
        RecordingReader sut(files, bounds);
        return all(sut);
    }
};

}  // namespace

TEST_F(RecordingReaderTest, RingsOfALivingHostHaveAnEnd) {
    write(1, 3);
    EXPECT_EQ((Lines{"1:e1", "2:e2", "3:e3"}), found());
}

TEST_F(RecordingReaderTest, WhatComesWhileItIsReadIsLeftOut) {
    write(1, 2);
    RecordingReader sut({{}, ringPath()}, {});
    write(3, 3);
    EXPECT_EQ((Lines{"1:e1", "2:e2"}), all(sut));
}

TEST_F(RecordingReaderTest, WhatStandsInBothIsGivenOnce) {
    write(1, 6);
    keep("00000001.seg", 1, 2);
    keep("00000002.seg", 3, 4);
    EXPECT_EQ((Lines{"1:e1", "2:e2", "3:e3", "4:e4", "5:e5", "6:e6"}), found());
    die();
    EXPECT_EQ((Lines{"1:e1", "2:e2", "3:e3", "4:e4", "5:e5", "6:e6"}), found());
    EXPECT_EQ((Lines{"1:e1", "2:e2", "3:e3", "4:e4"}), found({}, false));
}

TEST_F(RecordingReaderTest, SegmentsHaveWhatWasPushedOutOfTheRings) {
    write(1, 1000);
    keep("00000001.seg", 1, 1000);
    write(1001, 2000);
    keep("00000002.seg", 1001, 2000);
    write(2001, 3000);
    Lines all;
    for (int i = 1; i <= 3000; ++i)
        all.push_back(std::to_string(i) + ":e" + std::to_string(i));
    EXPECT_EQ(all, found());
}

TEST_F(RecordingReaderTest, WhatNeitherHasIsAGap) {
    write(1, 5000);
    m_directory.write("recording/.keep", "");
    std::string error;
    const auto pSegment = stream::SegmentWriter::create(m_directory.path("recording/1.seg"), "i1", error);
    stream::StreamRecord record;
    record.number = 10;
    record.time = at(10);
    record.kind = stream::EKind::Exit;
    record.text = "e10";
    pSegment->add(record, {});
    ASSERT_EQ("", pSegment->writeFrame());
    const Lines lines = found();
    ASSERT_GT(lines.size(), 1000u);
    EXPECT_EQ("10:e10", lines[0]);
    EXPECT_THAT(lines[1], testing::StartsWith("gap 11-"));
    EXPECT_EQ("5000:e5000", lines.back());
}

TEST_F(RecordingReaderTest, EarlierAndLaterHostsComeInTheirPlaces) {
    write(1, 2);
    keep("00000001.seg", 1, 2);
    startAnew("i2");
    write(3, 6);
    keep("00000002.seg", 1, 2);
    EXPECT_EQ((Lines{"1:e1", "2:e2", "1:e3", "2:e4", "3:e5", "4:e6"}), found());
    // Now the rings are those of the host before the last one.
    const auto ring = m_directory.read("stream.ring");
    startAnew("i3");
    write(7, 8);
    keep("00000003.seg", 1, 2);
    die();
    m_directory.write("stream.ring", ring);
    EXPECT_EQ((Lines{"1:e1", "2:e2", "1:e3", "2:e4", "3:e5", "4:e6", "1:e7", "2:e8"}), found());
}

TEST_F(RecordingReaderTest, OnlyWhatLiesWithinTheBounds) {
    write(1, 6);
    keep("00000001.seg", 1, 4);
    EXPECT_EQ((Lines{"2:e2", "3:e3"}), found({at(2), at(3)}, false));
    EXPECT_EQ((Lines{"3:e3", "4:e4", "5:e5"}), found({at(3), at(5)}));
    EXPECT_EQ((Lines{}), found({at(7), at(9)}));
}

TEST_F(RecordingReaderTest, PlaceThatWasNeverWrittenIsAGapOfALivingHost) {
    write(1, 3);
    reinterpret_cast<std::uint64_t*>(m_pRing->base())[wordOf(stream::ERing::Audit, s_small + 64)] = 0;
    EXPECT_EQ((Lines{"1:e1", "gap 2-3", "3:e3"}), found());
}

TEST_F(RecordingReaderTest, SegmentThatIsNoRecordingIsPassedOver) {
    write(1, 2);
    keep("00000001.seg", 1, 1);
    m_directory.write("recording/00000002.seg", "nothing");
    // Of a host that has just made it.
    m_directory.write("recording/00000003.seg", "");
    RecordingReader sut(RecordingFiles::in(m_directory.path("recording")), {});
    EXPECT_EQ((Lines{"1:e1"}), all(sut));
    EXPECT_EQ(std::set<std::string>{"\"" + m_directory.path("recording/00000002.seg") +
                                    "\": no recording is in it"},
              sut.faults());
    EXPECT_EQ((Lines{"1:e1", "2:e2"}), found());
}

TEST_F(RecordingReaderTest, NothingButWhatIsNoRecordingIsRefused) {
    m_directory.write("recording/1.seg", "nothing");
    EXPECT_EQ(
        std::pair(EExit::Failed, "\"" + m_directory.path("recording/1.seg") + "\": no recording is in it"),
        errorOf([&] { found({}, false); }));
}
