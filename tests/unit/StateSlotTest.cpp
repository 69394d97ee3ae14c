#include "mfd/StateSlot.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "KitDriver.h"
#include "LogFile.h"

namespace {

class StateSlotTest : public testing::Test {
protected:
    ~StateSlotTest() override { driver.deinitialize(); }

    LogFile log;
    DriverHost host;
    KitDriver driver;
};

TEST_F(StateSlotTest, ReportsAtTheStartWhatWasSetBefore) {
    mfd::State<bool> lit{driver, "LIT", false};
    mfd::State<int> position{driver, "POSITION"};
    mfd::State<int> unknown{driver, "UNKNOWN"};
    position = 7;
    EXPECT_TRUE(host.calls.lines().empty());
    driver.onStart = [&] {
        host.calls.add("start");
        return true;
    };
    ASSERT_TRUE(driver.startIn(host));
    EXPECT_EQ(host.calls.lines(), (std::vector<std::string>{"LIT bool false", "POSITION int 7", "start"}));
}

TEST_F(StateSlotTest, ReportsAtTheNextStartWhatIsNow) {
    mfd::State<int> sut{driver, "POSITION", 1};
    ASSERT_TRUE(driver.startIn(host));
    ASSERT_TRUE(driver.deinitialize());
    sut = 2;
    EXPECT_EQ(host.calls.count("POSITION int 2"), 0);
    ASSERT_TRUE(driver.startIn(host));
    EXPECT_EQ(host.calls.count("POSITION int 2"), 1);
    sut = 2;
    EXPECT_EQ(host.calls.count("POSITION int 2"), 1);
}

TEST_F(StateSlotTest, HasAnIdOfItsOwn) {
    const mfd::State<int> sut{driver, "POSITION"};
    EXPECT_EQ(sut.id(), "POSITION");
    EXPECT_THROW((mfd::State<bool>{driver, "POSITION"}), std::logic_error);
    EXPECT_THROW((mfd::State<bool>{driver, ""}), std::logic_error);
    EXPECT_THROW((mfd::State<bool>{driver, std::string(256, 'x')}), std::logic_error);
}

TEST_F(StateSlotTest, ReportsAgainWhatItWasToldLast) {
    mfd::State<int> sut{driver, "POSITION", 1};
    mfd::State<int> other{driver, "SPEED"};
    ASSERT_TRUE(driver.startIn(host));
    sut.report();
    EXPECT_EQ(host.calls.lines(), (std::vector<std::string>{"POSITION int 1", "POSITION int 1"}));
    other.report();
    EXPECT_EQ(host.calls.linesOf("SPEED").size(), 0u);
    sut.unset();
    sut.report();
    EXPECT_EQ(host.calls.count("POSITION unset"), 2);
}

TEST_F(StateSlotTest, ReportsNothingAgainAfterTheEnd) {
    mfd::State<int> sut{driver, "POSITION", 1};
    ASSERT_TRUE(driver.startIn(host));
    ASSERT_TRUE(driver.deinitialize());
    sut.report();
    EXPECT_EQ(host.calls.lines().size(), 1u);
    ASSERT_TRUE(driver.startIn(host));
    EXPECT_EQ(host.calls.count("POSITION int 1"), 2);
}

}  // namespace
