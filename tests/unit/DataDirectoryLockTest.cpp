#include "DataDirectoryLock.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "TemporaryDirectory.h"

TEST(DataDirectoryLock, MakesTheDirectory) {
    const TemporaryDirectory parent;
    DataDirectoryLock sut(parent.path("data"));
    EXPECT_EQ("", sut.acquire());
    EXPECT_TRUE(std::filesystem::is_directory(parent.path("data")));
}

TEST(DataDirectoryLock, SecondHostIsKeptOutAndToldWho) {
    const TemporaryDirectory parent;
    DataDirectoryLock first(parent.path("data"));
    ASSERT_EQ("", first.acquire());
    const std::string expected =
        "another host runs with " + parent.path("data") + " (process " + std::to_string(::getpid()) + ")";
    const pid_t second = ::fork();
    if (second == 0)
        ::_exit(DataDirectoryLock(parent.path("data")).acquire() == expected ? 0 : 1);
    int status = -1;
    ::waitpid(second, &status, 0);
    EXPECT_EQ(0, status);
}

TEST(DataDirectoryLock, IsFreeWhenItsHostHasEnded) {
    const TemporaryDirectory parent;
    { ASSERT_EQ("", DataDirectoryLock(parent.path("data")).acquire()); }
    EXPECT_EQ("", DataDirectoryLock(parent.path("data")).acquire());
}

TEST(DataDirectoryLock, FileInItsPlaceIsNamed) {
    const TemporaryDirectory parent;
    parent.write("data", "");
    EXPECT_EQ(parent.path("data") + " is not a directory", DataDirectoryLock(parent.path("data")).acquire());
}

TEST(DataDirectoryLock, TellsWhyItCannotBeMade) {
    EXPECT_EQ("cannot make /proc/data: No such file or directory; make it yourself, or run with --sandbox",
              DataDirectoryLock("/proc/data").acquire());
}

TEST(DataDirectoryLock, NamesEntriesThatAreNoLinks) {
    const TemporaryDirectory parent;
    std::filesystem::create_symlink("/nowhere", parent.path("AXIS1"));
    EXPECT_EQ("", DataDirectoryLock::foreignEntries(parent.path()));
    parent.write("notes.txt", "");
    EXPECT_EQ("notes.txt", DataDirectoryLock::foreignEntries(parent.path()));
}

TEST(DataDirectoryLock, ItsOwnLockIsNothingForeign) {
    const TemporaryDirectory parent;
    DataDirectoryLock sut(parent.path("data"));
    ASSERT_EQ("", sut.acquire());
    EXPECT_EQ("", DataDirectoryLock::foreignEntries(parent.path("data")));
}

TEST(DataDirectoryLock, NamesLinksThatLeadOutOfTheWorkplace) {
    const TemporaryDirectory parent;
    std::filesystem::create_symlink("/workplace/data/AXIS1", parent.path("AXIS1"));
    EXPECT_EQ("", DataDirectoryLock::foreignEntries(parent.path(), "/workplace"));
    std::filesystem::create_symlink("/workplace2/data/AXIS2", parent.path("AXIS2"));
    EXPECT_EQ("AXIS2", DataDirectoryLock::foreignEntries(parent.path(), "/workplace"));
    EXPECT_EQ("", DataDirectoryLock::foreignEntries(parent.path()));
}

TEST(DataDirectoryLock, NoWorkplaceOwnsAFile) {
    const TemporaryDirectory parent;
    parent.write("notes.txt", "");
    EXPECT_EQ("notes.txt", DataDirectoryLock::foreignEntries(parent.path(), "/workplace"));
}

TEST(DataDirectoryLock, NamesAtMostThreeForeignEntries) {
    const TemporaryDirectory parent;
    for (const char* name : {"a", "b", "c", "d"})
        parent.write(name, "");
    const std::string names = DataDirectoryLock::foreignEntries(parent.path());
    EXPECT_TRUE(names.ends_with(", ..."));
    EXPECT_EQ(12u, names.size());
}
