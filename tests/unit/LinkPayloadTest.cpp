#include "LinkPayload.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <string>

#include "TimeText.h"

namespace {

const linkpayload::Time s_time = *base::utcTime("2026-11-22T12:15:16.900Z");

linkpayload::State state(ILinkHost::Value value, const std::string& cause = {}) {
    return {std::move(value), s_time, "0a1b", 123, cause};
}

TEST(LinkPayload, TextsAreTheseToTheByte) {
    using namespace linkpayload;
    EXPECT_EQ(text(Up{true, "0a1b", s_time, true}),
              R"({"up": true, "boot": "0a1b", "since": "2026-11-22T12:15:16.900Z", "complete": true})");
    EXPECT_EQ(text(Up{true, "0a1b", s_time, false, 124}),
              R"({"up": true, "boot": "0a1b", "since": "2026-11-22T12:15:16.900Z", "complete": false, )"
              R"("from": 124})");
    EXPECT_EQ(text(Up{false, "0a1b"}), R"({"up": false, "boot": "0a1b"})");
    EXPECT_EQ(text(Tick{"0a1b", 17}, s_time),
              R"({"boot": "0a1b", "tick": 17, "at": "2026-11-22T12:15:16.900Z"})");
    EXPECT_EQ(
        text(Tick{"0a1b", 17}, s_time,
             {{"S \"2\"", {"0c", 3}, std::chrono::microseconds(412)},
              {"S3", {"0d", 4}, std::chrono::microseconds(0)}}),
        R"({"boot": "0a1b", "tick": 17, "at": "2026-11-22T12:15:16.900Z", "heard": {"S \"2\"": {"tick": "0c:3", "us": 412}, )"
        R"("S3": {"tick": "0d:4", "us": 0}}})");
    EXPECT_EQ((Tick{"0a1b", 17}.text()), "0a1b:17");
    EXPECT_EQ(text(state(40)),
              R"({"v": 40, "t": "int", "at": "2026-11-22T12:15:16.900Z", "boot": "0a1b", "n": 123})");
    EXPECT_EQ(text(state(true, "killed by SIGSEGV")),
              R"({"v": true, "t": "bool", "at": "2026-11-22T12:15:16.900Z", "boot": "0a1b", "n": 123, )"
              R"("stale": "killed by SIGSEGV"})");
    EXPECT_EQ(text(state(0.1F)),
              R"({"v": 0.1, "t": "float", "at": "2026-11-22T12:15:16.900Z", "boot": "0a1b", "n": 123})");
    EXPECT_EQ(
        text(state(std::string("a\"\n"))),
        R"({"v": "a\"\u000a", "t": "string", "at": "2026-11-22T12:15:16.900Z", "boot": "0a1b", "n": 123})");
    EXPECT_EQ(text(Event{"hot", s_time, "0a1b:124"}),
              R"({"v": "hot", "at": "2026-11-22T12:15:16.900Z", "id": "0a1b:124"})");
    EXPECT_EQ(text(Sums{"0a1b", {{"A \"1\"", {20, 4711}}, {"B", {1, 3}}}}),
              R"({"boot": "0a1b", "told": {"A \"1\"": [20, 4711], "B": [1, 3]}})");
    EXPECT_EQ(text(Reply{EOutcome::Done, ""}), R"({"outcome": "done"})");
    EXPECT_EQ(text(Reply{EOutcome::Refused, "no such driver"}),
              R"({"outcome": "refused", "text": "no such driver"})");
    FIDParameterList parameters;
    EXPECT_EQ(text(parameters), R"({"p": []})");
    parameters.add("percent", "40");
    parameters.add("percent", "\"");
    EXPECT_EQ(text(parameters), R"({"p": [["percent","40"],["percent","\""]]})");
}

TEST(LinkPayload, SumsAreReadAsTheyAreWritten) {
    using namespace linkpayload;
    const Sums written{"0a1b", {{"A", {20, 4711}}, {"B", {0, 0}}}};
    EXPECT_EQ(sums(text(written)), written);
    for (const char* pBytes :
         {"", "[]", R"({"told": {}})", R"({"boot": "", "told": {}})", R"({"boot": "b"})",
          R"({"boot": "b", "told": []})", R"({"boot": "b", "told": {"A": 1}})",
          R"({"boot": "b", "told": {"A": [1]}})", R"({"boot": "b", "told": {"A": [1, -1]}})",
          R"({"boot": "b", "told": {"A": [1, "2"]}})"})
        EXPECT_EQ(sums(pBytes), std::nullopt) << pBytes;
    EXPECT_EQ(tick(text(written)), std::nullopt);
}

