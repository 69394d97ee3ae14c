#include "ApiBody.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <limits>
#include <sstream>
#include <string>
#include <variant>

#include "ApiFault.h"

namespace {

std::string fault(const std::function<void()>& run) {
    try {
        run();
    } catch (const ApiFault& fault) {
        return fault.what();
    }
    return {};
}

ApiBody body(const std::string& json) {
    return {json, {"key", "type", "value", "parameters", "wait", "number", "request", "timeoutMs"}};
}

std::string parameters(const std::string& json) {
    std::ostringstream text;
    text << body("{\"parameters\":" + json + "}").parameters();
    return text.str();
}

std::string parametersFault(const std::string& json) {
    return fault([&] { parameters(json); });
}

StateValue stateValue(const std::string& type, const std::string& value) {
    return body("{\"type\":\"" + type + "\",\"value\":" + value + "}").stateValue();
}

std::string valueFault(const std::string& type, const std::string& value) {
    return fault([&] { stateValue(type, value); });
}

}  // namespace

TEST(ApiBody, EmptyBodyHasNoMembers) {
    EXPECT_EQ("\"key\" is missing", fault([] { static_cast<void>(body("").text("key")); }));
    EXPECT_EQ("", body("").request());
}

TEST(ApiBody, IsAnObjectOfKnownMembers) {
    EXPECT_EQ("the body is an array where an object is needed", fault([] { body("[]"); }));
    EXPECT_EQ("there is no member \"kye\"; known are key, value", fault([] {
                  ApiBody("{\"kye\":1}", {"key", "value"});
              }));
    EXPECT_EQ("there is no member \"a\"; none is known", fault([] { ApiBody("{\"a\":1}", {}); }));
}

TEST(ApiBody, HasSoManyBytesAtMostBeforeItIsRead) {
    const std::string text(64 * 1024, ' ');
    EXPECT_EQ("the body has more than 65536 bytes", fault([&] { body(text + ' '); }));
    EXPECT_EQ(std::string::npos, fault([&] { body(text); }).find("more than"));
}

TEST(ApiBody, TextIsNeitherMissingNorEmptyNorAnotherType) {
    EXPECT_EQ("a", body(R"({"key":"a"})").text("key"));
    EXPECT_EQ("\"key\" is empty", fault([] { static_cast<void>(body(R"({"key":""})").text("key")); }));
    EXPECT_EQ("\"key\" is a number where a text is needed",
              fault([] { static_cast<void>(body(R"({"key":1})").text("key")); }));
    EXPECT_EQ("\"key\" has a zero byte",
              fault([] { static_cast<void>(body(R"({"key":"a\u0000"})").text("key")); }));
    EXPECT_EQ("", body(R"({"key":""})").anyText("key"));
    EXPECT_EQ(std::nullopt, body("{}").optionalText("key"));
    EXPECT_EQ("a", body(R"({"key":"a"})").optionalText("key"));
}

TEST(ApiBody, ChoiceIsOneOfTheWords) {
    EXPECT_EQ(0u, body("{}").choice("wait", {"accepted", "taken"}));
    EXPECT_EQ(1u, body(R"({"wait":"taken"})").choice("wait", {"accepted", "taken"}));
    EXPECT_EQ("\"wait\" is \"takne\"; known are accepted, taken", fault([] {
                  static_cast<void>(body(R"({"wait":"takne"})").choice("wait", {"accepted", "taken"}));
              }));
}

TEST(ApiBody, NumberIsWholeAndInRange) {
    EXPECT_EQ(0u, body("{}").optionalNumber("number"));
    EXPECT_EQ(2147483647u, body("{\"number\":2147483647}").optionalNumber("number"));
    for (const std::string number : {"0", "-1", "1.0", "1e2", "2147483648", "99999999999999999999"})
        EXPECT_EQ(
            "\"number\" is " + number + " where a whole number from 1 to 2147483647 is needed",
            fault([&] { static_cast<void>(body("{\"number\":" + number + "}").optionalNumber("number")); }));
}

TEST(ApiBody, TimeoutIsAMinuteAtMost) {
    EXPECT_EQ(std::chrono::milliseconds(5000), body("{}").timeout());
    EXPECT_EQ(std::chrono::milliseconds(0), body("{\"timeoutMs\":0}").timeout());
    EXPECT_EQ(std::chrono::milliseconds(60000), body("{\"timeoutMs\":60000}").timeout());
    EXPECT_EQ("\"timeoutMs\" is 60001 where a whole number from 0 to 60000 is needed",
              fault([] { static_cast<void>(body("{\"timeoutMs\":60001}").timeout()); }));
}

