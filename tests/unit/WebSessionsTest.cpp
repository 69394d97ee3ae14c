#include "WebSessions.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

using namespace std::chrono_literals;

class WebSessionsTest : public testing::Test {
protected:
    static ApiCaller caller(ERole role) {
        ApiCaller caller;
        caller.role = role;
        caller.name = "anna";
        caller.uid = 1000;
        return caller;
    }
    std::string openWithCode(ERole role = ERole::Operate) {
        return sut.open(sut.addCode(caller(role)), "127.0.0.1").token;
    }
    /// Digits that are not these.
    static std::string wrong(const std::string& digits) { return digits == "000000" ? "000001" : "000000"; }

    WebSessions::Clock::time_point now = WebSessions::Clock::time_point(100h);
    WebSessions sut{[this] { return now; }};
};

TEST_F(WebSessionsTest, CodeOpensOneSessionWithTheRoleOfWhoAskedForIt) {
    const std::string code = sut.addCode(caller(ERole::Operate));
    const auto opened = sut.open(code, "192.0.2.7");
    EXPECT_EQ(opened.refusal, "");
    EXPECT_EQ(opened.session.role, ERole::Operate);
    const auto found = sut.find(opened.token);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->user, "anna");
    EXPECT_EQ(found->uid, 1000u);
    EXPECT_EQ(found->address, "192.0.2.7");
    EXPECT_EQ(found->requests, 1u);
    EXPECT_EQ(sut.open(code, "192.0.2.7").refusal,
              "this code does not hold: it holds for 2 minutes, once; mfctl panel makes a new one");
    EXPECT_FALSE(sut.find(code));
}

TEST_F(WebSessionsTest, CodeHoldsForTwoMinutes) {
    const std::string code = sut.addCode(caller(ERole::View));
    const std::string other = sut.addCode(caller(ERole::View));
    now += 119s;
    EXPECT_EQ(sut.open(code, "").refusal, "");
    now += 1s;
    EXPECT_EQ(sut.open(other, "").refusal,
              "this code does not hold: it holds for 2 minutes, once; mfctl panel makes a new one");
}

TEST_F(WebSessionsTest, OfManyCodesTheOldestGoes) {
    const std::string first = sut.addCode(caller(ERole::View));
    for (std::size_t i = 0; i < WebSessions::s_mostCodes; ++i)
        sut.addCode(caller(ERole::View));
    EXPECT_NE(sut.open(first, "").refusal, "");
}

TEST_F(WebSessionsTest, DigitsOpenOneSessionWithTheirRole) {
    const std::string digits = sut.addDigits(caller(ERole::Admin), ERole::View);
    ASSERT_EQ(digits.size(), 6u);
    const auto opened = sut.open(digits, "192.0.2.7");
    EXPECT_EQ(opened.session.role, ERole::View);
    EXPECT_NE(sut.open(digits, "192.0.2.7").refusal, "");
}

TEST_F(WebSessionsTest, NobodyGivesMoreThanTheOwnRole) {
    EXPECT_EQ(sut.addDigits(caller(ERole::View), ERole::Operate), "");
    EXPECT_EQ(sut.addDigits(caller(ERole::Operate), ERole::Admin), "");
    EXPECT_NE(sut.addDigits(caller(ERole::Operate), ERole::Operate), "");
}

TEST_F(WebSessionsTest, NewDigitsTakeThePlaceOfTheFormer) {
    const std::string former = sut.addDigits(caller(ERole::Admin), ERole::Admin);
    std::string digits;
    do
        digits = sut.addDigits(caller(ERole::Admin), ERole::Admin);
    while (digits == former);
    EXPECT_EQ(sut.open(former, "").refusal, "these are not the digits");
    EXPECT_EQ(sut.open(digits, "").refusal, "");
}

TEST_F(WebSessionsTest, FiveAttemptsAtDigitsAreTakenWhoeverMakesThem) {
    const std::string digits = sut.addDigits(caller(ERole::Admin), ERole::Admin);
    for (int i = 1; i <= 4; ++i)
        EXPECT_EQ(sut.open(wrong(digits), "192.0.2." + std::to_string(i)).refusal,
                  "these are not the digits");
    EXPECT_EQ(sut.open(wrong(digits), "192.0.2.9").refusal,
              "these are not the digits, and no more attempts are taken; mfctl pair makes new ones");
    EXPECT_EQ(sut.open(digits, "").refusal,
              "no digits hold now: they hold for 2 minutes, once, and for 5 attempts; mfctl pair makes new "
              "ones");
}

TEST_F(WebSessionsTest, FourWrongAttemptsLeaveTheDigitsAsTheyAre) {
    const std::string digits = sut.addDigits(caller(ERole::Admin), ERole::Admin);
    for (int i = 0; i < 4; ++i)
        sut.open(wrong(digits), "");
    EXPECT_EQ(sut.open(digits, "").refusal, "");
}

TEST_F(WebSessionsTest, DigitsHoldForTwoMinutes) {
    const std::string digits = sut.addDigits(caller(ERole::Admin), ERole::Admin);
    now += 2min;
    EXPECT_NE(sut.open(digits, "").refusal, "");
}

TEST_F(WebSessionsTest, SessionHoldsForThirtyDays) {
    const std::string token = openWithCode();
    now += 30 * 24h - 1s;
    EXPECT_TRUE(sut.find(token));
    now += 1s;
    EXPECT_FALSE(sut.find(token));
    EXPECT_TRUE(sut.sessions().empty());
}

