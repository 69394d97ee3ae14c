#include "JsonText.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

TEST(JsonText, CommasStandBetweenMembersAndElements) {
    JsonText sut;
    sut.beginObject().member("a", 1).name("b").beginArray().value("x").value("y").beginArray().endArray();
    sut.endArray().name("c").beginObject().endObject().member("d", 2).endObject();
    EXPECT_EQ("{\"a\":1,\"b\":[\"x\",\"y\",[]],\"c\":{},\"d\":2}", sut.take());
}

TEST(JsonText, IsEmptyAgainAfterTake) {
    JsonText sut;
    sut.value(1);
    EXPECT_EQ("1", sut.take());
    sut.value(2);
    EXPECT_EQ("2", sut.take());
}

TEST(JsonText, TextsAreEscaped) {
    JsonText sut;
    sut.beginObject().member("a", "\"\xff\\\x1b\xc3\xa4").member("b", std::string("\0", 1)).endObject();
    EXPECT_EQ("{\"a\":\"\\\"\xef\xbf\xbd\\\\\\u001b\xc3\xa4\",\"b\":\"\\u0000\"}", sut.take());
}

TEST(JsonText, NumbersHaveTheFewestDigitsThatMeanThem) {
    JsonText sut;
    sut.beginArray().value(0.1f).value(0.1).value(1.0).value(-2.5e-9).value(1e300).endArray();
    EXPECT_EQ("[0.1,0.1,1,-2.5e-09,1e+300]", sut.take());
}

TEST(JsonText, WholeNumbersKeepAllTheirDigits) {
    JsonText sut;
    sut.beginArray().value(std::numeric_limits<std::uint64_t>::max());
    sut.value(std::numeric_limits<std::int64_t>::min()).value(-1).endArray();
    EXPECT_EQ("[18446744073709551615,-9223372036854775808,-1]", sut.take());
}

TEST(JsonText, NoNumberIsNull) {
    JsonText sut;
    sut.beginArray().value(std::numeric_limits<float>::quiet_NaN());
    sut.value(std::numeric_limits<double>::infinity()).value(-std::numeric_limits<float>::infinity());
    EXPECT_EQ("[null,null,null]", sut.endArray().take());
}

TEST(JsonText, WhatIsNotThereIsNull) {
    JsonText sut;
    sut.beginArray().value(std::optional<int>()).value(std::optional<int>(3)).null().value(true).value(false);
    EXPECT_EQ("[null,3,null,true,false]", sut.endArray().take());
}

TEST(JsonText, TimesAreOfUtcWithMilliseconds) {
    using std::chrono::system_clock;
    JsonText sut;
    sut.beginArray().value(system_clock::time_point(std::chrono::milliseconds(1'700'000'000'007)));
    sut.value(system_clock::time_point(std::chrono::milliseconds(-1))).endArray();
    EXPECT_EQ("[\"2023-11-14T22:13:20.007Z\",\"1969-12-31T23:59:59.999Z\"]", sut.take());
}

TEST(JsonText, DurationsAreMilliseconds) {
    JsonText sut;
    EXPECT_EQ("{\"ageMs\":2500}",
              sut.beginObject().member("ageMs", std::chrono::milliseconds(2500)).endObject().take());
}
