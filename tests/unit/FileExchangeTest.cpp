#include "FileExchange.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "TemporaryDirectory.h"

namespace {

class FileExchangeTest : public testing::Test {
protected:
    FileExchangeTest() {
        m_directory.write("a", "old a");
        m_directory.write("b", "old b");
    }
    std::string path(const std::string& name) const { return m_directory.path(name); }

    TemporaryDirectory m_directory;
    FileExchange m_sut;
};

}  // namespace

TEST_F(FileExchangeTest, FilesAreWrittenAndTakenAway) {
    EXPECT_EQ("", m_sut.perform({{path("a"), "new a"}, {path("b"), std::nullopt}, {path("c"), "new c"}}));
    EXPECT_EQ("new a", m_directory.read("a"));
    EXPECT_FALSE(m_directory.contains("b"));
    EXPECT_EQ("new c", m_directory.read("c"));
}

TEST_F(FileExchangeTest, TakenBackAllIsAsItWas) {
    ASSERT_EQ("", m_sut.perform({{path("a"), "new a"}, {path("b"), std::nullopt}, {path("c"), "new c"}}));
    EXPECT_EQ("", m_sut.takeBack());
    EXPECT_EQ("old a", m_directory.read("a"));
    EXPECT_EQ("old b", m_directory.read("b"));
    EXPECT_FALSE(m_directory.contains("c"));
}

TEST_F(FileExchangeTest, RefusalOfOneLeavesAllAsTheyWere) {
    EXPECT_EQ(path("none/c") + " cannot be written: No such file or directory",
              m_sut.perform({{path("a"), "new a"}, {path("b"), std::nullopt}, {path("none/c"), "new c"}}));
    EXPECT_EQ("old a", m_directory.read("a"));
    EXPECT_EQ("old b", m_directory.read("b"));
}

TEST_F(FileExchangeTest, WhatCouldNotBePutBackIsNotReplaced) {
    std::filesystem::create_directory(path("c"));
    EXPECT_EQ(path("c") + " cannot be replaced: it is not a regular file",
              m_sut.perform({{path("a"), "new a"}, {path("c"), "new c"}}));
    EXPECT_EQ("old a", m_directory.read("a"));
}
