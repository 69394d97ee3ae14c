#include "Moment.h"

#include "RecordingFixture.h"

namespace {

class MomentTest : public RecordingFixture {
protected:
    /// Of 2026-11-22 14:03:22.181123, in nanoseconds after it.
    static std::int64_t sut(const std::string& text) { return (momentOf(text, at(0)) - at(0)).count(); }
    static constexpr std::int64_t s_micro = 1000;
    static constexpr std::int64_t s_second = 1'000'000 * s_micro;
};

}  // namespace

TEST_F(MomentTest, DateAndTimeAreLocal) {
    EXPECT_EQ(0, sut("2026-11-22 14:03:22.181123"));
    EXPECT_EQ(s_micro / 2, sut("2026-11-22T14:03:22.1811235"));
    EXPECT_EQ(-22 * s_second - 181'123 * s_micro, sut("2026-11-22 14:03"));
    EXPECT_EQ(-(14 * 3600 + 3 * 60 + 22) * s_second - 181'123 * s_micro, sut("2026-11-22"));
    ::setenv("TZ", "UTC-2", 1);
    ::tzset();
    EXPECT_EQ(0, sut("2026-11-22 16:03:22.181123"));
    EXPECT_EQ(0, sut("2026-11-22T14:03:22.181123Z"));
    EXPECT_EQ(0, sut("16:03:22.181123"));
}

TEST_F(MomentTest, TimeIsTheLastThatWasSoLate) {
    EXPECT_EQ(0, sut("14:03:22.181123"));
    EXPECT_EQ(s_micro - 24 * 3600 * s_second, sut("14:03:22.181124"));
    EXPECT_EQ(-22 * s_second - 181'123 * s_micro, sut("14:03"));
    EXPECT_EQ(-(5 * 3600 + 3 * 60 + 22) * s_second - 181'123 * s_micro, sut("9:00"));
}

TEST_F(MomentTest, AgeIsBeforeNow) {
    EXPECT_EQ(-90 * s_second, sut("90s"));
    EXPECT_EQ(-300 * s_second, sut("5m"));
    EXPECT_EQ(-7200 * s_second, sut("2h"));
    EXPECT_EQ(-3 * 24 * 3600 * s_second, sut("3d"));
    EXPECT_EQ(-99'999 * (24 * 3600 * s_second), sut("99999d"));
}

TEST_F(MomentTest, WhatIsNoMomentIsWrongUsage) {
    for (const std::string text :
         {"", "noon", "14", "14:03:22.", "24:00", "14:60", "2026-02-30", "2026-13-01 10:00", "5 m", "-5m",
          "5y", "9999999s", "14:03Z", "2026-11-22T14:03:22Zx"}) {
        EXPECT_EQ(
            std::pair(EExit::WrongUsage, "\"" + text +
                                             "\" is no moment: that is 14:03, 14:03:22.5, 2026-11-22 14:03, "
                                             "2026-11-22T14:03:22Z, or 90s, 5m, 2h, 3d for so long ago"),
            errorOf([&] { momentOf(text, at(0)); }));
    }
}
