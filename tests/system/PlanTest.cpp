#include <signal.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "ConsoleWorkplace.h"

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

// What has changed in the files is planned, applied and given back at the console.
class Planning : public ConsoleWorkplace {
protected:
    void prepare() override {
        ConsoleWorkplace::prepare();
        for (const char* module : {"Echo", "Recorder"})
            workplace().addModule(module);
    }

    fs::path history() { return workplace().workdir() / "mfhost.history"; }
    fs::path module(const std::string& name) { return workplace().drivers() / (name + ".so"); }
    static fs::path built(const std::string& name) {
        return TestWorkplace::build() / "lib/testmodules" / (name + ".so");
    }
    /// Puts another module in the place of one, as an installation does.
    void install(const std::string& name, const std::string& from) {
        fs::copy_file(built(from), module(name).string() + ".new");
        fs::rename(module(name).string() + ".new", module(name));
    }
    long loadings(const std::string& driverID) { return count(host().output(), "(ID: " + driverID + ")..."); }
    static std::string planned(const std::string& reply) {
        const auto at = reply.find("apply ");
        return at == std::string::npos ? std::string() : reply.substr(at, reply.find(' ', at + 6) - at);
    }
    static void expectNoErrors(const HostProcess& host) {
        EXPECT_THAT(host.log(), Not(ContainsRegex(" (error|critical) +[A-Z]")));
    }
};

class PlanningInEachMode : public Planning, public testing::WithParamInterface<const char*> {};

TEST_P(PlanningInEachMode, DriverWhoseEntryHasChangedIsReloadedAndNoOther) {
    const std::string mode = GetParam();
    workplace().configure(entry("A", mode) + entry("B", mode) + entry("G", "queue"));
    HostProcess& host = startAndWait();
    const pid_t other = host.driverProcess("G");
    EXPECT_EQ(host.ask("plan"), "no changes\n");
    workplace().configure(entry("A", mode) +
                          TestWorkplace::entry("B", "Echo", mode, "networkAdapter=\"eth0\"") +
                          entry("G", "queue"));
    const std::string plan = host.ask("plan");
    EXPECT_THAT(plan, HasSubstr("reload B: entry changed (networkAdapter)\napply 2-"));
    EXPECT_EQ(loadings("B"), 1);
    EXPECT_THAT(
        host.ask(planned(plan)),
        HasSubstr("reload B: entry changed (networkAdapter): done\n1 of 1 change done; this is state 2\n"));
    EXPECT_EQ(loadings("A"), 1);
    EXPECT_EQ(loadings("B"), 2);
    EXPECT_EQ(loadings("G"), 1);
    EXPECT_EQ(host.driverProcess("G"), other);
    expectSets(host, "A");
    expectSets(host, "B");
    EXPECT_EQ(host.ask("apply"), "no changes; this is state 2\n");
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
    EXPECT_THAT(host.log(),
                HasSubstr("info     HOST: B: is reloaded by console (entry changed (networkAdapter))\n"));
}

TEST_P(PlanningInEachMode, NewDriverIsStartedAndOneThatIsGoneIsEndedInOrder) {
    const std::string mode = GetParam();
    workplace().configure(entry("R", mode, "Recorder") + entry("E", mode) + entry("G", "queue"));
    HostProcess& host = startAndWait({"--follow=E.*"});
    expectSets(host, "E");
    const pid_t process = host.driverProcess("R");
    workplace().configure(entry("N", mode) + entry("G", "queue"));
    EXPECT_THAT(host.ask("plan"),
                HasSubstr("remove E: entry is gone\nremove R: entry is gone\nload N: entry is new\n"));
    EXPECT_THAT(host.ask("apply"), HasSubstr("3 of 3 changes done"));
    if (process != 0) {
        EXPECT_TRUE(endsInTime(process));
    }
    EXPECT_TRUE(readFile(workplace().workdir() / "nvram/R/record.txt")
                    .ends_with("initializationCompleted\ndeinitialize\ndestroyed\n"));
    EXPECT_TRUE(host.waitForOutput("\nE: 1 value stale: removed\n")) << host.output();
    EXPECT_THAT(host.ask("state E.*"), HasSubstr("(removed)\n"));
    EXPECT_TRUE(eventually([&] { return host.listed("R").empty() && host.listed("E").empty(); }));
    expectSets(host, "N");
    expectSets(host, "G");
    EXPECT_EQ(host.ask("plan"), "no changes\n");
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
}

