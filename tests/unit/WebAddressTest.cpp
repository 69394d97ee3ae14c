#include "WebAddress.h"

#include <gtest/gtest.h>

namespace {

std::string read(const std::string& text) {
    WebAddress address;
    std::string error;
    return WebAddress::read(text, address, error) ? address.text() : error;
}

TEST(WebAddressTest, PortAloneIsThisMachines) {
    EXPECT_EQ(read("8080"), "127.0.0.1:8080");
    EXPECT_EQ(read("0"), "127.0.0.1:0");
    EXPECT_EQ(read("localhost:80"), "127.0.0.1:80");
}

TEST(WebAddressTest, AddressStandsBeforeThePort) {
    EXPECT_EQ(read("0.0.0.0:8443"), "0.0.0.0:8443");
    EXPECT_EQ(read("[::1]:65535"), "[::1]:65535");
    EXPECT_EQ(read("[0:0:0:0:0:0:0:1]:1"), "[::1]:1");
}

TEST(WebAddressTest, WhatIsNoneIsToldWithWhatWouldBeRight) {
    const std::string form = " is not [ADDRESS:]PORT, such as 8080, 0.0.0.0:8443 or [::1]:8080: ";
    EXPECT_EQ(read("x"), "\"x\"" + form + "the port is a number from 0 to 65535");
    EXPECT_EQ(read("65536"), "\"65536\"" + form + "the port is a number from 0 to 65535");
    EXPECT_EQ(read("127.0.0.1:"), "\"127.0.0.1:\"" + form + "the port is a number from 0 to 65535");
    EXPECT_EQ(read("80 "), "\"80 \"" + form + "the port is a number from 0 to 65535");
    EXPECT_EQ(read("panel.example:80"),
              "\"panel.example:80\"" + form + "\"panel.example\" is no numeric address");
    EXPECT_EQ(read("::1:80"), "\"::1:80\"" + form + "an IPv6 address stands in brackets");
    EXPECT_EQ(read("[127.0.0.1]:80"), "\"[127.0.0.1]:80\"" + form + "\"127.0.0.1\" is no numeric address");
}

TEST(WebAddressTest, OnlyLoopbackIsThisMachineAlone) {
    for (const char* pAddress : {"127.0.0.1", "127.8.9.1", "::1"})
        EXPECT_TRUE((WebAddress{.address = pAddress}.isLoopback())) << pAddress;
    for (const char* pAddress : {"0.0.0.0", "::", "192.0.2.10", "fe80::1"})
        EXPECT_FALSE((WebAddress{.address = pAddress}.isLoopback())) << pAddress;
}

}  // namespace
