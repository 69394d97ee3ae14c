#include "Keeper.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "ForkedProcess.h"
#include "KeyTable.h"
#include "PrivateMachine.h"
#include "SegmentReader.h"
#include "StreamFixture.h"

using stream::EKind;
using Lines = std::vector<std::string>;

namespace {

class KeeperTest : public StreamFixture {
protected:
    void SetUp() override {
        stream::StreamRing::Settings settings = small();
        settings.sizes = {std::size_t{1} << 20, std::size_t{1} << 20};
        m_pRing = ringOf(settings);
        m_pSource = std::make_unique<stream::StreamSource>(*m_pRing);
    }
    std::string place() const { return m_directory.path("recording"); }
    std::unique_ptr<Keeper> keeper(const Keeper::Settings& settings) {
        std::string error;
        auto pKeeper = Keeper::open(
            settings, *m_pSource,
            [this](const std::string& line, bool isGood) {
                m_said.push_back((isGood ? "good: " : "bad: ") + line);
            },
            error);
        EXPECT_NE(pKeeper, nullptr) << error;
        return pKeeper;
    }
    std::unique_ptr<Keeper> keeper() { return keeper({.directory = place()}); }
    /// All that stands in the segments.
    static Lines kept(const std::string& directory) {
        Lines found;
        for (const std::string& path : Keeper::segments(directory)) {
            std::string error;
            const auto pReader = stream::SegmentReader::open(path, error);
            EXPECT_NE(pReader, nullptr) << error;
            if (!pReader)
                continue;
            while (pReader->next({}) == stream::IStreamReader::EResult::Record) {
                const auto& record = pReader->record();
                std::string text = record.kind == EKind::Int ? std::to_string(record.value) : record.text;
                if (record.kind == EKind::Gap) {
                    std::uint64_t count = 0;
                    std::memcpy(&count, record.text.data() + 16, sizeof count);
                    text = "gap of " + std::to_string(count) + " for " + std::to_string(record.value);
                }
                found.push_back(std::to_string(record.number) + ':' + text);
            }
        }
        return found;
    }
    Lines kept() const { return kept(place()); }
    /// In a child: has a disk of that size there, and a ring; false, and told, where none can be had.
    bool enterSmall(const ForkedProcess::Side& side, const std::string& place, const std::string& size) {
        if (const std::string missing = PrivateMachine::enterWithSmall(place, size); !missing.empty()) {
            side.tell("skip " + missing);
            return false;
        }
        // The test's own ring is not in its children.
        m_pSource.reset();
        m_pRing.reset();
        SetUp();
        return true;
    }
    /// Of this process, without what is mapped of files and rings; in bytes.
    static std::size_t ownMemory() {
        std::ifstream status("/proc/self/status");
        for (std::string word; status >> word;) {
            std::size_t kib = 0;
            if (word == "RssAnon:" && status >> kib)
                return kib << 10;
        }
        ADD_FAILURE() << "/proc/self/status has no RssAnon";
        return 0;
    }

    TemporaryDirectory m_directory;
    std::unique_ptr<stream::StreamRing> m_pRing;
    std::unique_ptr<stream::StreamSource> m_pSource;
    Lines m_said;
    const Clock::time_point m_now{std::chrono::seconds(1000)};
};

}  // namespace

TEST_F(KeeperTest, WritesAFrameASecond) {
    const auto pSut = keeper();
    m_pRing->write(at(1), event("a"));
    pSut->step(m_now);
    pSut->step(m_now + std::chrono::milliseconds(999));
    EXPECT_EQ(kept(), Lines{});
    pSut->step(m_now + std::chrono::seconds(1));
    EXPECT_EQ(kept(), (Lines{"1:a"}));
    EXPECT_EQ(Keeper::segments(place()), (Lines{place() + "/00000001.seg"}));
}