TEST_P(PlanningInEachMode, UpdateOfOneDriverIsAppliedAndRolledBack) {
    const std::string mode = GetParam();
    workplace().configure(entry("E", mode) + entry("R", mode, "Recorder"));
    HostProcess& host = startAndWait();
    expectSets(host, "E");
    install("Echo", "Recorder");
    EXPECT_THAT(host.ask("plan"), HasSubstr("reload E: module changed\napply "));
    EXPECT_THAT(host.ask("apply"), HasSubstr("1 of 1 change done; this is state 2\n"));
    const fs::path record = workplace().workdir() / "nvram/E/record.txt";
    EXPECT_TRUE(eventually([&] {
        return readFile(record).find("initializationCompleted\n") != std::string::npos;
    })) << readFile(record);
    EXPECT_THAT(host.ask("undo"),
                AllOf(HasSubstr(module("Echo").string() + " is given back\n"),
                      HasSubstr("reload E: module changed: done\n1 of 1 change done; this is state 3\n")));
    expectSets(host, "E");
    EXPECT_EQ(readFile(module("Echo")), readFile(built("Echo")));
    EXPECT_EQ(loadings("R"), 1);
    EXPECT_THAT(
        host.ask("undo"),
        HasSubstr(
            "nothing is undone: there is no state before the present one, which is 3; undo 3 gives its files "
            "back\n"));
    EXPECT_THAT(host.ask("undo 2"), HasSubstr("1 of 1 change done"));
    EXPECT_EQ(readFile(module("Echo")), readFile(built("Recorder")));
    EXPECT_EQ(end(), 3);
    expectNoErrors(host);
}

/// A new version of a driver, announced by its descriptor, beside drivers that keep the old one.
TEST_P(PlanningInEachMode, NewVersionIsAnnouncedLoadedOnceAndRolledBack) {
    const std::string mode = GetParam();
    workplace().configure(entry("A", mode) + entry("B", mode));
    HostProcess& host = startAndWait();
    fs::copy_file(built("Echo"), module("Echo2"));
    writeFile(
        workplace().drivers() / "Echo2.xml",
        "<mfDriverModule><module_type name=\"Echo2.so\" type=\"Echo\" version=\"2.0\"/></mfDriverModule>");
    std::string updated = entry("B", mode);
    updated.replace(updated.find("version=\"1.0\""), 13, "version=\"2.0\"");
    workplace().configure(entry("A", mode) + updated);
    EXPECT_THAT(host.ask("plan"), HasSubstr("rescan: " + (workplace().drivers() / "Echo2.xml").string() +
                                            " is new\nreload B: entry changed (version)\n"));
    EXPECT_THAT(host.ask("apply"), HasSubstr("2 of 2 changes done"));
    EXPECT_THAT(host.output(), HasSubstr("Loading MF driver " + module("Echo2").string() + " (ID: B)..."));
    EXPECT_EQ(loadings("A"), 1);
    expectSets(host, "B");
    // What was known before is not found a second time.
    EXPECT_THAT(host.ask("reloadDriver A"), HasSubstr("OK\n"));
    EXPECT_EQ(loadings("A"), 2);
    EXPECT_THAT(host.ask("undo"), HasSubstr("reload B: entry changed (version): done\n"));
    EXPECT_EQ(loadings("B"), 3);
    expectSets(host, "B");
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
}

