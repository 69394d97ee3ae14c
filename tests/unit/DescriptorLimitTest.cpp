#include "DescriptorLimit.h"

#include <gtest/gtest.h>

namespace {

class DescriptorLimitTest : public testing::Test {
protected:
    DescriptorLimitTest() { ::getrlimit(RLIMIT_NOFILE, &m_before); }
    ~DescriptorLimitTest() override { ::setrlimit(RLIMIT_NOFILE, &m_before); }

    struct rlimit m_before {};
};

TEST_F(DescriptorLimitTest, RaisesTheSoftLimitToTheHardOneAndTellsTheFormer) {
    const struct rlimit low { 64, m_before.rlim_max };
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    EXPECT_EQ(raiseDescriptorLimit(), 64u);
    struct rlimit now {};
    ::getrlimit(RLIMIT_NOFILE, &now);
    EXPECT_EQ(now.rlim_cur, m_before.rlim_max);
    EXPECT_EQ(now.rlim_max, m_before.rlim_max);
}

}  // namespace
