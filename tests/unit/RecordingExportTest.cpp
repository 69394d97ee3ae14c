#include "RecordingExport.h"

#include <sys/stat.h>

#include "RecordingFixture.h"

namespace {

using testing::HasSubstr;

class RecordingExportTest : public RecordingFixture {
protected:
    RecordingExportTest() {
        m_pWriter->valueText(at(0), key("AXIS1", "AXIS1.NAME"), "left");
        m_pWriter->exit(at(2), driver("LAMP"), 9, "signal 9");
    }
    EExit run(const RecordingExport::Choice& choice, const RecordingCommands::Choice& what = {}) {
        return RecordingExport(screen()).run(RecordingFiles::at(ringPath()), what, choice);
    }
};

}  // namespace

TEST_F(RecordingExportTest, JsonLines) {
    EXPECT_EQ(EExit::Done, run({.format = "jsonl"}, {.what = {{"LAMP"}}}));
    EXPECT_EQ(R"({"number":5,"time":"2026-11-22T14:03:22.181125Z","kind":"exit","driver":"LAMP","status":9,)"
              R"("text":"signal 9"})"
              "\n",
              out());
}

TEST_F(RecordingExportTest, CsvRows) {
    EXPECT_EQ(EExit::Done, run({.format = "csv"}));
    EXPECT_EQ(
        "number,time,kind,driver,key,value,text\r\n"
        "3,2026-11-22T14:03:22.181123Z,value,AXIS1,AXIS1.NAME,left,\"AXIS1.NAME = \"\"left\"\"\"\r\n"
        "5,2026-11-22T14:03:22.181125Z,exit,LAMP,,,signal 9\r\n",
        out());
}

TEST_F(RecordingExportTest, McapHasAChannelForEachKindOfADriver) {
    EXPECT_EQ(EExit::Done, run({.format = "mcap", .output = m_directory.path("x.mcap")}));
    EXPECT_EQ("2 records in " + m_directory.path("x.mcap") + "\n", out());
    const std::string file = m_directory.read("x.mcap");
    EXPECT_EQ(std::string("\x89MCAP0\r\n", 8), file.substr(0, 8));
    for (const char* pText : {"/AXIS1/value", "/LAMP/exit", "mf.value", "mf.exit", "jsonschema", "mfctl "})
        EXPECT_THAT(file, HasSubstr(pText));
    struct stat info {};
    ASSERT_EQ(0, ::stat(m_directory.path("x.mcap").c_str(), &info));
    EXPECT_EQ(0600u, info.st_mode & 0777u);
}

TEST_F(RecordingExportTest, RedactedHasNoTexts) {
    EXPECT_EQ(EExit::Done, run({.format = "jsonl", .output = {}, .isRedacted = true}));
    EXPECT_THAT(out(), HasSubstr(R"("key":"AXIS1.NAME","value":"***"})"));
    EXPECT_EQ(std::string::npos, out().find("left"));
}

TEST_F(RecordingExportTest, NoFileIsReplacedAndNoneIsLeftHalf) {
    m_directory.write("x", "mine");
    EXPECT_EQ(std::pair(EExit::Failed, m_directory.path("x") + ": File exists"),
              errorOf([&] { run({.format = "csv", .output = m_directory.path("x")}); }));
    EXPECT_EQ("mine", m_directory.read("x"));
    m_directory.write("recording/1.seg", "nothing");
    EXPECT_EQ(EExit::Failed, errorOf([&] {
                                 RecordingExport(screen()).run(
                                     RecordingFiles::at(m_directory.path("recording")), {},
                                     {.format = "csv", .output = m_directory.path("y")});
                             }).first);
    EXPECT_FALSE(m_directory.contains("y"));
}

TEST_F(RecordingExportTest, McapIsNothingForATerminal) {
    Screen terminal = screen();
    terminal.look.width = 80;
    EXPECT_EQ(std::pair(EExit::WrongUsage,
                        std::string("MCAP is nothing for a terminal; --output FILE names a file")),
              errorOf([&] {
                  RecordingExport(terminal).run(RecordingFiles::at(ringPath()), {}, {.format = "mcap"});
              }));
}
