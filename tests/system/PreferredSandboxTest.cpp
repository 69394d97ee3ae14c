#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "RefusedCalls.h"
#include "SystemTest.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

// A host that is to have a sandbox if it can: where it gets none, it uses the machine, unless that would harm
// what belongs to others.
class PreferredSandbox : public SystemTest {
protected:
    void prepare() override {
        workplace().addModule("Recorder");
        workplace().configure(TestWorkplace::entry("AXIS1", "Recorder", "direct"));
    }

    void run() {
        start(workplace().host({"--prefer-sandbox"}));
        m_exit = end();
    }
    void runWhereItIsRefused() {
        auto call = workplace().host({"--prefer-sandbox"});
        call.beforeExec = refuseNamespaces;
        start(call);
        m_exit = end();
    }

    const std::string m_refusal =
        "mfhost: no sandbox here (unshare(user, mount, network): Operation not permitted): the workplace "
        "uses "
        "this machine's /var/data and adapters\n";
    std::optional<int> m_exit;
};

TEST_F(PreferredSandbox, NothingOfTheMachineIsTouchedWhereItCanBeHad) {
    writeFile("/var/data/notes.txt", "kept");
    run();
    EXPECT_EQ(m_exit, 0) << host().log();
    EXPECT_TRUE(
        host().waitForLog("mfhost: runs in a sandbox: its own /var/data, /dev/shm and adapter eth0; "
                          "nothing of this machine is touched\n"))
        << host().log();
    EXPECT_EQ(readFile("/var/data/notes.txt"), "kept");
    EXPECT_FALSE(fs::is_symlink("/var/data/AXIS1"));
}

TEST_F(PreferredSandbox, ProgramsAreFoundBelowAChangedRoot) {
    workplace().configure(TestWorkplace::entry("AXIS1", "Recorder", "queue"));
    const std::string root = "/var/data/root";
    fs::create_directory(root);
    auto call = workplace().host({"--prefer-sandbox"});
    call.beforeExec = [root, before = fs::current_path().string()] {
        if (::mount("/", root.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0 ||
            ::chroot(root.c_str()) != 0 || ::chdir(before.c_str()) != 0)
            ::_exit(126);
    };
    start(call);
    EXPECT_EQ(end(), 0) << host().log();
    EXPECT_THAT(host().log(), HasSubstr("mfhost: runs in a sandbox: "));
    EXPECT_THAT(host().log(), Not(HasSubstr("without being tried out")));
    EXPECT_THAT(host().log(), Not(HasSubstr("cannot start")));
    EXPECT_THAT(host().output(), HasSubstr("(ID: AXIS1)...m_moduleFileName="));
    EXPECT_THAT(host().output(), Not(HasSubstr("FAILED!")));
}

TEST_F(PreferredSandbox, MachineServesWhereItIsRefused) {
    ASSERT_TRUE(PrivateMachine::addAdapter("box0", "192.0.2.10/24"));
    ASSERT_TRUE(
        PrivateMachine::shell("for i in $(seq 100); do ip link show box0 | grep -q 'state UP' && exit 0; "
                              "sleep 0.1; done; exit 1"));
    runWhereItIsRefused();
    EXPECT_EQ(m_exit, 0) << host().log();
    EXPECT_TRUE(host().waitForLog(m_refusal +
                                  "mfhost: runs on this machine's own /var/data, with the adapter "
                                  "box0 as eth0\n"))
        << host().log();
    EXPECT_TRUE(host().waitForOutput("(ID: AXIS1)...OK\n")) << host().output();
    EXPECT_TRUE(fs::is_symlink("/var/data/AXIS1"));
    // What this start has left is in nobody's way.
    runWhereItIsRefused();
    EXPECT_EQ(m_exit, 0) << host().log();
}

TEST_F(PreferredSandbox, MachinesOwnEth0IsUsedAsItIs) {
    giveAdapter();
    runWhereItIsRefused();
    EXPECT_EQ(m_exit, 0) << host().log();
    EXPECT_TRUE(host().waitForLog("mfhost: runs on this machine's own /var/data\n")) << host().log();
}

TEST_F(PreferredSandbox, WhatOthersHaveInTheDataDirectoryIsNeverRemoved) {
    writeFile("/var/data/notes.txt", "kept");
    fs::create_symlink("/elsewhere/data/AXIS1", "/var/data/AXIS1");
    runWhereItIsRefused();
    EXPECT_EQ(m_exit, 1);
    EXPECT_TRUE(host().waitForLog(m_refusal)) << host().log();
    EXPECT_TRUE(
        host().waitForLog("mfhost: a start empties /var/data, and it holds what is not this workplace's: "))
        << host().log();
    EXPECT_TRUE(host().waitForLog("AXIS1")) << host().log();
    EXPECT_TRUE(host().waitForLog("notes.txt")) << host().log();
    EXPECT_TRUE(
        host().waitForLog("\nmfhost: stopped. Move that away, or run it where a sandbox can be had: as "
                          "root, or with user namespaces allowed\n"))
        << host().log();
    EXPECT_THAT(host().output(), Not(HasSubstr("AXIS1")));
    EXPECT_EQ(readFile("/var/data/notes.txt"), "kept");
    EXPECT_EQ(fs::read_symlink("/var/data/AXIS1"), "/elsewhere/data/AXIS1");
}