TEST_P(PlanningInEachMode, ParkedDriverStaysParked) {
    const std::string mode = GetParam();
    workplace().configure(entry("A", mode) + entry("B", mode));
    HostProcess& host = startAndWait();
    host.ask("stopDriver A");
    install("Echo", "Recorder");
    EXPECT_THAT(host.ask("apply"), HasSubstr("reload B: module changed: done\n1 of 1 change done"));
    EXPECT_THAT(host.listed("A"), ContainsRegex(" -  +parked +[0-9].*  parked at the console"));
    EXPECT_EQ(loadings("A"), 1);
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
}

INSTANTIATE_TEST_SUITE_P(, PlanningInEachMode, testing::Values("queue", "direct"),
                         [](const auto& test) { return std::string(test.param); });

TEST_F(Planning, ChangedPanelModuleIsReloadedAndServes) {
    const fs::path panel = workplace().directory() / "panel";
    fs::create_directory(panel);
    for (const char* name : {"panel.so", "panel.xml"})
        fs::copy_file(TestWorkplace::build() / "lib/mfdrivers" / name, panel / name);
    workplace().configure(entry("E", "queue"));
    HostProcess::Start call = this->call();
    call.arguments[1] = panel;
    HostProcess& host = startCall(call);
    // Another build, as far as the file tells.
    fs::copy_file(panel / "panel.so", panel / "panel.so.new");
    std::ofstream(panel / "panel.so.new", std::ios::app) << "more";
    fs::rename(panel / "panel.so.new", panel / "panel.so");
    EXPECT_THAT(host.ask("plan"), HasSubstr("reload PANEL: module changed\n"));
    EXPECT_THAT(host.ask("apply"), HasSubstr("reload PANEL: module changed: done\n1 of 1 change done"));
    EXPECT_THAT(host.listed("PANEL"), HasSubstr("  running  "));
    EXPECT_EQ(loadings("PANEL"), 2);
    expectSets(host, "E");
    EXPECT_EQ(host.ask("plan"), "no changes\n");
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
}

TEST_F(Planning, ApplyOfAPlanWhoseFilesHaveChangedIsRefused) {
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait();
    workplace().configure(entry("E", "direct"));
    const std::string plan = planned(host.ask("plan"));
    install("Echo", "Recorder");
    workplace().configure(entry("E", "direct") + "\n");
    EXPECT_EQ(host.ask(plan), "nothing is applied: the files have changed since plan " + plan.substr(6) +
                                  ": " + module("Echo").string() + " has changed, " + file() +
                                  " has changed\n");
    EXPECT_EQ(loadings("E"), 1);
    expectSets(host, "E");
    EXPECT_THAT(host.ask("apply 77-1234"), HasSubstr("nothing is applied: there is no plan 77-1234"));
    EXPECT_EQ(end(), 3);
}

TEST_F(Planning, FileThatWouldBeRefusedIsPlannedAsSuchAndChangesNothing) {
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait();
    for (const std::string& text : {std::string("<workplaces><workplace id=\"0\">"), std::string(),
                                    "<workplaces><workplace id=\"0\">" + entry("X", "queue") +
                                        entry("X", "queue") + "</workplace></workplaces>"}) {
        writeFile(file(), text);
        EXPECT_THAT(host.ask("plan"), HasSubstr("nothing can be applied: " + file()));
        EXPECT_THAT(host.ask("apply"), HasSubstr("nothing is applied: " + file()));
    }
    fs::remove(file());
    EXPECT_THAT(host.ask("apply"), HasSubstr("nothing is applied: " + file() + " cannot be read"));
    EXPECT_EQ(loadings("E"), 1);
    expectSets(host, "E");
    // And undo has something to give back.
    EXPECT_THAT(host.ask("undo 1"), HasSubstr(file() + " is given back\nno changes; this is state 1\n"));
    EXPECT_TRUE(fs::exists(file()));
    EXPECT_EQ(end(), 3);
}

