#include "DriverProcess.h"

#include <gmock/gmock.h>

#include "FakeHost.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

WrapperOptions axis() {
    WrapperOptions options;
    options.modulePath = "/opt/axis.so";
    options.driverID = "AXIS1";
    return options;
}

TEST(DriverProcess, WithoutAQueueFails) {
    fakehost::FakeHost host;
    EXPECT_EQ(DriverProcess(axis()).run(), 1);
    EXPECT_THAT(host.journal().linesOf({"queue open"}), ElementsAre("queue open AXIS1_INQ"));
}

TEST(DriverProcess, WithoutAQueueLoadsNoModule) {
    fakehost::FakeHost host;
    DriverProcess(axis()).run();
    EXPECT_THAT(host.journal().linesOf({"module load"}), IsEmpty());
}

TEST(DriverProcess, LogsSettingsThatWereNoGood) {
    fakehost::FakeHost host;
    WrapperOptions options = axis();
    options.complaints = {"MFD_LOG_LEVEL=6 is not a number from 1 to 5; 4 is used"};
    DriverProcess(options).run();
    EXPECT_THAT(host.journal().linesOf({"log"}),
                ElementsAre("log MFD 3: MFD_LOG_LEVEL=6 is not a number from 1 to 5; 4 is used"));
}

}  // namespace