TEST_F(KeeperTest, RestOfAHostThatWasKilledIsASegmentOfItsOwn) {
    const auto keepRest = [this] {
        Keeper::keepRest({.directory = place()}, *m_pSource,
                         [this](const std::string& line, bool) { m_said.push_back(line); });
    };
    m_pRing->write(at(1), event("a"));
    keepRest();
    EXPECT_FALSE(std::filesystem::exists(place()));
    keeper()->step(m_now);
    ASSERT_EQ(kept(), (Lines{"1:a"}));
    keepRest();
    EXPECT_EQ(Keeper::segments(place()).size(), 1u);
    m_pRing->write(at(2), event("b"));
    m_pRing->write(at(3), event("c"));
    keepRest();
    EXPECT_EQ(kept(), (Lines{"1:a", "2:b", "3:c"}));
    EXPECT_EQ(Keeper::segments(place()).size(), 2u);
    // Another host has written here since, and the first one's rings could not be removed.
    const auto pFirst = std::move(m_pRing);
    const auto pFirstSource = std::move(m_pSource);
    stream::StreamRing::Settings settings = small();
    settings.instance = "i2";
    m_pRing = ringOf(settings);
    m_pSource = std::make_unique<stream::StreamSource>(*m_pRing);
    m_pRing->write(at(4), event("d"));
    keeper()->step(m_now);
    m_pSource = std::make_unique<stream::StreamSource>(*pFirst);
    keepRest();
    EXPECT_EQ(kept(), (Lines{"1:a", "2:b", "3:c", "1:d"}));
    EXPECT_EQ(m_said, Lines{});
}

TEST_F(KeeperTest, RestOfAHostThatHadNoSegmentYetIsAllThatThereIs) {
    m_pRing->write(at(1), event("a"));
    m_pRing->write(at(2), event("b"));
    std::filesystem::create_directory(place());
    Keeper::keepRest({.directory = place()}, *m_pSource, [](const std::string&, bool) {});
    EXPECT_EQ(kept(), (Lines{"1:a", "2:b"}));
}

TEST_F(KeeperTest, RestThatCannotBeKeptIsSaid) {
    m_directory.write("recording", "");
    m_pRing->write(at(1), event("a"));
    Keeper::keepRest({.directory = place()}, *m_pSource,
                     [this](const std::string& line, bool) { m_said.push_back(line); });
    ASSERT_EQ(m_said.size(), 1u);
    EXPECT_TRUE(m_said[0].starts_with("what a killed host had recorded last is in its black box alone: "))
        << m_said[0];
}

TEST_F(KeeperTest, WhatEndsADriverIsThereAtOnceTenTimesASecond) {
    const auto pSut = keeper();
    m_pRing->write(at(1), event("before"));
    m_pRing->write(at(2), exit("end"));
    pSut->step(m_now);
    EXPECT_EQ(kept(), (Lines{"1:before", "2:end"}));
    m_pRing->write(at(3), exit("other"));
    pSut->step(m_now + std::chrono::milliseconds(99));
    EXPECT_EQ(kept().size(), 2u);
    pSut->step(m_now + std::chrono::milliseconds(100));
    EXPECT_EQ(kept(), (Lines{"1:before", "2:end", "3:other"}));
}

TEST_F(KeeperTest, OfAValueOnlyTheLastOneOfAFrameIsKept) {
    const auto pSut = keeper();
    for (int i = 1; i <= 5; ++i)
        m_pRing->write(at(i), value(i));
    m_pRing->write(at(6), event("x"));
    m_pRing->write(at(7), {.kind = EKind::Int, .key = 2u << 16 | 1, .value = 70});
    m_pRing->write(at(8), {.kind = EKind::Int, .key = 2u << 16, .value = 80, .keyText = "A"});
    m_pRing->write(at(9), {.kind = EKind::Int, .key = 2u << 16, .value = 90, .keyText = "B"});
    pSut->step(m_now);
    pSut->step(m_now + std::chrono::seconds(1));
    EXPECT_EQ(kept(), (Lines{"5:5", "6:x", "7:70", "8:80", "9:90"}));
    EXPECT_EQ(pSut->lost(), 0u);
}