TEST_F(Planning, FailureOfOneDriverStopsNoOther) {
    workplace().addModule("ThrowsInFactory");
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait();
    workplace().configure(entry("BAD", "direct", "ThrowsInFactory") +
                          TestWorkplace::entry("FAR", "Echo", "direct", "networkAdapter=\"eth7\"") +
                          entry("N", "queue") + entry("E", "direct"));
    const std::string reply = host.ask("apply");
    EXPECT_THAT(reply, ContainsRegex("load BAD: entry is new: not done: [^\n]+\n"));
    EXPECT_THAT(reply, HasSubstr("load FAR: entry is new: not done: no adapter eth7\n"));
    EXPECT_THAT(reply, HasSubstr("load N: entry is new: done\nreload E: entry changed (interfaceType): done\n"
                                 "2 of 4 changes done"));
    expectSets(host, "N");
    expectSets(host, "E");
    EXPECT_THAT(host.log(),
                HasSubstr("error    HOST: FAR: is not started by console (entry is new): no adapter eth7\n"));
    EXPECT_THAT(host.log(), HasSubstr("warning  HOST: apply by console: 2 of 4 changes done\n"));
    EXPECT_EQ(end(), 3);
}

TEST_F(Planning, HistoryIsListedAndItsFilesCompared) {
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait();
    workplace().configure(entry("E", "queue") + entry("N", "queue"));
    EXPECT_THAT(host.ask("diff"), AllOf(HasSubstr(file() + " differs\n@@ line "),
                                        HasSubstr("\n+<mainframeDriver driverID=\"N\" ")));
    host.ask("apply");
    EXPECT_EQ(host.ask("diff"), "no difference\n");
    EXPECT_THAT(host.ask("diff 1"), HasSubstr("\n+<mainframeDriver driverID=\"N\" "));
    const std::string listed = host.ask("history");
    EXPECT_THAT(listed, ContainsRegex("\n1 +[0-9-]+ [0-9:]+  start +1 of 1 driver runs +[0-9a-f]{8}\n"));
    EXPECT_THAT(listed, ContainsRegex("\n2 +[0-9-]+ [0-9:]+  console +1 of 1 change done +[0-9a-f]{8}\n"));
    EXPECT_EQ(end(), 0);
}

TEST_F(Planning, HistoryOutlivesTheHostAndItsDeath) {
    workplace().configure(entry("E", "queue"));
    {
        HostProcess& host = startAndWait();
        workplace().configure(entry("E", "queue") + entry("N", "queue"));
        host.type("apply");
        ASSERT_TRUE(host.waitForLog("HOST: apply by console: 1 of 1 change done\n")) << host.log();
        const std::array drivers{host.driverProcess("E"), host.driverProcess("N")};
        host.signal(SIGKILL);
        EXPECT_EQ(host.waitForEnd(), 128 + SIGKILL);
        // As long as they run they have their queues.
        for (const pid_t driver : drivers)
            EXPECT_TRUE(endsInTime(driver));
    }
    HostProcess& host = startAndWait();
    EXPECT_THAT(host.ask("undo"),
                HasSubstr("remove N: entry is gone: done\n1 of 1 change done; this is state 3\n"));
    EXPECT_EQ(end(), 0);
    expectNoErrors(host);
}

TEST_F(Planning, DamagedHistoryIsToldAndKeepsNobodyFromStarting) {
    workplace().configure(entry("E", "queue"));
    startAndWait();
    EXPECT_EQ(end(), 0);
    writeFile(history() / "1", "rubbish");
    HostProcess& host = startAndWait();
    EXPECT_THAT(host.log(), HasSubstr("warning  HOST: " + (history() / "1").string() +
                                      " is left out: it is not whole\n"));
    expectSets(host, "E");
    EXPECT_THAT(host.ask("history"), ContainsRegex("\n2 +"));
    EXPECT_EQ(end(), 0);
}

