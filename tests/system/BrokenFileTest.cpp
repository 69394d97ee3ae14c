#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "BrokenFileCase.h"
#include "SystemTest.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string nested(int levels) {
    std::string text;
    for (int level = 0; level < levels; ++level)
        text += "<ports>\n";
    return text;
}

}  // namespace

// A workplace file that is not whole for a while loses no driver: what ends meanwhile waits for it, and what
// is asked meanwhile is refused.
class BrokenFile : public SystemTest {
protected:
    void prepare() override {
        giveAdapter();
        workplace().addModule("Echo");
        workplace().configure(TestWorkplace::entry("E", "Echo", "queue") +
                              TestWorkplace::entry("F", "Echo", "queue"));
        m_whole = readFile(file());
    }

    std::string file() { return workplace().configuration(); }
    void mend() { replaceFile(file(), m_whole); }

    HostProcess& startAndWait(const std::vector<std::string>& options) {
        HostProcess& host = start(options);
        EXPECT_TRUE(host.waitForLog("HOST: the workplace is started\n")) << host.log();
        return host;
    }
    static void kill(HostProcess& host, const std::string& driverID) {
        const pid_t pid = host.driverProcess(driverID);
        ASSERT_NE(pid, 0);
        ::kill(pid, SIGKILL);
    }

    std::string m_whole;
};

class BrokenFiles : public BrokenFile, public testing::WithParamInterface<BrokenFileCase> {};

TEST_P(BrokenFiles, DriverThatEndsMeanwhileStaysInTheListAndIsStartedAgain) {
    HostProcess& host = startAndWait({"--restart-delay", "0.1", "--restart-limit", "1"});
    fs::remove(file());
    GetParam().makeIt(file());
    kill(host, "E");
    const std::string reason = file() + GetParam().reason;
    ASSERT_TRUE(host.waitForLog("HOST: E: no process runs: " + reason + "; it is started again in 0.2 s\n"))
        << host.log();
    // It is tried more often than the limit allows, and one line tells it.
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    const std::string listed = host.listed("E");
    EXPECT_THAT(listed, HasSubstr("  ended  ")) << host.output();
    EXPECT_THAT(listed, HasSubstr("  0         " + reason + "  "));
    EXPECT_TRUE(listed.find("  in ") != std::string::npos || listed.find("  now  ") != std::string::npos)
        << listed;
    EXPECT_THAT(host.listed("F"), HasSubstr("  running  "));
    fs::remove_all(file());
    mend();
    ASSERT_TRUE(host.waitForLog("HOST: E: is started again\n")) << host.log();
    EXPECT_THAT(host.listed("E"), HasSubstr("  running  "));
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), Not(HasSubstr("Failed to open")));
    const std::string told = "HOST: E: no process runs: ";
    EXPECT_EQ(host.log().find(told), host.log().rfind(told)) << host.log();
}

TEST_P(BrokenFiles, ReloadByHandIsRefusedAndForgetsNobody) {
    HostProcess& host = startAndWait({"--restart-delay", "60"});
    kill(host, "E");
    ASSERT_TRUE(host.waitForLog("it is started again in ")) << host.log();
    fs::remove(file());
    GetParam().makeIt(file());
    for (const char* id : {"E", "F"}) {
        host.type(std::string("reloadDriver ") + id);
        EXPECT_TRUE(host.waitForOutput(std::string(id) + " is not reloaded, nothing is unloaded: " + file() +
                                       GetParam().reason + "\n"))
            << host.output();
    }
    EXPECT_THAT(host.listed("E"), HasSubstr("  signal 9 (Killed)  in "));
    EXPECT_THAT(host.listed("F"), HasSubstr("  running  "));
    fs::remove_all(file());
    mend();
    host.type("reloadDriver E");
    EXPECT_THAT(host.listed("E"), HasSubstr("  running  "));
    EXPECT_EQ(end(), 3);
    EXPECT_THAT(host.log(), Not(HasSubstr("Failed to open")));
}

INSTANTIATE_TEST_SUITE_P(
    , BrokenFiles,
    testing::Values(
        missingFile(),
        BrokenFileCase{"Empty", [](const fs::path& file) { writeFile(file, ""); },
                       " cannot be read: Error document empty"},
        BrokenFileCase{"CutShort",
                       [](const fs::path& file) {
                           writeFile(file,
                                     "<workplaces>\n<workplace id=\"0\">\n<mainframeDriver driverID=\"E\"");
                       },
                       " line 3: Error parsing Element"},
        illFormedFile(),
        BrokenFileCase{"AnotherDocument", [](const fs::path& file) { writeFile(file, "<desk/>"); },
                       " line 1: the root is <desk>; it must be <workplaces>"},
        BrokenFileCase{"FaultyBeforeTheDriver",
                       [](const fs::path& file) {
                           writeFile(file, "<workplaces>\n<desk/>\n<workplace id=\"0\">\n" +
                                               TestWorkplace::entry("E", "Echo", "queue") +
                                               "</workplace></workplaces>");
                       },
                       " line 2: an element <desk> may not stand here, only <workplace>"},
        BrokenFileCase{"LinkLoop", [](const fs::path& file) { fs::create_symlink(file, file); },
                       " cannot be read: Too many levels of symbolic links"},
        directoryAsFile(),
        BrokenFileCase{"TooDeep", [](const fs::path& file) { writeFile(file, nested(101)); },
                       " line 101: elements nest deeper than 100 levels"}),
    [](const auto& test) { return test.param.claim; });

