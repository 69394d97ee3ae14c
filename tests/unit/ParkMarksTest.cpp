#include "ParkMarks.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <set>
#include <string>

#include "TemporaryDirectory.h"
#include "WithoutCapabilities.h"

namespace {

using IDs = std::set<std::string>;

IDs idsOf(const ParkMarks& marks) {
    IDs driverIDs;
    for (const auto& [driverID, who] : marks.marks())
        driverIDs.insert(driverID);
    return driverIDs;
}

class ParkMarksTest : public testing::Test {
protected:
    std::string path(const std::string& suffix = {}) const { return m_directory.path("marks" + suffix); }
    /// What a host that is started now finds.
    IDs found() const {
        ParkMarks sut(path());
        EXPECT_EQ("", sut.read());
        return idsOf(sut);
    }

    TemporaryDirectory m_directory;
    ParkMarks m_sut{path()};
};

}  // namespace

TEST_F(ParkMarksTest, MissingFileParksNobody) {
    EXPECT_EQ("", m_sut.read());
    EXPECT_EQ(IDs{}, idsOf(m_sut));
    EXPECT_FALSE(m_sut.contains("A"));
    EXPECT_FALSE(m_directory.contains("marks"));
}

TEST_F(ParkMarksTest, MarkIsOnDiskAtOnceAndIsFoundAgain) {
    EXPECT_EQ("", m_sut.add("B", ""));
    EXPECT_EQ("", m_sut.add("A", ""));
    EXPECT_TRUE(m_sut.contains("A"));
    EXPECT_EQ(
        "# Drivers that are parked, an ID a line: stopDriver adds one, startDriver takes it away.\nA\nB\n",
        m_directory.read("marks"));
    EXPECT_EQ((IDs{"A", "B"}), found());
    EXPECT_FALSE(m_directory.contains("marks.part"));
}

TEST_F(ParkMarksTest, MarkThatIsTakenBackIsGone) {
    ASSERT_EQ("", m_sut.add("A", ""));
    ASSERT_EQ("", m_sut.add("B", ""));
    EXPECT_EQ("", m_sut.remove("A"));
    EXPECT_FALSE(m_sut.contains("A"));
    EXPECT_EQ(IDs{"B"}, found());
    EXPECT_EQ("", m_sut.remove("B"));
    EXPECT_EQ(IDs{}, found());
}

TEST_F(ParkMarksTest, WhoHasParkedIsFoundAgainWithTheMark) {
    EXPECT_EQ("", m_sut.add("A", ""));
    EXPECT_EQ("", m_sut.add("B", "anna"));
    EXPECT_EQ("", m_sut.add("C", "of\nmany lines"));
    EXPECT_EQ(
        "# Drivers that are parked, an ID a line: stopDriver adds one, startDriver takes it away.\n"
        "A\n# parked by anna\nB\n# parked by of\\nmany lines\nC\n",
        m_directory.read("marks"));
    ParkMarks found(path());
    EXPECT_EQ("", found.read());
    EXPECT_EQ((ParkMarks::Marks{{"A", ""}, {"B", "anna"}, {"C", "of\\nmany lines"}}), found.marks());
}

TEST_F(ParkMarksTest, NameIsThatOfTheNextLineAlone) {
    m_directory.write("marks",
                      "# parked by anna\nA\nB\n# parked by bert\n# of mine\nC\n# parked by carla\n\nD\n");
    EXPECT_EQ("", m_sut.read());
    EXPECT_EQ((ParkMarks::Marks{{"A", "anna"}, {"B", ""}, {"C", ""}, {"D", ""}}), m_sut.marks());
}

TEST_F(ParkMarksTest, SettingWhatIsSetChangesNothing) {
    ASSERT_EQ("", m_sut.add("A", ""));
    EXPECT_EQ("", m_sut.add("A", ""));
    EXPECT_EQ("", m_sut.remove("B"));
    EXPECT_EQ(IDs{"A"}, found());
}

TEST_F(ParkMarksTest, FileMayBeWrittenByHand) {
    m_directory.write("marks", "# of mine\n\nAXIS 1\nB");
    EXPECT_EQ((IDs{"AXIS 1", "B"}), found());
}

TEST_F(ParkMarksTest, WhatIsReadReplacesWhatWasRead) {
    m_directory.write("marks", "A\n");
    ASSERT_EQ("", m_sut.read());
    m_directory.write("marks", "B\n");
    ASSERT_EQ("", m_sut.read());
    EXPECT_EQ(IDs{"B"}, idsOf(m_sut));
}

TEST_F(ParkMarksTest, IDThatIsNoLineOfItsOwnIsRefused) {
    for (const char* id : {"", "#A", "A\nB", "A\rB", "A\x1b[2J", "\xff"}) {
        EXPECT_EQ("its ID cannot be written as a line of " + path(), m_sut.add(id, "")) << id;
        EXPECT_EQ(IDs{}, idsOf(m_sut)) << id;
    }
    EXPECT_FALSE(m_directory.contains("marks"));
}

