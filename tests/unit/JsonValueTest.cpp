#include "JsonValue.h"

#include <gtest/gtest.h>

#include <string>

#include "ApiFault.h"

namespace {

std::string fault(const std::string& json) {
    try {
        JsonValue::read(json);
    } catch (const ApiFault& fault) {
        EXPECT_EQ(ApiFault::ECode::RequestInvalid, fault.code());
        return fault.what();
    }
    return {};
}

std::string content(const std::string& json) {
    std::string content;
    JsonValue::read(json).appendContent(content);
    return content;
}

std::string nested(std::size_t levels) {
    return std::string(levels, '[') + std::string(levels, ']');
}

}  // namespace

TEST(JsonValue, ValuesAreWhatIsWritten) {
    const JsonValue sut = JsonValue::read(R"({"t":"a\u00e4\n","b":[true,false,null],"o":{"x":{}}})");
    ASSERT_EQ(JsonValue::EKind::Object, sut.kind);
    EXPECT_EQ("a\xc3\xa4\n", sut.find("t")->text);
    ASSERT_EQ(3u, sut.find("b")->elements.size());
    EXPECT_TRUE(sut.find("b")->elements[0].isTrue);
    EXPECT_FALSE(sut.find("b")->elements[1].isTrue);
    EXPECT_EQ(JsonValue::EKind::Null, sut.find("b")->elements[2].kind);
    EXPECT_EQ(JsonValue::EKind::Object, sut.find("o")->find("x")->kind);
    EXPECT_EQ(nullptr, sut.find("none"));
}

TEST(JsonValue, NumbersKeepTheirDigits) {
    const JsonValue sut = JsonValue::read("[0, -7, 1.50, 1e3, 18446744073709551615, 18446744073709551616]");
    std::string numbers;
    for (const JsonValue& number : sut.elements)
        numbers += number.text + ' ';
    EXPECT_EQ("0 -7 1.50 1e3 18446744073709551615 18446744073709551616 ", numbers);
}

TEST(JsonValue, KindsAreNamed) {
    std::string words;
    for (const JsonValue& value : JsonValue::read(R"([null,true,1,"",[],{}])").elements)
        words += std::string(value.inWords()) + ", ";
    EXPECT_EQ("null, a bool, a number, a text, an array, an object, ", words);
}

TEST(JsonValue, WhatIsNoJsonIsRefusedWithItsPlace) {
    EXPECT_EQ(0u, fault("{\"a\":1,}").find("the body is no JSON: parse error at line 1, column 8: "))
        << fault("{\"a\":1,}");
    EXPECT_EQ(0u, fault("").find("the body is no JSON: parse error at line 1, column 1: ")) << fault("");
    EXPECT_EQ(0u, fault("{} {}").find("the body is no JSON: parse error at line 1, column 4: "));
    EXPECT_EQ(0u, fault("\"\xff\"").find("the body is no JSON: "));
    EXPECT_EQ(0u, fault("\"\\ud800\"").find("the body is no JSON: "));
    EXPECT_EQ(0u, fault("[NaN]").find("the body is no JSON: "));
    EXPECT_EQ(0u, fault("[1e999]").find("the body is no JSON: ")) << fault("[1e999]");
    EXPECT_EQ(0u, fault("{\"a\":").find("the body is no JSON: "));
}

TEST(JsonValue, NameStandsOnceInAnObject) {
    EXPECT_EQ("\"a\" stands twice in the same object", fault(R"({"a":1,"b":{"a":1},"\u0061":1})"));
    EXPECT_EQ("", fault(R"([{"a":1},{"a":1}])"));
}

TEST(JsonValue, HasSixteenLevelsAtMost) {
    EXPECT_EQ("", fault(nested(16)));
    EXPECT_EQ("the body has more than 16 levels of arrays and objects", fault(nested(17)));
    EXPECT_EQ("the body has more than 16 levels of arrays and objects", fault(std::string(60000, '[')));
}

TEST(JsonValue, ObjectHas512MembersAtMost) {
    std::string members;
    for (int i = 0; i < 512; ++i)
        members += (i ? ",\"" : "\"") + std::to_string(i) + "\":0";
    EXPECT_EQ("", fault('{' + members + '}'));
    EXPECT_EQ("an object of the body has more than 512 members", fault('{' + members + ",\"x\":0}"));
}

TEST(JsonValue, ContentIsTheSameWhateverTheOrderOfTheMembers) {
    EXPECT_EQ(content(R"({"a":1,"b":[true,"x"]})"), content(R"( { "b" : [ true , "x" ] , "a" : 1 } )"));
}

TEST(JsonValue, ContentDiffersWhereTheValuesDo) {
    EXPECT_NE(content("[1,2]"), content("[2,1]"));
    EXPECT_NE(content("[12]"), content("[1,2]"));
    EXPECT_NE(content("[\"1\"]"), content("[1]"));
    EXPECT_NE(content("[true]"), content("[false]"));
    EXPECT_NE(content("[[],1]"), content("[[1]]"));
    EXPECT_NE(content("[null]"), content("[]"));
    EXPECT_NE(content(R"({"a":"b"})"), content(R"({"ab":""})"));
    EXPECT_NE(content(R"({"a":{"b":1}})"), content(R"({"a":{},"b":1})"));
}
