#include "LinkFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A link's file, and what is said of it: severity and words, without the directory.
class LinkFileTest : public testing::Test {
protected:
    LinkFile read(const std::string& text) {
        m_directory.write("link.xml", text);
        return LinkFile(m_directory.path("link.xml"), "SITE2");
    }
    std::vector<std::string> findings(const std::string& text) { return words(read(text)); }
    std::vector<std::string> words(const LinkFile& sut) {
        std::vector<std::string> found;
        bool hasErrors = false;
        for (const Finding& finding : sut.findings()) {
            hasErrors |= finding.isError();
            std::string line = (finding.isError() ? "error: " : "warning: ") + finding.inWords();
            const std::string directory = m_directory.path() + "/";
            for (auto at = line.find(directory); at != std::string::npos; at = line.find(directory))
                line.erase(at, directory.size());
            found.push_back(line);
        }
        EXPECT_EQ(sut.settings().has_value(), !hasErrors);
        return found;
    }
    /// A file that others may not read, unless they may.
    void secret(const std::string& name, const std::string& text, int mode = 0600) {
        m_directory.write(name, text);
        std::filesystem::permissions(m_directory.path(name), static_cast<std::filesystem::perms>(mode));
    }
    /// A link with these attributes and a broker with those.
    static std::string link(const std::string& attributes, const std::string& broker = "host='127.0.0.1'",
                            const std::string& further = {}) {
        return "<link " + attributes + ">\n<broker " + broker + "/>\n" + further + "</link>\n";
    }

    TemporaryDirectory m_directory;
};

TEST_F(LinkFileTest, LeastThatALinkNeedsIsItsSiteAndItsBroker) {
    const LinkFile sut = read("<?xml version='1.0' encoding='UTF-8'?>\n" + link("site='SITE1'"));
    EXPECT_THAT(words(sut), IsEmpty());
    LinkSettings expected;
    expected.site = "SITE1";
    expected.farSite = "SITE2";
    expected.broker.host = "127.0.0.1";
    expected.broker.port = 1883;
    EXPECT_EQ(sut.settings(), expected);
    EXPECT_EQ(expected.expiry, std::chrono::seconds(5));
    EXPECT_EQ(expected.spread, std::chrono::seconds(5));
    EXPECT_FALSE(expected.hasTransit);
}

TEST_F(LinkFileTest, EverythingThatALinkMaySayIsTaken) {
    secret("password", "hush\nnot this\n");
    secret("site1.key", "KEY");
    m_directory.write("ca.pem", "CA");
    m_directory.write("site1.pem", "CERT");
    const LinkFile sut =
        read(link("site='SITE1' to='FAR' expiry='2' spread='60' transit='true'",
                  "host='broker.example' credentials='password' authorities='ca.pem' certificate='site1.pem' "
                  "key='site1.key'",
                  "<!-- lamps -->\n<export driver='LAMP1'/><export driver='LAMP2'/>\n"
                  "<import driver='*'/>\n<allow driver='LAMP1'/>\n"));
    EXPECT_THAT(words(sut), IsEmpty());
    LinkSettings expected;
    expected.site = "SITE1";
    expected.farSite = "FAR";
    expected.broker = {"broker.example",
                       8883,
                       "hush",
                       m_directory.path("ca.pem"),
                       m_directory.path("site1.pem"),
                       m_directory.path("site1.key")};
    expected.exported.ids = {"LAMP1", "LAMP2"};
    expected.imported.areAll = true;
    expected.allowed.ids = {"LAMP1"};
    expected.hasTransit = true;
    expected.expiry = std::chrono::seconds(2);
    expected.spread = std::chrono::seconds(60);
    EXPECT_EQ(sut.settings(), expected);
}

TEST_F(LinkFileTest, DriversAreContainedByNameOrAllOfThem) {
    LinkSettings::Drivers sut;
    EXPECT_FALSE(sut.contain("LAMP1"));
    sut.ids = {"LAMP1"};
    EXPECT_TRUE(sut.contain("LAMP1"));
    EXPECT_FALSE(sut.contain("LAMP2"));
    sut.areAll = true;
    EXPECT_TRUE(sut.contain("LAMP2"));
}

TEST_F(LinkFileTest, FileThatIsNotThereOrIsNoLinkIsRefused) {
    EXPECT_THAT(words(LinkFile(m_directory.path("no.xml"), "SITE2")),
                ElementsAre("error: no.xml cannot be read: No such file or directory"));
    EXPECT_THAT(findings("<workplaces/>"),
                ElementsAre("error: link.xml line 1: the root is <workplaces>; it must be <link>"));
    EXPECT_THAT(findings("<link site='A'\n<broker>"),
                ElementsAre(testing::StartsWith("error: link.xml line ")));
    std::string deep;
    for (int i = 0; i < 200; ++i)
        deep += "<link>";
    EXPECT_THAT(findings(deep), ElementsAre(testing::HasSubstr("error: link.xml line 1: ")));
}

