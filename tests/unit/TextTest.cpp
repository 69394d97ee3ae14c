#include "mfd/Text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Text, ThatFitsStaysAsItIs) {
    EXPECT_EQ(mfd::fittingText(""), "");
    EXPECT_EQ(mfd::fittingText(std::string(255, 'x')), std::string(255, 'x'));
}

TEST(Text, ThatIsTooLongIsCutBetweenCharacters) {
    EXPECT_EQ(mfd::fittingText(std::string(256, 'x')), std::string(255, 'x'));
    const std::string before(254, 'x');
    EXPECT_EQ(mfd::fittingText(before + "\xc3\xa4" + "y"), before);
    EXPECT_EQ(mfd::fittingText(before.substr(1) + "\xc3\xa4" + "y"), before.substr(1) + "\xc3\xa4");
    EXPECT_EQ(mfd::fittingText(before.substr(2) + "\xf0\x9f\x98\x80" + "y"), before.substr(2));
}

TEST(Text, ThatIsNoUtf8IsCutWhereTheRoomEnds) {
    EXPECT_EQ(mfd::fittingText(std::string(300, '\x80')), std::string(255, '\x80'));
}

}  // namespace
