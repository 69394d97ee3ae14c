#include "WorkplaceAdmission.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "LogCapture.h"
#include "TemporaryDirectory.h"
#include "WorkplaceFile.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class WorkplaceAdmissionTest : public testing::Test {
protected:
    WorkplaceAdmissionTest() {
        for (const char* module : {"drivers/axis.so", "drivers/panel.so"})
            m_directory.write(module, "module");
        m_directory.write("drivers/axis.xml",
                          "<mfDriverModule><module_type name='axis.so' type='Axis' version='1.0'/>"
                          "<module_type name='panel.so' type='Panel' version='1.0'/></mfDriverModule>");
    }

    void configure(const std::string& entries) {
        m_directory.write("w.xml",
                          "<workplaces>\n<workplace id='0'>\n" + entries + "</workplace>\n</workplaces>\n");
    }
    std::string path() const { return m_directory.path("w.xml"); }
    WorkplaceFile workplace() const { return WorkplaceFile(path(), XmlInput::read(path())); }

    static std::string entry(const std::string& id, const std::string& more = {}) {
        return "<mainframeDriver driverID='" + id +
               "' driverType='Axis' version='1.0' workingDirectory='data/" + id + "' interfaceType='queue'" +
               more + "/>\n";
    }

    TemporaryDirectory m_directory;
    WorkplaceAdmission m_sut{{m_directory.path("drivers")}};
};

}  // namespace

TEST_F(WorkplaceAdmissionTest, RightFilesAreAcceptedSilently) {
    configure(entry("A"));
    LogCapture log;
    EXPECT_TRUE(m_sut.acceptsStart(workplace()));
    EXPECT_EQ("", m_sut.reloadRefusal(workplace(), "A"));
    EXPECT_EQ("", log.finish());
}

TEST_F(WorkplaceAdmissionTest, EachErrorOfAStartIsALine) {
    configure(entry("A") + entry("..") + entry("A/B"));
    LogCapture log;
    EXPECT_FALSE(m_sut.acceptsStart(workplace()));
    const std::string text = log.finish();
    EXPECT_THAT(text, HasSubstr("critical HOST: " + path() +
                                " line 4: the driver ID \"..\" is a directory of the system's own; give the "
                                "driver another; the workplace is not started\n"));
    EXPECT_THAT(text, HasSubstr("critical HOST: " + path() + " line 5: the driver ID \"A/B\" holds \"/\""));
}

TEST_F(WorkplaceAdmissionTest, WarningDoesNotRefuseAStart) {
    configure(entry("A.B"));
    LogCapture log;
    EXPECT_TRUE(m_sut.acceptsStart(workplace()));
    EXPECT_THAT(log.finish(), HasSubstr("warning  HOST: " + path() + " line 3: the driver ID \"A.B\" holds"));
}

TEST_F(WorkplaceAdmissionTest, WithoutAConfigurationThereIsNothingToRefuse) {
    WorkplaceAdmission sut({m_directory.path("drivers")});
    LogCapture log;
    EXPECT_TRUE(sut.acceptsStart(WorkplaceFile({}, {})));
    EXPECT_EQ("", log.finish());
}

TEST_F(WorkplaceAdmissionTest, MissingDescriptorOfThePanelIsTold) {
    m_directory.write("drivers/axis.xml", "<mfDriverModule/>");
    WorkplaceAdmission sut({m_directory.path("drivers")});
    LogCapture log;
    EXPECT_TRUE(sut.acceptsStart(WorkplaceFile({}, {})));
    EXPECT_THAT(log.finish(), HasSubstr("warning  HOST: the workplace runs without a panel driver: "));
}

TEST_F(WorkplaceAdmissionTest, ReloadIsRefusedOnAnErrorOfTheFileAsItStandsNow) {
    configure(entry("A") + entry("B"));
    LogCapture log;
    ASSERT_TRUE(m_sut.acceptsStart(workplace()));
    configure(entry("A") + entry("B") + entry("A"));
    EXPECT_EQ(
        path() + " line 5: the driver ID \"A\" stands in line 3 already; give each driver one of its own",
        m_sut.reloadRefusal(workplace(), "B"));
    log.finish();
}

