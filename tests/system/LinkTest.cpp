#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "HangGuard.h"
#include "SystemTest.h"

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char* s_broker = "/usr/sbin/mosquitto";

}  // namespace

// Two workplaces, SITE1 and SITE2, each with a link to the other and an Echo "E", and a real broker between
// them.
class Link : public SystemTest {
protected:
    void prepare() override {
        if (::access(s_broker, X_OK) != 0)
            GTEST_SKIP() << "there is no " << s_broker << " (package mosquitto)";
        giveAdapter();
        m_pOther = std::make_unique<TestWorkplace>();
        equip(workplace(), "SITE1", "SITE2");
        equip(*m_pOther, "SITE2", "SITE1");
        const fs::path directory = workplace().directory();
        writeFile(directory / "passwords", "SITE1:first\nSITE2:second\n");
        ASSERT_TRUE(PrivateMachine::shell("mosquitto_passwd -U " + (directory / "passwords").string()));
        writeFile(directory / "rights",
                  "user SITE1\ntopic readwrite mf/1/SITE1/#\ntopic read mf/1/SITE2/#\ntopic write "
                  "mf/1/SITE2/fid/E/+\n"
                  "user SITE2\ntopic readwrite mf/1/SITE2/#\ntopic read mf/1/SITE1/#\ntopic write "
                  "mf/1/SITE1/fid/#\n");
        writeFile(directory / "broker.conf",
                  "listener 1883 127.0.0.1\nallow_anonymous false\nuser root\n"
                  "password_file " +
                      (directory / "passwords").string() + "\nacl_file " + (directory / "rights").string() +
                      "\n");
    }

    /// From now on broker and links speak TLS; the links trust that file of the test's directory.
    void secure(const std::string& trusted) {
        const std::string directory = workplace().directory().string();
        for (const char* pCall :
             {"req -x509 -subj /CN=authority -days 1 -keyout ca.key -out ca.pem",
              "req -x509 -subj /CN=stranger -days 1 -keyout stranger.key -out stranger.pem",
              "req -subj /CN=broker -addext subjectAltName=IP:127.0.0.1 -keyout broker.key -out broker.csr"})
            ASSERT_TRUE(PrivateMachine::shell("cd " + directory + " && openssl " + pCall +
                                              " -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"));
        ASSERT_TRUE(PrivateMachine::shell("cd " + directory +
                                          " && openssl x509 -req -in broker.csr -CA ca.pem -CAkey ca.key "
                                          "-CAcreateserial -copy_extensions copy -days 1 -out broker.pem"));
        std::string settings = readFile(directory + "/broker.conf");
        settings.replace(settings.find("1883"), 4, "8883");
        for (const auto& [name, file] :
             {std::pair("cafile", "ca.pem"), {"certfile", "broker.pem"}, {"keyfile", "broker.key"}})
            settings += std::string(name) + " " + directory + "/" + file + "\n";
        writeFile(directory + "/broker.conf", settings);
        for (const fs::path& file :
             {workplace().workdir() / "data/SITE2/link.xml", m_pOther->workdir() / "data/SITE1/link.xml"}) {
            std::string link = readFile(file);
            link.insert(link.find("<broker ") + 8, "authorities='" + directory + "/" + trusted + "' ");
            writeFile(file, link);
        }
    }

    static void equip(const TestWorkplace& place, const std::string& site, const std::string& other) {
        place.addModule("Echo");
        place.configure(TestWorkplace::entry("E", "Echo", "queue") +
                        TestWorkplace::entry(other, "Link", "direct"));
        const fs::path directory = place.workdir() / "data" / other;
        fs::create_directories(directory);
        writeFile(directory / "password", site == "SITE1" ? "first\n" : "second\n");
        ::chmod((directory / "password").c_str(), 0600);
        writeFile(directory / "link.xml",
                  "<link site='" + site +
                      "' spread='0'>\n<broker host='127.0.0.1' credentials='password'/>\n"
                      "<export driver='E'/>\n<import driver='E'/>\n<allow driver='E'/>\n"
                      "</link>\n");
    }

