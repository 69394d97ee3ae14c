#include "Failure.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(Failure, IsWhatTheExceptionSays) {
    EXPECT_EQ(mfd::failureOf([] {}), "");
    EXPECT_EQ(mfd::failureOf([] { throw std::runtime_error("no port"); }), "no port");
    EXPECT_EQ(mfd::failureOf([] { throw std::runtime_error(""); }), "an exception without words");
    EXPECT_EQ(mfd::failureOf([] { throw 5; }), "an exception that is no std::exception");
}

}  // namespace
