#include "RandomID.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

TEST(RandomID, HasThirtyTwoDigits) {
    EXPECT_TRUE(std::regex_match(base::randomID(), std::regex("[0-9a-f]{32}")));
}

TEST(RandomID, IsAnotherEachTime) {
    std::set<std::string> all;
    for (int i = 0; i < 1000; ++i)
        all.insert(base::randomID());
    EXPECT_EQ(all.size(), 1000u);
}
