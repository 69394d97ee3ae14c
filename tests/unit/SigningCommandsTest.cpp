#include "SigningCommands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "TemporaryDirectory.h"
#include "XMLVerify.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class SigningCommandsTest : public testing::Test {
protected:
    SigningCommandsTest() {
        EXPECT_EQ(0, m_sut.keygen(path("site")));
        fs::create_directory(path("trust"));
        fs::copy_file(path("site.pem"), path("trust/site.pem"));
        m_directory.write("w.xml", "<workplaces/>");
        m_directory.write("v.xml", "<workplaces> </workplaces>");
        m_out.str({});
    }
    ~SigningCommandsTest() override { XMLVerify::setTrustDirectory({}); }

    std::string path(const std::string& name) const { return m_directory.path(name); }
    int sign(const std::string& name = "w.xml") { return m_sut.sign(path("site.key"), {path(name)}); }
    void copy(const std::string& from, const std::string& to) const {
        fs::copy_file(path(from), path(to), fs::copy_options::overwrite_existing);
    }
    /// What the verification of w.xml says against it.
    std::string fault() {
        m_err.str({});
        EXPECT_EQ(1, m_sut.verify(path("trust"), {path("w.xml")}));
        return m_err.str();
    }

    TemporaryDirectory m_directory;
    std::ostringstream m_out;
    std::ostringstream m_err;
    SigningCommands m_sut{m_out, m_err};
};

}  // namespace

TEST_F(SigningCommandsTest, SignedFileIsVerified) {
    EXPECT_EQ(0, sign());
    EXPECT_EQ(0, m_sut.verify(path("trust"), {path("w.xml")}));
    EXPECT_THAT(m_out.str(), HasSubstr(path("w.xml") + ": signed by a trusted key\n"));
    EXPECT_EQ("", m_err.str());
}

TEST_F(SigningCommandsTest, FileNamesReachATerminalPrintable) {
    m_directory.write("w\x1b[2J\xc2\x9b.xml", "<workplaces/>");
    EXPECT_EQ(0, sign("w\x1b[2J\xc2\x9b.xml"));
    EXPECT_EQ(0, m_sut.verify(path("trust"), {path("w\x1b[2J\xc2\x9b.xml")}));
    EXPECT_EQ(1, m_sut.verify(path("trust"), {path("a\x1b[2J\x9b.xml")}));
    EXPECT_EQ(0, m_sut.keygen(path("k\x1b[2J")));
    EXPECT_THAT(m_out.str(), HasSubstr(path("w\\x1b[2J\\u009b.xml") + ": signed with "));
    EXPECT_THAT(m_out.str(), HasSubstr(path("w\\x1b[2J\\u009b.xml") + ": signed by a trusted key\n"));
    EXPECT_THAT(m_out.str(), HasSubstr(path("k\\x1b[2J.key") + ": private key"));
    EXPECT_THAT(m_out.str(), HasSubstr(path("k\\x1b[2J.pem") + ": public key"));
    EXPECT_THAT(m_err.str(), HasSubstr("mfctl: " + path("a\\x1b[2J\\x9b.xml") + ": "));
}

TEST_F(SigningCommandsTest, SignatureIsSixtyFourBytes) {
    ASSERT_EQ(0, sign());
    EXPECT_EQ(64u, fs::file_size(path("w.xml.sig")));
}

TEST_F(SigningCommandsTest, KeyThatOthersMayReadOrWriteIsWarnedOfAndSigns) {
    for (const mode_t mode : {0640, 0620, 0604, 0602}) {
        ASSERT_EQ(0, ::chmod(path("site.key").c_str(), mode));
        m_err.str({});
        EXPECT_EQ(0, sign());
        std::ostringstream octal;
        octal << std::oct << mode;
        EXPECT_EQ("mfctl: warning: " + path("site.key") +
                      ": others may read or write this private key (its mode is 0" + octal.str() +
                      "); keep it to its owner: chmod 600 " + path("site.key") + "\n",
                  m_err.str());
    }
    EXPECT_EQ(0, m_sut.verify(path("trust"), {path("w.xml")}));
}

TEST_F(SigningCommandsTest, KeyOfItsOwnerAloneIsUsedSilently) {
    for (const mode_t mode : {0600, 0400, 0711}) {
        ASSERT_EQ(0, ::chmod(path("site.key").c_str(), mode));
        EXPECT_EQ(0, sign());
    }
    EXPECT_EQ("", m_err.str());
}

