#include "MacroStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TemporaryDirectory.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;

bool operator==(const MacroStep& left, const MacroStep& right) {
    return left.offset == right.offset && left.fid == right.fid && left.parameters == right.parameters;
}

namespace {

class MacroStoreTest : public testing::Test {
protected:
    static MacroStep step(int offset, const std::string& fid,
                          const std::vector<std::pair<std::string, std::string>>& parameters = {}) {
        MacroStep made{std::chrono::milliseconds(offset), fid, {}};
        for (const auto& [name, value] : parameters)
            made.parameters.add(name, value);
        return made;
    }

    /// Reads one broken file beside a good one.
    void readBroken(const std::string& content) {
        directory.write("broken.macro", content);
        directory.write("good.macro", "macro 1\n0 A.B\nend\n");
        const auto macros = sut.readAll();
        ASSERT_TRUE(macros);
        EXPECT_THAT(*macros, ElementsAre(Key("good")));
    }

    std::string broken(const std::string& lineAndText) const {
        return directory.path("broken.macro") + ":" + lineAndText;
    }

    TemporaryDirectory directory;
    std::vector<std::string> reports;
    MacroStore sut{directory.path(), [this](const std::string& text) { reports.push_back(text); }};
};

TEST_F(MacroStoreTest, ReadsNothingFromAnEmptyDirectory) {
    const auto macros = sut.readAll();
    ASSERT_TRUE(macros);
    EXPECT_THAT(*macros, IsEmpty());
}

TEST_F(MacroStoreTest, ReportsADirectoryThatIsNotThere) {
    MacroStore lost("/nonexistent/macros", [this](const std::string& text) { reports.push_back(text); });
    EXPECT_FALSE(lost.readAll());
    EXPECT_THAT(reports,
                ElementsAre("cannot read the macro directory \"/nonexistent/macros\": No such file or "
                            "directory"));
}

TEST_F(MacroStoreTest, WritesOneLineAStep) {
    ASSERT_TRUE(sut.write("fill", {step(0, "AXIS1.MOVE", {{"x", "10"}, {"y", "20"}}), step(250, "PUMP.ON")}));
    EXPECT_EQ(directory.read("fill.macro"), "macro 1\n0 AXIS1.MOVE x=10 y=20\n250 PUMP.ON\nend\n");
}

TEST_F(MacroStoreTest, ReadsWhatItWrote) {
    const MacroStore::Steps steps = {
        step(3, "A.B C", {{"", ""}, {"a=b", "c d%e\nf"}, {"n", "1"}, {"n", "2"}, {"ü", "\xff"}}),
        step(3, "A.B.C")};
    ASSERT_TRUE(sut.write("x", steps));
    const auto macros = sut.readAll();
    ASSERT_TRUE(macros && macros->contains("x"));
    EXPECT_EQ(macros->at("x"), steps);
}

TEST_F(MacroStoreTest, KeepsNamesThatAreNoFileNames) {
    ASSERT_TRUE(sut.write("../a/b", {}));
    ASSERT_TRUE(sut.write("..", {}));
    ASSERT_TRUE(sut.write("Mischer füllen", {}));
    EXPECT_TRUE(directory.contains("%2E.%2Fa%2Fb.macro"));
    EXPECT_TRUE(directory.contains("%2E..macro"));
    EXPECT_TRUE(directory.contains("Mischer%20f%C3%BCllen.macro"));
    const auto macros = sut.readAll();
    ASSERT_TRUE(macros);
    EXPECT_THAT(*macros, ElementsAre(Key(".."), Key("../a/b"), Key("Mischer füllen")));
}

TEST_F(MacroStoreTest, TakesTheLongestNameOfOddBytes) {
    const std::string name(80, '\xfc');
    ASSERT_TRUE(sut.write(name, {}));
    EXPECT_THAT(*sut.readAll(), ElementsAre(Key(name)));
}

TEST_F(MacroStoreTest, NameHasOneToEightyBytes) {
    EXPECT_FALSE(MacroStore::isValidName(""));
    EXPECT_TRUE(MacroStore::isValidName("x"));
    EXPECT_TRUE(MacroStore::isValidName(std::string(80, 'x')));
    EXPECT_FALSE(MacroStore::isValidName(std::string(81, 'x')));
}

TEST_F(MacroStoreTest, NameHasNoControlCharacter) {
    EXPECT_FALSE(MacroStore::isValidName("a\nb"));
}

TEST_F(MacroStoreTest, LeavesNoDraftBehind) {
    ASSERT_TRUE(sut.write("x", {}));
    int entries = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
        (void)entry;
        ++entries;
    }
    EXPECT_EQ(entries, 1);
}

