#include "CheckCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>

#include "TemporaryDirectory.h"
#include "TestWorkplace.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class CheckCommandTest : public testing::Test {
protected:
    CheckCommandTest() {
        for (const char* module : {"axis.so", "panel.so"})
            giveModule("Echo", module);
        m_directory.write("drivers/axis.xml",
                          "<mfDriverModule><module_type name='axis.so' type='Axis' version='1.0'/>"
                          "<module_type name='panel.so' type='Panel' version='1.0'/></mfDriverModule>");
        m_directory.write("trust/key.txt", "no key");
        configure("A");
        m_options.driverDirectories = {m_directory.path("drivers")};
        m_options.config = m_directory.path("w.xml");
        m_options.workDirectory = m_directory.path("work");
        m_options.check = true;
        // It has an adapter eth0, whatever the machine has.
        m_options.sandbox = true;
    }

    void giveModule(const std::string& testModule, const std::string& file) {
        std::filesystem::create_directories(m_directory.path("drivers"));
        std::filesystem::copy_file(TestWorkplace::build() / "lib/testmodules" / (testModule + ".so"),
                                   m_directory.path("drivers/" + file),
                                   std::filesystem::copy_options::overwrite_existing);
    }

    void configure(const std::string& id, const std::string& more = {}) {
        m_directory.write(
            "w.xml", "<workplaces>\n<workplace id='0'>\n<mainframeDriver driverID='" + id +
                         "' driverType='Axis' version='1.0' workingDirectory='d' interfaceType='queue' " +
                         more +
                         "/>\n"
                         "</workplace></workplaces>");
    }
    int run() {
        m_out.str({});
        return runCheck(m_options, m_out);
    }

    TemporaryDirectory m_directory;
    Options m_options;
    std::ostringstream m_out;
};

}  // namespace

TEST_F(CheckCommandTest, RightFilesGiveZero) {
    EXPECT_EQ(0, run());
    EXPECT_EQ(m_directory.path("w.xml") + ": 0 errors, 0 warnings\n", m_out.str());
}

TEST_F(CheckCommandTest, ErrorGivesOne) {
    configure("A/B");
    EXPECT_EQ(1, run());
    EXPECT_THAT(m_out.str(), StartsWith("error: " + m_directory.path("w.xml") + " line 3: "));
}

TEST_F(CheckCommandTest, PanelDriverThatCannotBeLoadedGivesOne) {
    std::filesystem::remove(m_directory.path("drivers/panel.so"));
    EXPECT_EQ(1, run());
    EXPECT_THAT(m_out.str(), HasSubstr("; without the panel driver nothing is started\n"));
}

TEST_F(CheckCommandTest, WarningGivesZero) {
    configure("A.B");
    EXPECT_EQ(0, run());
    EXPECT_THAT(m_out.str(), StartsWith("warning: " + m_directory.path("w.xml") + " line 3: "));
}

TEST_F(CheckCommandTest, MakesNoWorkDirectory) {
    EXPECT_EQ(0, run());
    EXPECT_FALSE(m_directory.contains("work"));
}

TEST_F(CheckCommandTest, FileThatIsNotRegularIsAnErrorAndDescriptorsAreStillChecked) {
    m_options.config = m_directory.path("pipe.xml");
    ASSERT_EQ(0, ::mkfifo(m_options.config.c_str(), 0600));
    m_directory.write("drivers/bad.xml", "<other/>");
    EXPECT_EQ(1, run());
    EXPECT_THAT(m_out.str(), StartsWith("error: " + m_options.config + " is no regular file\n"));
    EXPECT_THAT(m_out.str(), HasSubstr("bad.xml line 1: the root is <other>"));
}

TEST_F(CheckCommandTest, JsonIsAsked) {
    m_options.checkAsJson = true;
    configure("A/B");
    EXPECT_EQ(1, run());
    EXPECT_THAT(m_out.str(), StartsWith("{\"file\": \"" + m_directory.path("w.xml") + "\", \"errors\": 1"));
}

TEST_F(CheckCommandTest, SignatureIsAWarningWhereKeysAreTrusted) {
    m_options.trustDirectory = m_directory.path("trust");
    EXPECT_EQ(0, run());
    EXPECT_THAT(m_out.str(), StartsWith("warning: " + m_directory.path("w.xml") +
                                        " is not signed by a trusted key: it is not signed, there is no "));
}

TEST_F(CheckCommandTest, SignatureIsAnErrorWhereOneIsRequired) {
    m_options.trustDirectory = m_directory.path("trust");
    m_options.requireSignature = true;
    EXPECT_EQ(1, run());
    EXPECT_THAT(m_out.str(), StartsWith("error: " + m_directory.path("w.xml") + " is not signed"));
}