TEST_F(LinkFileTest, UnknownPartIsAnErrorSinceARightMightHangOnIt) {
    EXPECT_THAT(
        findings(link("site='SITE1' expirey='2'")),
        ElementsAre("error: link.xml line 1: the attribute \"expirey\" of <link> is unknown and not read; "
                    "did you mean \"expiry\"?"));
    EXPECT_THAT(findings(link("site='SITE1'", "host='127.0.0.1'", "<alow driver='LAMP1'/>")),
                ElementsAre(testing::AllOf(testing::StartsWith("error: link.xml line 3: "),
                                           testing::HasSubstr("did you mean <allow>?"))));
}

TEST_F(LinkFileTest, EachWrongValueIsToldWithItsLineAndWhatWouldBeRight) {
    EXPECT_THAT(findings(link("to='FAR'")),
                ElementsAre("error: link.xml line 1: the link has no site; give this "
                            "workplace a name that no other has"));
    EXPECT_THAT(
        findings(link("site='A.B'")),
        ElementsAre("error: link.xml line 1: site=\"A.B\" is no name of a site: at most 64 bytes, none of "
                    "\".\", \",\" and control characters, no blank at either end"));
    EXPECT_THAT(
        findings(link("site='SITE1 '")),
        ElementsAre("error: link.xml line 1: site=\"SITE1 \" is no name of a site: at most 64 bytes, none of "
                    "\".\", \",\" and control characters, no blank at either end"));
    EXPECT_THAT(
        findings(link("site='SITE2'")),
        ElementsAre("error: link.xml line 1: the link leads from \"SITE2\" to itself; to=\"...\" names the "
                    "other site"));
    EXPECT_THAT(findings(link("site='SITE1' expiry='0' spread='601' transit='yes'")),
                ElementsAre("error: link.xml line 1: expiry=\"0\" is not a whole number from 1 to 3600",
                            "error: link.xml line 1: spread=\"601\" is not a whole number from 0 to 600",
                            "error: link.xml line 1: transit=\"yes\" is neither \"true\" nor \"false\""));
    EXPECT_THAT(findings("<link site='SITE1'/>"),
                ElementsAre("error: link.xml line 1: the link has no broker; add <broker host=\"...\"/>"));
    EXPECT_THAT(
        findings(link("site='SITE1'", "host='127.0.0.1'",
                      "<broker host='127.0.0.2'/>\n<export/>\n"
                      "<import driver='A.B'/>\n")),
        ElementsAre("error: link.xml line 3: a second <broker>; a link has one",
                    "error: link.xml line 4: <export> names no driver; write driver=\"ID\" or driver=\"*\"",
                    "error: link.xml line 5: driver=\"A.B\" is no driver ID, which has no \".\""));
    EXPECT_THAT(findings(link("site='SITE1'", "port='70000'")),
                ElementsAre("error: link.xml line 2: the broker has no host; give it a name or an address",
                            "error: link.xml line 2: port=\"70000\" is not a whole number from 1 to 65535"));
}

TEST_F(LinkFileTest, BrokerElsewhereWithoutTlsIsAWarning) {
    EXPECT_THAT(
        findings(link("site='SITE1'", "host='192.0.2.1'")),
        ElementsAre("warning: link.xml line 2: what passes to \"192.0.2.1\" can be read and changed on its "
                    "way; authorities=\"...\" gives it TLS"));
    EXPECT_THAT(findings(link("site='SITE1'", "host='localhost'")), IsEmpty());
}

TEST_F(LinkFileTest, SecretsThatOthersMayReadAreRefused) {
    secret("password", "hush\n", 0640);
    EXPECT_THAT(
        findings(link("site='SITE1'", "host='127.0.0.1' credentials='password'")),
        ElementsAre("error: link.xml line 2: credentials: others may read the file password; chmod 0600 "
                    "password"));
    secret("password", "\n");
    EXPECT_THAT(findings(link("site='SITE1'", "host='127.0.0.1' credentials='password'")),
                ElementsAre("error: link.xml line 2: the file password has no password in its first line"));
    EXPECT_THAT(
        findings(link("site='SITE1'", "host='127.0.0.1' credentials='none'")),
        ElementsAre("error: link.xml line 2: credentials: the file none cannot be read: No such file or "
                    "directory"));
    m_directory.write("site1.pem", "CERT");
    secret("site1.key", "KEY", 0604);
    EXPECT_THAT(
        findings(link("site='SITE1'", "host='127.0.0.1' certificate='site1.pem' key='site1.key'")),
        ElementsAre("error: link.xml line 2: key: others may read the file site1.key; chmod 0600 site1.key",
                    "error: link.xml line 2: a certificate needs authorities=\"...\", the file of those "
                    "whose broker is trusted"));
    EXPECT_THAT(
        findings(link("site='SITE1'", "host='127.0.0.1' certificate='site1.pem'")),
        testing::Contains("error: link.xml line 2: certificate=\"...\" and key=\"...\" belong together; "
                          "give both or none"));
}

}  // namespace