TEST(ApiBody, RequestHasOneTo64PlainCharacters) {
    EXPECT_EQ("aZ09._-", body(R"({"request":"aZ09._-"})").request());
    const std::string longest(64, 'x');
    EXPECT_EQ(longest, body("{\"request\":\"" + longest + "\"}").request());
    EXPECT_EQ("\"request\" is \"a b\" where 1 to 64 characters from [A-Za-z0-9._-] are needed",
              fault([] { static_cast<void>(body(R"({"request":"a b"})").request()); }));
    EXPECT_NE("", fault([] { static_cast<void>(body(R"({"request":""})").request()); }));
    EXPECT_NE("", fault([&] { static_cast<void>(body("{\"request\":\"" + longest + "x\"}").request()); }));
    EXPECT_EQ("\"request\" is a number where a text is needed",
              fault([] { static_cast<void>(body(R"({"request":7})").request()); }));
}

TEST(ApiBody, StateValueIsOfTheTypeThatIsNamed) {
    EXPECT_EQ(StateValue(std::string("7")), stateValue("string", "\"7\""));
    EXPECT_EQ(StateValue(-7), stateValue("int", "-7"));
    EXPECT_EQ(StateValue(7.5f), stateValue("float", "7.5"));
    EXPECT_EQ(StateValue(7.0f), stateValue("float", "7"));
    EXPECT_EQ(StateValue(true), stateValue("bool", "true"));
    EXPECT_EQ("\"type\" is \"integer\"; known are string, int, float, bool", valueFault("integer", "1"));
    EXPECT_EQ("\"type\" is missing", fault([] { body("{\"value\":1}").stateValue(); }));
    EXPECT_EQ("\"value\" is missing", fault([] { body(R"({"type":"int"})").stateValue(); }));
    EXPECT_EQ("\"value\" is a number where a text is needed", valueFault("string", "7"));
    EXPECT_EQ("\"value\" is a text where a number is needed", valueFault("int", "\"7\""));
    EXPECT_EQ("\"value\" is null where a bool is needed", valueFault("bool", "null"));
}

TEST(ApiBody, IntHas32Bits) {
    EXPECT_EQ(StateValue(std::numeric_limits<int>::min()), stateValue("int", "-2147483648"));
    EXPECT_EQ(StateValue(std::numeric_limits<int>::max()), stateValue("int", "2147483647"));
    EXPECT_EQ("\"value\" is 2147483648 where a whole number from -2147483648 to 2147483647 is needed",
              valueFault("int", "2147483648"));
    EXPECT_NE("", valueFault("int", "1.5"));
}

TEST(ApiBody, FloatIsFinite) {
    EXPECT_EQ(StateValue(3.0e38f), stateValue("float", "3e38"));
    EXPECT_EQ("\"value\" is 4e38 where a finite float is needed", valueFault("float", "4e38"));
    EXPECT_EQ("\"value\" is -4e38 where a finite float is needed", valueFault("float", "-4e38"));
    EXPECT_EQ(StateValue(0.0f), stateValue("float", "1e-300"));
    EXPECT_EQ(StateValue(0.0f), stateValue("float", "1e-4000"));
}

TEST(ApiBody, ParametersAreAnObjectOrPairs) {
    EXPECT_EQ("", parameters("{}"));
    EXPECT_EQ("b=1, a=x", parameters(R"({"b":1,"a":"x"})"));
    EXPECT_EQ("a=1, a=2", parameters(R"([["a",1],["a",2]])"));
    EXPECT_TRUE(body("{}").parameters().empty());
}

TEST(ApiBody, ParameterValuesAreAsTyped) {
    EXPECT_EQ("a=0.10, b=-3, c=true, d=false, e=, f=1e3",
              parameters(R"({"a":0.10,"b":-3,"c":true,"d":false,"e":"","f":1e3})"));
}

TEST(ApiBody, WrongParametersAreNamed) {
    EXPECT_EQ("the value of the parameter \"a\" is null where a text, a number or a bool is needed",
              parametersFault(R"({"a":null})"));
    EXPECT_EQ("the value of the parameter \"a\" is an array where a text, a number or a bool is needed",
              parametersFault(R"([["a",[]]])"));
    EXPECT_EQ("the value of the parameter \"a\" has a zero byte", parametersFault(R"({"a":"\u0000"})"));
    EXPECT_EQ("the name of a parameter has a zero byte", parametersFault(R"({"\u0000":1})"));
    EXPECT_EQ("a parameter has no name", parametersFault(R"({"":1})"));
    EXPECT_EQ("\"parameters\" is a text where an object or an array is needed", parametersFault("\"a=1\""));
    const std::string noPair =
        "\"parameters\" is an array, and one of its elements is no pair of a name and a value";
    EXPECT_EQ(noPair, parametersFault(R"(["a"])"));
    EXPECT_EQ(noPair, parametersFault(R"([["a"]])"));
    EXPECT_EQ(noPair, parametersFault(R"([["a",1,2]])"));
    EXPECT_EQ(noPair, parametersFault(R"([[1,"a"]])"));
}

TEST(ApiBody, ContentIsWithoutRequestAndTimeout) {
    EXPECT_EQ(body(R"({"key":"a"})").content(), body(R"({"request":"r","timeoutMs":1,"key":"a"})").content());
    EXPECT_NE(body(R"({"key":"a"})").content(), body(R"({"key":"b"})").content());
}