TEST_F(MacroStoreTest, LeavesNoDraftBehindWhenTheFileCannotBeReplaced) {
    std::filesystem::create_directory(directory.path("x.macro"));
    EXPECT_FALSE(sut.write("x", {}));
    EXPECT_FALSE(directory.contains(".x.macro.tmp"));
    EXPECT_THAT(reports, ElementsAre("cannot replace " + directory.path("x.macro") + ": Is a directory"));
}

TEST_F(MacroStoreTest, IgnoresADraftWhoseWritingWasCutShort) {
    directory.write(".x.macro.tmp", "macro 1\n0 A");
    EXPECT_THAT(*sut.readAll(), IsEmpty());
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(MacroStoreTest, KeepsTheOldFileWhenTheNewOneCannotBeWritten) {
    ASSERT_TRUE(sut.write("x", {step(0, "A.OLD")}));
    std::filesystem::create_directory(directory.path(".x.macro.tmp"));
    EXPECT_FALSE(sut.write("x", {step(0, "A.NEW")}));
    EXPECT_EQ(directory.read("x.macro"), "macro 1\n0 A.OLD\nend\n");
    EXPECT_THAT(reports, ElementsAre("cannot write " + directory.path(".x.macro.tmp") + ": Is a directory"));
}

TEST_F(MacroStoreTest, ReplacesTheFileInsteadOfWritingIntoIt) {
    ASSERT_TRUE(sut.write("x", {step(0, "A.OLD")}));
    ASSERT_EQ(::link(directory.path("x.macro").c_str(), directory.path("second").c_str()), 0);
    ASSERT_TRUE(sut.write("x", {step(0, "A.NEW")}));
    EXPECT_EQ(directory.read("second"), "macro 1\n0 A.OLD\nend\n");
}

TEST_F(MacroStoreTest, RemovesTheFile) {
    ASSERT_TRUE(sut.write("x", {}));
    EXPECT_TRUE(sut.remove("x"));
    EXPECT_FALSE(directory.contains("x.macro"));
}

TEST_F(MacroStoreTest, RemovingWhatIsNotThereSucceeds) {
    EXPECT_TRUE(sut.remove("x"));
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(MacroStoreTest, ReportsAForeignFirstLine) {
    readBroken("makro 2\n");
    EXPECT_THAT(reports, ElementsAre(broken("1: left out, expected \"macro 1\", found \"makro 2\"")));
}

TEST_F(MacroStoreTest, ReportsAnOffsetThatIsNoNumber) {
    readBroken("macro 1\n0 A.B\nsoon A.B\nend\n");
    EXPECT_THAT(reports, ElementsAre(broken("3: left out, expected a time from 0 to 604800000 milliseconds, "
                                            "found \"soon\"")));
}

TEST_F(MacroStoreTest, ReportsANegativeOffset) {
    readBroken("macro 1\n-1 A.B\nend\n");
    EXPECT_THAT(reports, ElementsAre(broken("2: left out, expected a time from 0 to 604800000 milliseconds, "
                                            "found \"-1\"")));
}

TEST_F(MacroStoreTest, ReportsAnOffsetBeyondAllReason) {
    readBroken("macro 1\n604800001 A.B\nend\n");
    EXPECT_THAT(reports, ElementsAre(broken("2: left out, expected a time from 0 to 604800000 milliseconds, "
                                            "found \"604800001\"")));
}

TEST_F(MacroStoreTest, ReportsATimeThatGoesBack) {
    readBroken("macro 1\n10 A.B\n9 A.B\nend\n");
    EXPECT_THAT(reports,
                ElementsAre(broken("3: left out, the time 9 lies before the one of the step above")));
}

TEST_F(MacroStoreTest, ReportsAFidWithoutDriverID) {
    readBroken("macro 1\n0 MOVE\nend\n");
    EXPECT_THAT(reports, ElementsAre(broken("2: left out, expected a FID (driver ID, \".\", function), found "
                                            "\"MOVE\"")));
}

TEST_F(MacroStoreTest, ReportsAParameterWithoutValue) {
    readBroken("macro 1\n0 A.B x\nend\n");
    EXPECT_THAT(reports, ElementsAre(broken("2: left out, expected a parameter name=value, found \"x\"")));
}

TEST_F(MacroStoreTest, ReportsABrokenEscape) {
    readBroken("macro 1\n0 A.B x=%4\nend\n");
    EXPECT_THAT(reports,
                ElementsAre(broken("2: left out, \"%\" must stand before two hexadecimal digits, found "
                                   "\"x=%4\"")));
}

TEST_F(MacroStoreTest, ReportsAMissingEnd) {
    readBroken("macro 1\n0 A.B\n");
    EXPECT_THAT(reports, ElementsAre(broken("3: left out, the file ends without its last line, \"end\"")));
}

TEST_F(MacroStoreTest, ReportsTextBehindTheEnd) {
    readBroken("macro 1\nend\n0 A.B\n");
    EXPECT_THAT(reports, ElementsAre(broken("3: left out, expected nothing behind \"end\"")));
}

TEST_F(MacroStoreTest, ReportsAnEmptyFile) {
    readBroken("");
    EXPECT_THAT(reports, ElementsAre(broken("1: left out, the file ends without its last line, \"end\"")));
}

TEST_F(MacroStoreTest, ReportsAFileNameThatIsNoMacroName) {
    directory.write("a b.macro", "macro 1\nend\n");
    EXPECT_THAT(*sut.readAll(), IsEmpty());
    EXPECT_THAT(reports,
                ElementsAre(directory.path("a b.macro") +
                            ": left out, no macro name; letters, digits, \"-\", \"_\" and \".\" stand "
                            "for themselves, every other byte is %XX"));
}

TEST_F(MacroStoreTest, LeavesOutAnotherSpellingOfAName) {
    directory.write("%61.macro", "macro 1\n0 A.OTHER\nend\n");
    directory.write("a.macro", "macro 1\n0 A.B\nend\n");
    const auto macros = sut.readAll();
    ASSERT_TRUE(macros && macros->contains("a"));
    EXPECT_EQ(macros->at("a").front().fid, "A.B");
    EXPECT_EQ(reports.size(), 1u);
}

TEST_F(MacroStoreTest, ReportsAPipeInsteadOfWaitingForIt) {
    ASSERT_EQ(::mkfifo(directory.path("pipe.macro").c_str(), 0600), 0);
    EXPECT_THAT(*sut.readAll(), IsEmpty());
    EXPECT_THAT(reports, ElementsAre(directory.path("pipe.macro") +
                                     ": left out, a macro is a regular file of at most 16 MiB"));
}

TEST_F(MacroStoreTest, ReportsAFileThatIsTooLong) {
    directory.write("long.macro", "");
    ASSERT_EQ(::truncate(directory.path("long.macro").c_str(), 16 * 1024 * 1024 + 1), 0);
    EXPECT_THAT(*sut.readAll(), IsEmpty());
    EXPECT_THAT(reports, ElementsAre(directory.path("long.macro") +
                                     ": left out, a macro is a regular file of at most 16 MiB"));
}

TEST_F(MacroStoreTest, ReportsALinkToNowhere) {
    std::filesystem::create_symlink("nowhere", directory.path("link.macro"));
    EXPECT_THAT(*sut.readAll(), IsEmpty());
    EXPECT_THAT(reports, ElementsAre(directory.path("link.macro") + ": left out, No such file or directory"));
}

}  // namespace
