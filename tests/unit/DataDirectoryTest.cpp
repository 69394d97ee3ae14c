#include "DataDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "TemporaryDirectory.h"

TEST(DataDirectory, MakesTheDirectory) {
    const TemporaryDirectory parent;
    DataDirectory sut(parent.path("data"));
    EXPECT_EQ(std::nullopt, sut.acquire());
    EXPECT_TRUE(std::filesystem::is_directory(parent.path("data")));
}

TEST(DataDirectory, SecondHostIsKeptOutAndToldWho) {
    const TemporaryDirectory parent;
    DataDirectory first(parent.path("data"));
    ASSERT_EQ(std::nullopt, first.acquire());
    const std::string expected =
        "another host runs with " + parent.path("data") + " (process " + std::to_string(::getpid()) + ")";
    const pid_t second = ::fork();
    if (second == 0)
        ::_exit(DataDirectory(parent.path("data")).acquire() == expected ? 0 : 1);
    int status = -1;
    ::waitpid(second, &status, 0);
    EXPECT_EQ(0, status);
}

TEST(DataDirectory, IsFreeWhenItsHostHasEnded) {
    const TemporaryDirectory parent;
    { ASSERT_EQ(std::nullopt, DataDirectory(parent.path("data")).acquire()); }
    EXPECT_EQ(std::nullopt, DataDirectory(parent.path("data")).acquire());
}

TEST(DataDirectory, FileInItsPlaceIsNamed) {
    const TemporaryDirectory parent;
    parent.write("data", "");
    EXPECT_EQ(parent.path("data") + " is not a directory", DataDirectory(parent.path("data")).acquire());
}

TEST(DataDirectory, TellsWhyItCannotBeMade) {
    EXPECT_EQ("cannot make /proc/data: No such file or directory; make it yourself, or run with --sandbox",
              DataDirectory("/proc/data").acquire());
}

TEST(DataDirectory, NamesEntriesThatAreNoLinks) {
    const TemporaryDirectory parent;
    DataDirectory sut(parent.path());
    std::filesystem::create_symlink("/nowhere", parent.path("AXIS1"));
    EXPECT_EQ("", sut.foreignEntries());
    parent.write("notes.txt", "");
    EXPECT_EQ("notes.txt", sut.foreignEntries());
}

TEST(DataDirectory, ItsOwnLockIsNothingForeign) {
    const TemporaryDirectory parent;
    DataDirectory sut(parent.path("data"));
    ASSERT_EQ(std::nullopt, sut.acquire());
    EXPECT_EQ("", sut.foreignEntries());
}

TEST(DataDirectory, NamesLinksThatLeadOutOfTheWorkplace) {
    const TemporaryDirectory parent;
    DataDirectory sut(parent.path());
    std::filesystem::create_symlink("/workplace/data/AXIS1", parent.path("AXIS1"));
    EXPECT_EQ("", sut.foreignEntries("/workplace"));
    std::filesystem::create_symlink("/workplace2/data/AXIS2", parent.path("AXIS2"));
    EXPECT_EQ("AXIS2", sut.foreignEntries("/workplace"));
    EXPECT_EQ("", sut.foreignEntries());
}

TEST(DataDirectory, NoWorkplaceOwnsAFile) {
    const TemporaryDirectory parent;
    parent.write("notes.txt", "");
    EXPECT_EQ("notes.txt", DataDirectory(parent.path()).foreignEntries("/workplace"));
}

TEST(DataDirectory, NamesAtMostThreeForeignEntries) {
    const TemporaryDirectory parent;
    DataDirectory sut(parent.path());
    for (const char* name : {"a", "b", "c", "d"})
        parent.write(name, "");
    const std::string names = sut.foreignEntries();
    EXPECT_TRUE(names.ends_with(", ..."));
    EXPECT_EQ(12u, names.size());
}
