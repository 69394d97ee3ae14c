#include "LinkDriver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "LogCapture.h"
#include "SilentLinkHost.h"
#include "TemporaryDirectory.h"

namespace {

using testing::Contains;
using testing::HasSubstr;

class LinkDriverTest : public testing::Test {
protected:
    void configure(LinkDriver& sut, const std::string& driverID = "SITE2") {
        sut.setPanelStateInterface(&m_host);
        sut.setSystemInterface(&m_host);
        sut.setConfiguration(0, driverID, m_directory.path(driverID), "", "", "", "");
    }
    /// Nobody listens at port 1.
    void write(const std::string& driverID, const std::string& broker = "port='1'") {
        m_directory.write(driverID + "/link.xml",
                          "<link site='SITE1'>\n<broker host='127.0.0.1' " + broker + "/>\n</link>\n");
    }

    LogCapture m_log;
    TemporaryDirectory m_directory;
    SilentLinkHost m_host;
};

TEST_F(LinkDriverTest, RunsInTheHostsProcessAlone) {
    LinkDriver sut;
    sut.setPanelStateInterface(&m_host);
    sut.setConfiguration(0, "SITE2", m_directory.path(), "", "", "", "");
    EXPECT_FALSE(sut.initializationCompleted());
    EXPECT_THAT(m_log.finish(), HasSubstr("SITE2: not started, a link runs in the host's process alone; "
                                          "interfaceType=\"direct\" would be right\n"));
}

TEST_F(LinkDriverTest, FileThatIsWrongIsToldAndKeepsItFromStarting) {
    LinkDriver sut;
    configure(sut);
    write("SITE2", "port='x'");
    EXPECT_FALSE(sut.initializationCompleted());
    EXPECT_FALSE(sut.sendFID("AXIS1.MOVE", {}));
    EXPECT_THAT(m_log.finish(),
                HasSubstr("SITE2/link.xml line 2: port=\"x\" is not a whole number from 1 to 65535\n"));
    EXPECT_TRUE(m_host.opened.empty());
}

TEST_F(LinkDriverTest, LinksOfOneSiteShareItsConnectionAndTheLastOneEndsIt) {
    LinkDriver first;
    LinkDriver second;
    configure(first, "SITE2");
    configure(second, "SITE3");
    write("SITE2");
    write("SITE3");
    EXPECT_TRUE(first.initializationCompleted());
    EXPECT_TRUE(second.initializationCompleted());
    EXPECT_EQ(m_host.opened, std::vector<std::string>{"SITE1"});
    EXPECT_TRUE(first.deinitialize());
    EXPECT_TRUE(m_host.closed.empty());
    EXPECT_FALSE(first.sendFID("AXIS1.MOVE", {}));
    EXPECT_TRUE(second.deinitialize());
    EXPECT_EQ(m_host.closed, std::vector<std::string>{"SITE1"});
}

TEST_F(LinkDriverTest, LastWarningOfItsLogIsAValueToo) {
    LinkDriver sut;
    configure(sut);
    sut.say(sal::LogOutput::eInfo, "all is well");
    sut.say(sal::LogOutput::eWarning, "it is not");
    EXPECT_THAT(m_host.reported, Contains("LINK_ERROR=it is not"));
    EXPECT_THAT(m_host.reported, testing::Not(Contains("LINK_ERROR=all is well")));
    EXPECT_THAT(m_log.finish(), HasSubstr("SITE2: it is not\n"));
}

TEST_F(LinkDriverTest, LinksThatDisagreeOnTheirBrokerAreTold) {
    LinkDriver first;
    LinkDriver second;
    configure(first, "SITE2");
    configure(second, "SITE3");
    write("SITE2");
    m_directory.write("SITE3/ca.pem", "CA");
    write("SITE3", "port='1' authorities='ca.pem'");
    EXPECT_TRUE(first.initializationCompleted());
    EXPECT_FALSE(second.initializationCompleted());
    EXPECT_THAT(m_log.finish(),
                HasSubstr("SITE3: not started, another link has the same broker and other credentials, "
                          "authorities or certificates for it; all links of SITE1 share one "
                          "connection\n"));
}

}  // namespace
