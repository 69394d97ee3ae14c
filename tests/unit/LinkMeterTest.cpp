#include "LinkMeter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>

namespace {

using namespace std::chrono_literals;

const LinkMeter::Time s_meterBegin = LinkMeter::Time() + 1h;

TEST(LinkMeter, FirstCallHasNoRate) {
    LinkMeter sut;
    sut.countIn();
    EXPECT_FALSE(sut.take(s_meterBegin));
}

TEST(LinkMeter, RatesAreThoseOfTheLastFiveSecondsToATenth) {
    LinkMeter sut;
    for (int i = 0; i < 100; ++i)
        sut.countIn();
    static_cast<void>(sut.take(s_meterBegin));
    sut.countIn();
    sut.countOut();
    sut.countOut();
    const auto first = sut.take(s_meterBegin + 3s);
    ASSERT_TRUE(first);
    EXPECT_FLOAT_EQ(first->in, 0.3F);
    EXPECT_FLOAT_EQ(first->out, 0.7F);
    for (int i = 4; i <= 7; ++i)
        EXPECT_FLOAT_EQ(sut.take(s_meterBegin + std::chrono::seconds(i))->out,
                        i < 7 ? std::round(20.0F / static_cast<float>(i)) / 10 : 0.3F)
            << i;
    EXPECT_FLOAT_EQ(sut.take(s_meterBegin + 8s)->out, 0);
}

TEST(LinkMeter, ForgetsWhatWasBefore) {
    LinkMeter sut;
    static_cast<void>(sut.take(s_meterBegin));
    sut.countOut();
    sut.forget();
    EXPECT_FALSE(sut.take(s_meterBegin + 1s));
    EXPECT_FLOAT_EQ(sut.take(s_meterBegin + 2s)->out, 0);
}

}  // namespace