    void startBroker() {
        m_pBroker.reset();
        const fs::path directory = workplace().directory();
        fs::create_directories(directory / "broker");
        m_pBroker = std::make_unique<HostProcess>(
            HostProcess::Start{.program = s_broker,
                               .arguments = {"-c", (directory / "broker.conf").string()},
                               .environment = {},
                               .files = directory / "broker"});
    }
    HostProcess& startOther() {
        HostProcess::Start call = m_pOther->host();
        // Both are on one machine: each has a /var/data of its own.
        call.beforeExec = [] {
            ::unshare(CLONE_NEWNS);
            ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
            ::mount("data", "/var/data", "tmpfs", 0, nullptr);
        };
        m_pOtherHost.reset();
        m_pOtherHost = std::make_unique<HostProcess>(call);
        return *m_pOtherHost;
    }
    /// Broker and both hosts, once each site knows of the other.
    void startAll() {
        startBroker();
        startOther();
        start();
        for (HostProcess* const pHost : {&host(), m_pOtherHost.get()})
            ASSERT_TRUE(pHost->waitForLog("HOST: the workplace is started\n")) << pHost->log();
        ASSERT_TRUE(host().waitForLog("SITE2: SITE2 is there\n")) << host().log() << m_pBroker->log();
        ASSERT_TRUE(other().waitForLog("SITE1: SITE1 is there\n")) << other().log();
    }
    HostProcess& other() { return *m_pOtherHost; }

    /// A value of the other site is here, live, after a FID from here has set it there.
    void expectSets(const std::string& value) {
        EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK", "SITE2\\.LINK +string +up "))
            << host().output() << host().log();
        host().type("sendFID SITE2.E.INT name=N value=" + value);
        EXPECT_TRUE(host().repliesWith("state --now SITE2.E.N",
                                       "SITE2\\.E\\.N +int +" + value + " +SITE2 +[0-9]+ s +yes"))
            << host().output() << host().log() << other().log();
    }
    void expectStale(const std::string& cause) {
        EXPECT_TRUE(host().repliesWith("state --now SITE2.E.N",
                                       "SITE2\\.E\\.N +int +[0-9]+ +SITE2 +[0-9]+ s +stale for "
                                       "[0-9]+ s \\(" +
                                           cause + "\\)"))
            << host().output() << host().log();
    }
    /// The exit code is that of a host of which a line of the input has failed.
    void endAll(int exitCode = 0) {
        other().closeInput();
        EXPECT_EQ(other().waitForEnd(), 0) << other().log();
        EXPECT_EQ(end(), exitCode) << host().log();
    }

    std::unique_ptr<TestWorkplace> m_pOther;
    std::unique_ptr<HostProcess> m_pBroker;
    std::unique_ptr<HostProcess> m_pOtherHost;
};

TEST_F(Link, FidIsDoneThereAndAnsweredAndItsValueComesBack) {
    startAll();
    expectSets("17");
    EXPECT_TRUE(other().repliesWith("state --now E.N", "E\\.N +int +17 +E +[0-9]+ s +yes"))
        << other().output();
    EXPECT_TRUE(host().repliesWith("events", "SITE2\\.OUTCOME.*E\\.INT: done")) << host().output();
    endAll();
    EXPECT_THAT(host().log(), Not(ContainsRegex(" (error|critical) +[A-Z0-9]+: ")));
}

