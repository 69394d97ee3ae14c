#include "mfd/Event.h"

#include <gtest/gtest.h>

#include <string>

#include "KitDriver.h"
#include "LogFile.h"

namespace {

TEST(Event, ReachesThePanelWhileTheDriverRuns) {
    const LogFile log;
    DriverHost host;
    KitDriver driver;
    const mfd::Event sut{driver, "FAULT"};
    EXPECT_FALSE(sut.trigger("early"));
    ASSERT_TRUE(driver.startIn(host));
    EXPECT_TRUE(sut.trigger("open"));
    EXPECT_TRUE(sut.trigger("open"));
    EXPECT_TRUE(sut.trigger(std::string(300, 'x')));
    EXPECT_EQ(host.calls.lines(), (std::vector<std::string>{"event FAULT open", "event FAULT open",
                                                            "event FAULT " + std::string(255, 'x')}));
    driver.deinitialize();
    EXPECT_FALSE(sut.trigger("late"));
}

}  // namespace
