#include "LogLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LogCapture.h"

namespace {

using testing::EndsWith;

TEST(LogLine, GoesIntoTheLog) {
    LogCapture log;
    sal::logLine("FILE", 2, "cannot read it");
    EXPECT_THAT(log.finish(), EndsWith(" error    FILE: cannot read it\n"));
}

TEST(LogLine, GoesToStandardErrorWithoutALog) {
    StandardErrorCapture capture;
    sal::logLine("FILE", 3, "cannot\nread it");
    EXPECT_EQ(capture.finish(), "FILE: cannot\\nread it\n");
}

TEST(LogLine, NothingReachesATerminalAsItIs) {
    StandardErrorCapture capture;
    sal::logLine("FILE", 3, "\a\x1b[2J\xc2\x9b|\x9b");
    EXPECT_EQ(capture.finish(), "FILE: \\x07\\x1b[2J\\u009b|\\x9b\n");
}

TEST(LogLine, ReportsAreNotSaidWithoutALog) {
    StandardErrorCapture capture;
    sal::logLine("FILE", 4, "all is well");
    EXPECT_EQ(capture.finish(), "");
}

TEST(LogLine, FlushNeedsNoLog) {
    EXPECT_NO_THROW(sal::flushLog());
}

}  // namespace
