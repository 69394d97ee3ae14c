#include "DriverRestarts.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

class DriverRestartsTest : public testing::Test {
protected:
    using IDs = std::vector<std::string>;

    const DriverRestarts::Clock::time_point m_now = DriverRestarts::Clock::now();
    DriverRestarts m_sut{{.random = [] { return 0.5; }}};
};

}  // namespace

TEST_F(DriverRestartsTest, DriverIsDueOnceWhenItsDelayIsOver) {
    EXPECT_EQ(1s, m_sut.ended("A", 0ms, m_now));
    EXPECT_EQ(m_now + 1s, m_sut.nextDue());
    EXPECT_EQ(IDs{}, m_sut.takeDue(m_now + 999ms));
    EXPECT_EQ(IDs{"A"}, m_sut.takeDue(m_now + 1s));
    EXPECT_EQ(IDs{}, m_sut.takeDue(m_now + 1s));
    EXPECT_EQ(std::nullopt, m_sut.nextDue());
}

TEST_F(DriverRestartsTest, StartThatIsPutOffIsDueAgain) {
    m_sut.ended("A", 0ms, m_now);
    ASSERT_EQ(IDs{"A"}, m_sut.takeDue(m_now + 1s));
    ASSERT_TRUE(m_sut.begin("A"));
    EXPECT_EQ(2s, m_sut.putOff("A", m_now + 1s));
    EXPECT_EQ(IDs{}, m_sut.takeDue(m_now + 2999ms));
    EXPECT_EQ(IDs{"A"}, m_sut.takeDue(m_now + 3s));
    EXPECT_TRUE(m_sut.begin("A"));
}

TEST_F(DriverRestartsTest, DriverWaitsUntilItIsDue) {
    EXPECT_FALSE(m_sut.isWaiting("A"));
    m_sut.ended("A", 0ms, m_now);
    EXPECT_TRUE(m_sut.isWaiting("A"));
    m_sut.takeDue(m_now + 1s);
    EXPECT_FALSE(m_sut.isWaiting("A"));
}

TEST_F(DriverRestartsTest, NextDueIsTheEarliest) {
    m_sut.ended("A", 0ms, m_now + 5s);
    m_sut.ended("B", 0ms, m_now);
    m_sut.ended("C", 0ms, m_now + 9s);
    EXPECT_EQ(m_now + 1s, m_sut.nextDue());
}

TEST_F(DriverRestartsTest, EachDriverHasAPlanOfItsOwn) {
    m_sut.ended("A", 0ms, m_now);
    m_sut.ended("A", 0ms, m_now);
    EXPECT_EQ(1s, m_sut.ended("B", 0ms, m_now));
    EXPECT_EQ(4s, m_sut.ended("A", 0ms, m_now));
}

TEST_F(DriverRestartsTest, OnlyADueDriverBegins) {
    EXPECT_FALSE(m_sut.begin("A"));
    m_sut.ended("A", 0ms, m_now);
    EXPECT_FALSE(m_sut.begin("A"));
    m_sut.takeDue(m_now + 1s);
    EXPECT_TRUE(m_sut.begin("A"));
    EXPECT_FALSE(m_sut.begin("A"));
}

TEST_F(DriverRestartsTest, ReloadOvertakesADueDriver) {
    m_sut.ended("A", 0ms, m_now);
    m_sut.takeDue(m_now + 1s);
    m_sut.reset("A");
    EXPECT_FALSE(m_sut.begin("A"));
    EXPECT_EQ(1s, m_sut.ended("A", 0ms, m_now));
}

TEST_F(DriverRestartsTest, WhoIsGivenUpIsNotDue) {
    m_sut.ended("A", 0ms, m_now);
    m_sut.giveUp("A");
    EXPECT_EQ(IDs{}, m_sut.takeDue(m_now + 1h));
}

TEST_F(DriverRestartsTest, DriverAtItsLimitIsNeverDue) {
    DriverRestarts sut({.limit = 0});
    EXPECT_EQ(std::nullopt, sut.ended("A", 0ms, m_now));
    EXPECT_EQ(std::nullopt, sut.nextDue());
}
