#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "SystemTest.h"

namespace fs = std::filesystem;
using testing::ElementsAreArray;

// What ps -L and gdb show of a running workplace: each thread says what it is. One that nobody has named
// bears the name of the thread that made it.
class ThreadNames : public SystemTest {
protected:
    using Names = std::vector<std::string>;

    HostProcess& startDemo() {
        HostProcess::Start call;
        const fs::path build = TestWorkplace::build();
        call.program = build / "bin/mfhost";
        call.arguments = {"--drivers",
                          build / "lib/mfdrivers",
                          "--config",
                          build / "workplace/demo.xml",
                          "--trust",
                          build / "workplace/trust",
                          "--workdir",
                          workplace().workdir(),
                          "--follow",
                          "--control",
                          workplace().directory() / "control",
                          "--log-file",
                          workplace().directory() / "host.log"};
        call.files = workplace().directory();
        return start(call);
    }

    static Names namesOf(pid_t process) {
        Names names;
        std::error_code error;
        for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(process) + "/task", error)) {
            std::string name = readFile(task.path() / "comm");
            name.erase(std::remove(name.begin(), name.end(), '\n'), name.end());
            names.push_back(name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    /// The names, once they are the expected ones or the time is up: a thread needs a moment to begin.
    static Names awaitNames(pid_t process, const Names& expected) {
        const auto end = std::chrono::steady_clock::now() + c_hangGuard;
        while (namesOf(process) != expected && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return namesOf(process);
    }
};

TEST_F(ThreadNames, EachThreadSaysWhatItIs) {
    giveAdapter();
    HostProcess& host = startDemo();
    ASSERT_TRUE(host.waitForOutput("\nSYS.LOAD = ")) << host.log();
    const Names ofHost{"API limits", "API recording", "LOCAL driver", "PANEL macros",    "SYS receive",
                       "api",        "commands",      "console",      "drivers' errors", "follow",
                       "log",        "log file",      "mfhost",       "recorder",        "supervisor"};
    const Names ofDriver{"SYS driver", "host process", "host queues", "log", "mfddllwrap", "signals"};
    EXPECT_THAT(awaitNames(host.pid(), ofHost), ElementsAreArray(ofHost));
    EXPECT_THAT(awaitNames(host.driverProcess("SYS"), ofDriver), ElementsAreArray(ofDriver));
    EXPECT_EQ(end(), 0) << host.log();
}