TEST(LinkPayload, OfWhatIsNoWordAboutTheSiteNothingIsRead) {
    for (const char* pBytes :
         {"", "[]", R"({"heard": 1})", R"({"heard": []})", R"({"heard": {"S": 1}})",
          R"({"heard": {"S": {}}})", R"({"heard": {"S": {"tick": "b", "us": 1}}})",
          R"({"heard": {"S": {"tick": 1, "us": 1}}})", R"({"heard": {"S": {"tick": "b:1"}}})",
          R"({"heard": {"S": {"tick": "b:1", "us": -1}}})",
          R"({"heard": {"S": {"tick": "b:1", "us": 3600000001}}})"})
        EXPECT_FALSE(linkpayload::heard(pBytes, "S")) << pBytes;
}

TEST(LinkPayload, WhatIsWrittenIsReadBack) {
    using namespace linkpayload;
    for (const Up& value :
         {Up{true, "0a1b", s_time, true}, Up{true, "0a1b", s_time, false, 124}, Up{false, "c"}})
        EXPECT_EQ(up(text(value)), value);
    EXPECT_EQ(tick(text(Tick{"0a1b", 17}, s_time)), (Tick{"0a1b", 17}));
    EXPECT_EQ(tickTime(text(Tick{"0a1b", 17}, s_time)), s_time);
    EXPECT_FALSE(tickTime(R"({"boot": "0a1b", "tick": 17})"));
    const Heard one{"S \"2\"", {"0c", 3}, std::chrono::microseconds(412)};
    const Heard other{"S3", {"0d", 4}, std::chrono::microseconds(0), true};
    EXPECT_EQ(tick(text(Tick{"0a1b", 17}, s_time, {one, other})), (Tick{"0a1b", 17}));
    EXPECT_EQ(heard(text(Tick{"0a1b", 17}, s_time, {one, other}), one.site), one);
    EXPECT_EQ(heard(text(Tick{"0a1b", 17}, s_time, {one, other}), other.site), other);
    EXPECT_FALSE(heard(text(Tick{"0a1b", 17}, s_time, {one, other}), "S4"));
    EXPECT_FALSE(heard(text(Tick{"0a1b", 17}, s_time), one.site));
    EXPECT_EQ(Tick::parse("0a:1b:17"), (Tick{"0a:1b", 17}));
    const float infinity = std::numeric_limits<float>::infinity();
    for (const ILinkHost::Value& value :
         {ILinkHost::Value(40), ILinkHost::Value(std::numeric_limits<int>::min()),
          ILinkHost::Value(std::numeric_limits<int>::max()), ILinkHost::Value(false), ILinkHost::Value(0.1F),
          ILinkHost::Value(std::numeric_limits<float>::max()), ILinkHost::Value(infinity),
          ILinkHost::Value(-infinity), ILinkHost::Value(std::numeric_limits<float>::denorm_min()),
          ILinkHost::Value(std::string()), ILinkHost::Value(std::string("\xc3\xa4\n\"\\"))}) {
        EXPECT_EQ(linkpayload::state(text(::state(value))), ::state(value));
        EXPECT_EQ(linkpayload::state(text(::state(value, "gone"))), ::state(value, "gone"));
    }
    const auto nan = linkpayload::state(text(::state(std::numeric_limits<float>::quiet_NaN())));
    ASSERT_TRUE(nan);
    EXPECT_TRUE(std::isnan(std::get<float>(nan->value)));
    EXPECT_EQ(event(text(Event{"hot", s_time, "0a1b:124"})), (Event{"hot", s_time, "0a1b:124"}));
    for (const EOutcome outcome : {EOutcome::Done, EOutcome::Refused, EOutcome::Expired, EOutcome::Unknown})
        EXPECT_EQ(reply(text(Reply{outcome, "why"})), (Reply{outcome, "why"}));
    FIDParameterList list;
    list.add("a", "1");
    list.add("a", "");
    EXPECT_EQ(parameters(*text(list)), list);
}

