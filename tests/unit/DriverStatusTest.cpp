#include "DriverStatus.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string status(EDriverState state, bool isByHand = false,
                   const std::vector<sal::MessageQueue::Status>& queues = {}) {
    DriverTable::Driver driver;
    driver.id = "AXIS1";
    driver.state = state;
    driver.isByHand = isByHand;
    return driverStatus(driver, queues);
}

sal::MessageQueue::Status queue(const std::string& name, bool hasReceiver) {
    sal::MessageQueue::Status queue;
    queue.name = name;
    queue.receiverAttached = hasReceiver;
    return queue;
}

}  // namespace

TEST(DriverStatus, StatesAreInWords) {
    EXPECT_EQ("running", status(EDriverState::Running));
    EXPECT_EQ("running (by hand)", status(EDriverState::Running, true));
    EXPECT_EQ("ended", status(EDriverState::Waiting));
    EXPECT_EQ("ended", status(EDriverState::Due));
    EXPECT_EQ("ended", status(EDriverState::Ended));
    EXPECT_EQ("hung", status(EDriverState::Hung));
    EXPECT_EQ("parked", status(EDriverState::Parked));
    EXPECT_EQ("not loaded", status(EDriverState::NotLoaded));
}

TEST(DriverStatus, QueueWithoutAProcessOfTheHostWaitsForOne) {
    EXPECT_EQ("waiting for its process", status(EDriverState::NotLoaded, false, {queue("AXIS1_INQ", false)}));
    EXPECT_EQ("running (by hand)", status(EDriverState::NotLoaded, false, {queue("AXIS1_INQ", true)}));
    EXPECT_EQ("waiting for its process", status(EDriverState::Ended, true, {queue("AXIS1_INQ", false)}));
    EXPECT_EQ("not loaded", status(EDriverState::NotLoaded, false, {queue("AXIS2_INQ", true)}));
}

TEST(DriverStatus, InterfaceTypesAreInWords) {
    EXPECT_STREQ("direct", inWords(EInterfaceTypes::Direct));
    EXPECT_STREQ("queue", inWords(EInterfaceTypes::Queue));
    EXPECT_STREQ("socket", inWords(EInterfaceTypes::Socket));
    EXPECT_STREQ("none", inWords(EInterfaceTypes::None));
}