TEST_F(Link, WhatTheOtherSideDoesNotDoIsToldWithItsReason) {
    startAll();
    // The other way, where the broker's rights let it pass: the receiving site itself says no.
    other().type("sendFID SITE1.PANEL.ALARM text=x");
    EXPECT_TRUE(
        other().waitForLog("SITE1: PANEL.ALARM: refused: SITE1 does not allow FIDs of SITE2 to PANEL\n"))
        << other().log();
    EXPECT_TRUE(
        host().waitForLog("SITE2: PANEL.ALARM of SITE2 is refused: SITE1 does not allow FIDs of SITE2 to "
                          "PANEL\n"))
        << host().log();
    host().type("sendFID SITE2.MOVE");
    EXPECT_TRUE(
        host().waitForLog("SITE2: MOVE is not sent: a FID to another site is a driver there, \".\" and a "
                          "function\n"))
        << host().log();
    endAll(3);
}

TEST_F(Link, KilledBrokerMakesValuesStaleUntilItIsBack) {
    startAll();
    expectSets("17");
    m_pBroker->signal(SIGKILL);
    expectStale("no broker: .*");
    host().type("sendFID SITE2.E.INT name=N value=18");
    EXPECT_TRUE(host().waitForLog("SITE2: E.INT is not sent: no broker: ")) << host().log();
    startBroker();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.E.N", "SITE2\\.E\\.N +int +17 +SITE2 +[0-9]+ s +yes"))
        << host().output() << host().log();
    expectSets("19");
    endAll(3);
}

/// Half a connection: what is sent goes nowhere, and nothing says so.
TEST_F(Link, BrokerThatStandsStillHoldsNobodyUp) {
    startAll();
    expectSets("17");
    m_pBroker->signal(SIGSTOP);
    expectStale("(SITE2 is not heard|no broker: .*)");
    host().type("sendFID E.INT name=N value=18");
    EXPECT_TRUE(host().repliesWith("state --now E.N", "E\\.N +int +18 +E +[0-9]+ s +yes")) << host().output();
    endAll();
}

TEST_F(Link, KilledHostThereMakesValuesStaleUntilAnotherHasThem) {
    startAll();
    expectSets("17");
    other().signal(SIGKILL);
    EXPECT_EQ(other().waitForEnd(), 128 + SIGKILL);
    expectStale("SITE2 is away");
    startOther();
    ASSERT_TRUE(other().waitForLog("SITE1: SITE1 is there\n")) << other().log();
    // Its Echo has set nothing yet: what the former one had set is gone.
    EXPECT_TRUE(eventually([&] {
        return host().ask("state --now SITE2.E.N").find("no state value matches SITE2.E.N\n") !=
               std::string::npos;
    })) << host().output();
    expectSets("20");
    endAll();
}

TEST_F(Link, BrokerThatHasACertificateOfOneWhoIsTrustedIsSpokenToWithTls) {
    secure("ca.pem");
    startAll();
    expectSets("17");
    endAll();
}

TEST_F(Link, BrokerThatHasACertificateOfAStrangerGetsNothing) {
    secure("stranger.pem");
    startBroker();
    start();
    EXPECT_TRUE(host().repliesWith("state --now SITE2.LINK",
                                   "SITE2\\.LINK +string +no broker: 127\\.0\\.0\\.1 port "
                                   "8883: A TLS error occurred\\."))
        << host().output() << host().log();
    EXPECT_THAT(m_pBroker->log(), Not(HasSubstr("SITE1")));
    EXPECT_EQ(end(), 0);
}

TEST_F(Link, WrongFileIsToldAndTheOthersRun) {
    writeFile(workplace().workdir() / "data/SITE2/link.xml", "<link site='SITE1' expiry='soon'/>\n");
    start();
    EXPECT_TRUE(host().waitForLog("HOST: the workplace is started\n")) << host().log();
    EXPECT_THAT(host().log(),
                ContainsRegex(" error +SITE2: data/SITE2/link.xml line 1: expiry=\"soon\" is not a whole "
                              "number from 1 to 3600\n"));
    EXPECT_THAT(host().listed("E"), HasSubstr("  running  "));
    EXPECT_EQ(end(), 0);
}