TEST_F(BrokenFile, FileThatIsNoLongerSignedIsAReasonWithANextTry) {
    const fs::path build = TestWorkplace::build();
    const std::string key = workplace().directory() / "site";
    const auto run = [&](const std::string& arguments) {
        return std::system(((build / "bin/mfctl").string() + " " + arguments + " >/dev/null").c_str());
    };
    ASSERT_EQ(0, run("keygen " + key));
    ASSERT_EQ(0, run("sign --key " + key + ".key " + file()));
    HostProcess& host =
        startAndWait({"--restart-delay", "0.1", "--trust", workplace().directory(), "--require-signature"});
    replaceFile(file(), m_whole + "\n");
    kill(host, "E");
    ASSERT_TRUE(
        host.waitForLog("HOST: E: no process runs: " + file() +
                        " is not signed by a trusted key, and --require-signature asks for it: the file is "
                        "not the one that was signed: it was changed or swapped after " +
                        file() + ".sig was made; it is started again in 0.2 s\n"))
        << host.log();
    mend();
    ASSERT_TRUE(host.waitForLog("HOST: E: is started again\n")) << host.log();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), Not(HasSubstr("VERIFY")));
}

TEST_F(BrokenFile, WantOfDescriptorsIsAReasonWithANextTry) {
    HostProcess& host = startAndWait({"--restart-delay", "0.1"});
    rlimit before{};
    ASSERT_EQ(0, ::prlimit(host.pid(), RLIMIT_NOFILE, nullptr, &before));
    // No further number is free below it, and what is open stays so.
    const rlimit few{5, before.rlim_max};
    for (int number = 0; number < 5; ++number)
        ASSERT_TRUE(fs::exists("/proc/" + std::to_string(host.pid()) + "/fd/" + std::to_string(number)));
    ASSERT_EQ(0, ::prlimit(host.pid(), RLIMIT_NOFILE, &few, nullptr));
    kill(host, "E");
    ASSERT_TRUE(host.waitForLog("HOST: E: no process runs: " + file() +
                                " cannot be read: Too many open files; it is started again in 0.2 s\n"))
        << host.log();
    host.type("reloadDriver F");
    EXPECT_TRUE(host.waitForOutput("F is not reloaded, nothing is unloaded: " + file() +
                                   " cannot be read: Too many open files\n"));
    EXPECT_THAT(host.listed("E"), HasSubstr(" cannot be read: Too many open files  "));
    ASSERT_EQ(0, ::prlimit(host.pid(), RLIMIT_NOFILE, &before, nullptr));
    ASSERT_TRUE(host.waitForLog("HOST: E: is started again\n")) << host.log();
    EXPECT_EQ(end(), 3);
}

TEST_F(BrokenFile, ReloadOfADriverBeforeAFaultForgetsNobodyBehindIt) {
    HostProcess& host = startAndWait({"--restart-delay", "60"});
    kill(host, "F");
    ASSERT_TRUE(host.waitForLog("it is started again in ")) << host.log();
    workplace().configure(TestWorkplace::entry("E", "Echo", "queue") + "text\n" +
                          TestWorkplace::entry("F", "Echo", "queue"));
    host.type("reloadDriver E");
    EXPECT_THAT(host.listed("E"), HasSubstr("  running  "));
    EXPECT_THAT(host.listed("F"), HasSubstr("  signal 9 (Killed)  in "));
    EXPECT_EQ(end(), 0);
}

TEST_F(BrokenFile, WholeFileWithoutTheDriverGivesItUp) {
    HostProcess& host = startAndWait({"--restart-delay", "0.1"});
    replaceFile(file(), "<workplaces><workplace id=\"0\">" + TestWorkplace::entry("F", "Echo", "queue") +
                            "</workplace></workplaces>");
    kill(host, "E");
    ASSERT_TRUE(host.waitForLog("HOST: E: is not started again: " + file() + " has no driver \"E\"\n"))
        << host.log();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), Not(HasSubstr("E: no process runs")));
}

TEST_F(BrokenFile, DriverOfAStartWithoutItsFileIsReloadedOnceTheFileIsThere) {
    fs::remove(file());
    HostProcess& host = startAndWait({});
    host.type("reloadDriver E");
    ASSERT_TRUE(host.waitForOutput("E is not reloaded, nothing is unloaded: " + file() +
                                   " cannot be read: No such file or directory\n"));
    mend();
    host.type("reloadDriver E");
    EXPECT_THAT(host.listed("E"), HasSubstr("  running  "));
    EXPECT_EQ(end(), 3);
    EXPECT_THAT(host.log(), HasSubstr("MDM: Failed to open \"/proc/self/fd/"));
    EXPECT_THAT(host.log(), HasSubstr("\" ('Failed to open file')\n"));
}
