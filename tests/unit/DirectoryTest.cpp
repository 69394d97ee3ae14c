#include "sal/Directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "ChangedUmask.h"
#include "LogCapture.h"
#include "TemporaryDirectory.h"
#include "WithoutCapabilities.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Directory : public testing::Test {
protected:
    ~Directory() override {
        sal::Directory::setFileFilter(nullptr);
        std::error_code none;
        fs::permissions(directory.path("closed"), fs::perms::owner_all, none);
    }

    sal::Directory at(const std::string& name = {}) const {
        return sal::Directory(sal::Path(directory.path(name)));
    }
    std::list<std::string> xmlFiles() const { return at().getFileList("xml", sal::Directory::eSortByName); }
    std::list<std::string> entries() const { return at().getDirList(sal::Directory::eSortByName); }

    TemporaryDirectory directory;
};

TEST_F(Directory, IsNeverMadeForOthersToWriteIn) {
    const ChangedUmask umask(0);
    ASSERT_TRUE(at("a/b").createDirectory());
    EXPECT_EQ(fs::status(directory.path("a")).permissions(), fs::perms(0755));
    EXPECT_EQ(fs::status(directory.path("a/b")).permissions(), fs::perms(0755));
}

TEST_F(Directory, IsMadeForItsOwnerWhateverTheUmask) {
    const WithoutCapabilities rights{CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH};
    ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
    const ChangedUmask umask(0777);
    ASSERT_TRUE(at("a/b").createDirectory());
    EXPECT_EQ(fs::status(directory.path("a")).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(directory.path("a/b")).permissions(), fs::perms(0700));
}

TEST_F(Directory, UmaskOfTheOperatorHolds) {
    const ChangedUmask umask(027);
    ASSERT_TRUE(at("a").createDirectory());
    EXPECT_EQ(fs::status(directory.path("a")).permissions(), fs::perms(0750));
}

TEST_F(Directory, FileListHasTheFilesOfTheExtension) {
    directory.write("a.xml", "");
    directory.write("b.txt", "");
    directory.write("xml", "");
    EXPECT_THAT(xmlFiles(), ElementsAre("a.xml"));
}

TEST_F(Directory, ExtensionMatchesInAnyCase) {
    directory.write("a.XML", "");
    directory.write("b.Xml", "");
    EXPECT_THAT(xmlFiles(), ElementsAre("a.XML", "b.Xml"));
    EXPECT_THAT(at().getFileList("XML", sal::Directory::eSortByName), ElementsAre("a.XML", "b.Xml"));
}

TEST_F(Directory, LastDotBeginsTheExtension) {
    directory.write("a.xml.old", "");
    directory.write("b.old.xml", "");
    EXPECT_THAT(xmlFiles(), ElementsAre("b.old.xml"));
}

TEST_F(Directory, NameThatIsAllExtensionIsLeftOut) {
    directory.write(".xml", "");
    EXPECT_THAT(xmlFiles(), IsEmpty());
}

TEST_F(Directory, FileListIsInByteOrder) {
    for (const char* name : {"b.xml", "a.xml", "B.xml", "10.xml", "9.xml"})
        directory.write(name, "");
    EXPECT_THAT(xmlFiles(), ElementsAre("10.xml", "9.xml", "B.xml", "a.xml", "b.xml"));
}

TEST_F(Directory, FileListHasLinksToFilesOnly) {
    directory.write("file.txt", "");
    fs::create_symlink("file.txt", directory.path("good.xml"));
    fs::create_symlink("none", directory.path("dangling.xml"));
    fs::create_directory(directory.path("directory.xml"));
    ::mkfifo(directory.path("pipe.xml").c_str(), 0600);
    EXPECT_THAT(xmlFiles(), ElementsAre("good.xml"));
}

TEST_F(Directory, FilterLeavesFilesOut) {
    directory.write("good.xml", "");
    directory.write("bad.xml", "");
    sal::Directory::setFileFilter(
        [](const std::string& path) { return path.find("bad") == std::string::npos; });
    EXPECT_THAT(xmlFiles(), ElementsAre("good.xml"));
}