TEST_F(Planning, ForgedHistoryIsRefusedWhereSignaturesAreRequired) {
    const auto mfctl = [](const std::string& arguments) {
        return std::system(
            (TestWorkplace::build().string() + "/bin/mfctl " + arguments + " >/dev/null").c_str());
    };
    const std::string key = workplace().directory() / "site";
    const fs::path trust = workplace().directory() / "trust";
    ASSERT_EQ(0, mfctl("keygen " + key));
    fs::create_directory(trust);
    fs::copy_file(key + ".pem", trust / "site.pem");
    const auto sign = [&] { ASSERT_EQ(0, mfctl("sign --key " + key + ".key " + file())); };
    workplace().configure(entry("E", "queue"));
    sign();
    HostProcess& host = startAndWait({"--trust", trust, "--require-signature"});
    workplace().configure(entry("E", "queue") + entry("N", "queue"));
    EXPECT_THAT(host.ask("apply"),
                HasSubstr("is not signed by a trusted key, and --require-signature asks for it"));
    sign();
    EXPECT_THAT(host.ask("apply"), HasSubstr("1 of 1 change done; this is state 2\n"));
    // A signed state comes back with its signature.
    EXPECT_THAT(host.ask("undo"),
                HasSubstr("remove N: entry is gone: done\n1 of 1 change done; this is state 3\n"));
    const std::string good = readFile(file());

    // Whoever may write there puts a driver of his own into state 2, and what fits it beside it.
    std::string forged = good;
    forged.replace(forged.find("driverID=\"E\""), 12, "driverID=\"X\"");
    writeFile(workplace().directory() / "forged", forged);
    ASSERT_EQ(0, std::system(("cd " + workplace().directory().string() +
                              " && digest=$(sha256sum forged | cut -d' ' -f1) && cp forged " +
                              (history() / "files").string() +
                              "/$digest && sed -i \"s/^workplace: [0-9a-f]*/workplace: "
                              "$digest/\" " +
                              (history() / "2").string())
                                 .c_str()));
    EXPECT_THAT(host.ask("undo 2"), AllOf(HasSubstr("nothing is undone: state 2 is refused: " + file() +
                                                    " is not signed by a trusted key"),
                                          HasSubstr("; the files are as they were\n")));
    EXPECT_EQ(readFile(file()), good);
    EXPECT_TRUE(fs::exists(file() + ".sig"));
    EXPECT_EQ(host.ask("plan"), "no changes\n");
    expectSets(host, "E");
    // Nor is a module given back that nobody vouches for.
    install("Echo", "Recorder");
    EXPECT_THAT(host.ask("undo 1"),
                HasSubstr(module("Echo").string() +
                          " is another one now and is not given back: nothing vouches for "));
    EXPECT_EQ(end(), 3);
}

TEST_F(Planning, StartSaysWhoDoesNotRunAndWhy) {
    workplace().addModule("ThrowsInFactory");
    workplace().configure(entry("E", "queue") +
                          TestWorkplace::entry("FAR", "Echo", "direct", "networkAdapter=\"eth7\"") +
                          TestWorkplace::entry("AWAY", "Echo", "queue", "networkAdapter=\"eth7\"") +
                          entry("BAD", "direct", "ThrowsInFactory") + entry("NONE", "queue", "Unknown"));
    HostProcess& host = startAndWait();
    EXPECT_THAT(
        host.log(),
        ContainsRegex(
            "warning  HOST: 1 of 5 drivers run; FAR: no adapter eth7; AWAY: no adapter eth7; BAD: its driver "
            "cannot be made: "
            "std::runtime_error: no device; NONE: no descriptor of type \"Unknown\" in version \"1.0\"\n"));
    EXPECT_THAT(host.listed("FAR"), HasSubstr("  no adapter eth7  "));
    EXPECT_THAT(host.listed("AWAY"), HasSubstr("  no adapter eth7  "));
    EXPECT_THAT(host.log(),
                HasSubstr("HOST: AWAY: no process runs: no adapter eth7; it is started again in "));
    EXPECT_EQ(end(), 0);
}

TEST_F(Planning, CommandsTellTheirUse) {
    workplace().configure(entry("E", "queue"));
    HostProcess& host = startAndWait();
    EXPECT_THAT(host.ask("help plan"), HasSubstr("plan\n\ttells what apply would change"));
    EXPECT_THAT(host.ask("undo nonsense"), HasSubstr("undo [<number>]\n\t"));
    EXPECT_EQ(end(), 3);
}
