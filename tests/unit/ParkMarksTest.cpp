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

class ParkMarksTest : public testing::Test {
protected:
    std::string path(const std::string& suffix = {}) const { return m_directory.path("marks" + suffix); }
    /// What a host that is started now finds.
    IDs found() const {
        ParkMarks sut(path());
        EXPECT_EQ("", sut.read());
        return sut.driverIDs();
    }

    TemporaryDirectory m_directory;
    ParkMarks m_sut{path()};
};

}  // namespace

TEST_F(ParkMarksTest, MissingFileParksNobody) {
    EXPECT_EQ("", m_sut.read());
    EXPECT_EQ(IDs{}, m_sut.driverIDs());
    EXPECT_FALSE(m_sut.contains("A"));
    EXPECT_FALSE(m_directory.contains("marks"));
}

TEST_F(ParkMarksTest, MarkIsOnDiskAtOnceAndIsFoundAgain) {
    EXPECT_EQ("", m_sut.set("B", true));
    EXPECT_EQ("", m_sut.set("A", true));
    EXPECT_TRUE(m_sut.contains("A"));
    EXPECT_EQ(
        "# Drivers that are parked, an ID a line: stopDriver adds one, startDriver takes it away.\nA\nB\n",
        m_directory.read("marks"));
    EXPECT_EQ((IDs{"A", "B"}), found());
    EXPECT_FALSE(m_directory.contains("marks.part"));
}

TEST_F(ParkMarksTest, MarkThatIsTakenBackIsGone) {
    ASSERT_EQ("", m_sut.set("A", true));
    ASSERT_EQ("", m_sut.set("B", true));
    EXPECT_EQ("", m_sut.set("A", false));
    EXPECT_FALSE(m_sut.contains("A"));
    EXPECT_EQ(IDs{"B"}, found());
    EXPECT_EQ("", m_sut.set("B", false));
    EXPECT_EQ(IDs{}, found());
}

TEST_F(ParkMarksTest, SettingWhatIsSetChangesNothing) {
    ASSERT_EQ("", m_sut.set("A", true));
    EXPECT_EQ("", m_sut.set("A", true));
    EXPECT_EQ("", m_sut.set("B", false));
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
    EXPECT_EQ(IDs{"B"}, m_sut.driverIDs());
}

TEST_F(ParkMarksTest, IDThatIsNoLineOfItsOwnIsRefused) {
    for (const char* id : {"", "#A", "A\nB", "A\rB", "A\x1b[2J", "\xff"}) {
        EXPECT_EQ("its ID cannot be written as a line of " + path(), m_sut.set(id, true)) << id;
        EXPECT_EQ(IDs{}, m_sut.driverIDs()) << id;
    }
    EXPECT_FALSE(m_directory.contains("marks"));
}

TEST_F(ParkMarksTest, LineOfTheFileThatIsNoIDIsSaidAndLeftOut) {
    m_directory.write("marks", "A\n\x1b[2J\nB\r\nC\n");
    EXPECT_EQ(path() + " line 2: \"\\x1b[2J\" is no driver ID; the line is left out", m_sut.read());
    EXPECT_EQ((IDs{"A", "B", "C"}), m_sut.driverIDs());
}

TEST_F(ParkMarksTest, PanelIsLeftOut) {
    m_directory.write("marks", "A\nPANEL\n");
    EXPECT_EQ(path() + " line 2: the panel driver cannot be parked; the line is left out", m_sut.read());
    EXPECT_EQ(IDs{"A"}, m_sut.driverIDs());
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
    EXPECT_EQ(IDs{}, m_sut.driverIDs());
}

TEST_F(ParkMarksTest, FileThatMayNotBeReadIsSaidAndKeptAsItIs) {
    m_directory.write("marks", "A\n");
    ::chmod(path().c_str(), 0);
    const WithoutCapabilities withoutRights({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
    ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
    EXPECT_EQ(path() + " cannot be read: Permission denied; no driver is taken for parked", m_sut.read());
    EXPECT_EQ(IDs{}, m_sut.driverIDs());
    EXPECT_EQ(path() + " cannot be written: what is in it could not be read, and must not be lost",
              m_sut.set("B", true));
    ::chmod(path().c_str(), 0600);
    EXPECT_EQ(IDs{"A"}, found());
    EXPECT_EQ("", m_sut.read());
    EXPECT_EQ("", m_sut.set("B", true));
    EXPECT_EQ((IDs{"A", "B"}), found());
}

TEST_F(ParkMarksTest, DirectoryThatMayNotBeWrittenLeavesAllAsItWas) {
    ASSERT_EQ("", m_sut.set("A", true));
    ::chmod(m_directory.path().c_str(), 0500);
    {
        const WithoutCapabilities withoutRights({CAP_DAC_OVERRIDE});
        ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
        EXPECT_EQ(path() + " cannot be written: Permission denied", m_sut.set("B", true));
        EXPECT_EQ(path() + " cannot be written: Permission denied", m_sut.set("A", false));
    }
    ::chmod(m_directory.path().c_str(), 0700);
    EXPECT_EQ(IDs{"A"}, m_sut.driverIDs());
    EXPECT_EQ(IDs{"A"}, found());
}

TEST_F(ParkMarksTest, FullDiskLeavesAllAsItWas) {
    ASSERT_EQ("", m_sut.set("A", true));
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &before));
    const rlimit few{10, before.rlim_max};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &few));
    const std::string reason = m_sut.set("B", true);
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &before));
    ::signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(path() + " cannot be written: File too large", reason);
    EXPECT_EQ(IDs{"A"}, m_sut.driverIDs());
    EXPECT_EQ(IDs{"A"}, found());
    EXPECT_EQ("", m_sut.set("B", true));
    EXPECT_EQ((IDs{"A", "B"}), found());
}

TEST_F(ParkMarksTest, DirectoryInThePlaceOfTheFileIsSaid) {
    std::filesystem::create_directory(path());
    EXPECT_EQ(path() + " cannot be written: Is a directory", m_sut.set("A", true));
    EXPECT_FALSE(m_sut.contains("A"));
}

TEST_F(ParkMarksTest, WhatLiesInTheWayOfTheDraftIsNotWrittenThrough) {
    m_directory.write("other", "of somebody else");
    std::filesystem::create_symlink(m_directory.path("other"), path(".part"));
    EXPECT_EQ(path() + " cannot be written: Too many levels of symbolic links", m_sut.set("A", true));
    EXPECT_EQ("of somebody else", m_directory.read("other"));
    std::filesystem::remove(path(".part"));
    // Nobody waits for a reader.
    ASSERT_EQ(0, ::mkfifo(path(".part").c_str(), 0600));
    EXPECT_EQ(path() + " cannot be written: No such device or address", m_sut.set("A", true));
    EXPECT_EQ(IDs{}, m_sut.driverIDs());
}

TEST_F(ParkMarksTest, HalfADraftOfAKilledHostIsInNobodysWay) {
    m_directory.write("marks", "A\n");
    m_directory.write("marks.part", "# Drivers that are parked, and much more than is ever written\nX\nY\nZ");
    ASSERT_EQ("", m_sut.read());
    EXPECT_EQ(IDs{"A"}, m_sut.driverIDs());
    EXPECT_EQ("", m_sut.set("B", true));
    EXPECT_EQ((IDs{"A", "B"}), found());
}