TEST_F(SigningCommandsTest, OpensslVerifiesTheSignature) {
    if (std::system("command -v openssl >/dev/null") != 0)
        GTEST_SKIP() << "there is no openssl command";
    ASSERT_EQ(0, sign());
    const std::string command = "openssl pkeyutl -verify -rawin -pubin -inkey " + path("site.pem") + " -in " +
                                path("w.xml") + " -sigfile " + path("w.xml.sig") + " >/dev/null";
    EXPECT_EQ(0, std::system(command.c_str()));
}

TEST_F(SigningCommandsTest, KeygenReplacesNoKey) {
    const std::string key = m_directory.read("site.key");
    EXPECT_EQ(1, m_sut.keygen(path("site")));
    EXPECT_EQ("mfctl: " + path("site.key") + ": File exists\n", m_err.str());
    EXPECT_EQ(key, m_directory.read("site.key"));
}

TEST_F(SigningCommandsTest, KeygenWithoutAPublicKeyLeavesNoPrivateOne) {
    m_directory.write("half.pem", "old");
    EXPECT_EQ(1, m_sut.keygen(path("half")));
    EXPECT_FALSE(m_directory.contains("half.key"));
}

TEST_F(SigningCommandsTest, EachFileIsSignedThoughAnotherIsMissing) {
    EXPECT_EQ(1, m_sut.sign(path("site.key"), {path("absent.xml"), path("v.xml")}));
    EXPECT_EQ("mfctl: " + path("absent.xml") + ": No such file or directory\n", m_err.str());
    EXPECT_EQ(0, m_sut.verify(path("trust"), {path("v.xml")}));
}

TEST_F(SigningCommandsTest, NewSignatureReplacesTheOldOne) {
    ASSERT_EQ(0, sign());
    m_directory.write("w.xml", "<workplaces>new</workplaces>");
    ASSERT_EQ(0, sign());
    EXPECT_EQ(0, m_sut.verify(path("trust"), {path("w.xml")}));
}

TEST_F(SigningCommandsTest, MissingSignatureIsToldApart) {
    EXPECT_EQ("mfctl: " + path("w.xml") + ": it is not signed, there is no " + path("w.xml.sig") + "\n",
              fault());
}

TEST_F(SigningCommandsTest, TruncatedSignatureIsToldApart) {
    ASSERT_EQ(0, sign());
    m_directory.write("w.xml.sig", m_directory.read("w.xml.sig").substr(0, 40));
    EXPECT_EQ("mfctl: " + path("w.xml") + ": the signature " + path("w.xml.sig") +
                  " is truncated: it has 40 bytes instead of 64\n",
              fault());
}

TEST_F(SigningCommandsTest, ForeignSignatureIsToldApartWithItsKey) {
    ASSERT_EQ(0, m_sut.keygen(path("foreign")));
    const std::string said = m_out.str();
    const std::string key = said.substr(said.find("public key ") + 11, 16);
    ASSERT_EQ(0, m_sut.sign(path("foreign.key"), {path("w.xml")}));
    EXPECT_EQ("mfctl: " + path("w.xml") + ": the signature " + path("w.xml.sig") +
                  " was made with a foreign key, " + key + ", which is none of the 1 trusted keys\n",
              fault());
}

TEST_F(SigningCommandsTest, SwappedFileIsToldApart) {
    ASSERT_EQ(0, sign());
    fs::copy_file(path("v.xml"), path("w.xml"), fs::copy_options::overwrite_existing);
    EXPECT_EQ("mfctl: " + path("w.xml") +
                  ": the file is not the one that was signed: it was changed or swapped after " +
                  path("w.xml.sig") + " was made\n",
              fault());
}

TEST_F(SigningCommandsTest, WrongSignatureIsToldApart) {
    ASSERT_EQ(0, sign());
    ASSERT_EQ(0, sign("v.xml"));
    copy("v.xml.sig", "w.xml.sig");
    fs::remove(path("v.xml"));
    EXPECT_EQ("mfctl: " + path("w.xml") + ": the signature " + path("w.xml.sig") +
                  " is wrong: it was damaged, or was made for another file\n",
              fault());
}

TEST_F(SigningCommandsTest, SignatureOfAnotherFileBesideItIsNamed) {
    ASSERT_EQ(0, sign());
    ASSERT_EQ(0, sign("v.xml"));
    copy("v.xml.sig", "w.xml.sig");
    const std::string expected = "mfctl: " + path("w.xml") + ": the signature " + path("w.xml.sig") +
                                 " is that of " + path("v.xml") + ": the two were swapped\n";
    EXPECT_EQ(expected, fault());
    fs::remove(path("w.xml.sig.info"));
    EXPECT_EQ(expected, fault());
}

