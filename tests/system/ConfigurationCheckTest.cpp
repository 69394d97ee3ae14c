#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "HostProcess.h"
#include "TestWorkplace.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

// mfhost --check and the tools beside it, as programs. Nothing is started, so they need no machine of their
// own.
class CheckPrograms : public testing::Test {
protected:
    struct Ended {
        std::optional<int> exitCode;
        std::string output;
        std::string log;
    };

    Ended run(const std::string& program, const std::vector<std::string>& arguments) {
        HostProcess process({.program = TestWorkplace::build() / "bin" / program,
                             .arguments = arguments,
                             .environment = {},
                             .files = m_workplace.directory()});
        process.closeInput();
        const auto exitCode = process.waitForEnd();
        return {exitCode, process.output(), process.log()};
    }
    Ended check(std::vector<std::string> more = {}) {
        // The sandbox has an adapter eth0, whatever the machine has.
        more.insert(more.begin(), {"--drivers", m_workplace.drivers().string(), "--config",
                                   m_workplace.configuration().string(), "--check", "--sandbox"});
        return run("mfhost", more);
    }
    /// The exit code of xmllint with a schema of the tree.
    static int validate(const std::string& schema, const fs::path& file) {
        return std::system(("xmllint --noout --schema " MFD_SOURCE_DIR "/configuration/schema/" + schema +
                            " '" + file.string() + "' >/dev/null 2>&1")
                               .c_str());
    }
    static bool hasXmllint() { return std::system("command -v xmllint >/dev/null") == 0; }

    TestWorkplace m_workplace;
};

TEST_F(CheckPrograms, DemoWorkplaceHasNoFindings) {
    const fs::path build = TestWorkplace::build();
    const Ended ended = run(
        "mfhost", {"--drivers", build / "lib/mfdrivers", "--config", build / "workplace/demo.xml", "--trust",
                   build / "workplace/trust", "--require-signature", "--check", "--strict", "--sandbox"});
    EXPECT_EQ(0, ended.exitCode);
    EXPECT_EQ((build / "workplace/demo.xml").string() + ": 0 errors, 0 warnings\n", ended.output);
    EXPECT_EQ("", ended.log);
}

TEST_F(CheckPrograms, ErrorEndsWithOneAndStartsNothing) {
    m_workplace.addModule("Recorder");
    m_workplace.configure(TestWorkplace::entry("A", "Recorder", "direct") +
                          TestWorkplace::entry("A", "Recorder", "queue"));
    const Ended ended = check();
    EXPECT_EQ(1, ended.exitCode);
    EXPECT_THAT(ended.output, StartsWith("error: " + m_workplace.configuration().string() +
                                         " line 5: the driver ID \"A\" stands in line 4 already"));
    EXPECT_EQ("", ended.log);
}

TEST_F(CheckPrograms, WarningEndsWithZero) {
    m_workplace.configure(TestWorkplace::entry("A", "Absent", "direct"));
    const Ended ended = check();
    EXPECT_EQ(0, ended.exitCode);
    EXPECT_THAT(ended.output, HasSubstr("line 4: no descriptor announces the driver type \"Absent\""));
}

TEST_F(CheckPrograms, WarningEndsWithOneWhereItIsAskedToBeStrict) {
    m_workplace.configure(TestWorkplace::entry("A", "Absent", "direct"));
    EXPECT_EQ(1, check({"--strict"}).exitCode);
}

TEST_F(CheckPrograms, FileThatIsNotThereEndsWithOne) {
    const Ended ended = check();
    EXPECT_EQ(1, ended.exitCode);
    EXPECT_THAT(ended.output, StartsWith("error: " + m_workplace.configuration().string() +
                                         " cannot be read: No such file or directory; "));
    EXPECT_EQ("", ended.log);
}

TEST_F(CheckPrograms, MisspeltNamesAreToldWithTheRightOnes) {
    m_workplace.addModule("Recorder");
    m_workplace.configure(
        "<mainframedriver driverID=\"B\"/>\n"
        "<mainframeDriver driverID=\"A\" driverType=\"Recorder\" version=\"1.0\" workdir=\"data/A\" "
        "interfaceType=\"queue\"/>\n");
    const Ended ended = check();
    EXPECT_EQ(0, ended.exitCode);
    EXPECT_THAT(ended.output,
                HasSubstr(" line 4: the element <mainframedriver> is unknown, and nothing in it "
                          "is read; did you mean <mainframeDriver>?\n"));
    EXPECT_THAT(ended.output, HasSubstr(" line 5: the attribute \"workdir\" of <mainframeDriver> is unknown "
                                        "and not read; did you mean \"workingDirectory\"?\n"));
}

