#include <signal.h>

#include <filesystem>

#include "FaultyWorkplace.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

// A driver in the host's process that dies or hangs while it is loaded: it is not loaded, and that is all.
class ModuleTrial : public FaultyWorkplace {
protected:
    static std::string loading(const std::string& file, const std::string& driverID) {
        return "Loading MF driver " + file + " (ID: " + driverID + ")...";
    }
    static std::string faulty() { return TestWorkplace::build() / "lib/mfdkit/faulty.so"; }

    void expectLeftOut(HostProcess& host, const std::string& reason) {
        EXPECT_EQ(end(), 0);
        EXPECT_THAT(host.output(), HasSubstr(loading(faulty(), "BAD") + "FAILED!\n"));
        EXPECT_THAT(host.log(), HasSubstr("MODULE: cannot load the driver module " + faulty() +
                                          ": tried out in a " + reason));
        EXPECT_THAT(host.log(), HasSubstr("Failed to load \"BAD\" mainframe driver"));
        EXPECT_THAT(host.output(), HasSubstr("(ID: GOOD)...OK\n"));
    }

    /// One driver, AXIS1, whose file the test replaces.
    void configureOne(const std::string& type) {
        workplace().addModule(type);
        workplace().configure(TestWorkplace::entry("AXIS1", type, "direct"));
    }
    void replace(const std::string& type, const std::string& file) {
        const fs::path fresh = workplace().drivers() / "new";
        fs::copy_file(file, fresh);
        fs::rename(fresh, workplace().drivers() / (type + ".so"));
    }
    static std::string testModule(const std::string& name) {
        return TestWorkplace::build() / "lib/testmodules" / (name + ".so");
    }
};

TEST_F(ModuleTrial, DriverThatCrashesWhileItIsMadeIsLeftOut) {
    configure("direct");
    expectLeftOut(startWith("load crash"), "process of its own, that process ");
}

TEST_F(ModuleTrial, DriverThatEndsItsProcessWhileItIsMadeIsLeftOut) {
    configure("direct");
    expectLeftOut(startWith("load exit 0"), "process of its own, that process ended with exit code 0");
}

TEST_F(ModuleTrial, DriverThatHangsWhileItIsMadeIsLeftOut) {
    configure("direct");
    HostProcess::Start start = call();
    // The healthy ones have to be ready by then.
    start.environment = {{"MFD_FAULTS", "load sleep"}, {"MFD_PROBE_TIMEOUT", "5"}};
    expectLeftOut(this->start(start), "process of its own, it was not ready within 5 s");
}

TEST_F(ModuleTrial, DriverThatDiesWhileItIsDeletedIsLeftOut) {
    configure("direct");
    expectLeftOut(startWith("delete abort"),
                  "process of its own, that process was ended by signal 6 (Aborted)");
}

TEST_F(ModuleTrial, SlowDriverIsLoaded) {
    configure("direct");
    HostProcess& host = startWith("load sleep 300");
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr(loading(faulty(), "BAD") + "OK\n"));
}

TEST_F(ModuleTrial, DriverInAProcessOfItsOwnIsNotTriedOut) {
    workplace().addModule("DiesInTrial");
    workplace().configure(TestWorkplace::entry("AXIS1", "DiesInTrial", "queue"));
    HostProcess& host = start();
    EXPECT_TRUE(host.waitForLog("AXIS1 MFD: Runs ")) << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(ModuleTrial, HostWithoutTheProgramSaysSoOnceAndLoads) {
    workplace().addModule("Recorder");
    workplace().configure(TestWorkplace::entry("A", "Recorder", "direct") +
                          TestWorkplace::entry("B", "Recorder", "direct"));
    fs::create_directory(workplace().directory() / "bin");
    fs::copy_file(TestWorkplace::build() / "bin/mfhost", workplace().directory() / "bin/mfhost");
    fs::create_directory_symlink(TestWorkplace::build() / "lib", workplace().directory() / "lib");
    HostProcess::Start start = workplace().host();
    start.program = workplace().directory() / "bin/mfhost";
    HostProcess& host = this->start(start);
    EXPECT_EQ(end(), 0);
    const std::string line = "there is no " + (workplace().directory() / "bin/mfdprobe").string() +
                             "; driver modules are loaded into this process without being tried out\n";
    EXPECT_THAT(host.log(), HasSubstr(line));
    EXPECT_EQ(host.log().find(line), host.log().rfind(line));
    EXPECT_THAT(host.output(), HasSubstr("(ID: A)...OK\n"));
    EXPECT_THAT(host.output(), HasSubstr("(ID: B)...OK\n"));
}

TEST_F(ModuleTrial, ReloadRunsTheCodeOfTheNewFile) {
    configureOne("Recorder");
    HostProcess& host = start(call());
    settle(host);
    replace("Recorder", testModule("Echo"));
    host.type("reloadDriver AXIS1");
    host.type("sendFID AXIS1.PRINT value=new-code");
    EXPECT_TRUE(host.waitForOutput("new-code\n")) << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(ModuleTrial, ReloadOfAFileThatDiesLeavesTheHostRunning) {
    configureOne("Recorder");
    HostProcess& host = start(call());
    settle(host);
    replace("Recorder", testModule("DiesInTrial"));
    host.type("reloadDriver AXIS1");
    EXPECT_TRUE(host.waitForLog("ended by signal 6 (Aborted)")) << host.log();
    EXPECT_TRUE(host.waitForLog("Failed to load \"AXIS1\" mainframe driver")) << host.log();
    replace("Recorder", testModule("Echo"));
    host.type("reloadDriver AXIS1");
    host.type("sendFID AXIS1.PRINT value=mended");
    EXPECT_TRUE(host.waitForOutput("mended\n")) << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(ModuleTrial, ReloadNamesTheSymbolThatKeepsTheOldCode) {
    configureOne("PinnedByUniqueSymbol");
    HostProcess& host = start(call());
    settle(host);
    host.type("reloadDriver AXIS1");
    EXPECT_TRUE(host.waitForLog("stays mapped: its symbol \"")) << host.log();
    EXPECT_TRUE(host.waitForLog("driver AXIS1: the code of " +
                                (workplace().drivers() / "PinnedByUniqueSymbol.so").string()))
        << host.log();
    EXPECT_EQ(end(), 0);
}

TEST_F(ModuleTrial, ExceptionOfADriverIsItsOwnAffair) {
    configure("direct");
    HostProcess& host = startWith("");
    host.type("sendFID BAD.FAULT.THROW");
    host.type("sendFID BAD.FAULT.THROWNUMBER");
    EXPECT_TRUE(host.waitForLog("thrown on purpose")) << host.log();
    expectServes(host, "BAD");
    EXPECT_EQ(end(), 3);
}

TEST_F(ModuleTrial, ExceptionsInTheStagesOfADriverEndNothing) {
    configure("direct");
    HostProcess& host = startWith("configure throw; start thrownumber; deinitialize throw");
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr("thrown on purpose"));
    EXPECT_THAT(host.output(), HasSubstr("(ID: GOOD)...OK\n"));
    EXPECT_THAT(host.output(), HasSubstr("Deinitializing MF driver ID: GOOD...OK\n"));
}