TEST_F(Directory, FilterGetsTheFullPath) {
    static std::string s_seen;
    directory.write("a.xml", "");
    sal::Directory::setFileFilter([](const std::string& path) {
        s_seen = path;
        return true;
    });
    xmlFiles();
    EXPECT_EQ(s_seen, directory.path("a.xml"));
}

TEST_F(Directory, FilterIsNotAskedForOtherFiles) {
    directory.write("a.txt", "");
    static bool s_asked = false;
    sal::Directory::setFileFilter([](const std::string&) { return s_asked = true; });
    xmlFiles();
    EXPECT_FALSE(s_asked);
}

TEST_F(Directory, MissingDirectoryHasNoFiles) {
    LogCapture log;
    EXPECT_THAT(at("none").getFileList("xml", sal::Directory::eSortByName), IsEmpty());
    EXPECT_THAT(log.finish(), HasSubstr("FILE: cannot list the directory " + directory.path("none") +
                                        ": No such file or directory\n"));
}

TEST_F(Directory, DirListHasEverythingButDots) {
    directory.write("file", "");
    directory.write(".hidden", "");
    fs::create_directory(directory.path("sub"));
    fs::create_symlink("none", directory.path("dangling"));
    EXPECT_THAT(entries(), ElementsAre(".hidden", "dangling", "file", "sub"));
}

TEST_F(Directory, UnreadableDirectoryHasNoEntries) {
    fs::create_directory(directory.path("closed"));
    directory.write("closed/file", "");
    fs::permissions(directory.path("closed"), fs::perms::none);
    const WithoutCapabilities rights{CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH};
    ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
    const LogCapture log;
    EXPECT_THAT(at("closed").getDirList(sal::Directory::eSortByName), IsEmpty());
}

TEST_F(Directory, CreateMakesTheParents) {
    EXPECT_TRUE(at("a/b/c").createDirectory());
    EXPECT_TRUE(fs::is_directory(directory.path("a/b/c")));
}

TEST_F(Directory, CreateTakesAnExistingDirectory) {
    EXPECT_TRUE(at().createDirectory());
}

TEST_F(Directory, CreateTakesALinkToADirectory) {
    fs::create_directory(directory.path("real"));
    fs::create_symlink("real", directory.path("link"));
    EXPECT_TRUE(at("link").createDirectory());
    EXPECT_TRUE(at("link/sub").createDirectory());
}

TEST_F(Directory, CreateTakesSeparatorsAtTheEndAndInARow) {
    EXPECT_TRUE(at("a//b/").createDirectory());
    EXPECT_TRUE(fs::is_directory(directory.path("a/b")));
}

TEST_F(Directory, CreateFailsWhereAFileStands) {
    directory.write("file", "");
    LogCapture log;
    EXPECT_FALSE(at("file").createDirectory());
    EXPECT_THAT(log.finish(), HasSubstr("error    FILE: cannot create the directory " +
                                        directory.path("file") + ": File exists\n"));
}

TEST_F(Directory, CreateFailsBelowAFile) {
    directory.write("file", "");
    LogCapture log;
    EXPECT_FALSE(at("file/sub").createDirectory());
    EXPECT_THAT(log.finish(), HasSubstr(": Not a directory\n"));
}

TEST_F(Directory, CreateFailsWhereALinkLeadsNowhere) {
    fs::create_symlink("none", directory.path("dangling"));
    const LogCapture log;
    EXPECT_FALSE(at("dangling").createDirectory());
    EXPECT_FALSE(at("dangling/sub").createDirectory());
}

TEST_F(Directory, CreateFailsForAnEmptyPath) {
    const LogCapture log;
    EXPECT_FALSE(sal::Directory(sal::Path()).createDirectory());
}

TEST_F(Directory, CreateSaysTheSystemsReason) {
    fs::create_directory(directory.path("closed"));
    fs::permissions(directory.path("closed"), fs::perms::owner_read | fs::perms::owner_exec);
    const WithoutCapabilities rights{CAP_DAC_OVERRIDE};
    ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
    LogCapture log;
    EXPECT_FALSE(at("closed/sub").createDirectory());
    EXPECT_THAT(log.finish(), HasSubstr("cannot create the directory " + directory.path("closed/sub") +
                                        ": Permission denied\n"));
}

}  // namespace
