#include <signal.h>

#include <chrono>
#include <sstream>

#include "SystemTest.h"

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

// NEAR, FAR and VICTIM talk to each other without a pause, each in a process of its own, and number what they
// send.
class KillUnderLoad : public SystemTest {
protected:
    void prepare() override {
        giveAdapter();
        workplace().addModule("Traffic");
        workplace().configure(TestWorkplace::entry("NEAR", "Traffic", "queue") +
                              TestWorkplace::entry("FAR", "Traffic", "queue") +
                              TestWorkplace::entry("VICTIM", "Traffic", "queue"));
    }

    HostProcess& startTalking() {
        HostProcess::Start call = workplace().host({"--restart-delay", "0.1", "--follow=[NF]*.LOST"});
        call.environment["MFD_TEST_TRAFFIC"] = "NEAR FAR VICTIM";
        return start(call);
    }

    /// Kills it and waits until it has been started again.
    static void kill(HostProcess& host, const std::string& driverID) {
        const pid_t process = host.driverProcess(driverID);
        ASSERT_NE(process, 0) << host.log();
        ::kill(process, SIGKILL);
        ASSERT_TRUE(host.waitForLog(driverID + ": process " + std::to_string(process) +
                                    " ended unexpectedly: signal 9 (Killed)"))
            << host.log();
        ASSERT_TRUE(eventually([&] { return host.driverProcess(driverID) != 0; }, 10ms)) << host.log();
    }

    /// What the "state" commands have shown of a number, one after another.
    static std::vector<int> shown(const HostProcess& host, const std::string& key) {
        std::vector<int> numbers;
        std::istringstream lines(host.output());
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string name;
            std::string type;
            int number = 0;
            if (words >> name >> type >> number && name == key && type == "int")
                numbers.push_back(number);
        }
        return numbers;
    }
};

TEST_F(KillUnderLoad, NothingThatIsSentToOthersIsLost) {
    HostProcess& host = startTalking();
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    for (int round = 0; round < 2; ++round)
        ASSERT_NO_FATAL_FAILURE(kill(host, "VICTIM"));
    for (const std::string way : {"NEAR.HEARD.FAR", "FAR.HEARD.NEAR"}) {
        const auto goesOn = [&] {
            const auto numbers = shown(host, way);
            return !numbers.empty() && numbers.back() > numbers.front();
        };
        EXPECT_TRUE(eventually(
            [&] {
                host.type("state *.HEARD.*");
                return goesOn();
            },
            1s))
            << way << " stands still\n"
            << host.output() << host.log();
    }
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), Not(HasSubstr(".LOST"))) << "FIDs are missing";
}
