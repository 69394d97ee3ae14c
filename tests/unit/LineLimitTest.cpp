#include "LineLimit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr LineLimit::Time s_begin = LineLimit::Time() + 1h;

}  // namespace

TEST(LineLimit, FirstOfEachCausePasses) {
    LineLimit sut;
    EXPECT_EQ(sut.take("a", "one", s_begin), "one");
    EXPECT_EQ(sut.take("b", "two", s_begin), "two");
    EXPECT_EQ(sut.take("a", "three", s_begin + 999ms), std::nullopt);
}

TEST(LineLimit, LastOfThoseThatWereHeldBackComesAfterASecondWithTheirNumber) {
    LineLimit sut;
    sut.take("a", "one", s_begin);
    sut.take("a", "two", s_begin);
    sut.take("a", "three", s_begin + 500ms);
    EXPECT_THAT(sut.due(s_begin + 999ms), IsEmpty());
    EXPECT_THAT(sut.due(s_begin + 1s), ElementsAre("three; it is the last of 2 such within a second"));
    sut.take("a", "four", s_begin + 1100ms);
    EXPECT_THAT(sut.due(s_begin + 1999ms), IsEmpty());
    EXPECT_THAT(sut.due(s_begin + 2s), ElementsAre("four"));
    EXPECT_THAT(sut.due(s_begin + 9s), IsEmpty());
}

TEST(LineLimit, AfterAQuietSecondTheNextOnePassesAtOnce) {
    LineLimit sut;
    sut.take("a", "one", s_begin);
    EXPECT_THAT(sut.due(s_begin + 1s), IsEmpty());
    EXPECT_EQ(sut.take("a", "two", s_begin + 1s), "two");
}