TEST_F(WebSessionsTest, SessionThatIsEndedIsNoMore) {
    const std::string token = openWithCode();
    const std::uint64_t id = sut.find(token)->id;
    EXPECT_TRUE(sut.isOpen(id));
    EXPECT_TRUE(sut.end(id));
    EXPECT_FALSE(sut.isOpen(id));
    EXPECT_FALSE(sut.find(token));
    EXPECT_FALSE(sut.end(id));
}

TEST_F(WebSessionsTest, NumberThatIsTakenIsNoSessions) {
    const std::uint64_t taken = sut.takeNumber();
    openWithCode();
    EXPECT_NE(sut.sessions().at(0).id, taken);
    EXPECT_FALSE(sut.isOpen(taken));
}

TEST_F(WebSessionsTest, OfManySessionsTheOneUsedLongestAgoGoes) {
    const std::string first = openWithCode();
    const std::string second = openWithCode();
    now += 1s;
    sut.find(first);
    for (std::size_t i = 2; i <= WebSessions::s_mostSessions; ++i)
        openWithCode();
    EXPECT_TRUE(sut.find(first));
    EXPECT_FALSE(sut.find(second));
    EXPECT_EQ(sut.sessions().size(), WebSessions::s_mostSessions);
}

TEST_F(WebSessionsTest, SessionsAreTakenOverByTheNextHost) {
    const std::string token = openWithCode();
    const std::string ended = openWithCode();
    sut.end(sut.find(ended)->id);
    sut.addTokens("view " + std::string(32, 'a'), 0);
    const std::string stored = sut.stored();
    EXPECT_EQ(stored.find(token), std::string::npos);
    WebSessions next{[this] { return now; }};
    EXPECT_EQ(next.restore(stored), 0u);
    EXPECT_EQ(next.sessions().size(), 1u);
    const auto found = next.find(token);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->role, ERole::Operate);
    EXPECT_EQ(found->user, "anna");
    EXPECT_EQ(found->uid, 1000u);
    EXPECT_EQ(found->address, "127.0.0.1");
    EXPECT_EQ(found->since, now);
    EXPECT_EQ(found->expires, now + 30 * 24h);
    EXPECT_EQ(next.restore(stored), 0u);
    EXPECT_EQ(next.sessions().size(), 1u);
}

TEST_F(WebSessionsTest, WhatIsNoSessionIsNotTakenOver) {
    openWithCode();
    const std::string line = sut.stored();
    const std::string rest = line.substr(64);
    WebSessions next{[this] { return now; }};
    for (const std::string& wrong :
         {std::string("x"), line.substr(1), "0" + line, "g" + line.substr(1), line.substr(0, 62) + rest,
          line.substr(0, line.find("operate")) + "root" + line.substr(line.find("operate") + 7),
          line.substr(0, line.rfind('\t')),
          line.substr(0, line.find('\t')) + "\tview\t0\t1\t1\t9999999999999999\ta\tb"})
        EXPECT_EQ(next.restore(wrong), 1u) << wrong;
    EXPECT_EQ(next.restore("\n"), 1u);
    EXPECT_TRUE(next.sessions().empty());
    now += 30 * 24h;
    EXPECT_EQ(next.restore(line), 0u);
    EXPECT_TRUE(next.sessions().empty());
}

TEST_F(WebSessionsTest, NoSessionThatIsTakenOverHoldsForLonger) {
    const std::string token = openWithCode();
    const std::string line = sut.stored();
    WebSessions::Clock::time_point earlier = now - 10 * 24h;
    WebSessions next{[&earlier] { return earlier; }};
    EXPECT_EQ(next.restore(line), 0u);
    EXPECT_EQ(next.find(token)->expires, earlier + 30 * 24h);
}

TEST_F(WebSessionsTest, FollowerIsToldOfSessionsThatComeAndGo) {
    int told = 0;
    sut.setFollower([&] { ++told; });
    const std::string token = openWithCode();
    EXPECT_EQ(told, 1);
    const auto found = sut.find(token);
    EXPECT_EQ(told, 1);
    sut.end(found->id);
    EXPECT_EQ(told, 2);
}

TEST_F(WebSessionsTest, TokensOfAFileAreSessionsWithoutEnd) {
    const std::string long1(32, 'a');
    const std::string long2(40, 'b');
    ASSERT_EQ(
        sut.addTokens("# for scripts\n\nview " + long1 + "\n  admin " + long2 + " backup # nightly\n", 7),
        "");
    now += 365 * 24h;
    const auto view = sut.find(long1);
    ASSERT_TRUE(view);
    EXPECT_EQ(view->role, ERole::View);
    EXPECT_EQ(view->user, "token 1");
    const auto admin = sut.find(long2);
    ASSERT_TRUE(admin);
    EXPECT_EQ(admin->role, ERole::Admin);
    EXPECT_EQ(admin->user, "backup");
    EXPECT_EQ(admin->uid, 7u);
    EXPECT_FALSE(admin->expires);
}

TEST_F(WebSessionsTest, FileOfTokensWithAFaultIsNotTakenOver) {
    const std::string token(32, 'a');
    EXPECT_EQ(sut.addTokens("view " + token + "\nroot " + token + "\n", 0),
              "line 2: \"root\" is no role; view, operate and admin are");
    EXPECT_EQ(sut.addTokens("view short\n", 0),
              "line 1: a token has 32 characters at least; openssl rand -hex 32 makes one");
    EXPECT_EQ(sut.addTokens("view " + token + " a b\n", 0),
              "line 1: \"b\" is one word too many; a line is ROLE TOKEN [NAME]");
    EXPECT_FALSE(sut.find(token));
}

}  // namespace
