#include "DirectoryPath.h"

#include <gtest/gtest.h>

TEST(DirectoryPath, TwoTextsForOneDirectoryGiveOnePath) {
    EXPECT_EQ("/srv/north/data/A", directoryPath("/srv/north", "data/A"));
    EXPECT_EQ("/srv/north/data/A", directoryPath("/srv/north/", "data/x/../A//"));
    EXPECT_EQ("/", directoryPath("/", ""));
}

TEST(DirectoryPath, JoinedPathIsBelowTheOther) {
    EXPECT_EQ("/srv/north/link.xml", joinedPath("/srv/north", "link.xml"));
    EXPECT_EQ("/srv/north/link.xml", joinedPath("/srv/north/", "link.xml"));
}
