#include "BlackBox.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "SegmentReader.h"
#include "StreamFixture.h"

using Lines = std::vector<std::string>;

namespace {

class BlackBoxTest : public StreamFixture {
protected:
    BlackBoxTest() : m_pRing(ringOf(small())), m_source(*m_pRing) {}

    std::string place() const { return m_directory.path("boxes"); }
    /// What the box of that file holds.
    static Lines kept(const std::string& path) {
        std::string error;
        const auto pReader = stream::SegmentReader::open(path, error);
        EXPECT_NE(pReader, nullptr) << error;
        return pReader ? all(*pReader) : Lines();
    }
    std::string copy(std::uint64_t first, stream::Time from, stream::Time to) const {
        std::string error;
        const auto pSut = BlackBox::begin(m_source, first, from, to, place(), "box.seg", error);
        EXPECT_NE(pSut, nullptr) << error;
        EXPECT_EQ(pSut->step(), BlackBox::EState::Done);
        return pSut->text();
    }

    TemporaryDirectory m_directory;
    std::unique_ptr<stream::StreamRing> m_pRing;
    stream::StreamSource m_source;
};

constexpr std::int64_t s_second = 1'000'000;

}  // namespace

TEST_F(BlackBoxTest, HoldsWhatIsBetweenTheTimes) {
    for (int second = 0; second <= 10; ++second)
        m_pRing->write(at(second * s_second), event(std::to_string(second)));
    const std::string path = copy(0, at(3 * s_second), at(5 * s_second));
    EXPECT_EQ(path, place() + "/box.seg");
    EXPECT_EQ(kept(path), (Lines{"4:3", "5:4", "6:5", "7:6"}));
    EXPECT_EQ(BlackBox::filesIn(place()), Lines{path});
}

TEST_F(BlackBoxTest, BeginsAtTheNumberThatIsKnown) {
    for (int i = 1; i <= 5; ++i)
        m_pRing->write(at(i), event(std::to_string(i)));
    EXPECT_EQ(kept(copy(4, at(0), at(9))), (Lines{"4:4", "5:5"}));
}

TEST_F(BlackBoxTest, OneOfAHostThatWasKilledIsRemoved) {
    m_pRing->write(at(1), event("1"));
    const std::string path = copy(0, at(0), at(9));
    std::ofstream(place() + "/20261123T025230Z-F4-hung.seg.part") << "half of it";
    BlackBox::removeUnfinished(place());
    BlackBox::removeUnfinished(m_directory.path("none"));
    EXPECT_EQ(BlackBox::filesIn(place()), Lines{path});
    EXPECT_FALSE(std::filesystem::exists(place() + "/20261123T025230Z-F4-hung.seg.part"));
}

TEST_F(BlackBoxTest, OneThatWasNotEndedLeavesNothing) {
    m_pRing->write(at(1), event("1"));
    std::string error;
    BlackBox::begin(m_source, 0, at(0), at(9), place(), "box.seg", error).reset();
    EXPECT_TRUE(std::filesystem::is_empty(place()));
}

TEST_F(BlackBoxTest, DirectoryThatCannotBeMadeIsSaid) {
    std::string error;
    EXPECT_EQ(BlackBox::begin(m_source, 0, at(0), at(9), "/proc/boxes", "box.seg", error), nullptr);
    EXPECT_EQ(error, "\"/proc/boxes\" cannot be made: No such file or directory");
}

TEST_F(BlackBoxTest, NameSaysWhenWhoAndWhy) {
    EXPECT_EQ(BlackBox::nameOf(at(0), "AXIS1", "signal 9 (Killed)"),
              "20261122T140322Z-AXIS1-signal-9-Killed.seg");
    EXPECT_EQ(BlackBox::nameOf(at(0), "../x", "a/b"), "20261122T140322Z-x-a-b.seg");
}

TEST_F(BlackBoxTest, OldestFilesGo) {
    std::filesystem::create_directory(place());
    for (const char* pName : {"3.seg", "1.seg", "2.seg", "note.txt"})
        std::ofstream(place() + '/' + pName) << "x";
    BlackBox::keepNewest(place(), 2);
    EXPECT_EQ(BlackBox::filesIn(place()), (Lines{place() + "/2.seg", place() + "/3.seg"}));
    EXPECT_TRUE(std::filesystem::exists(place() + "/note.txt"));
}

TEST_F(BlackBoxTest, OneOfTheSameSecondIsNumbered) {
    for (int i = 1; i <= 6; ++i)
        m_pRing->write(at(i), event(std::to_string(i)));
    EXPECT_EQ(copy(1, at(0), at(2)), place() + "/box.seg");
    EXPECT_EQ(copy(3, at(0), at(9)), place() + "/box-2.seg");
    const auto pOther = ringOf({.path = {}, .sizes = {s_small, s_small}, .instance = "i2"});
    pOther->write(at(1), event("other"));
    const stream::StreamSource other(*pOther);
    std::string error;
    const auto pSut = BlackBox::begin(other, 0, at(0), at(9), place(), "box.seg", error);
    EXPECT_EQ(pSut->step(), BlackBox::EState::Done);
    EXPECT_EQ(pSut->text(), place() + "/box-3.seg");
    EXPECT_EQ(kept(place() + "/box.seg"), (Lines{"1:1", "2:2", "3:3", "4:4", "5:5", "6:6"}));
    EXPECT_EQ(kept(place() + "/box-2.seg"), (Lines{"3:3", "4:4", "5:5", "6:6"}));
    EXPECT_EQ(kept(place() + "/box-3.seg"), Lines{"1:other"});
}

TEST_F(BlackBoxTest, TheSameOnceMoreTakesItsPlace) {
    for (int i = 1; i <= 3; ++i)
        m_pRing->write(at(i), event(std::to_string(i)));
    EXPECT_EQ(copy(2, at(0), at(9)), place() + "/box.seg");
    EXPECT_EQ(copy(2, at(0), at(9)), place() + "/box.seg");
    EXPECT_EQ(BlackBox::filesIn(place()), Lines{place() + "/box.seg"});
    EXPECT_EQ(kept(place() + "/box.seg"), (Lines{"2:2", "3:3"}));
}
