#include "sal/File.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "LogCapture.h"
#include "TemporaryDirectory.h"
#include "WithoutCapabilities.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class File : public testing::Test {
protected:
    bool symlink(const std::string& target, const std::string& link, bool replace) const {
        return sal::File::symlink(sal::Path(target), sal::Path(directory.path(link)), replace);
    }
    bool remove(const std::string& name) const { return sal::File::remove(sal::Path(directory.path(name))); }
    std::size_t entries() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory.path()), {}));
    }

    TemporaryDirectory directory;
};

TEST_F(File, SymlinkPointsToItsTarget) {
    EXPECT_TRUE(symlink("/some/target", "link", false));
    EXPECT_EQ(fs::read_symlink(directory.path("link")), "/some/target");
}

TEST_F(File, SymlinkWithoutReplaceKeepsWhatIsThere) {
    directory.write("link", "kept");
    LogCapture log;
    EXPECT_FALSE(symlink("/target", "link", false));
    EXPECT_EQ(directory.read("link"), "kept");
    EXPECT_THAT(log.finish(), HasSubstr("error    FILE: cannot make the link " + directory.path("link") +
                                        " to /target: File exists\n"));
}

TEST_F(File, SymlinkReplacesALink) {
    symlink("/old", "link", true);
    EXPECT_TRUE(symlink("/new", "link", true));
    EXPECT_EQ(fs::read_symlink(directory.path("link")), "/new");
}

TEST_F(File, SymlinkReplacesALinkToADirectoryAndNotItsTarget) {
    fs::create_directory(directory.path("old"));
    fs::create_directory_symlink("old", directory.path("link"));
    EXPECT_TRUE(symlink("new", "link", true));
    EXPECT_EQ(fs::read_symlink(directory.path("link")), "new");
    EXPECT_TRUE(fs::is_empty(directory.path("old")));
}

TEST_F(File, SymlinkReplacesAFile) {
    directory.write("link", "a file");
    EXPECT_TRUE(symlink("/new", "link", true));
    EXPECT_TRUE(fs::is_symlink(directory.path("link")));
}

TEST_F(File, SymlinkSaysTheSystemsReason) {
    directory.write("closed/file", "");
    fs::permissions(directory.path("closed"), fs::perms::owner_read | fs::perms::owner_exec);
    {
        const WithoutCapabilities rights{CAP_DAC_OVERRIDE};
        LogCapture log;
        EXPECT_FALSE(symlink("/target", "closed/link", true));
        EXPECT_THAT(log.finish(),
                    HasSubstr("error    FILE: cannot make the link " + directory.path("closed/link") +
                              " to /target: Permission denied\n"));
    }
    fs::permissions(directory.path("closed"), fs::perms::owner_all);
}

TEST_F(File, SymlinkFailsOnADirectoryAndLeavesNothingBehind) {
    fs::create_directory(directory.path("link"));
    LogCapture log;
    EXPECT_FALSE(symlink("/new", "link", true));
    EXPECT_TRUE(fs::is_directory(fs::symlink_status(directory.path("link"))));
    EXPECT_EQ(entries(), 1u);
    EXPECT_THAT(log.finish(), HasSubstr(": Is a directory\n"));
}

TEST_F(File, SymlinkFailsInAMissingDirectory) {
    const LogCapture log;
    EXPECT_FALSE(symlink("/new", "none/link", true));
}

TEST_F(File, SymlinkReplacesInOneStep) {
    symlink("/old", "link", true);
    std::atomic<bool> done{false};
    bool alwaysThere = true;
    std::thread watcher([&] {
        while (!done)
            alwaysThere = alwaysThere && fs::is_symlink(fs::symlink_status(directory.path("link")));
    });
    for (int i = 0; i < 2000; ++i)
        symlink("/new", "link", true);
    done = true;
    watcher.join();
    EXPECT_TRUE(alwaysThere);
}

TEST_F(File, RemoveTakesAFile) {
    directory.write("file", "");
    EXPECT_TRUE(remove("file"));
    EXPECT_EQ(entries(), 0u);
}

TEST_F(File, RemoveTakesALinkAndNotItsTarget) {
    directory.write("target", "kept");
    fs::create_symlink("target", directory.path("link"));
    EXPECT_TRUE(remove("link"));
    EXPECT_EQ(directory.read("target"), "kept");
}

TEST_F(File, RemoveTakesALinkToADirectoryAndNotItsTarget) {
    fs::create_directory(directory.path("target"));
    fs::create_symlink("target", directory.path("link"));
    EXPECT_TRUE(remove("link"));
    EXPECT_TRUE(fs::is_directory(directory.path("target")));
}

TEST_F(File, RemoveTakesAnEmptyDirectory) {
    fs::create_directory(directory.path("empty"));
    EXPECT_TRUE(remove("empty"));
}

TEST_F(File, RemoveLeavesAFullDirectory) {
    directory.write("full/file", "kept");
    LogCapture log;
    EXPECT_FALSE(remove("full"));
    EXPECT_EQ(directory.read("full/file"), "kept");
    EXPECT_EQ(log.finish(), "");
}

TEST_F(File, RemoveOfNothingIsFalse) {
    EXPECT_FALSE(remove("none"));
}

TEST_F(File, RemoveSaysTheSystemsReason) {
    directory.write("closed/file", "");
    fs::permissions(directory.path("closed"), fs::perms::owner_read | fs::perms::owner_exec);
    {
        const WithoutCapabilities rights{CAP_DAC_OVERRIDE};
        ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
        LogCapture log;
        EXPECT_FALSE(remove("closed/file"));
        EXPECT_THAT(log.finish(), HasSubstr("warning  FILE: cannot remove " + directory.path("closed/file") +
                                            ": Permission denied\n"));
    }
    fs::permissions(directory.path("closed"), fs::perms::owner_all);
}

}  // namespace
