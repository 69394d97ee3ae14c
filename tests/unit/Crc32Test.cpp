#include "Crc32.h"

#include <gtest/gtest.h>

TEST(Crc32Test, IsThatOfZip) {
    EXPECT_EQ(0u, crc32(""));
    EXPECT_EQ(0xcbf43926u, crc32("123456789"));
}
