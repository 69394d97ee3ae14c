#include "ApiTarget.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "ApiFault.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// What is said of a target that is refused; empty for one that is not.
std::string fault(const std::string& target) {
    try {
        ApiTarget::read(target);
    } catch (const ApiFault& fault) {
        return fault.what();
    }
    return {};
}

}  // namespace

TEST(ApiTarget, PathIsPartedAtSlashesAndQueryAtAmpersands) {
    const ApiTarget sut = ApiTarget::read("/api/v1/state?glob=A*&since=12");
    EXPECT_THAT(sut.path, ElementsAre("api", "v1", "state"));
    EXPECT_EQ((std::map<std::string, std::string>{{"glob", "A*"}, {"since", "12"}}), sut.query);
}

TEST(ApiTarget, MayNameItsHost) {
    const ApiTarget sut = ApiTarget::read("http://localhost:80/api/v1?glob=A");
    EXPECT_THAT(sut.path, ElementsAre("api", "v1"));
    EXPECT_EQ((std::map<std::string, std::string>{{"glob", "A"}}), sut.query);
    EXPECT_THAT(ApiTarget::read("http://localhost").path, IsEmpty());
    EXPECT_EQ((std::map<std::string, std::string>{{"a", "/"}}),
              ApiTarget::read("http://localhost?a=/").query);
    EXPECT_EQ("the target does not begin with a slash", fault("https://localhost/api"));
}

TEST(ApiTarget, AnyByteCanBeEncoded) {
    using namespace std::string_literals;
    const ApiTarget sut = ApiTarget::read("/a%2Fb/%41x%ff%00?%3d=%26+%2B");
    EXPECT_THAT(sut.path, ElementsAre("a/b", "Ax\xff\0"s));
    EXPECT_EQ((std::map<std::string, std::string>{{"=", "&++"}}), sut.query);
}

TEST(ApiTarget, SlashAtTheEndBeginsNoPart) {
    EXPECT_THAT(ApiTarget::read("/api/").path, ElementsAre("api"));
    EXPECT_THAT(ApiTarget::read("/").path, IsEmpty());
    EXPECT_THAT(ApiTarget::read("/a//b").path, ElementsAre("a", "", "b"));
}

TEST(ApiTarget, ParameterMayHaveNoValue) {
    EXPECT_EQ((std::map<std::string, std::string>{{"a", ""}, {"b", ""}, {"c", "d=e"}}),
              ApiTarget::read("/?a&b=&c=d=e").query);
    EXPECT_THAT(ApiTarget::read("/?").query, IsEmpty());
}

TEST(ApiTarget, WhatIsNoEncodingIsRefused) {
    EXPECT_EQ("the target has \"%\", and % must be followed by two hexadecimal digits", fault("/a%"));
    EXPECT_EQ("the target has \"%4\", and % must be followed by two hexadecimal digits", fault("/a%4"));
    EXPECT_EQ("the target has \"%4g\", and % must be followed by two hexadecimal digits", fault("/a?b=%4g5"));
    EXPECT_EQ("the target has \"%%4\", and % must be followed by two hexadecimal digits", fault("/%%41"));
}

TEST(ApiTarget, WhatMustBeEncodedIsRefused) {
    EXPECT_EQ("the target has \" \", which must be percent-encoded", fault("/a b"));
    EXPECT_EQ("the target has \"\\n\", which must be percent-encoded", fault("/a\nb"));
    EXPECT_EQ("the target has \"\\xe4\", which must be percent-encoded", fault("/\xe4"));
    EXPECT_EQ("the target has \"#\", which must be percent-encoded", fault("/a#b"));
}

TEST(ApiTarget, BeginsWithASlash) {
    EXPECT_EQ("the target does not begin with a slash", fault(""));
    EXPECT_EQ("the target does not begin with a slash", fault("api"));
}

TEST(ApiTarget, ParameterStandsOnce) {
    EXPECT_EQ("the parameter \"a\" stands twice", fault("/?a=1&%61=1"));
    EXPECT_EQ("the target has a parameter without a name", fault("/?a=1&&b=2"));
    EXPECT_EQ("the target has a parameter without a name", fault("/?=1"));
}

TEST(ApiTarget, HasAtMostSoManyBytes) {
    EXPECT_EQ("", fault('/' + std::string(8191, 'a')));
    EXPECT_EQ("the target has more than 8192 bytes", fault('/' + std::string(8192, 'a')));
}

TEST(ApiTarget, UnknownParameterIsNamedWithTheKnownOnes) {
    const ApiTarget sut = ApiTarget::read("/?glbo=A&since=1");
    try {
        sut.allowQuery({"glob", "since"});
        FAIL();
    } catch (const ApiFault& fault) {
        EXPECT_EQ(
            "{\"error\":{\"code\":\"request-invalid\",\"text\":\"there is no parameter \\\"glbo\\\"; "
            "known are glob, since\",\"nearest\":[\"glob\"]}}",
            fault.answer().body);
    }
    EXPECT_NO_THROW(sut.allowQuery({"since", "glbo"}));
    EXPECT_THROW(sut.allowQuery({}), ApiFault);
}
