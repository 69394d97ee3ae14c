#include "SystemProbe.h"

#include <gtest/gtest.h>

#include "TemporaryDirectory.h"

namespace {

class SystemProbeTest : public testing::Test {
protected:
    void addNetwork(const std::string& name, const std::string& type, const std::string& state,
                    const std::string& carrier) {
        machine.write("net/" + name + "/type", type + "\n");
        machine.write("net/" + name + "/operstate", state + "\n");
        machine.write("net/" + name + "/carrier", carrier + "\n");
    }

    TemporaryDirectory machine;
    SystemProbe sut{SystemProbe::Paths{machine.path("loadavg"), machine.path("meminfo"),
                                       machine.path("hostname"), machine.path("net")}};
};

TEST_F(SystemProbeTest, LoadIsTheFirstNumber) {
    machine.write("loadavg", "1.25 0.50 0.10 2/300 4711\n");
    EXPECT_EQ(sut.load(), 1.25F);
}

TEST_F(SystemProbeTest, LoadIsUnknownWithoutItsFile) {
    EXPECT_EQ(sut.load(), std::nullopt);
}

TEST_F(SystemProbeTest, LoadIsUnknownWhenTheFileHoldsNoNumber) {
    machine.write("loadavg", "high\n");
    EXPECT_EQ(sut.load(), std::nullopt);
}

TEST_F(SystemProbeTest, LoadIsUnknownWhenItIsNotANumber) {
    machine.write("loadavg", "nan 0 0\n");
    EXPECT_EQ(sut.load(), std::nullopt);
}

TEST_F(SystemProbeTest, FreeMemoryIsTheAvailableOneInMebibytes) {
    machine.write("meminfo", "MemTotal: 8000000 kB\nMemFree: 1 kB\nMemAvailable: 3072 kB\nBuffers: 9 kB\n");
    EXPECT_EQ(sut.freeMemory(), 3);
}

TEST_F(SystemProbeTest, FreeMemoryIsUnknownWithoutItsLine) {
    machine.write("meminfo", "MemTotal: 8000000 kB\n");
    EXPECT_EQ(sut.freeMemory(), std::nullopt);
}

TEST_F(SystemProbeTest, FreeMemoryIsUnknownWhenItsLineIsBroken) {
    machine.write("meminfo", "MemAvailable: much\n");
    EXPECT_EQ(sut.freeMemory(), std::nullopt);
}

TEST_F(SystemProbeTest, HostNameIsTheFirstLine) {
    machine.write("hostname", "station7\n");
    EXPECT_EQ(sut.hostName(), "station7");
}

TEST_F(SystemProbeTest, LinkIsUpWhenAnInterfaceIs) {
    addNetwork("eth0", "1", "down", "0");
    addNetwork("eth1", "1", "up", "1");
    EXPECT_EQ(sut.link(), true);
}

TEST_F(SystemProbeTest, LinkIsDownWhenAllInterfacesAre) {
    addNetwork("eth0", "1", "down", "0");
    EXPECT_EQ(sut.link(), false);
}

TEST_F(SystemProbeTest, LoopbackIsNoLink) {
    addNetwork("lo", "772", "unknown", "1");
    EXPECT_EQ(sut.link(), false);
}

TEST_F(SystemProbeTest, CarrierDecidesWhenTheStateIsUnknown) {
    addNetwork("tun0", "65534", "unknown", "1");
    EXPECT_EQ(sut.link(), true);
}

TEST_F(SystemProbeTest, LinkIsUnknownWithoutTheInterfaces) {
    EXPECT_EQ(sut.link(), std::nullopt);
}

TEST(SystemProbe, ReadsThisMachine) {
    const SystemProbe sut{SystemProbe::Paths{}};
    EXPECT_TRUE(sut.load());
    EXPECT_TRUE(sut.freeMemory());
    EXPECT_TRUE(sut.hostName());
    EXPECT_TRUE(sut.link());
}

}  // namespace
