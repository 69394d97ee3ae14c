#include "sal/HostAddress.h"

#include <gtest/gtest.h>

namespace {

TEST(HostAddress, KeepsTheTextAsItIs) {
    EXPECT_EQ(sal::HostAddress(std::string("192.0.2.10")).getAddressString(), "192.0.2.10");
    EXPECT_EQ(sal::HostAddress("not an address").getAddressString(), "not an address");
}

TEST(HostAddress, IsEmptyWithoutText) {
    EXPECT_EQ(sal::HostAddress().getAddressString(), "");
    EXPECT_FALSE(sal::HostAddress().isValid());
}

TEST(HostAddress, DottedTextIsValid) {
    EXPECT_TRUE(sal::HostAddress("192.0.2.10").isValid());
    EXPECT_TRUE(sal::HostAddress("255.255.255.0").isValid());
}

class HostAddressMalformed : public testing::TestWithParam<std::string> {};

TEST_P(HostAddressMalformed, IsNotValid) {
    EXPECT_FALSE(sal::HostAddress(GetParam()).isValid());
}

INSTANTIATE_TEST_SUITE_P(Texts, HostAddressMalformed,
                         testing::Values("192.0.2", "192.0.2.256", "192.0.2.1.1", "192.0.2.010", " 192.0.2.1",
                                         "192.0.2.1 ", "192.0.2.1/24", "0x7f.1", "::1", "host",
                                         std::string("192.0.2.1\0x", 11)));

}  // namespace
