#include "SystemTest.h"

using testing::HasSubstr;
using testing::Not;

// What a driver's "ipAddress" and "networkAdapter" do to the machine, on adapters of the test's own.
class AddressRules : public SystemTest {
protected:
    void prepare() override { workplace().addModule("Recorder"); }

    void configureAddress(const std::string& address, const std::string& adapter = "") {
        workplace().configure(
            TestWorkplace::entry("AXIS1", "Recorder", "direct",
                                 "ipAddress=\"" + address + "\" networkAdapter=\"" + adapter + "\""));
    }
    std::string recorded() { return readFile(workplace().workdir() / "nvram/AXIS1/record.txt"); }
};

TEST_F(AddressRules, NewAddressIsAddedWithTheFixedNetmask) {
    ASSERT_TRUE(PrivateMachine::addAdapter("eth0", "192.0.2.10/16"));
    configureAddress("198.51.100.7");
    start();
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(PrivateMachine::addresses("eth0"), "192.0.2.10/16 198.51.100.7/24");
}

TEST_F(AddressRules, SecondaryAddressIsAddedAgainWithTheFixedNetmask) {
    ASSERT_TRUE(PrivateMachine::addAdapter("eth0", "192.0.2.10/24 198.51.100.7/32"));
    configureAddress("198.51.100.7");
    start();
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(PrivateMachine::addresses("eth0"), "192.0.2.10/24 198.51.100.7/24");
}

TEST_F(AddressRules, MainAddressIsLeftAsItIs) {
    ASSERT_TRUE(PrivateMachine::addAdapter("eth0", "192.0.2.10/16"));
    configureAddress("192.0.2.10");
    start();
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(PrivateMachine::addresses("eth0"), "192.0.2.10/16");
}

TEST_F(AddressRules, AddressStaysAfterTheHostHasEnded) {
    ASSERT_TRUE(PrivateMachine::addAdapter("eth0", "192.0.2.10/24"));
    configureAddress("192.0.2.20");
    start();
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(PrivateMachine::addresses("eth0"), "192.0.2.10/24 192.0.2.20/24");
}

TEST_F(AddressRules, ConfiguredAdapterIsTakenAsItIsNamed) {
    ASSERT_TRUE(PrivateMachine::addAdapter("eth0", "192.0.2.10/24"));
    ASSERT_TRUE(PrivateMachine::addAdapter("plant0", "203.0.113.1/24"));
    configureAddress("203.0.113.9", "plant0");
    start();
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(PrivateMachine::addresses("plant0"), "203.0.113.1/24 203.0.113.9/24");
    EXPECT_EQ(PrivateMachine::addresses("eth0"), "192.0.2.10/24");
}

TEST_F(AddressRules, FirstAdapterNamedEthInTheKernelsOrderGivesTheVirtualPanelAddress) {
    ASSERT_TRUE(PrivateMachine::addAdapter("eth1", "198.51.100.1/24"));
    ASSERT_TRUE(PrivateMachine::addAdapter("eth0", "192.0.2.10/24"));
    configureAddress("");
    start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(recorded(), HasSubstr("setConfiguration 0|AXIS1|data/AXIS1|198.51.100.1|eth1|198.51.100.1|"));
}

TEST_F(AddressRules, SecondNameStandsForAnAdapterNamedOtherwise) {
    ASSERT_TRUE(PrivateMachine::addAdapter("plant0", "203.0.113.1/24"));
    configureAddress("203.0.113.9");
    start({"--adapter", "eth0=plant0"});
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(PrivateMachine::addresses("plant0"), "203.0.113.1/24 203.0.113.9/24");
}

TEST_F(AddressRules, WithoutAnAdapterNamedEthNoDriverStartsAndTheHostEnds) {
    ASSERT_TRUE(PrivateMachine::addAdapter("plant0", "203.0.113.1/24"));
    configureAddress("");
    HostProcess& host = start();
    EXPECT_EQ(host.waitForEnd(), 1);
    EXPECT_TRUE(host.waitForOutput("Failed to determine virtual panel IP address\n")) << host.output();
    EXPECT_TRUE(host.waitForLog("Failed to start panel driver")) << host.log();
}

TEST_F(AddressRules, MalformedAddressIsNeverAddedAndTheOthersStillStart) {
    ASSERT_TRUE(PrivateMachine::addAdapter("eth0", "192.0.2.10/24"));
    workplace().configure(TestWorkplace::entry("AXIS1", "Recorder", "direct", "ipAddress=\"192.0.2.300\"") +
                          TestWorkplace::entry("AXIS2", "Recorder", "direct"));
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr("FAILED! (IP address problem)\n"));
    EXPECT_THAT(host.output(), HasSubstr("(ID: AXIS2)...OK\n"));
    EXPECT_THAT(host.log(), HasSubstr("192.0.2.300"));
    EXPECT_EQ(PrivateMachine::addresses("eth0"), "192.0.2.10/24");
}

TEST_F(AddressRules, WithoutTheRightToChangeAddressesTheDriverIsPassedOver) {
    ASSERT_TRUE(PrivateMachine::addAdapter("eth0", "192.0.2.10/24"));
    configureAddress("192.0.2.20");
    HostProcess::Start call = workplace().host();
    call.arguments.insert(call.arguments.begin(),
                          {"--bounding-set=-net_admin", "--inh-caps=-net_admin", call.program});
    call.program = "/usr/bin/setpriv";
    HostProcess& host = start(call);
    ASSERT_TRUE(host.waitForOutput("FAILED! (IP address problem)\n")) << host.output() << host.log();
    // CAP_NET_ADMIN is bit 12 of the effective set; the host really runs without it.
    const std::string status = readFile("/proc/" + std::to_string(host.pid()) + "/status");
    const auto at = status.find("CapEff:");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(std::stoull(status.substr(at + 7), nullptr, 16) >> 12 & 1, 0u);
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr("Operation not permitted"));
    EXPECT_THAT(host.output(), Not(HasSubstr("(ID: AXIS1)")));
    EXPECT_EQ(PrivateMachine::addresses("eth0"), "192.0.2.10/24");
}
