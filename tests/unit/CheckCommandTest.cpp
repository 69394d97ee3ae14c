#include "CheckCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>

#include "TemporaryDirectory.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class CheckCommandTest : public testing::Test {
protected:
    CheckCommandTest() {
        for (const char* module : {"drivers/axis.so", "drivers/panel.so"})
            m_directory.write(module, "module");
        m_directory.write("drivers/axis.xml",
                          "<mfDriverModule><module_type name='axis.so' type='Axis' version='1.0'/>"
                          "<module_type name='panel.so' type='Panel' version='1.0'/></mfDriverModule>");
        m_directory.write("trust/key.txt", "no key");
        configure("A");
        m_options.driverDirectories = {m_directory.path("drivers")};
        m_options.config = m_directory.path("w.xml");
        m_options.workDirectory = m_directory.path("work");
        m_options.check = true;
    }

    void configure(const std::string& id) {
        m_directory.write(
            "w.xml", "<workplaces>\n<workplace id='0'>\n<mainframeDriver driverID='" + id +
                         "' driverType='Axis' version='1.0' workingDirectory='d' interfaceType='queue'/>\n"
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

TEST_F(CheckCommandTest, AdapterThatIsNotThereIsAWarningUnlessTheWorkplaceHasItsOwn) {
    m_directory.write(
        "w.xml",
        "<workplaces>\n<workplace id='0'>\n<mainframeDriver driverID='A' driverType='Axis' version='1.0' "
        "workingDirectory='d' networkAdapter='eth77' interfaceType='queue'/>\n</workplace></workplaces>");
    EXPECT_EQ(0, run());
    EXPECT_THAT(m_out.str(), StartsWith("warning: " + m_directory.path("w.xml") +
                                        " line 3: there is no adapter eth77; the driver is not started\n"));
    m_options.sandbox = true;
    EXPECT_EQ(0, run());
    EXPECT_EQ(m_directory.path("w.xml") + ": 0 errors, 0 warnings\n", m_out.str());
}

TEST_F(CheckCommandTest, CauseComesBeforeItsConsequences) {
    m_directory.write("drivers/axis.xml", "<mfDriverModule");
    EXPECT_EQ(0, run());
    const std::string text = m_out.str();
    EXPECT_THAT(text, StartsWith("warning: " + m_directory.path("drivers/axis.xml")));
    EXPECT_LT(text.find("axis.xml"), text.find("no descriptor announces")) << text;
}
