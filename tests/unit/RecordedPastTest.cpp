#include "RecordedPast.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

#include "Observation.h"
#include "SegmentWriter.h"
#include "StreamFixture.h"

using EHole = RecordedPast::EHole;
using Lines = std::vector<std::string>;

namespace {

constexpr std::int64_t s_secondOfPast = 1'000'000;

/// The rings of a host that began at second 0, and segments of it and of others.
class RecordedPastTest : public StreamFixture {
protected:
    void write(std::int64_t second, const std::string& text) {
        m_pRing->write(at(second * s_secondOfPast), exit(text));
    }
    stream::StreamRecord record(std::uint64_t number, std::int64_t second) {
        stream::StreamRecord made;
        made.number = number;
        made.time = at(second * s_secondOfPast);
        made.kind = stream::EKind::Exit;
        made.text = "kept" + std::to_string(number);
        return made;
    }
    /// Written last at the time of its last record.
    void keep(const std::string& name, const std::string& instance,
              const std::vector<stream::StreamRecord>& records) {
        std::filesystem::create_directories(m_directory.path("recording"));
        const std::string path = m_directory.path("recording/" + name);
        std::string error;
        {
            const auto pSegment = stream::SegmentWriter::create(path, instance, error);
            ASSERT_NE(nullptr, pSegment) << error;
            for (const auto& each : records)
                pSegment->add(each, {});
            ASSERT_EQ("", pSegment->writeFrame());
        }
        setTime(path, records.back().time);
    }
    static void setTime(const std::string& path, stream::Time when) {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(when.time_since_epoch());
        const timespec time{.tv_sec = seconds.count() + 1, .tv_nsec = 0};
        const std::array<timespec, 2> times{time, time};
        ASSERT_EQ(0, ::utimensat(AT_FDCWD, path.c_str(), times.data(), 0));
    }
    Lines read(std::int64_t from, std::int64_t to, std::size_t mostBytes = RecordedPast::s_mostBytes) {
        const std::string directory =
            std::filesystem::exists(m_directory.path("recording")) ? m_directory.path("recording") : "";
        RecordedPast sut(m_recorded, directory, mostBytes);
        Lines lines;
        const auto take = [&](const stream::StreamRecord& taken, const stream::KeyNames&, bool isAnew) {
            lines.push_back(taken.text + (isAnew ? " anew" : ""));
        };
        EXPECT_TRUE(
            sut.read({at(from * s_secondOfPast), at(to * s_secondOfPast)}, take, [] { return false; }));
        for (const RecordedPast::Hole& hole : sut.holes()) {
            const auto second = [&](stream::Time time) {
                return std::to_string((time - at(0)) / std::chrono::seconds(1));
            };
            lines.push_back(std::string(inWords(hole.reason)) + " from " + second(hole.from) + " to " +
                            second(hole.to));
        }
        return lines;
    }

    TemporaryDirectory m_directory;
    std::unique_ptr<stream::StreamRing> m_pRing = ringOf(small());
    stream::StreamSource m_source{*m_pRing};
    stream::KeyTable m_keys{*m_pRing};
    RecordedStream m_recorded{m_source, m_keys};
};

}  // namespace

TEST_F(RecordedPastTest, RingsAreReadToTheEndOfTheSpan) {
    write(0, "a");
    write(1, "b");
    write(9, "later");
    EXPECT_EQ((Lines{"a", "b"}), read(0, 5));
}

TEST_F(RecordedPastTest, WhatCameBeforeTheSpanIsGivenByTheWay) {
    write(0, "a");
    write(8, "b");
    EXPECT_EQ((Lines{"a", "b"}), read(5, 9));
}

TEST_F(RecordedPastTest, BeforeTheHostNothingWasRecorded) {
    write(1, "a");
    EXPECT_EQ((Lines{"a", "not-recorded from -60 to 0"}), read(-60, 9));
}

TEST_F(RecordedPastTest, WithoutAnyRecordAllIsAHole) {
    EXPECT_EQ((Lines{"not-recorded from -60 to 0", "lapped from 0 to 9"}), read(-60, 9));
}

