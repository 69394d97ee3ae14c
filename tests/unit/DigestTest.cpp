#include "Digest.h"

#include <gtest/gtest.h>

#include <string>

TEST(Digest, IsTheSha256InHexadecimalDigits) {
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", sha256(""));
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", sha256("abc"));
    EXPECT_NE(sha256("a"), sha256(std::string("a\0", 2)));
}