TEST_F(KeeperTest, FramesHaveTheirNames) {
    stream::KeyTable keys(*m_pRing);
    const auto key = keys.key(keys.driver("AXIS1", at(0)), "AXIS1.POSITION", at(0));
    auto pSut = keeper();
    m_pRing->write(at(1), {.kind = EKind::Int, .key = key, .value = 7});
    pSut.reset();
    std::string error;
    const auto pReader = stream::SegmentReader::open(place() + "/00000001.seg", error);
    EXPECT_EQ(pReader, nullptr);
    // What was there when it ended, but was not looked at, is the next keeper's.
    pSut = keeper();
    pSut->step(m_now);
    pSut.reset();
    const auto pNext = stream::SegmentReader::open(Keeper::segments(place()).back(), error);
    ASSERT_NE(pNext, nullptr) << error;
    ASSERT_EQ(pNext->next({}), stream::IStreamReader::EResult::Record);
    EXPECT_EQ(pNext->names().key(pNext->record()), "AXIS1.POSITION");
}

TEST_F(KeeperTest, EndWritesWhatWasTaken) {
    auto pSut = keeper();
    m_pRing->write(at(1), event("a"));
    pSut->step(m_now);
    pSut.reset();
    EXPECT_EQ(kept(), (Lines{"1:a"}));
}

TEST_F(KeeperTest, SuccessorGoesOnInANewSegment) {
    auto pSut = keeper();
    m_pRing->write(at(1), event("a"));
    pSut->step(m_now);
    pSut.reset();
    m_directory.write("recording/notes.seg", "x");
    m_directory.write("recording/7.seg", "x");
    pSut = keeper();
    pSut->step(m_now);
    pSut.reset();
    EXPECT_EQ(Keeper::segments(place()), (Lines{place() + "/00000001.seg", place() + "/00000002.seg"}));
}

TEST_F(KeeperTest, OldestSegmentsGo) {
    const auto pSut = keeper({.directory = place(), .keep = 1000, .segment = 300});
    for (int i = 1; i <= 40; ++i) {
        m_pRing->write(at(i), event("text " + std::to_string(i)));
        pSut->step(m_now + std::chrono::seconds(2 * i));
        pSut->step(m_now + std::chrono::seconds(2 * i + 1));
    }
    std::size_t all = 0;
    for (const std::string& path : Keeper::segments(place()))
        all += std::filesystem::file_size(path);
    EXPECT_LE(all, 1000u);
    const Lines found = kept();
    ASSERT_GE(found.size(), 3u);
    EXPECT_EQ(found.back(), "40:text 40");
    EXPECT_FALSE(std::filesystem::exists(place() + "/00000001.seg"));
}

TEST_F(KeeperTest, BeyondTheLimitOnlyWhatIsRareIsKept) {
    const auto pSut = keeper({.directory = place(), .perSecond = 480});
    for (int i = 1; i <= 20; ++i)
        m_pRing->write(at(i), event("0123456789"));
    m_pRing->write(at(21), {.kind = EKind::Start, .key = 1u << 16, .texts = {"rare"}});
    pSut->step(m_now);
    pSut->step(m_now + std::chrono::seconds(1));
    const Lines found = kept();
    ASSERT_EQ(found.size(), 12u);
    EXPECT_EQ(found[9], "10:0123456789");
    EXPECT_EQ(found[10], "11:gap of 10 for 3");
    EXPECT_EQ(found[11], "21:rare");
    EXPECT_EQ(pSut->lost(), 10u);
    // The next second has a limit of its own.
    m_pRing->write(at(22), event("again"));
    pSut->step(m_now + std::chrono::seconds(2));
    EXPECT_EQ(kept().back(), "22:again");
}

