#include "DoctorCommand.h"

#include <signal.h>

#include <filesystem>
#include <map>
#include <memory>

#include "HangGuard.h"
#include "HostProcess.h"
#include "ProgramOutput.h"
#include "RemoteFixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

/// On a machine without processes but those that the test adds.
class DoctorCommandTest : public RemoteFixture {
protected:
    DoctorCommandTest() {
        std::filesystem::create_directory(m_directory.path("proc"));
        addToProc("uptime");
    }
    HostSurvey::Settings settings(std::vector<std::string> sockets = {}) const {
        HostSurvey::Settings made;
        made.sockets = std::move(sockets);
        made.proc = m_directory.path("proc");
        made.sharedMemory = m_directory.path();
        made.sample = std::chrono::milliseconds(1);
        made.patience = std::chrono::milliseconds(200);
        return made;
    }
    void addToProc(const std::string& name) const {
        std::filesystem::create_symlink("/proc/" + name, m_directory.path("proc/" + name));
    }
    /// A process that bears the name of a host, and does nothing.
    std::unique_ptr<HostProcess> startHost(const std::map<std::string, std::string>& environment = {}) const {
        const std::string program = m_directory.path("mfhost");
        std::filesystem::copy_file("/bin/sleep", program);
        auto pHost = std::make_unique<HostProcess>(
            HostProcess::Start{program, {"1000"}, environment, m_directory.path()});
        // The kernel gives it the name before the command line.
        EXPECT_TRUE(eventually([&] {
            const auto facts = ProcessFacts::read(pHost->pid());
            return facts && facts->programName() == "mfhost" && facts->command.size() == 2;
        }));
        addToProc(std::to_string(pHost->pid()));
        return pHost;
    }
};

}  // namespace

TEST_F(DoctorCommandTest, NothingThereIsNoHost) {
    EXPECT_EQ(EExit::NoHost, DoctorCommand({m_out, m_err}, settings()).run({}));
    EXPECT_EQ("no mfhost runs here, as far as this user can see\n", out());
}

TEST_F(DoctorCommandTest, SocketOfADeadHostFails) {
    { const CannedHost dead(m_directory.path("dead.sock")); }
    EXPECT_EQ(EExit::Failed,
              DoctorCommand({m_out, m_err}, settings({m_directory.path("dead.sock")})).run({}));
    EXPECT_THAT(out(),
                HasSubstr("left: socket " + m_directory.path("dead.sock") + ", at which nobody listens"));
}

TEST_F(DoctorCommandTest, JsonIsOneLine) {
    DoctorCommand({m_out, m_err}, settings()).run({.asJson = true});
    const Json json = Json::parse(out());
    EXPECT_TRUE(json["well"]);
    EXPECT_TRUE(json["hosts"].is_array());
}

TEST_F(DoctorCommandTest, StoppedHostIsTold) {
    const auto pHost = startHost();
    pHost->signal(SIGSTOP);
    ASSERT_TRUE(eventually([&] { return ProcessFacts::read(pHost->pid())->state == 'T'; }));
    EXPECT_EQ(EExit::Failed, DoctorCommand({m_out, m_err}, settings()).run({}));
    EXPECT_THAT(out(),
                HasSubstr("mfhost, process " + std::to_string(pHost->pid()) + ": it is stopped; kill -CONT " +
                          std::to_string(pHost->pid()) + " lets it go on\n"));
}

TEST_F(DoctorCommandTest, BundleTellsWhatIsInItAndHoldsNoSecret) {
    const auto pHost = startHost({{"MFD_TOKEN", "verysecret"}});
    const std::string path = m_directory.path("b.tar.gz");
    DoctorCommand({m_out, m_err}, settings()).run({.bundle = path});
    const std::string pid = std::to_string(pHost->pid());
    EXPECT_THAT(err(), HasSubstr(path + " holds:\n"));
    EXPECT_THAT(err(), HasSubstr("  report.txt, "));
    EXPECT_THAT(err(), HasSubstr("  " + pid + "-command.txt, "));
    EXPECT_THAT(err(), HasSubstr("Left out: values whose names look secret"));
    const std::string all =
        ProgramOutput::of({"tar", "--extract", "--gzip", "--to-stdout", "--file", path}).text;
    EXPECT_THAT(all, HasSubstr("mfhost, process " + pid));
    EXPECT_THAT(all, HasSubstr("MFD_TOKEN=***"));
    EXPECT_THAT(all, Not(HasSubstr("verysecret")));
}

TEST_F(DoctorCommandTest, BundleHoldsTheAnswersOfAHostAndItsWorkplaceWithoutSecrets) {
    m_directory.write("w.xml", "<workplaces><x password=\"hidden1\" id=\"A\"/></workplaces>");
    CannedHost host(m_directory.path("own.sock"), "i1", m_directory.path("w.xml"));
    host.answer("GET /state", R"j({"values":[{"key":"DOOR.PIN","value":"hidden2","text":"hidden2"}]})j");
    host.answer("GET /log?lines=1000", R"j({"lines":[{"text":"LOCK.OPEN ( pin=hidden3)"}]})j");
    HostSurvey survey;
    survey.hosts.emplace_back();
    survey.hosts[0].process.facts.pid = 10;
    survey.hosts[0].sockets.push_back(
        {host.path(), 10, "{\"workplace\":\"" + m_directory.path("w.xml") + "\"}", ""});
    const SupportBundle bundle = DoctorCommand::bundleOf(survey, m_directory.path("proc"));
    std::string all;
    for (const SupportBundle::Part& part : bundle.parts())
        all += part.name + "\n" + part.text;
    EXPECT_THAT(all, HasSubstr("10-workplace.xml\n<workplaces><x password=*** id=\"A\"/>"));
    EXPECT_THAT(all, HasSubstr("10-state.json\n"));
    EXPECT_THAT(all, HasSubstr("LOCK.OPEN ( pin=***)"));
    EXPECT_THAT(all, Not(HasSubstr("hidden")));
}
