#include "TextDifference.h"

#include <gtest/gtest.h>

TEST(TextDifference, IsEmptyForTheSameTexts) {
    std::string error = "before";
    EXPECT_EQ("", textDifference({"a", "x\n"}, {"b", "x\n"}, error));
    EXPECT_EQ("", error);
}

TEST(TextDifference, ShowsTheLinesThatDiffer) {
    std::string error;
    EXPECT_EQ("--- old one\n+++ new one\n@@ -1,2 +1,2 @@\n same\n-was\n+is\n",
              textDifference({"old one", "same\nwas\n"}, {"new one", "same\nis\n"}, error));
    EXPECT_EQ("", error);
}