TEST_F(CheckPrograms, ModuleWithoutTheMacroIsToldSo) {
    m_workplace.addModule("NoFactory");
    m_workplace.configure(TestWorkplace::entry("A", "NoFactory", "queue"));
    const Ended ended = check();
    EXPECT_EQ(0, ended.exitCode);
    EXPECT_THAT(ended.output, HasSubstr("NoFactory.so cannot be loaded: MFD_DRIVER is missing in it "
                                        "(undefined symbol: mfdDriverAbi); A is not started\n"));
    EXPECT_EQ("", ended.log);
}

TEST_F(CheckPrograms, JsonIsReadByProgramsWhateverStandsInTheFile) {
    if (std::system("command -v python3 >/dev/null") != 0)
        GTEST_SKIP() << "there is no python3 command";
    m_workplace.configure(TestWorkplace::entry("A/\xE4&quot;&#1;\\", "Absent", "direct"));
    const Ended ended = check({"--json"});
    EXPECT_EQ(1, ended.exitCode);
    writeFile(m_workplace.directory() / "report.json", ended.output);
    const std::string program =
        "python3 -c 'import json, sys; report = json.load(open(sys.argv[1])); "
        "sys.exit(report[\"errors\"] != 1 or report[\"findings\"][0][\"line\"] != 4)' '";
    EXPECT_EQ(0, std::system((program + (m_workplace.directory() / "report.json").string() + "'").c_str()));
}

TEST_F(CheckPrograms, SignedFileIsCheckedAsSigned) {
    m_workplace.addModule("Recorder");
    m_workplace.configure(TestWorkplace::entry("A", "Recorder", "direct"));
    const std::string key = m_workplace.directory() / "site";
    const std::string file = m_workplace.configuration();
    const std::string trust = m_workplace.directory();
    ASSERT_EQ(0, run("mfctl", {"keygen", key}).exitCode);
    EXPECT_EQ(1, check({"--trust", trust, "--require-signature"}).exitCode);
    ASSERT_EQ(0, run("mfctl", {"sign", "--key", key + ".key", file}).exitCode);
    EXPECT_EQ(0, run("mfctl", {"verify", "--trust", trust, file}).exitCode);
    EXPECT_EQ(0, check({"--trust", trust, "--require-signature"}).exitCode);
    writeFile(file, readFile(file) + "\n");
    EXPECT_THAT(check({"--trust", trust, "--require-signature"}).output,
                HasSubstr("error: " + file +
                          " is not signed by a trusted key: the file is not the one that was signed"));
}

TEST_F(CheckPrograms, SchemasAcceptTheFilesOfTheTree) {
    if (!hasXmllint())
        GTEST_SKIP() << "there is no xmllint command";
    EXPECT_EQ(0, validate("workplace.xsd", MFD_SOURCE_DIR "/workplace/demo.xml"));
    EXPECT_EQ(0, validate("descriptor.xsd", MFD_SOURCE_DIR "/drivers/panel/panel.xml"));
    EXPECT_EQ(0, validate("descriptor.xsd", MFD_SOURCE_DIR "/drivers/sysmon/sysmon.xml"));
    m_workplace.addModule("Recorder");
    m_workplace.configure("<ports><port/></ports>" +
                          TestWorkplace::entry("A", "Recorder", "queue", "ipAddress=\"192.0.2.20\""));
    EXPECT_EQ(0, validate("workplace.xsd", m_workplace.configuration()));
}

TEST_F(CheckPrograms, WorkplaceSchemaRefusesWhatTheCheckReports) {
    if (!hasXmllint())
        GTEST_SKIP() << "there is no xmllint command";
    const std::string good = TestWorkplace::entry("A", "Recorder", "queue");
    for (const std::string& entries :
         {good + good, TestWorkplace::entry("A.B", "Recorder", "queue"),
          TestWorkplace::entry("A/B", "Recorder", "queue"), TestWorkplace::entry("A", "Recorder", "Queue"),
          TestWorkplace::entry("", "Recorder", "queue"),
          TestWorkplace::entry("A", "Recorder", "queue", "ipAddress=\"192.0.2.256\""),
          TestWorkplace::entry("A", "Recorder", "queue", "adress=\"192.0.2.20\""),
          good + "</workplace><workplace id=\"8\">"}) {
        m_workplace.configure(entries);
        EXPECT_NE(0, validate("workplace.xsd", m_workplace.configuration())) << entries;
    }
}

TEST_F(CheckPrograms, DescriptorSchemaRefusesTwoRecordsAndAMissingName) {
    if (!hasXmllint())
        GTEST_SKIP() << "there is no xmllint command";
    const std::string entry = "<module_type name=\"a.so\" type=\"A\" version=\"1\"/>";
    for (const std::string& entries :
         {entry + entry, std::string("<module_type type=\"A\" version=\"1\"/>")}) {
        const fs::path file = m_workplace.directory() / "d.xml";
        writeFile(file, "<mfDriverModule>" + entries + "</mfDriverModule>");
        EXPECT_NE(0, validate("descriptor.xsd", file)) << entries;
    }
}
