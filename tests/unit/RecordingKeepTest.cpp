#include "RecordingKeep.h"

#include <sys/stat.h>

#include "RecordingFixture.h"
#include "StreamText.h"

namespace {

class RecordingKeepTest : public RecordingFixture {
protected:
    RecordingKeepTest() {
        m_pWriter->exit(at(-61'000'000), driver("LAMP"), 9, "too early");
        m_pWriter->valueInt(at(-60'000'000), key("LAMP", "LAMP.LEVEL"), 1);
        m_pWriter->exit(at(0), driver("LAMP"), 9, "last");
    }
    std::string directory() const { return m_directory.path("recording"); }
    EExit keep(const RecordingKeep::Choice& choice) {
        return RecordingKeep(screen()).run(RecordingFiles::of({ringPath(), directory()}), directory(),
                                           choice);
    }
    static std::string linesOf(const std::string& path) {
        std::string lines;
        RecordingReader reader(RecordingFiles::at(path), {});
        while (reader.next({}) == stream::IStreamReader::EResult::Record)
            lines += stream::lineOf(reader.record(), reader.names()) + '\n';
        return lines;
    }
};

}  // namespace

TEST_F(RecordingKeepTest, LastMinuteIsASegmentOfItsOwn) {
    std::filesystem::create_directories(directory());
    EXPECT_EQ(EExit::Done, keep({}));
    const std::string path = directory() + "/kept/20261122T140322Z.seg";
    EXPECT_EQ("2 records in " + path + "\n", out());
    EXPECT_EQ(
        "14:02:22.181123 LAMP value LAMP.LEVEL = 1\n"
        "14:03:22.181123 LAMP exit last\n",
        linesOf(path));
    struct stat info {};
    ASSERT_EQ(0, ::stat(path.c_str(), &info));
    EXPECT_EQ(0600u, info.st_mode & 0777u);
}

TEST_F(RecordingKeepTest, NoteIsAMarkAtItsEnd) {
    die();
    const std::string path = m_directory.path("mine.seg");
    EXPECT_EQ(EExit::Done, keep({.note = "the lamp went out", .output = path, .before = 5}));
    EXPECT_EQ("1 record in " + path + "\n", out());
    EXPECT_THAT(linesOf(path),
                testing::MatchesRegex("14:03:22.181123 LAMP exit last\n"
                                      "14:03:22.181123 host mark the lamp went out from console [^ \n]+\n"));
}

TEST_F(RecordingKeepTest, WhatIsThereIsNotReplaced) {
    m_directory.write("mine.seg", "mine");
    EXPECT_EQ(EExit::Failed,
              errorOf([&] { keep({.note = {}, .output = m_directory.path("mine.seg")}); }).first);
    EXPECT_EQ("mine", m_directory.read("mine.seg"));
}

TEST_F(RecordingKeepTest, WithoutAPlaceOrARecordItIsTold) {
    EXPECT_EQ(std::pair(EExit::WrongUsage,
                        std::string("no directory is known to keep it in; --output FILE names a file")),
              errorOf([&] { RecordingKeep(screen()).run(RecordingFiles::at(ringPath()), "", {}); }));
    startAnew("i2");
    EXPECT_EQ(std::pair(EExit::Failed, std::string("nothing has been recorded that could be kept")),
              errorOf([&] { keep({}); }));
}
