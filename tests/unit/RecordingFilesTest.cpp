#include "RecordingFiles.h"

#include <sys/stat.h>

#include "RecordingFixture.h"
#include "WithoutCapabilities.h"

namespace {

using Paths = std::vector<std::string>;

class RecordingFilesTest : public RecordingFixture {};

}  // namespace

TEST_F(RecordingFilesTest, SegmentsComeInTheOrderOfTheirNumbers) {
    for (const char* pName : {"100000000.seg", "00000002.seg", "00000010.seg", "notes"})
        m_directory.write(std::string("d/") + pName, "");
    const std::string directory = m_directory.path("d");
    const RecordingFiles sut = RecordingFiles::in(directory);
    EXPECT_EQ((Paths{directory + "/00000002.seg", directory + "/00000010.seg", directory + "/100000000.seg"}),
              sut.segments);
    EXPECT_EQ("", sut.ring);
}

TEST_F(RecordingFilesTest, PathIsRingsOrSegmentOrADirectoryOfThem) {
    EXPECT_EQ(ringPath(), RecordingFiles::at(ringPath()).ring);
    EXPECT_EQ(ringPath(), RecordingFiles::at(m_directory.path()).ring);
    m_pWriter->hang(at(0), driver("LAMP"), "no answer");
    const std::string segment = keep("1.seg", 1, 9);
    EXPECT_EQ(Paths{segment}, RecordingFiles::at(segment).segments);
    EXPECT_EQ(Paths{segment}, RecordingFiles::at(m_directory.path("recording")).segments);
    std::filesystem::rename(segment, m_directory.path("box"));
    EXPECT_EQ(Paths{m_directory.path("box")}, RecordingFiles::at(m_directory.path("box")).segments);
}

TEST_F(RecordingFilesTest, HostsPlaceIsBothOrWhatIsThere) {
    m_pWriter->hang(at(0), driver("LAMP"), "no answer");
    const std::string segment = keep("1.seg", 1, 9);
    const RecordingFiles sut = RecordingFiles::of({ringPath(), m_directory.path("recording")});
    EXPECT_EQ(Paths{segment}, sut.segments);
    EXPECT_EQ(ringPath(), sut.ring);
    EXPECT_TRUE(RecordingFiles::of({ringPath(), m_directory.path("absent")}).segments.empty());
}

TEST_F(RecordingFilesTest, NothingIsAFailure) {
    m_directory.write("empty/notes", "");
    const std::string empty = m_directory.path("empty");
    const std::pair nothing(EExit::Failed, "there is no recording in \"" + empty + "\"");
    EXPECT_EQ(nothing, errorOf([&] { RecordingFiles::at(empty); }));
    EXPECT_EQ(nothing, errorOf([&] { RecordingFiles::of({"", empty}); }));
    EXPECT_EQ(std::pair(EExit::Failed, "\"" + empty + "s\" cannot be read: No such file or directory"),
              errorOf([&] {
                  RecordingFiles::of({"", empty + "s"});
              }));
}

TEST_F(RecordingFilesTest, WhatMayNotBeLookedIntoIsNotAllowed) {
    m_directory.write("closed/1.seg", "");
    const std::string closed = m_directory.path("closed");
    ASSERT_EQ(0, ::chmod(closed.c_str(), 0));
    std::pair<EExit, std::string> refusal;
    {
        const WithoutCapabilities plain({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
        refusal = errorOf([&] { RecordingFiles::in(closed); });
    }
    ::chmod(closed.c_str(), 0700);
    EXPECT_EQ(std::pair(EExit::NotAllowed, "\"" + closed +
                                               "\" may be read by its host's user and by root only: "
                                               "Permission denied"),
              refusal);
}
