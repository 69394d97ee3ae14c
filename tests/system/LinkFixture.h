#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "HangGuard.h"
#include "SystemTest.h"

constexpr const char* c_broker = "/usr/sbin/mosquitto";

/// Two workplaces, SITE1 and SITE2, each with a link to the other and an Echo "E", and a real broker between
/// them. At the broker, STRANGER may read and write everything, and NOBODY nothing.
class Link : public SystemTest {
protected:
    void prepare() override {
        if (::access(c_broker, X_OK) != 0)
            GTEST_SKIP() << "there is no " << c_broker << " (package mosquitto)";
        giveAdapter();
        m_pOther = std::make_unique<TestWorkplace>();
        equip(workplace(), "SITE1", "SITE2");
        equip(*m_pOther, "SITE2", "SITE1");
        const std::filesystem::path directory = workplace().directory();
        writeFile(directory / "passwords",
                  "SITE1:first\nSITE2:second\nSTRANGER:third\nSTRANGER2:sixth\nNOBODY:fourth\n");
        ASSERT_TRUE(PrivateMachine::shell("mosquitto_passwd -U " + (directory / "passwords").string()));
        for (const TestWorkplace* const pPlace : {&workplace(), m_pOther.get()})
            addRights(*pPlace);
        // More than SITE1 allows itself: the receiving site says no, too.
        writeFile(directory / "rights",
                  readFile(directory / "rights") +
                      "user SITE2\ntopic write mf/1/SITE1/fid/#\nuser STRANGER\ntopic readwrite #\n"
                      "user STRANGER2\ntopic readwrite #\n");
        writeFile(directory / "broker.conf",
                  "listener 1883 127.0.0.1\nallow_anonymous false\nuser root\nmax_queued_messages 0\n"
                  "password_file " +
                      (directory / "passwords").string() + "\nacl_file " + (directory / "rights").string() +
                      "\n");
    }

    /// What the workplace's links are to be allowed at the broker.
    void addRights(const TestWorkplace& place) {
        ASSERT_TRUE(PrivateMachine::shell((TestWorkplace::build() / "bin/mfctl link acl ").string() +
                                          place.configuration().string() + " --workdir " +
                                          place.workdir().string() + " >>" +
                                          (workplace().directory() / "rights").string()));
    }

    /// From now on broker and links speak TLS; the links trust that file of the test's directory. The
    /// broker's certificate is good for so many days.
    void secure(const std::string& trusted, const std::string& days = "1") {
        const std::string directory = workplace().directory().string();
        for (const char* pCall :
             {"req -x509 -subj /CN=authority -days 1 -keyout ca.key -out ca.pem",
              "req -x509 -subj /CN=stranger -days 1 -keyout stranger.key -out stranger.pem",
              "req -subj /CN=broker -addext subjectAltName=IP:127.0.0.1 -keyout broker.key -out broker.csr"})
            ASSERT_TRUE(PrivateMachine::shell("cd " + directory + " && openssl " + pCall +
                                              " -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"));
        ASSERT_TRUE(PrivateMachine::shell("cd " + directory +
                                          " && openssl x509 -req -in broker.csr -CA ca.pem -CAkey ca.key "
                                          "-CAcreateserial -copy_extensions copy -out broker.pem -days " +
                                          days));
        std::string settings = readFile(directory + "/broker.conf");
        settings.replace(settings.find("1883"), 4, "8883");
        for (const auto& [name, file] :
             {std::pair("cafile", "ca.pem"), {"certfile", "broker.pem"}, {"keyfile", "broker.key"}})
            settings += std::string(name) + " " + directory + "/" + file + "\n";
        writeFile(directory + "/broker.conf", settings);
        for (const std::filesystem::path& file : {ownLink(), othersLink()}) {
            std::string link = readFile(file);
            link.insert(link.find("<broker ") + 8, "authorities='" + directory + "/" + trusted + "' ");
            writeFile(file, link);
        }
    }