TEST_F(RecordedPastTest, WhatWasPushedOutOfTheRingsIsLapped) {
    for (int i = 0; i < 5000; ++i)
        write(i, "e");
    const Lines lines = read(0, 5000);
    ASSERT_GT(lines.size(), 100u);
    EXPECT_TRUE(lines.back().starts_with("lapped from 0 to ")) << lines.back();
    EXPECT_EQ("e", lines[lines.size() - 2]);
}

TEST_F(RecordedPastTest, HostsBeforeItComeFromTheirSegmentsWithAHoleBetween) {
    keep("00000001.seg", "i0", {record(1, -100), record(2, -90)});
    write(2, "a");
    EXPECT_EQ((Lines{"kept1", "kept2", "a anew", "not-recorded from -90 to 2"}), read(-100, 9));
}

TEST_F(RecordedPastTest, SegmentThatEndedBeforeTheSpanIsNotOpened) {
    std::filesystem::create_directories(m_directory.path("recording"));
    m_directory.write("recording/00000001.seg", "no segment");
    setTime(m_directory.path("recording/00000001.seg"), at(-500 * s_secondOfPast));
    write(0, "a");
    EXPECT_EQ((Lines{"a"}), read(0, 9));
}

TEST_F(RecordedPastTest, SegmentThatIsNoneIsAHole) {
    keep("00000001.seg", "i0", {record(1, -100)});
    m_directory.write("recording/00000002.seg", "no segment");
    keep("00000003.seg", "i0", {record(9, -50)});
    write(0, "a");
    EXPECT_EQ((Lines{"kept1", "kept9", "a anew", "damaged from -100 to -50", "not-recorded from -50 to 0"}),
              read(-100, 9));
}

TEST_F(RecordedPastTest, OnlySoManyBytesAreRead) {
    keep("00000001.seg", "i0", {record(1, -100)});
    keep("00000002.seg", "i0", {record(2, -50)});
    keep("00000003.seg", "i0", {record(3, -40)});
    write(0, "a");
    const auto size = std::filesystem::file_size(m_directory.path("recording/00000003.seg"));
    EXPECT_EQ((Lines{"kept2", "kept3", "a anew", "not-read from -100 to -50", "not-recorded from -40 to 0"}),
              read(-100, 9, 2 * size));
}

TEST_F(RecordedPastTest, WhatTheKeeperDidNotKeepIsAHole) {
    stream::StreamRecord gap = record(2, -40);
    gap.kind = stream::EKind::Gap;
    gap.value = 3;
    const auto nanoseconds = [](std::int64_t second) {
        return static_cast<std::uint64_t>(at(second * s_secondOfPast).time_since_epoch().count());
    };
    const std::array<std::uint64_t, 5> words{2, 8, 6, nanoseconds(-45), nanoseconds(-40)};
    gap.text.assign(reinterpret_cast<const char*>(words.data()), sizeof words);
    keep("00000001.seg", "i0", {record(1, -50), gap, record(8, -39)});
    write(0, "a");
    EXPECT_EQ(
        (Lines{"kept1", "kept8", "a anew", "beyond-limit from -45 to -40", "not-recorded from -39 to 0"}),
        read(-50, 9));
}

TEST_F(RecordedPastTest, WhatIsMissingBeforeTheSpanIsNoHoleButABeginning) {
    stream::StreamRecord gap = record(2, -70);
    gap.kind = stream::EKind::Gap;
    gap.text.assign(40, '\0');
    keep("00000001.seg", "i0", {record(1, -80), gap, record(3, -40)});
    EXPECT_EQ((Lines{"kept1", "kept3 anew", "not-recorded from -40 to -5"}), read(-50, -5));
}

TEST_F(RecordedPastTest, StopsWhereItIsAskedTo) {
    write(0, "a");
    RecordedPast sut(m_recorded, "");
    int taken = 0;
    EXPECT_FALSE(sut.read(
        {at(0), at(9)}, [&](const auto&, const auto&, bool) { ++taken; }, [] { return true; }));
    EXPECT_EQ(0, taken);
}
