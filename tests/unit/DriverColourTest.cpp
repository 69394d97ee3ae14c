#include "DriverColour.h"

#include <gtest/gtest.h>

using EColour = base::Table::EColour;

TEST(DriverColour, WhatRunsIsGood) {
    EXPECT_EQ(EColour::Good, driverColour("running"));
    EXPECT_EQ(EColour::Good, driverColour("running (by hand)"));
}

TEST(DriverColour, WhatHasEndedOrHangsIsBad) {
    EXPECT_EQ(EColour::Bad, driverColour("ended"));
    EXPECT_EQ(EColour::Bad, driverColour("hung"));
}

TEST(DriverColour, WhatAnOperatorHasStoppedIsFaint) {
    EXPECT_EQ(EColour::Faint, driverColour("parked"));
}

TEST(DriverColour, WhatIsOnItsWayIsAWarning) {
    for (const char* pStatus : {"not loaded", "starting", "unloading", "parking", "waiting for its process"})
        EXPECT_EQ(EColour::Warning, driverColour(pStatus)) << pStatus;
}
