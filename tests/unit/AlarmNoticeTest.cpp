#include "AlarmNotice.h"

#include <gtest/gtest.h>

TEST(AlarmNotice, CountsWhatIsInSight) {
    EXPECT_EQ("", alarmNotice(0));
    EXPECT_EQ("1 alarm", alarmNotice(1));
    EXPECT_EQ("200 alarms", alarmNotice(200));
}