TEST_F(SigningCommandsTest, CopyOfAnotherSignedFileBesideItIsNamed) {
    ASSERT_EQ(0, sign());
    ASSERT_EQ(0, sign("v.xml"));
    copy("v.xml", "w.xml");
    const std::string expected = "mfctl: " + path("w.xml") + ": the file is a copy of " + path("v.xml") +
                                 ": it was put in the place of the one that was signed\n";
    EXPECT_EQ(expected, fault());
    fs::remove(path("w.xml.sig.info"));
    EXPECT_EQ(expected, fault());
}

TEST_F(SigningCommandsTest, CopyOfAFileWhoseSignatureIsWrongIsNotTakenForIt) {
    ASSERT_EQ(0, sign());
    ASSERT_EQ(0, sign("v.xml"));
    copy("v.xml", "w.xml");
    copy("w.xml.sig", "v.xml.sig");
    EXPECT_THAT(fault(), HasSubstr(": the file is not the one that was signed: "));
}

TEST_F(SigningCommandsTest, PipeBesideTheFileDoesNotHangIt) {
    ASSERT_EQ(0, sign());
    m_directory.write("w.xml", "other");
    ASSERT_EQ(0, ::mkfifo(path("p.xml").c_str(), 0600));
    ASSERT_EQ(0, ::mkfifo(path("p.xml.sig").c_str(), 0600));
    EXPECT_THAT(fault(), HasSubstr(": the file is not the one that was signed: "));
}

TEST_F(SigningCommandsTest, FileSwappedTogetherWithItsSignatureIsRefused) {
    ASSERT_EQ(0, sign());
    ASSERT_EQ(0, sign("v.xml"));
    copy("v.xml", "w.xml");
    copy("v.xml.sig", "w.xml.sig");
    EXPECT_EQ("mfctl: " + path("w.xml") +
                  ": the file was swapped together with its signature: " + path("w.xml.sig.info") +
                  " is of another file (remove it where this one was signed anew without mfctl)\n",
              fault());
}

TEST_F(SigningCommandsTest, FileSwappedTogetherWithAllThatBelongsToItIsRefused) {
    ASSERT_EQ(0, sign());
    ASSERT_EQ(0, sign("v.xml"));
    for (const std::string end : {"", ".sig", ".sig.info"})
        copy("v.xml" + end, "w.xml" + end);
    EXPECT_EQ(
        "mfctl: " + path("w.xml") +
            ": the file and its signature were made under the name v.xml and were put here together (sign it "
            "anew where that is meant)\n",
        fault());
    ASSERT_EQ(0, sign());
    EXPECT_EQ(0, m_sut.verify(path("trust"), {path("w.xml")}));
}

TEST_F(SigningCommandsTest, RecordWithoutANameIsAsGood) {
    ASSERT_EQ(0, sign());
    const std::string record = m_directory.read("w.xml.sig.info");
    const auto name = record.find("file: w.xml\n");
    ASSERT_NE(std::string::npos, name);
    m_directory.write("w.xml.sig.info", record.substr(0, name));
    EXPECT_EQ(0, m_sut.verify(path("trust"), {path("w.xml")}));
}

TEST_F(SigningCommandsTest, SignatureOfASecondTrustedKeyNeedsNoRecordOfItsOwn) {
    ASSERT_EQ(0, m_sut.keygen(path("second")));
    fs::copy_file(path("second.pem"), path("trust/second.pem"));
    ASSERT_EQ(0, sign());
    const std::string record = m_directory.read("w.xml.sig.info");
    ASSERT_EQ(0, m_sut.sign(path("second.key"), {path("w.xml")}));
    m_directory.write("w.xml.sig.info", record);
    EXPECT_EQ(0, m_sut.verify(path("trust"), {path("w.xml")}));
}

TEST_F(SigningCommandsTest, RecordBesideTheSignatureIsNotTrusted) {
    ASSERT_EQ(0, m_sut.keygen(path("foreign")));
    ASSERT_EQ(0, sign());
    const std::string record = m_directory.read("w.xml.sig.info");
    ASSERT_EQ(0, m_sut.sign(path("foreign.key"), {path("w.xml")}));
    m_directory.write("w.xml.sig.info", record);
    EXPECT_THAT(fault(), HasSubstr(" is wrong: "));
}

TEST_F(SigningCommandsTest, WithoutARecordTheReasonsAreNamedTogether) {
    ASSERT_EQ(0, sign());
    fs::remove(path("w.xml.sig.info"));
    EXPECT_EQ(0, m_sut.verify(path("trust"), {path("w.xml")}));
    m_directory.write("w.xml", "other");
    EXPECT_THAT(fault(), HasSubstr(" does not fit the file for any of the 1 trusted keys: "));
}