TEST_F(CheckCommandTest, WarningGivesOneWhereItIsStrict) {
    m_options.checkIsStrict = true;
    EXPECT_EQ(0, run());
    configure("A.B");
    EXPECT_EQ(1, run());
}

TEST_F(CheckCommandTest, FileThatStartsNothingIsAnError) {
    for (const char* text : {"", "<workplaces", "<desk/>", "<!-- nothing -->"}) {
        m_directory.write("w.xml", text);
        EXPECT_EQ(1, run()) << text;
        EXPECT_THAT(m_out.str(), StartsWith("error: " + m_directory.path("w.xml"))) << text;
    }
    std::filesystem::remove(m_directory.path("w.xml"));
    EXPECT_EQ(1, run());
    EXPECT_THAT(m_out.str(), StartsWith("error: " + m_directory.path("w.xml") + " cannot be read: "));
}

TEST_F(CheckCommandTest, CauseComesBeforeItsConsequences) {
    m_directory.write("drivers/axis.xml", "<mfDriverModule");
    EXPECT_EQ(0, run());
    const std::string text = m_out.str();
    EXPECT_THAT(text, StartsWith("warning: " + m_directory.path("drivers/axis.xml")));
    EXPECT_LT(text.find("axis.xml"), text.find("no descriptor announces")) << text;
}

TEST_F(CheckCommandTest, OfAFileThatCannotBeReadTheSignatureIsNotMissed) {
    m_options.trustDirectory = m_directory.path("trust");
    m_options.requireSignature = true;
    std::filesystem::remove(m_options.config);
    EXPECT_EQ(1, run());
    EXPECT_THAT(m_out.str(), Not(HasSubstr("signed")));
}

TEST_F(CheckCommandTest, SandboxHasTheAdaptersLoAndEth0) {
    configure("A", "networkAdapter='eth0'");
    run();
    EXPECT_THAT(m_out.str(), HasSubstr(": 0 errors, 0 warnings\n"));
    configure("A", "networkAdapter='ifb0'");
    run();
    EXPECT_THAT(m_out.str(),
                HasSubstr(" line 3: there is no adapter ifb0 in the sandbox; the driver is not started\n"));
}

TEST_F(CheckCommandTest, SecondNameIsAnAdapterWhereItsAdapterIsThere) {
    m_options.adapters = {{"axes", "eth0"}, {"lamps", "enp9s9"}};
    configure("A", "networkAdapter='axes'");
    run();
    EXPECT_THAT(m_out.str(), HasSubstr(": 0 errors, 0 warnings\n"));
    configure("A", "networkAdapter='lamps'");
    run();
    EXPECT_THAT(m_out.str(), HasSubstr("there is no adapter lamps in the sandbox"));
}

TEST_F(CheckCommandTest, MachineIsAskedForItsAdaptersOutsideOfASandbox) {
    m_options.sandbox = false;
    m_options.adapters = {{"axes", "lo"}};
    configure("A", "networkAdapter='axes'");
    run();
    EXPECT_THAT(m_out.str(), Not(HasSubstr("no adapter axes")));
    configure("A", "networkAdapter='no-such-one'");
    run();
    EXPECT_THAT(m_out.str(), HasSubstr("there is no adapter no-such-one; the driver is not started"));
}

TEST_F(CheckCommandTest, ModuleThatCannotBeLoadedIsToldInTheLoadersWords) {
    giveModule("NoFactory", "axis.so");
    EXPECT_EQ(0, run());
    EXPECT_EQ("warning: " + m_directory.path("drivers/axis.xml") + " line 1: the module file " +
                  m_directory.path("drivers/axis.so") +
                  " cannot be loaded: MFD_DRIVER is missing in it (undefined symbol: mfdDriverAbi); A is not "
                  "started\n" +
                  m_options.config + ": 0 errors, 1 warning\n",
              m_out.str());
}

TEST_F(CheckCommandTest, ModuleThatDiesWhileItIsLoadedIsTold) {
    giveModule("DiesInTrial", "axis.so");
    EXPECT_EQ(0, run());
    EXPECT_THAT(m_out.str(), HasSubstr(" cannot be loaded: tried out in a process of its own, that process "
                                       "was ended by signal 6 (Aborted)"));
}

TEST_F(CheckCommandTest, MachineMayBeKnown) {
    giveModule("NoFactory", "axis.so");
    EXPECT_EQ(0, runCheck(m_options, {.adapterFault = [](const auto&) { return "no adapter eth0"; }}, m_out));
    EXPECT_EQ("warning: " + m_options.config +
                  " starts no driver here: there is no adapter eth0; --adapter eth0=NAME gives another one "
                  "that name\n" +
                  m_options.config + ": 0 errors, 1 warning\n",
              m_out.str());
}