    static void equip(const TestWorkplace& place, const std::string& site, const std::string& other) {
        place.addModule("Echo");
        place.configure(TestWorkplace::entry("E", "Echo", "queue") +
                        TestWorkplace::entry(other, "Link", "direct"));
        const std::filesystem::path directory = place.workdir() / "data" / other;
        std::filesystem::create_directories(directory);
        writeFile(directory / "password", site == "SITE1" ? "first\n" : "second\n");
        ::chmod((directory / "password").c_str(), 0600);
        writeFile(directory / "link.xml",
                  "<link site='" + site +
                      "' spread='0'>\n<broker host='127.0.0.1' credentials='password'/>\n"
                      "<export driver='E'/>\n<import driver='E'/>\n<allow driver='E'/>\n"
                      "</link>\n");
    }

    /// From now on what the broker keeps outlives it, as far as it has been told to write it down.
    void giveMemory() {
        const std::filesystem::path settings = workplace().directory() / "broker.conf";
        writeFile(settings, readFile(settings) + "persistence true\npersistence_location " +
                                workplace().directory().string() + "/\nautosave_interval 0\n");
    }
    /// Killed with what it has kept until now written down.
    void killBrokerThatRemembers() {
        const std::filesystem::path memory = workplace().directory() / "mosquitto.db";
        m_pBroker->signal(SIGUSR1);
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(memory); })) << m_pBroker->log();
        m_pBroker->signal(SIGKILL);
        m_pBroker->waitForEnd();
    }
    void startBroker() {
        m_pBroker.reset();
        m_pBroker = startBroker("broker");
    }
    /// With NAME.conf of the test's directory.
    std::unique_ptr<HostProcess> startBroker(const std::string& name) {
        const std::filesystem::path directory = workplace().directory();
        std::filesystem::create_directories(directory / name);
        return std::make_unique<HostProcess>(
            HostProcess::Start{.program = c_broker,
                               .arguments = {"-c", (directory / (name + ".conf")).string()},
                               .environment = {},
                               .files = directory / name});
    }
    /// The link goes to the broker at that port.
    static void setPort(const std::filesystem::path& link, int port) {
        std::string text = readFile(link);
        text.insert(text.find("<broker ") + 8, "port='" + std::to_string(port) + "' ");
        writeFile(link, text);
    }
    std::filesystem::path ownLink() { return workplace().workdir() / "data/SITE2/link.xml"; }
    std::filesystem::path othersLink() const { return m_pOther->workdir() / "data/SITE1/link.xml"; }
    HostProcess& startOther(const std::map<std::string, std::string>& environment = {}) {
        m_pOtherHost.reset();
        m_pOtherHost = startBeside(*m_pOther, environment);
        return *m_pOtherHost;
    }
    static std::unique_ptr<HostProcess> startBeside(
        const TestWorkplace& place, const std::map<std::string, std::string>& environment = {}) {
        HostProcess::Start call = place.host();
        call.environment.insert(environment.begin(), environment.end());
        // Both are on one machine: each has a /var/data of its own.
        call.beforeExec = [] {
            ::unshare(CLONE_NEWNS);
            ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
            ::mount("data", "/var/data", "tmpfs", 0, nullptr);
        };
        return std::make_unique<HostProcess>(call);
    }
    /// Broker and both hosts, once each site knows of the other.
    void startAll() {
        startBroker();
        startHosts();
    }
    void startHosts() {
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
    /// SITE2 has another host. Its Echo has set nothing yet: what the former one had set is gone, until it is
    /// set again.
    void expectAnewFromAnotherHost(const std::string& value) {
        startOther();
        ASSERT_TRUE(other().waitForLog("SITE1: SITE1 is there\n")) << other().log();
        EXPECT_TRUE(eventually([&] {
            return host().ask("state --now SITE2.E.N").find("no state value matches SITE2.E.N\n") !=
                   std::string::npos;
        })) << host().output();
        // The driver process of the host before may have taken its time to end.
        EXPECT_TRUE(other().repliesWith("drivers", "E +Echo .* running "))
            << other().output() << other().log();
        expectSets(value);
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