TEST_F(KeeperTest, ValueOfManyChangesLeavesRoomForAllElse) {
    const auto pSut = keeper({.directory = place(), .perSecond = 480});
    for (int i = 1; i <= 10'000; ++i) {
        m_pRing->write(at(i), value(i));
        pSut->step(m_now);
    }
    for (int i = 1; i <= 9; ++i)
        m_pRing->write(at(10'000 + i), event("0123456789"));
    pSut->step(m_now + std::chrono::seconds(1));
    const Lines found = kept();
    ASSERT_EQ(found.size(), 10u);
    EXPECT_EQ(found.front(), "10000:10000");
    EXPECT_EQ(found.back(), "10009:0123456789");
    EXPECT_EQ(pSut->lost(), 0u);
}

TEST_F(KeeperTest, WhatOneFrameHasNoRoomForStandsInTheNext) {
    const auto pSut = keeper({.directory = place(), .perSecond = 1000});
    const std::string text(4000, 'x');
    for (int i = 1; i <= 100; ++i)
        m_pRing->write(at(i), exit(text));
    pSut->step(m_now);
    pSut->step(m_now + std::chrono::seconds(1));
    const Lines found = kept();
    ASSERT_EQ(found.size(), 100u);
    for (int i = 1; i <= 100; ++i)
        EXPECT_EQ(found[static_cast<std::size_t>(i) - 1], std::to_string(i) + ':' + text);
    EXPECT_EQ(pSut->lost(), 0u);
}

// More than a keeper takes of values, FIDs and lines, for twenty seconds of its own clock.
TEST_F(KeeperTest, FloodTakesAFewMegabytesOfMemory) {
    stream::StreamRing::Settings large = small();
    large.sizes = {std::size_t{4} << 20, std::size_t{4} << 20};
    large.youth = std::chrono::seconds(0);
    m_pRing = ringOf(large);
    m_pSource = std::make_unique<stream::StreamSource>(*m_pRing);
    const auto pSut = keeper({.directory = place(), .keep = std::size_t{1} << 20});
    const stream::StreamEntry fid{
        .kind = EKind::Fid, .key = 1u << 16, .texts = {"a FID with parameters that no short string holds"}};
    const stream::StreamEntry line{
        .kind = EKind::Log, .key = 2u << 16, .texts = {"a line of the log that no short string holds"}};
    m_pRing->write(at(0), fid);
    pSut->step(m_now);
    const std::size_t before = ownMemory();
    std::size_t most = before;
    for (int step = 1; step <= 400; ++step) {
        for (std::uint32_t i = 0; i < 4000; ++i) {
            m_pRing->write(at(step), {.kind = EKind::Int, .key = 1u << 16 | (i + 1), .value = i});
            if (i % 4 == 0) {
                m_pRing->write(at(step), fid);
                m_pRing->write(at(step), line);
            }
        }
        pSut->step(m_now + step * std::chrono::milliseconds(50));
        most = std::max(most, ownMemory());
    }
    EXPECT_GT(pSut->lost(), 100'000u);
    EXPECT_LT(most - before, std::size_t{8} << 20);
}

TEST_F(KeeperTest, WhatWasLappedIsAGap) {
    const auto pSut = keeper();
    m_pRing->write(at(1), exit("a"));
    pSut->step(m_now);
    for (int i = 2; i <= 80'000; ++i)
        m_pRing->write(at(i), exit(""));
    pSut->step(m_now + std::chrono::milliseconds(500));
    const Lines found = kept();
    ASSERT_GT(found.size(), 3u);
    EXPECT_EQ(found[0], "1:a");
    EXPECT_EQ(found[1], "2:gap of " + std::to_string(pSut->lost()) + " for 0");
    EXPECT_EQ(found.back(), "80000:");
    EXPECT_EQ(found.size() - 1 + pSut->lost(), 80'000u);
}

TEST_F(KeeperTest, DirectoryThatCannotBeHadIsNamed) {
    std::string error;
    EXPECT_EQ(Keeper::open({.directory = "/nowhere/recording"}, *m_pSource, {}, error), nullptr);
    EXPECT_EQ(error, "\"/nowhere/recording\" cannot be made: No such file or directory");
    const auto pSut = keeper();
    struct stat status {};
    ASSERT_EQ(::stat(place().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
}

/// Bytes that nothing packs, other ones for each number.
std::string noise(std::uint64_t word) {
    std::string bytes;
    while (bytes.size() < 4000)
        bytes += static_cast<char>((word = word * 6364136223846793005u + 1442695040888963407u) >> 56);
    return bytes;
}

TEST_F(KeeperTest, FullDiskIsSaidOnceAndLeavesAGap) {
    const std::string place = m_directory.path("small");
    std::filesystem::create_directory(place);
    ForkedProcess child([&](const ForkedProcess::Side& side) {
        if (!enterSmall(side, place, "16k"))
            return;
        const auto pSut = keeper({.directory = place});
        const auto write = [&](const std::string& text, int second) {
            m_pRing->write(at(second), exit(text));
            pSut->step(m_now + std::chrono::seconds(second));
        };
        write("first", 1);
        std::ofstream(place + "/filler") << std::string(100'000, 'x');
        // Nothing packs it into the page that the segment has already.
        write(noise(1), 2);
        write(noise(1), 3);
        std::filesystem::remove(place + "/filler");
        write("last", 4);
        std::string said;
        for (const std::string& line : m_said)
            said += line + '|';
        side.tell(said);
        std::string found;
        for (const std::string& line : kept(place))
            found += line + '|';
        side.tell(found);
        side.tell(std::to_string(pSut->lost()));
    });
    const std::string said = child.hear();
    if (said.rfind("skip ", 0) == 0)
        GTEST_SKIP() << said.substr(5);
    EXPECT_EQ(said,
              "bad: the recording has a gap: \"" + place +
                  "/00000001.seg\" cannot be written: No space left on device|good: the recording goes on|");
    EXPECT_EQ(child.hear(), "1:first|2:gap of 2 for 4|4:last|");
    EXPECT_EQ(child.hear(), "2");
}

TEST_F(KeeperTest, WhatADiskTookOfASecondBeforeItWasFullIsNotInTheGap) {
    const std::string place = m_directory.path("small");
    std::filesystem::create_directory(place);
    ForkedProcess child([&](const ForkedProcess::Side& side) {
        if (!enterSmall(side, place, "1m"))
            return;
        const auto pSut = keeper({.directory = place});
        // Of a second's two frames there is room for the first one, with 512 KB.
        std::ofstream(place + "/filler") << std::string(400'000, 'x');
        for (std::uint64_t i = 1; i <= 180; ++i)
            m_pRing->write(at(1), exit(noise(i)));
        pSut->step(m_now);
        std::filesystem::remove(place + "/filler");
        m_pRing->write(at(2), exit("last"));
        pSut->step(m_now + std::chrono::seconds(1));
        const Lines lines = kept(place);
        std::string found = std::to_string(lines.size()) + " lines|";
        for (std::size_t i = 0; i < lines.size(); ++i)
            found += lines[i].size() < 100                                    ? lines[i] + '|'
                     : lines[i] == std::to_string(i + 1) + ':' + noise(i + 1) ? ""
                                                                              : "wrong|";
        side.tell(found);
        side.tell(std::to_string(pSut->lost()));
    });
    const std::string found = child.hear();
    if (found.rfind("skip ", 0) == 0)
        GTEST_SKIP() << found.substr(5);
    EXPECT_EQ(found, "133 lines|132:gap of 49 for 4|181:last|");
    EXPECT_EQ(child.hear(), "49");
}
