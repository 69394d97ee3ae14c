#include <signal.h>

#include <filesystem>

#include "SystemTest.h"

using testing::HasSubstr;
using testing::Not;

// Drivers that are programs of their own, in Python and in C, beside modules of the real host.
class ProgramDriver : public SystemTest {
protected:
    void prepare() override {
        giveAdapter();
        const std::filesystem::path python = TestWorkplace::build() / "lib/python";
        for (const char* name : {"pylamp.py", "pylamp.xml"})
            std::filesystem::copy_file(python / name, workplace().drivers() / name);
        // As an author's driver finds the module that is installed elsewhere.
        ::setenv("PYTHONPATH", python.c_str(), 1);
        // What it leaves of itself belongs to nobody.
        ::setenv("PYTHONDONTWRITEBYTECODE", "1", 1);
        std::filesystem::copy_file(TestWorkplace::build() / "lib/program/adder",
                                   workplace().drivers() / "adder");
        workplace().describe("Adder", "adder");
        workplace().addModule("Echo");
        workplace().configure(TestWorkplace::entry("LAMP1", "PyLamp", "queue") +
                              TestWorkplace::entry("ADD1", "Adder", "queue") +
                              TestWorkplace::entry("AXIS1", "Echo", "direct"));
    }

    HostProcess& startAll(const std::vector<std::string>& options = {}) {
        HostProcess& host = start(workplace().host(options));
        EXPECT_TRUE(host.repliesWith("state LAMP1.*", "LAMP1.LIT +bool +false +LAMP1 .* yes")) << host.log();
        EXPECT_TRUE(host.repliesWith("state ADD1.*", "ADD1.LANGUAGE +string +C +ADD1 .* yes")) << host.log();
        return host;
    }
};

TEST_F(ProgramDriver, AnswersFidsWithStatesAndEvents) {
    HostProcess& host = startAll({"--follow"});
    host.type("sendFID LAMP1.LEVEL percent=40");
    EXPECT_TRUE(host.repliesWith("state LAMP1.*", "LAMP1.LEVEL +int +40 +LAMP1 .* yes")) << host.log();
    EXPECT_TRUE(host.waitForOutput("LAMP1.SWITCHED")) << host.output();
    host.type("sendFID ADD1.ADD a=4 b=38");
    EXPECT_TRUE(host.repliesWith("state ADD1.*", "ADD1.SUM +int +42 +ADD1 .* yes")) << host.log();
    EXPECT_TRUE(host.waitForOutput("ADD1.ADDED")) << host.output();
    EXPECT_EQ(end(), 0);
}

TEST_F(ProgramDriver, LogsWithItsDriverIdWhatItRefuses) {
    HostProcess& host = startAll();
    host.type("sendFID LAMP1.LEVEL percent=101");
    EXPECT_TRUE(host.waitForLog(
        "warning  LAMP1 MFD: LEVEL ignored, percent=\"101\" is not a whole number from 0 to 100\n"))
        << host.log();
    host.type("sendFID LAMP1.DIM");
    EXPECT_TRUE(host.waitForLog("LAMP1 MFD: unknown FID \"DIM\"; known are LEVEL, OFF, ON\n")) << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(ProgramDriver, EndsInOrderWithTheHost) {
    HostProcess& host = startAll();
    host.type("sendFID LAMP1.ON");
    EXPECT_TRUE(host.repliesWith("state LAMP1.*", "LAMP1.LEVEL +int +100 +LAMP1 .* yes")) << host.log();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr("LAMP1 MFD: goes out at 100 percent\n"));
    EXPECT_THAT(host.log(), HasSubstr("ADD1 MFD: stopped in order\n"));
    EXPECT_THAT(host.output(), HasSubstr("Deinitializing MF driver ID: LAMP1...OK\n"));
    EXPECT_THAT(host.log(), Not(HasSubstr("unexpectedly")));
}

TEST_F(ProgramDriver, IsReloadedIntoANewProcess) {
    HostProcess& host = startAll();
    host.type("sendFID LAMP1.ON");
    EXPECT_TRUE(host.repliesWith("state LAMP1.*", "LAMP1.LEVEL +int +100 +LAMP1 .* yes")) << host.log();
    host.type("reloadDriver LAMP1");
    EXPECT_TRUE(host.waitForLog("LAMP1 MFD: goes out at 100 percent\n")) << host.log();
    EXPECT_TRUE(host.repliesWith("state LAMP1.*", "LAMP1.LEVEL +int +0 +LAMP1 .* yes")) << host.log();
    host.type("sendFID LAMP1.LEVEL percent=7");
    EXPECT_TRUE(host.repliesWith("state LAMP1.*", "LAMP1.LEVEL +int +7 +LAMP1 .* yes")) << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(ProgramDriver, IsStartedAgainAfterItsDeath) {
    HostProcess& host = startAll();
    host.type("sendFID ADD1.CRASH");
    EXPECT_TRUE(host.waitForLog("ended unexpectedly: signal 11 (Segmentation fault)")) << host.log();
    EXPECT_TRUE(host.repliesWith("state ADD1.*", "ADD1.LANGUAGE +string +C +ADD1 .* yes")) << host.log();
    host.type("sendFID ADD1.ADD a=1 b=1");
    EXPECT_TRUE(host.repliesWith("state ADD1.*", "ADD1.SUM +int +2 +ADD1 .* yes")) << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(ProgramDriver, ServesAsAProcessThatIsStartedByHand) {
    HostProcess& host = start(workplace().host({"--no-start-mfds"}));
    ASSERT_TRUE(host.waitForLog("HOST: the workplace is started")) << host.log();
    const std::string before = "LAMP1: waits for its process, to be started by hand: ";
    const std::string log = host.log();
    const auto at = log.find(before);
    ASSERT_NE(at, std::string::npos) << log;
    const std::string command = log.substr(at + before.size(), log.find('\n', at) - at - before.size());
    std::filesystem::create_directory(workplace().directory() / "byhand");
    HostProcess process({.program = "/bin/sh",
                         .arguments = {"-c", "exec env " + command},
                         .environment = {},
                         .files = workplace().directory() / "byhand"});
    EXPECT_TRUE(host.waitForLog("LAMP1: process " + std::to_string(process.pid()) +
                                " was started by hand and serves it"))
        << command << host.log() << process.log();
    host.type("sendFID LAMP1.ON");
    EXPECT_TRUE(host.repliesWith("state LAMP1.*", "LAMP1.LIT +bool +true +LAMP1 .* yes")) << host.log();
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(process.waitForEnd(), 0) << process.log();
    EXPECT_THAT(process.log(), HasSubstr("LAMP1 MFD: goes out at 100 percent\n"));
}

TEST_F(ProgramDriver, WithoutItsInterpreterSaysSo) {
    const std::filesystem::path lamp = workplace().drivers() / "pylamp.py";
    writeFile(lamp, "#!/nowhere/python3\n");
    HostProcess& host = start();
    EXPECT_TRUE(host.waitForLog("LAMP1 MFD: The driver process cannot go on: " + lamp.string() +
                                " cannot be run: No such file or directory; is the interpreter of its first "
                                "line (#!) there?\n"))
        << host.log();
    host.closeInput();
    host.waitForEnd();
}
