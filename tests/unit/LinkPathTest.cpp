#include "LinkPath.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Sites = std::vector<std::string>;

TEST(LinkPath, IsItsSitesWithCommas) {
    EXPECT_EQ(LinkPath("").sites(), Sites());
    EXPECT_EQ(LinkPath("SITE3,SITE2").sites(), (Sites{"SITE3", "SITE2"}));
    EXPECT_EQ(LinkPath("SITE3,SITE2").text(), "SITE3,SITE2");
    EXPECT_EQ(LinkPath().with("SITE1").with("SITE2").text(), "SITE1,SITE2");
}

TEST(LinkPath, SiteThatFindsItselfInItIsTold) {
    EXPECT_EQ(LinkPath("SITE3,SITE2").fault("SITE1"), "");
    EXPECT_EQ(LinkPath("SITE3,SITE2").fault("SITE"), "");
    EXPECT_EQ(LinkPath("SITE3,SITE2").fault("SITE3"),
              "it goes round: it has passed SITE3,SITE2 and comes to SITE3 again");
}

TEST(LinkPath, EightSitesMayPassAndNotMore) {
    EXPECT_EQ(LinkPath("1,2,3,4,5,6,7,8").fault("X"), "");
    EXPECT_EQ(LinkPath("1,2,3,4,5,6,7,8,9").fault("X"), "it has passed more than 8 sites: 1,2,3,4,5,6,7,8,9");
}

TEST(LinkPath, OfThousandsOnlyTooManyAreKept) {
    std::string text = "1";
    for (int i = 0; i < 10000; ++i)
        text += ",1";
    EXPECT_EQ(LinkPath(text).sites().size(), 9U);
}

}  // namespace