TEST_F(WorkplaceAdmissionTest, ReloadThatWouldSpinIsRefused) {
    configure("<mainframeDriver driverType='Axis' driverID='A'/>\n");
    LogCapture log;
    EXPECT_EQ(
        path() + " line 3: driverID must be the first attribute of a mainframeDriver that can be reloaded",
        m_sut.reloadRefusal(workplace(), "A"));
    log.finish();
}

TEST_F(WorkplaceAdmissionTest, ReloadOfAnUnknownDriverIsRefused) {
    configure(entry("A"));
    const LogCapture log;
    EXPECT_EQ(path() + " has no driver \"B\"", m_sut.reloadRefusal(workplace(), "B"));
}

TEST_F(WorkplaceAdmissionTest, FileThatIsNotWholeRefusesAReloadWithItsFaultAlone) {
    configure(entry("A"));
    ASSERT_TRUE(m_sut.acceptsStart(workplace()));
    std::filesystem::remove(path());
    LogCapture log;
    EXPECT_EQ(path() + " cannot be read: No such file or directory", m_sut.reloadRefusal(workplace(), "A"));
    EXPECT_EQ("", log.finish());
}

TEST_F(WorkplaceAdmissionTest, WhatWasLoggedIsNotLoggedAgainByAReload) {
    configure(entry("A") + entry("B.C"));
    {
        LogCapture log;
        ASSERT_TRUE(m_sut.acceptsStart(workplace()));
        log.finish();
    }
    LogCapture log;
    EXPECT_EQ("", m_sut.reloadRefusal(workplace(), "A"));
    EXPECT_EQ("", log.finish());
}

TEST_F(WorkplaceAdmissionTest, WarningThatIsNewIsLoggedByAReload) {
    configure(entry("A"));
    ASSERT_TRUE(m_sut.acceptsStart(workplace()));
    configure(entry("A") + entry("B.C"));
    LogCapture log;
    EXPECT_EQ("", m_sut.reloadRefusal(workplace(), "A"));
    EXPECT_THAT(log.finish(), HasSubstr("line 4: the driver ID \"B.C\" holds"));
}

TEST_F(WorkplaceAdmissionTest, DescriptorThatCameAfterTheStartDoesNotRefuseAReload) {
    configure(entry("A"));
    ASSERT_TRUE(m_sut.acceptsStart(workplace()));
    m_directory.write("drivers/copy.xml", m_directory.read("drivers/axis.xml"));
    LogCapture log;
    EXPECT_EQ("", m_sut.reloadRefusal(workplace(), "A"));
    EXPECT_EQ("", log.finish());
}

TEST_F(WorkplaceAdmissionTest, ModuleThatVanishedIsNamedByAReload) {
    configure(entry("A"));
    ASSERT_TRUE(m_sut.acceptsStart(workplace()));
    std::filesystem::remove(m_directory.path("drivers/axis.so"));
    LogCapture log;
    EXPECT_EQ("", m_sut.reloadRefusal(workplace(), "A"));
    EXPECT_THAT(log.finish(),
                HasSubstr("axis.so cannot be loaded: No such file or directory; A is not started\n"));
}

TEST_F(WorkplaceAdmissionTest, LogsTheDescriptorThatIsLeftOut) {
    LogCapture log;
    const TemporaryDirectory directory;
    directory.write("good.xml", "<a/>");
    ASSERT_EQ(0, ::mkfifo(directory.path("pipe.xml").c_str(), 0600));
    EXPECT_TRUE(WorkplaceAdmission::acceptsDescriptor(directory.path("good.xml")));
    EXPECT_FALSE(WorkplaceAdmission::acceptsDescriptor(directory.path("pipe.xml")));
    const std::string text = log.finish();
    EXPECT_NE(std::string::npos, text.find("HOST: " + directory.path("pipe.xml") +
                                           " is no regular file; the descriptor is left out"));
    EXPECT_EQ(std::string::npos, text.find("good.xml"));
}
