#include "HostSocket.h"

#include <filesystem>

#include "RemoteFixture.h"

namespace {

class HostSocketTest : public RemoteFixture {
protected:
    static constexpr const char* s_noRole =
        R"({"error":{"code":"not-allowed","text":"you have no role here","nearest":[]}})";
    HostSocket m_sut{{m_directory.path()}};
};

}  // namespace

TEST_F(HostSocketTest, OnlyOneThatAnswersIsMeant) {
    EXPECT_EQ(m_host.path(), m_sut.find(""));
}

TEST_F(HostSocketTest, SocketOfADeadHostIsPassedOver) {
    { const CannedHost dead(m_directory.path("mfhost-2.sock")); }
    EXPECT_EQ(2u, m_sut.candidates().size());
    EXPECT_EQ(m_host.path(), m_sut.find(""));
}

TEST_F(HostSocketTest, SeveralAreListedAndAreWrongUsage) {
    const CannedHost other(m_directory.path("mfhost-2.sock"), "i2", "/etc/mf/other.xml");
    EXPECT_EQ(
        std::pair(EExit::WrongUsage, "several hosts answer, --host tells which is meant: " + other.path() +
                                         " (/etc/mf/other.xml), " + m_host.path() + " (/etc/mf/demo.xml)"),
        errorOf([&] { m_sut.find(""); }));
}

TEST_F(HostSocketTest, NamedByItsWorkplaceOrItsSocket) {
    const CannedHost other(m_directory.path("mfhost-2.sock"), "i2", "/etc/mf/other.xml");
    EXPECT_EQ(other.path(), m_sut.find("other"));
    EXPECT_EQ(other.path(), m_sut.find("other.xml"));
    EXPECT_EQ(other.path(), m_sut.find("mfhost-2"));
    EXPECT_EQ(m_host.path(), m_sut.find("demo"));
}

TEST_F(HostSocketTest, UnknownNameIsNoHostAndTellsWhichThereAre) {
    EXPECT_EQ(std::pair(EExit::NoHost,
                        "no host answers for \"lamp\"; there is " + m_host.path() + " (/etc/mf/demo.xml)"),
              errorOf([&] { m_sut.find("lamp"); }));
}

TEST_F(HostSocketTest, PathIsTakenAsItIs) {
    EXPECT_EQ("./x.sock", m_sut.find("./x.sock"));
    EXPECT_TRUE(m_host.requests().empty());
}

TEST_F(HostSocketTest, NoneIsNoHost) {
    const TemporaryDirectory empty;
    EXPECT_EQ(
        std::pair(EExit::NoHost, "no host answers at a mfhost*.sock in " + empty.path() + " or /nowhere"),
        errorOf([&] {
            HostSocket({empty.path(), "/nowhere"}).find("");
        }));
}

TEST_F(HostSocketTest, WorkplacesThatRunAsServicesAreFound) {
    const TemporaryDirectory services;
    std::filesystem::create_directory(services.path("studio"));
    const CannedHost service(services.path("studio/mfhost.sock"), "i3", "/etc/mfhost/studio.xml");
    const HostSocket sut({m_directory.path()}, services.path());
    EXPECT_EQ(2u, sut.candidates().size());
    EXPECT_EQ(service.path(), sut.find("studio"));
}

TEST_F(HostSocketTest, ServiceThatTellsTheCallerNothingIsFoundByItsName) {
    const TemporaryDirectory services;
    std::filesystem::create_directory(services.path("studio"));
    CannedHost service(services.path("studio/mfhost.sock"));
    service.answer("GET ", s_noRole, 403);
    EXPECT_EQ(service.path(), HostSocket({m_directory.path()}, services.path()).find("studio"));
}

TEST_F(HostSocketTest, WhyAHostTellsTheCallerNothingIsSaid) {
    m_host.answer("GET ", s_noRole, 403);
    EXPECT_EQ(std::pair(EExit::NoHost, "no host answers for \"demo\"; there is " + m_host.path() +
                                           " (you have no role here)"),
              errorOf([&] { m_sut.find("demo"); }));
}

TEST_F(HostSocketTest, PlaceOfServicesIsNamedWhereNoneIs) {
    const TemporaryDirectory empty;
    EXPECT_EQ(
        std::pair(EExit::NoHost, "no host answers at a mfhost*.sock in " + empty.path() + " or /nowhere/*"),
        errorOf([&] { HostSocket({empty.path()}, "/nowhere").find(""); }));
}

TEST_F(HostSocketTest, HostThatHangsIsNamedAsOneThatDoesNotAnswer) {
    m_host.fallSilent();
    const auto [exit, text] = errorOf([&] { m_sut.find(""); });
    EXPECT_EQ(EExit::NoHost, exit);
    EXPECT_THAT(text, testing::HasSubstr("the host at " + m_host.path() + " does not answer within 2 s"));
}

TEST_F(HostSocketTest, OnlySocketsOfHostsAreCandidates) {
    m_directory.write("mfhost-file.sock", "");
    const CannedHost other(m_directory.path("other.sock"));
    EXPECT_EQ(std::vector<std::string>{m_host.path()}, m_sut.candidates());
}
