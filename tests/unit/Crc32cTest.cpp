#include "Crc32c.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

using stream::crc32c;
using stream::crc32cByTable;

TEST(Crc32c, IsTheKnownOneOfTheDigits) {
    EXPECT_EQ(crc32c(0, "123456789", 9), 0xe3069283u);
}

TEST(Crc32c, IsTheKnownOneOfThirtyTwoZeros) {
    const std::array<std::uint64_t, 4> words{};
    EXPECT_EQ(crc32c(0, words.data(), words.size()), 0x8a9136aau);
    EXPECT_EQ(crc32cByTable(0, words.data(), words.size()), 0x8a9136aau);
}

TEST(Crc32c, InstructionAndTableAgree) {
    std::vector<std::uint64_t> words;
    std::uint64_t word = 1;
    for (int i = 0; i < 100; ++i) {
        words.push_back(word);
        word = word * 6364136223846793005u + 1442695040888963407u;
        EXPECT_EQ(crc32c(77, words.data(), words.size()), crc32cByTable(77, words.data(), words.size()));
    }
}

TEST(Crc32c, GoesOnAfterAnotherPart) {
    const std::string text(1000, 'x');
    EXPECT_EQ(crc32c(crc32c(0, text.data(), 313), text.data() + 313, text.size() - 313),
              crc32c(0, text.data(), text.size()));
}

TEST(Crc32c, BytesAndWordsAgree) {
    const std::array<std::uint64_t, 3> words{1, 2, 0xfedcba9876543210u};
    std::array<char, sizeof words> bytes{};
    std::memcpy(bytes.data(), words.data(), sizeof words);
    EXPECT_EQ(crc32c(5, words.data(), words.size()), crc32c(5, bytes.data(), bytes.size()));
}
