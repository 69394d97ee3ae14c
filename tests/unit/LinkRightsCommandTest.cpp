#include "LinkRightsCommand.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "TemporaryDirectory.h"

namespace {

class LinkRightsCommandTest : public testing::Test {
protected:
    void write(const std::string& entries) {
        m_directory.write("site.xml",
                          "<workplaces>\n<workplace id='0'>\n" + entries + "</workplace>\n</workplaces>\n");
    }
    static std::string entry(const std::string& id, const std::string& type) {
        return "<mainframeDriver driverID='" + id + "' driverType='" + type +
               "' version='1.0' workingDirectory='data/" + id + "' interfaceType='direct'/>\n";
    }
    EExit run() { return LinkRightsCommand(m_screen).run(m_directory.path("site.xml"), m_directory.path()); }
    /// Without the test's own directory.
    std::string err() const {
        std::string text = m_err.str();
        for (std::size_t at; (at = text.find(m_directory.path() + "/")) != std::string::npos;)
            text.erase(at, m_directory.path().size() + 1);
        return text;
    }

    TemporaryDirectory m_directory;
    std::ostringstream m_out;
    std::ostringstream m_err;
    Screen m_screen{m_out, m_err};
};

TEST_F(LinkRightsCommandTest, PrintsTheRightsOfAllLinksFromTheirFiles) {
    write(entry("AXIS1", "Axis") + entry("SITE2", "Link") + entry("SITE3", "Link"));
    for (const char* pSite : {"SITE2", "SITE3"})
        m_directory.write(
            "data/" + std::string(pSite) + "/link.xml",
            "<link site='SITE1'>\n<broker host='127.0.0.1'/>\n<allow driver='AXIS1'/>\n</link>\n");
    EXPECT_EQ(EExit::Done, run());
    EXPECT_EQ(
        "# broker 127.0.0.1 port 1883\n"
        "user SITE1\n"
        "topic read mf/1/SITE2/reply/+\n"
        "topic read mf/1/SITE2/tick\n"
        "topic read mf/1/SITE2/up\n"
        "topic read mf/1/SITE3/reply/+\n"
        "topic read mf/1/SITE3/tick\n"
        "topic read mf/1/SITE3/up\n"
        "topic readwrite mf/1/SITE1/#\n"
        "user SITE2\n"
        "topic write mf/1/SITE1/fid/AXIS1/+\n"
        "user SITE3\n"
        "topic write mf/1/SITE1/fid/AXIS1/+\n",
        m_out.str());
    EXPECT_EQ("", m_err.str());
}

TEST_F(LinkRightsCommandTest, FaultsOfTheFilesAreToldAndNoRightIsGiven) {
    EXPECT_EQ(EExit::Failed, run());
    EXPECT_EQ("mfctl: site.xml cannot be read: No such file or directory\n", err());
    m_err.str({});
    write(entry("AXIS1", "Axis"));
    EXPECT_EQ(EExit::Failed, run());
    EXPECT_EQ("mfctl: site.xml has no link; an entry of one has driverType=\"Link\"\n", err());
    m_err.str({});
    write(entry("SITE2", "Link") + entry("SITE3", "Link"));
    m_directory.write("data/SITE2/link.xml", "<link site='SITE1'>\n<broker host='127.0.0.1'/>\n</link>\n");
    m_directory.write("data/SITE3/link.xml", "<link site='SITE1' expiry='x'/>\n");
    EXPECT_EQ(EExit::Failed, run());
    EXPECT_EQ(
        "mfctl: data/SITE3/link.xml line 1: expiry=\"x\" is not a whole number from 1 to 3600\n"
        "mfctl: data/SITE3/link.xml line 1: the link has no broker; add <broker host=\"...\"/>\n",
        err());
    EXPECT_EQ("", m_out.str());
}

}  // namespace
