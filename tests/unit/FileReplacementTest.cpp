#include "FileReplacement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"
#include "WithoutCapabilities.h"

namespace {

using testing::ElementsAre;

/// What was synced, in order: "file" or "directory".
std::vector<std::string>& synced() {
    static std::vector<std::string> s_synced;
    return s_synced;
}

}  // namespace

/// In the place of the C library's.
extern "C" int fsync(int fd) {
    struct stat status {};
    ::fstat(fd, &status);
    synced().emplace_back(S_ISDIR(status.st_mode) ? "directory" : "file");
    return static_cast<int>(::syscall(SYS_fsync, fd));
}

TEST(FileReplacement, FileHasTheNewBytesAndNothingElseIsLeft) {
    const TemporaryDirectory directory;
    EXPECT_EQ("", base::replaceFile(directory.path("a"), "one"));
    EXPECT_EQ("one", directory.read("a"));
    EXPECT_EQ("", base::replaceFile(directory.path("a"), "two"));
    EXPECT_EQ("two", directory.read("a"));
    EXPECT_FALSE(directory.contains("a.part"));
}

TEST(FileReplacement, FileAndThenItsDirectoryAreOnDisk) {
    const TemporaryDirectory directory;
    synced().clear();
    EXPECT_EQ("", base::replaceFile(directory.path("a"), "one"));
    EXPECT_THAT(synced(), ElementsAre("file", "directory"));
    synced().clear();
    EXPECT_EQ("", base::removeFile(directory.path("a")));
    EXPECT_THAT(synced(), ElementsAre("directory"));
}

TEST(FileReplacement, NamesInADirectoryAreOnDisk) {
    const TemporaryDirectory directory;
    synced().clear();
    EXPECT_EQ("", base::syncDirectoryOf(directory.path("a")));
    EXPECT_EQ("", base::syncDirectoryOf("/a"));
    EXPECT_EQ("", base::syncDirectoryOf("a"));
    EXPECT_THAT(synced(), ElementsAre("directory", "directory", "directory"));
    EXPECT_EQ("\"/nowhere\" cannot be synced: No such file or directory",
              base::syncDirectoryOf("/nowhere/a"));
    // The kernel knows no such call of its own files.
    EXPECT_EQ("", base::syncDirectoryOf("/proc/a"));
}

TEST(FileReplacement, WhoHasTheOldOneOpenKeepsIt) {
    const TemporaryDirectory directory;
    directory.write("a", "one");
    std::filesystem::create_hard_link(directory.path("a"), directory.path("old"));
    EXPECT_EQ("", base::replaceFile(directory.path("a"), "two"));
    EXPECT_EQ("one", directory.read("old"));
}

TEST(FileReplacement, RightsOfTheFileStayAsTheyWere) {
    const TemporaryDirectory directory;
    directory.write("a", "one");
    ::chmod(directory.path("a").c_str(), 0640);
    EXPECT_EQ("", base::replaceFile(directory.path("a"), "two"));
    struct stat status {};
    ASSERT_EQ(0, ::stat(directory.path("a").c_str(), &status));
    EXPECT_EQ(0640u, status.st_mode & 07777);
}

TEST(FileReplacement, RefusalLeavesTheFileFromBefore) {
    const TemporaryDirectory directory;
    directory.write("a", "one");
    ::chmod(directory.path().c_str(), 0500);
    {
        const WithoutCapabilities withoutRights({CAP_DAC_OVERRIDE});
        ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
        EXPECT_EQ("Permission denied", base::replaceFile(directory.path("a"), "two"));
        EXPECT_EQ("Permission denied", base::removeFile(directory.path("a")));
    }
    ::chmod(directory.path().c_str(), 0700);
    EXPECT_EQ("one", directory.read("a"));
}

TEST(FileReplacement, DirectoryIsNotReplaced) {
    const TemporaryDirectory directory;
    std::filesystem::create_directory(directory.path("a"));
    EXPECT_EQ("Is a directory", base::replaceFile(directory.path("a"), "two"));
    EXPECT_TRUE(std::filesystem::is_directory(directory.path("a")));
    EXPECT_FALSE(directory.contains("a.part"));
}

TEST(FileReplacement, LinkInTheDraftsPlaceLeadsNowhere) {
    const TemporaryDirectory directory;
    directory.write("secret", "kept");
    std::filesystem::create_symlink(directory.path("secret"), directory.path("a.part"));
    EXPECT_NE("", base::replaceFile(directory.path("a"), "two"));
    EXPECT_EQ("kept", directory.read("secret"));
}

TEST(FileReplacement, RemovalOfNothingIsDone) {
    const TemporaryDirectory directory;
    EXPECT_EQ("", base::removeFile(directory.path("a")));
}
