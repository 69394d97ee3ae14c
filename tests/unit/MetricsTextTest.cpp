#include "MetricsText.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr MetricsText::Family s_depth{"mf_depth", "gauge", "Messages that wait."};
constexpr MetricsText::Family s_sent{"mf_sent_total", "counter", "Messages that were sent."};

}  // namespace

TEST(MetricsText, FamilyIsNamedOnceBeforeItsFirstSample) {
    MetricsText sut;
    sut.begin(s_depth);
    sut.sample({{"driver", "A"}, {"direction", "in"}}, 3u);
    sut.sample({}, -1);
    sut.begin(s_sent);
    sut.sample({{"driver", "A"}}, std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(
        "# HELP mf_depth Messages that wait.\n"
        "# TYPE mf_depth gauge\n"
        "mf_depth{driver=\"A\",direction=\"in\"} 3\n"
        "mf_depth -1\n"
        "# HELP mf_sent_total Messages that were sent.\n"
        "# TYPE mf_sent_total counter\n"
        "mf_sent_total{driver=\"A\"} 18446744073709551615\n",
        sut.take());
    EXPECT_EQ("", sut.take());
}

TEST(MetricsText, FamilyWithoutSamplesIsLeftOut) {
    MetricsText sut;
    sut.begin(s_depth);
    sut.begin(s_sent);
    EXPECT_EQ("", sut.take());
}

TEST(MetricsText, NumbersHaveTheFewestDigits) {
    MetricsText sut;
    sut.begin(s_depth);
    for (const double number :
         {0.0, 0.1, 1763856000.25, 1e300, std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()})
        sut.sample({}, number);
    EXPECT_EQ(
        "# HELP mf_depth Messages that wait.\n"
        "# TYPE mf_depth gauge\n"
        "mf_depth 0\nmf_depth 0.1\nmf_depth 1763856000.25\nmf_depth 1e+300\n"
        "mf_depth +Inf\nmf_depth -Inf\nmf_depth NaN\n",
        sut.take());
}

TEST(MetricsText, LabelsAreEscapedAndPrintable) {
    MetricsText sut;
    sut.begin(s_depth);
    sut.sample({{"driver", "A\"B\\C\nD\xff\xc3\xa4"}}, 1);
    EXPECT_EQ(
        "# HELP mf_depth Messages that wait.\n"
        "# TYPE mf_depth gauge\n"
        "mf_depth{driver=\"A\\\"B\\\\C\\\\nD\\\\xff\xc3\xa4\"} 1\n",
        sut.take());
}

TEST(MetricsText, EmptyLabelIsNone) {
    MetricsText sut;
    sut.begin(s_depth);
    sut.sample({{"driver", ""}, {"outcome", "written"}}, 1);
    sut.sample({{"driver", ""}}, 2);
    EXPECT_EQ(
        "# HELP mf_depth Messages that wait.\n"
        "# TYPE mf_depth gauge\n"
        "mf_depth{outcome=\"written\"} 1\nmf_depth 2\n",
        sut.take());
}
