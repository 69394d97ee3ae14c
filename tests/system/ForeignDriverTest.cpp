#include "SystemTest.h"

using testing::HasSubstr;

// A driver that knows the interfaces and the driver macro alone, in the host's process and in one of its own.
class ForeignDriver : public SystemTest {
protected:
    void prepare() override {
        giveAdapter();
        std::filesystem::copy_file(TestWorkplace::build() / "lib/foreign/ForeignDriver.so",
                                   workplace().drivers() / "ForeignDriver.so");
        workplace().describe("Foreign", "ForeignDriver.so");
    }

    HostProcess& startWith(const std::string& interfaceType) {
        workplace().configure(TestWorkplace::entry("FOREIGN", "Foreign", interfaceType));
        HostProcess& host = start();
        // At the end of the host a process that is still coming up would be cut off.
        EXPECT_TRUE(isTold("completed ")) << host.log();
        return host;
    }
    bool isTold(const std::string& text) {
        return eventually([&] { return told().find(text) != std::string::npos; });
    }

    std::string told() { return readFile(workplace().workdir() / "nvram/FOREIGN/told.txt"); }
    std::string configuration() {
        return "configuration 0 FOREIGN data/FOREIGN 192.0.2.10 eth0 192.0.2.10 " +
               (workplace().workdir() / "nvram/FOREIGN").string() + "\n";
    }
};

TEST_F(ForeignDriver, InTheHostsProcessIsToldItsConfigurationAndGetsNoDistributor) {
    startWith("direct");
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(told(), configuration() + "completed panel=yes distributor=no system=yes\ndeinitialize\n");
}

TEST_F(ForeignDriver, InAProcessOfItsOwnIsToldTheSameAndGetsADistributor) {
    startWith("queue");
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(told(), configuration() + "completed panel=yes distributor=yes system=yes\ndeinitialize\n");
}

TEST_F(ForeignDriver, InTheHostsProcessGetsFidsWithTheirParametersInOrder) {
    HostProcess& host = startWith("direct");
    host.type("sendFID FOREIGN.A.B two=2 one= two=3");
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(told(), HasSubstr("fid A.B two=2 one=two=3\n"));
}

TEST_F(ForeignDriver, InAProcessOfItsOwnGetsFidsWithTheirParametersInOrder) {
    HostProcess& host = startWith("queue");
    host.type("sendFID FOREIGN.A.B two=2 one=1 two=3");
    EXPECT_TRUE(isTold("fid A.B two=2 one=1 two=3\n")) << told();
    EXPECT_EQ(end(), 0);
}
