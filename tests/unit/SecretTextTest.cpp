#include "SecretText.h"

#include <gtest/gtest.h>

#include <set>

namespace {

TEST(SecretTextTest, TokensAreLongAndNeverTheSame) {
    std::set<std::string> tokens;
    for (int i = 0; i < 1000; ++i) {
        const std::string token = randomToken();
        EXPECT_EQ(token.size(), 43u);
        EXPECT_EQ(token.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"),
                  std::string::npos);
        tokens.insert(token);
    }
    EXPECT_EQ(tokens.size(), 1000u);
}

TEST(SecretTextTest, DigitsAreAsManyAsAskedForAndEachComes) {
    std::set<char> seen;
    for (const char digit : randomDigits(1000))
        seen.insert(digit);
    EXPECT_EQ(seen.size(), 10u);
    EXPECT_EQ(randomDigits(6).size(), 6u);
}

TEST(SecretTextTest, HashIsSha256) {
    // As FIPS 180 has it for "abc".
    std::string hex;
    for (const char byte : hashOf("abc").substr(0, 4)) {
        static constexpr const char* s_digits = "0123456789abcdef";
        hex += s_digits[static_cast<unsigned char>(byte) >> 4];
        hex += s_digits[static_cast<unsigned char>(byte) & 15u];
    }
    EXPECT_EQ(hex, "ba7816bf");
    EXPECT_EQ(hashOf("abc").size(), 32u);
}

}  // namespace