TEST_F(ParkMarksTest, LineOfTheFileThatIsNoIDIsSaidAndLeftOut) {
    m_directory.write("marks", "A\n\x1b[2J\nB\r\nC\n");
    EXPECT_EQ(path() + " line 2: \"\\x1b[2J\" is no driver ID; the line is left out", m_sut.read());
    EXPECT_EQ((IDs{"A", "B", "C"}), idsOf(m_sut));
}

TEST_F(ParkMarksTest, PanelIsLeftOut) {
    m_directory.write("marks", "A\nPANEL\n");
    EXPECT_EQ(path() + " line 2: the panel driver cannot be parked; the line is left out", m_sut.read());
    EXPECT_EQ(IDs{"A"}, idsOf(m_sut));
}

TEST_F(ParkMarksTest, WhatIsNoRegularFileIsSaid) {
    std::filesystem::create_directory(path());
    EXPECT_EQ(path() + " cannot be read: not a regular file; no driver is taken for parked", m_sut.read());
    std::filesystem::remove(path());
    // Nobody waits for a writer.
    ASSERT_EQ(0, ::mkfifo(path().c_str(), 0600));
    EXPECT_EQ(path() + " cannot be read: not a regular file; no driver is taken for parked", m_sut.read());
    std::filesystem::remove(path());
    std::filesystem::create_symlink("nowhere", path());
    EXPECT_EQ(path() + " cannot be read: No such file or directory; no driver is taken for parked",
              m_sut.read());
    EXPECT_EQ(IDs{}, idsOf(m_sut));
}

TEST_F(ParkMarksTest, FileThatMayNotBeReadIsSaidAndKeptAsItIs) {
    m_directory.write("marks", "A\n");
    ::chmod(path().c_str(), 0);
    const WithoutCapabilities withoutRights({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
    ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
    EXPECT_EQ(path() + " cannot be read: Permission denied; no driver is taken for parked", m_sut.read());
    EXPECT_EQ(IDs{}, idsOf(m_sut));
    EXPECT_EQ(path() + " cannot be written: what is in it could not be read, and must not be lost",
              m_sut.add("B", ""));
    ::chmod(path().c_str(), 0600);
    EXPECT_EQ(IDs{"A"}, found());
    EXPECT_EQ("", m_sut.read());
    EXPECT_EQ("", m_sut.add("B", ""));
    EXPECT_EQ((IDs{"A", "B"}), found());
}

TEST_F(ParkMarksTest, DirectoryThatMayNotBeWrittenLeavesAllAsItWas) {
    ASSERT_EQ("", m_sut.add("A", ""));
    ::chmod(m_directory.path().c_str(), 0500);
    {
        const WithoutCapabilities withoutRights({CAP_DAC_OVERRIDE});
        ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
        EXPECT_EQ(path() + " cannot be written: Permission denied", m_sut.add("B", ""));
        EXPECT_EQ(path() + " cannot be written: Permission denied", m_sut.remove("A"));
    }
    ::chmod(m_directory.path().c_str(), 0700);
    EXPECT_EQ(IDs{"A"}, idsOf(m_sut));
    EXPECT_EQ(IDs{"A"}, found());
}

TEST_F(ParkMarksTest, FullDiskLeavesAllAsItWas) {
    ASSERT_EQ("", m_sut.add("A", ""));
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &before));
    const rlimit few{10, before.rlim_max};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &few));
    const std::string reason = m_sut.add("B", "");
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &before));
    ::signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(path() + " cannot be written: File too large", reason);
    EXPECT_EQ(IDs{"A"}, idsOf(m_sut));
    EXPECT_EQ(IDs{"A"}, found());
    EXPECT_EQ("", m_sut.add("B", ""));
    EXPECT_EQ((IDs{"A", "B"}), found());
}

TEST_F(ParkMarksTest, DirectoryInThePlaceOfTheFileIsSaid) {
    std::filesystem::create_directory(path());
    EXPECT_EQ(path() + " cannot be written: Is a directory", m_sut.add("A", ""));
    EXPECT_FALSE(m_sut.contains("A"));
}

TEST_F(ParkMarksTest, WhatLiesInTheWayOfTheDraftIsNotWrittenThrough) {
    m_directory.write("other", "of somebody else");
    std::filesystem::create_symlink(m_directory.path("other"), path(".part"));
    EXPECT_EQ(path() + " cannot be written: Too many levels of symbolic links", m_sut.add("A", ""));
    EXPECT_EQ("of somebody else", m_directory.read("other"));
    std::filesystem::remove(path(".part"));
    // Nobody waits for a reader.
    ASSERT_EQ(0, ::mkfifo(path(".part").c_str(), 0600));
    EXPECT_EQ(path() + " cannot be written: No such device or address", m_sut.add("A", ""));
    EXPECT_EQ(IDs{}, idsOf(m_sut));
}

TEST_F(ParkMarksTest, HalfADraftOfAKilledHostIsInNobodysWay) {
    m_directory.write("marks", "A\n");
    m_directory.write("marks.part", "# Drivers that are parked, and much more than is ever written\nX\nY\nZ");
    ASSERT_EQ("", m_sut.read());
    EXPECT_EQ(IDs{"A"}, idsOf(m_sut));
    EXPECT_EQ("", m_sut.add("B", ""));
    EXPECT_EQ((IDs{"A", "B"}), found());
}
