#include "mfd/LogPresence.h"

#include <gtest/gtest.h>

#include "KitDriver.h"

namespace {

TEST(LogPresence, IsThatOfTheLog) {
    EXPECT_FALSE(mfd::LogPresence::isThere());
    {
        const sal::LogManager log;
        EXPECT_TRUE(mfd::LogPresence::isThere());
    }
    EXPECT_FALSE(mfd::LogPresence::isThere());
}

TEST(LogPresence, DriverWithoutALogWritesToStandardError) {
    testing::internal::CaptureStderr();
    DriverHost host;
    KitDriver driver;
    EXPECT_TRUE(driver.startIn(host));
    EXPECT_FALSE(driver.sendFID("DANCE", {}));
    driver.deinitialize();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "LAMP1: unknown FID \"DANCE\"; known are \n");
}

}  // namespace