TEST(LinkPayload, WholeNumberIsAFloatWhereItSaysSo) {
    const auto found = linkpayload::state(
        R"({"v": 40, "t": "float", "at": "2026-11-22T12:15:16.900Z", "boot": "0a1b", "n": 123})");
    EXPECT_EQ(found, state(40.0F));
}

TEST(LinkPayload, ParametersThatAreNoUtf8HaveNoText) {
    FIDParameterList list;
    list.add("name", "\xff");
    EXPECT_EQ(linkpayload::text(list), std::nullopt);
}

TEST(LinkPayload, WhatIsNoSuchObjectIsNothing) {
    using namespace linkpayload;
    const std::string rest = R"(, "at": "2026-11-22T12:15:16.900Z", "boot": "b", "n": 1})";
    for (const char* pValue :
         {R"({"v": 2147483648, "t": "int")", R"({"v": 18446744073709551615, "t": "int")",
          R"({"v": 1.5, "t": "int")", R"({"v": 1e39, "t": "float")", R"({"v": "x", "t": "float")",
          R"({"v": 1, "t": "bool")", R"({"v": 1, "t": "string")", R"({"v": 1, "t": "double")", R"({"v": 1)",
          R"({"t": "int")", R"({"v": [], "t": "string")", R"({"v": 1, "t": "int", "stale": 1)"})
        EXPECT_FALSE(linkpayload::state(pValue + rest)) << pValue;
    EXPECT_TRUE(linkpayload::state(R"({"v": 1, "t": "int", "new": {"x": []})" + rest));
    for (const char* pBytes :
         {"", "null", "[]", "{", "{}", "\xff", R"({"up": 1, "boot": "b"})", R"({"up": false})",
          R"({"up": false, "boot": ""})", R"({"up": true, "boot": "b"})", R"({"boot": "b", "tick": -1})",
          R"({"boot": "b", "tick": 1.5})", R"({"v": "x", "at": "2026-11-22T12:15:16.900Z", "id": "b"})",
          R"({"v": "x", "at": "noon", "id": "b:1"})", R"({"outcome": "well"})", R"({"p": {}})",
          R"({"p": [["a"]]})", R"({"p": [["a", 1]]})", R"({"p": [["a", "b", "c"]]})"}) {
        EXPECT_FALSE(up(pBytes)) << pBytes;
        EXPECT_FALSE(linkpayload::state(pBytes)) << pBytes;
        EXPECT_FALSE(event(pBytes)) << pBytes;
        EXPECT_FALSE(tick(pBytes)) << pBytes;
        EXPECT_FALSE(reply(pBytes)) << pBytes;
        EXPECT_FALSE(parameters(pBytes)) << pBytes;
    }
    for (const char* pText : {"", ":1", "b", "b:", "b:x", "b:-1", "b:1 ", "b:99999999999999999999"})
        EXPECT_FALSE(Tick::parse(pText)) << pText;
}

TEST(LinkPayload, ParametersHaveTheLimitsOfAMessageToADriver) {
    const auto pairs = [](std::size_t count, const std::string& name) {
        std::string text = R"({"p": [)";
        for (std::size_t i = 0; i < count; ++i)
            text += (i ? ", " : "") + ("[\"" + name + "\", \"\"]");
        return text + "]}";
    };
    EXPECT_TRUE(linkpayload::parameters(pairs(255, "a")));
    EXPECT_FALSE(linkpayload::parameters(pairs(256, "a")));
    EXPECT_TRUE(linkpayload::parameters(pairs(1, std::string(255, 'a'))));
    EXPECT_FALSE(linkpayload::parameters(pairs(1, std::string(256, 'a'))));
}

TEST(LinkPayload, DeepNestingEndsInNothing) {
    EXPECT_FALSE(linkpayload::up(std::string(60000, '[')));
    std::string deep = R"({"up": )" + std::string(30000, '[') + std::string(30000, ']') + "}";
    EXPECT_FALSE(linkpayload::up(deep));
}

}  // namespace
