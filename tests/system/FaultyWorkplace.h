#pragma once

#include <filesystem>
#include <string>

#include "SystemTest.h"

/// Base of the tests that run drivers which fail as they are told, beside healthy ones.
class FaultyWorkplace : public SystemTest {
protected:
    void prepare() override { giveAdapter(); }

    /// The fault driver BAD in that mode, and the healthy GOOD in the host's process.
    void configure(const std::string& interfaceType) {
        workplace().addModule("Recorder");
        workplace().configure(TestWorkplace::entry("BAD", "Faulty", interfaceType) +
                              TestWorkplace::entry("GOOD", "Recorder", "direct"));
    }

    HostProcess::Start call(const std::vector<std::string>& options = {"--log-level", "5"}) {
        HostProcess::Start call = workplace().host(options);
        call.arguments.insert(call.arguments.end(), {"--drivers", TestWorkplace::build() / "lib/mfdkit"});
        return call;
    }
    HostProcess& startWith(const std::string& faults) {
        HostProcess::Start start = call();
        start.environment["MFD_FAULTS"] = faults;
        return this->start(start);
    }

    /// Returns when the command thread has come to where the console stands now.
    static void settle(HostProcess& host) { ASSERT_TRUE(host.passMark()) << host.log(); }

    /// The driver answers: what comes back has gone both ways.
    static void expectServes(HostProcess& host, const std::string& driverID) {
        static int s_number = 0;
        const std::string value = "answer" + std::to_string(++s_number);
        host.type("sendFID " + driverID + ".PING value=" + value);
        EXPECT_TRUE(host.repliesWith("state " + driverID + ".PONG", value)) << host.output() << host.log();
    }
};
