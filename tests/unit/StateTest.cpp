#include "mfd/State.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "KitDriver.h"
#include "LogFile.h"

namespace {

class StateTest : public testing::Test {
protected:
    ~StateTest() override { driver.deinitialize(); }

    LogFile log;
    DriverHost host;
    KitDriver driver;
};

TEST_F(StateTest, IsReportedWithItsType) {
    mfd::State<bool> lit{driver, "LIT"};
    mfd::State<int> position{driver, "POSITION"};
    mfd::State<float> speed{driver, "SPEED"};
    mfd::State<double> torque{driver, "TORQUE"};
    mfd::State<std::string> name{driver, "NAME"};
    ASSERT_TRUE(driver.startIn(host));
    lit = true;
    position = -5;
    speed = 2.5F;
    torque = 0.25;
    name = "hall";
    EXPECT_EQ(host.calls.lines(),
              (std::vector<std::string>{"LIT bool true", "POSITION int -5", "SPEED float 2.5",
                                        "TORQUE float 0.25", "NAME string hall"}));
}

TEST_F(StateTest, IsReportedOnceWhileItDoesNotChange) {
    mfd::State<int> sut{driver, "POSITION"};
    ASSERT_TRUE(driver.startIn(host));
    for (const int value : {5, 5, 6, 5})
        sut = value;
    EXPECT_EQ(host.calls.lines(),
              (std::vector<std::string>{"POSITION int 5", "POSITION int 6", "POSITION int 5"}));
    EXPECT_EQ(sut.value(), 5);
}

TEST_F(StateTest, IsUnset) {
    mfd::State<int> sut{driver, "POSITION", 5};
    ASSERT_TRUE(driver.startIn(host));
    sut.unset();
    sut.unset();
    EXPECT_EQ(sut.value(), std::nullopt);
    sut = 5;
    EXPECT_EQ(host.calls.lines(),
              (std::vector<std::string>{"POSITION int 5", "POSITION unset", "POSITION int 5"}));
}

TEST_F(StateTest, TextIsCutToWhatAReportHolds) {
    mfd::State<std::string> sut{driver, "NAME"};
    ASSERT_TRUE(driver.startIn(host));
    sut = std::string(300, 'x');
    EXPECT_EQ(host.calls.lines(), std::vector<std::string>{"NAME string " + std::string(255, 'x')});
}

}  // namespace
