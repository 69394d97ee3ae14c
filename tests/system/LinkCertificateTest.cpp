#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <utility>

#include "LinkFixture.h"

namespace {

/// A broker that knows sites by their certificates alone.
class LinkCertificate : public Link {
protected:
    void prepare() override {
        Link::prepare();
        if (IsSkipped())
            return;
        secure("ca.pem");
        const std::filesystem::path settings = workplace().directory() / "broker.conf";
        writeFile(settings, readFile(settings) + "require_certificate true\nuse_identity_as_username true\n");
    }
    /// The link of that file shows a certificate in this name, of ca or stranger.
    void give(const std::filesystem::path& link, const std::string& name, const std::string& authority = "ca",
              const std::string& days = "1") {
        const std::string files = (link.parent_path() / "site").string();
        ASSERT_TRUE(PrivateMachine::shell("openssl req -subj /CN=" + name + " -keyout " + files +
                                          ".key -out " + files +
                                          ".csr -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"));
        const std::string signer = (workplace().directory() / authority).string();
        ASSERT_TRUE(PrivateMachine::shell("openssl x509 -req -in " + files + ".csr -CA " + signer +
                                          ".pem -CAkey " + signer + ".key -CAcreateserial -out " + files +
                                          ".pem -days " + days));
        ::chmod((files + ".key").c_str(), 0600);
        std::string text = readFile(link);
        text.insert(text.find("<broker ") + 8, "certificate='site.pem' key='site.key' ");
        writeFile(link, text);
    }
    void expectNoBroker(const std::string& why) {
        startBroker();
        start();
        EXPECT_TRUE(
            host().waitForLog("SITE2: no broker: 127.0.0.1 port 8883: the broker does not take this "
                              "site's certificate: " +
                              why + "\n"))
            << host().log() << m_pBroker->log();
        EXPECT_EQ(end(), 0);
    }
};

}  // namespace

TEST_F(LinkCertificate, SitesAreWhomTheirCertificatesName) {
    give(ownLink(), "SITE1");
    give(othersLink(), "SITE2");
    startAll();
    expectSets("17");
    endAll();
}

TEST_F(LinkCertificate, ExpiredOneIsToldAsSuch) {
    give(ownLink(), "SITE1", "ca", "-1");
    expectNoBroker("certificate expired");
}

TEST_F(LinkCertificate, OneOfAStrangerIsToldAsSuch) {
    give(ownLink(), "SITE1", "stranger");
    expectNoBroker("unknown ca");
}

TEST_F(LinkCertificate, NoneIsToldAsSuch) {
    expectNoBroker("certificate required");
}

TEST_F(LinkCertificate, ThatOfAnotherSiteMayNotSayWhatThisOneDoes) {
    give(ownLink(), "NOBODY");
    startBroker();
    start();
    EXPECT_TRUE(
        host().waitForLog("SITE2: the broker refuses what SITE1 says: Not authorized; \"mfctl link acl\" "
                          "prints what it must allow the user or certificate of SITE1\n"))
        << host().log() << m_pBroker->log();
    EXPECT_EQ(end(), 0);
}
