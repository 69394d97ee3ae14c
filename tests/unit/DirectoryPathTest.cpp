#include "DirectoryPath.h"

#include <gtest/gtest.h>

TEST(DirectoryPath, TwoTextsForOneDirectoryGiveOnePath) {
    EXPECT_EQ("/srv/work/data/A", directoryPath("/srv/work", "data/A"));
    EXPECT_EQ("/srv/work/data/A", directoryPath("/srv/work/", "data/x/../A//"));
    EXPECT_EQ("/", directoryPath("/", ""));
}

TEST(DirectoryPath, JoinedPathIsBelowTheOther) {
    EXPECT_EQ("/srv/work/link.xml", joinedPath("/srv/work", "link.xml"));
    EXPECT_EQ("/srv/work/link.xml", joinedPath("/srv/work/", "link.xml"));
}
