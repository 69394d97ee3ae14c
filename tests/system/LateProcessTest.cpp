#include <signal.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "FaultyWorkplace.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

// A driver process that comes up later than the host waits for it, or never, as on a busy machine.
class LateProcess : public FaultyWorkplace {
protected:
    void SetUp() override {
        FaultyWorkplace::SetUp();
        if (IsSkipped())
            return;
        // The wrapper is looked for beside the running program.
        fs::create_directory(workplace().directory() / "bin");
        fs::copy_file(Workplace::build() / "bin/mfhost", workplace().directory() / "bin/mfhost");
        fs::create_symlink(Workplace::build() / "bin/mfdprobe", workplace().directory() / "bin/mfdprobe");
        fs::create_symlink(Workplace::build() / "late/bin/mfddllwrap",
                           workplace().directory() / "bin/mfddllwrap");
        fs::create_directory_symlink(Workplace::build() / "lib", workplace().directory() / "lib");
        configure("queue");
    }

    /// What the next driver processes do before they come up, one line each; see tests/support/latewrapper.
    void plan(const std::string& lines) { writeFile(workplace().directory() / "starts", lines); }

    HostProcess& startLate(const std::vector<std::string>& options = {"--log-level", "5"}) {
        HostProcess::Start call = this->call(options);
        call.program = workplace().directory() / "bin/mfhost";
        call.environment["MFD_TEST_STARTS"] = workplace().directory() / "starts";
        return start(call);
    }

    static pid_t waitForProcess(const HostProcess& host, const std::string& driverID, pid_t former) {
        pid_t found = 0;
        for (int i = 0; i < 1000 && (found == 0 || found == former); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            for (const pid_t pid : host.children()) {
                if (pid != former &&
                    readFile("/proc/" + std::to_string(pid) + "/cmdline").rfind(driverID + " MFD", 0) == 0)
                    found = pid;
            }
        }
        return found;
    }

    static std::string process(pid_t pid) { return "BAD: process " + std::to_string(pid); }
};

TEST_F(LateProcess, IsNotTakenForItsSuccessorOfAReload) {
    plan("wait 1500\nwait 1500\n");
    HostProcess& host = startLate();
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    const pid_t late = host.driverProcess("BAD");
    ASSERT_NE(late, 0);
    host.type("reloadDriver BAD");
    const pid_t fresh = waitForProcess(host, "BAD", late);
    ASSERT_NE(fresh, 0) << host.log();
    expectServes(host, "BAD");
    EXPECT_TRUE(endsWithin(late, 10000));
    EXPECT_FALSE(endsWithin(fresh, 0)) << host.log();
    EXPECT_TRUE(host.waitForLog(process(late) + " ended: exit code 1; a newer process had replaced it\n"))
        << host.log();
    EXPECT_THAT(host.log(),
                HasSubstr("QUEUE: queue BAD_INQ: not opened: it was made for a process that was started "
                          "later than this one"));
    EXPECT_THAT(host.log(), Not(HasSubstr("another reader")));
    EXPECT_THAT(host.log(), Not(HasSubstr("unexpectedly")));
    EXPECT_EQ(end(), 0);
}

TEST_F(LateProcess, OfAKilledHostIsNotTakenForOneOfTheNext) {
    plan("wait 1500\nwait 1500\n");
    HostProcess& killed = startLate();
    ASSERT_TRUE(killed.waitForLog("HOST: the workplace is started")) << killed.log();
    const pid_t late = killed.driverProcess("BAD");
    ASSERT_NE(late, 0);
    killed.signal(SIGKILL);
    ASSERT_EQ(killed.waitForEnd(), 128 + SIGKILL);
    HostProcess& host = startLate();
    const pid_t fresh = waitForProcess(host, "BAD", 0);
    ASSERT_NE(fresh, 0) << host.log();
    expectServes(host, "BAD");
    EXPECT_TRUE(endsWithin(late, 10000));
    EXPECT_FALSE(endsWithin(fresh, 0)) << host.log();
    EXPECT_THAT(host.log(), HasSubstr("QUEUE: queue BAD_INQ: not opened: it was made by another host than "
                                      "the one that started this process"));
    EXPECT_THAT(host.log(), Not(HasSubstr("another reader")));
    EXPECT_THAT(host.log(), Not(HasSubstr("unexpectedly")));
    EXPECT_EQ(end(), 0);
}
