#include "XMLVerify.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "LogCapture.h"
#include "TemporaryDirectory.h"
#include "WithoutCapabilities.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// A key pair of a test.
class KeyPair {
public:
    explicit KeyPair(const char* type = "ED25519") : m_pKey(EVP_PKEY_Q_keygen(nullptr, nullptr, type)) {}

    void writePublic(const std::string& path) const {
        std::FILE* pFile = std::fopen(path.c_str(), "w");
        PEM_write_PUBKEY(pFile, m_pKey.get());
        std::fclose(pFile);
    }
    std::string sign(const std::string& content) const {
        const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> pContext(EVP_MD_CTX_new(),
                                                                               &EVP_MD_CTX_free);
        std::size_t size = 64;
        std::string signature(size, '\0');
        EVP_DigestSignInit(pContext.get(), nullptr, nullptr, nullptr, m_pKey.get());
        EVP_DigestSign(pContext.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                       reinterpret_cast<const unsigned char*>(content.data()), content.size());
        return signature;
    }

private:
    struct Free {
        void operator()(EVP_PKEY* pKey) const { EVP_PKEY_free(pKey); }
    };
    std::unique_ptr<EVP_PKEY, Free> m_pKey;
};

class XMLVerify : public testing::Test {
protected:
    XMLVerify() {
        fs::create_directory(directory.path("trust"));
        key.writePublic(directory.path("trust/site.pem"));
        directory.write("workplace.xml", "<workplace/>");
        directory.write("workplace.xml.sig", key.sign("<workplace/>"));
        ::XMLVerify::setTrustDirectory(directory.path("trust"));
    }
    ~XMLVerify() override {
        ::XMLVerify::setTrustDirectory({});
        std::error_code none;
        fs::permissions(directory.path("trust"), fs::perms::owner_all, none);
    }

    bool verify() const { return ::XMLVerify::verifySignature(sal::Path(directory.path("workplace.xml"))); }

    /// What is logged when the check fails.
    std::string failure() const {
        LogCapture log;
        EXPECT_FALSE(verify());
        return log.finish();
    }

    TemporaryDirectory directory;
    KeyPair key;
};

TEST_F(XMLVerify, RightSignatureIsTrueAndSilent) {
    LogCapture log;
    EXPECT_TRUE(verify());
    EXPECT_EQ(log.finish(), "");
}

TEST_F(XMLVerify, AnyTrustedKeyWillDo) {
    for (const char* name : {"trust/a.pem", "trust/z.pem"})
        KeyPair().writePublic(directory.path(name));
    EXPECT_TRUE(verify());
}

TEST_F(XMLVerify, EmptyFileCanBeSigned) {
    directory.write("workplace.xml", "");
    directory.write("workplace.xml.sig", key.sign(""));
    EXPECT_TRUE(verify());
}

TEST_F(XMLVerify, ChangedFileIsRefused) {
    directory.write("workplace.xml", "<workplacE/>");
    EXPECT_THAT(failure(), HasSubstr("does not fit the file for any of the 1 trusted keys"));
}

TEST_F(XMLVerify, ChangedSignatureIsRefused) {
    std::string signature = key.sign("<workplace/>");
    signature[10] = static_cast<char>(signature[10] ^ 1);
    directory.write("workplace.xml.sig", signature);
    EXPECT_THAT(failure(), HasSubstr("does not fit the file"));
}

TEST_F(XMLVerify, SignatureOfAForeignKeyIsRefused) {
    directory.write("workplace.xml.sig", KeyPair().sign("<workplace/>"));
    EXPECT_THAT(failure(), HasSubstr("does not fit the file"));
}

TEST_F(XMLVerify, MissingSignatureIsSaidSo) {
    fs::remove(directory.path("workplace.xml.sig"));
    EXPECT_THAT(failure(),
                HasSubstr("warning  VERIFY: " + directory.path("workplace.xml") +
                          ": it is not signed, there is no " + directory.path("workplace.xml.sig") + "\n"));
}

TEST_F(XMLVerify, ShortSignatureIsMalformed) {
    directory.write("workplace.xml.sig", key.sign("<workplace/>").substr(0, 63));
    EXPECT_THAT(failure(), HasSubstr("has 63 bytes instead of 64\n"));
}

TEST_F(XMLVerify, LongSignatureIsMalformed) {
    directory.write("workplace.xml.sig", key.sign("<workplace/>") + "\n");
    EXPECT_THAT(failure(), HasSubstr("cannot be used: larger than 64 bytes\n"));
}

TEST_F(XMLVerify, MissingFileIsRefused) {
    fs::remove(directory.path("workplace.xml"));
    EXPECT_THAT(failure(), HasSubstr("the file cannot be read: No such file or directory\n"));
}

TEST_F(XMLVerify, NamedPipesDoNotHangIt) {
    fs::remove(directory.path("workplace.xml.sig"));
    ::mkfifo(directory.path("workplace.xml.sig").c_str(), 0600);
    EXPECT_THAT(failure(), HasSubstr("cannot be used: not a regular file\n"));
    fs::remove(directory.path("workplace.xml"));
    ::mkfifo(directory.path("workplace.xml").c_str(), 0600);
    EXPECT_THAT(failure(), HasSubstr("the file cannot be read: not a regular file\n"));
}

TEST_F(XMLVerify, NamedPipeAmongTheKeysDoesNotHangIt) {
    ::mkfifo(directory.path("trust/a.pem").c_str(), 0600);
    EXPECT_TRUE(verify());
}

TEST_F(XMLVerify, HugeFileIsRefused) {
    fs::resize_file(directory.path("workplace.xml"), (16u << 20) + 1);
    EXPECT_THAT(failure(), HasSubstr("the file cannot be read: larger than 16777216 bytes\n"));
}

TEST_F(XMLVerify, NoTrustDirectoryTrustsNothing) {
    ::XMLVerify::setTrustDirectory({});
    EXPECT_THAT(failure(), HasSubstr(": no trust directory is set\n"));
}

TEST_F(XMLVerify, EmptyTrustDirectoryIsSaidSo) {
    fs::rename(directory.path("trust/site.pem"), directory.path("trust/site.txt"));
    EXPECT_THAT(failure(), HasSubstr("holds no Ed25519 public key (*.pem)\n"));
}

TEST_F(XMLVerify, KeysThatAreNoneAreNotTrusted) {
    directory.write("trust/site.pem", "rubbish");
    KeyPair("X25519").writePublic(directory.path("trust/other.pem"));
    EXPECT_THAT(failure(), HasSubstr("holds no Ed25519 public key (*.pem)\n"));
}

TEST_F(XMLVerify, MissingTrustDirectoryIsSaidSo) {
    fs::remove_all(directory.path("trust"));
    EXPECT_THAT(failure(), HasSubstr("trust cannot be read: No such file or directory\n"));
}

TEST_F(XMLVerify, UnreadableTrustDirectoryIsSaidSo) {
    fs::permissions(directory.path("trust"), fs::perms::none);
    const WithoutCapabilities rights{CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH};
    ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
    EXPECT_THAT(failure(), HasSubstr("trust cannot be read: Permission denied\n"));
}

TEST_F(XMLVerify, ContentIsJudgedWhateverTheFileHoldsByNow) {
    const sal::Path path(directory.path("workplace.xml"));
    directory.write("workplace.xml", "<other/>");
    EXPECT_EQ("", ::XMLVerify::signatureFault(path, "<workplace/>"));
    EXPECT_THAT(::XMLVerify::signatureFault(path, "<other/>"), HasSubstr("does not fit the file"));
    fs::remove(directory.path("workplace.xml"));
    EXPECT_EQ("", ::XMLVerify::signatureFault(path, "<workplace/>"));
}

TEST_F(XMLVerify, SignatureIsGivenAsItWasRead) {
    const sal::Path path(directory.path("workplace.xml"));
    std::string signature = "from before";
    EXPECT_EQ("", ::XMLVerify::signatureFault(path, "<workplace/>", signature));
    EXPECT_EQ(directory.read("workplace.xml.sig"), signature);
    EXPECT_EQ(64u, signature.size());
    fs::remove(directory.path("workplace.xml.sig"));
    EXPECT_NE("", ::XMLVerify::signatureFault(path, "<workplace/>", signature));
    EXPECT_EQ("", signature);
}

TEST_F(XMLVerify, CopyAnswersAsItsContentDidAndNamesTheFile) {
    const sal::Path copy(directory.path("copy.xml"));
    ::XMLVerify::setCopy(copy, sal::Path(directory.path("workplace.xml")), "");
    EXPECT_TRUE(::XMLVerify::verifySignature(copy));
    ::XMLVerify::setCopy(copy, sal::Path(directory.path("workplace.xml")), "it was swapped");
    LogCapture log;
    EXPECT_FALSE(::XMLVerify::verifySignature(copy));
    EXPECT_TRUE(verify());
    EXPECT_THAT(log.finish(), testing::EndsWith("warning  VERIFY: " + directory.path("workplace.xml") +
                                                ": it was swapped\n"));
}

TEST_F(XMLVerify, SignatureOfTheOpensslCommandIsRight) {
    const std::string in = "cd " + directory.path() + " && ";
    const auto run = [&](const std::string& command) { return std::system((in + command).c_str()) == 0; };
    if (!run("command -v openssl >/dev/null"))
        GTEST_SKIP() << "there is no openssl command";
    ASSERT_TRUE(run("openssl genpkey -algorithm ed25519 -out key.pem"));
    ASSERT_TRUE(run("openssl pkey -in key.pem -pubout -out trust/site.pem"));
    ASSERT_TRUE(run("openssl pkeyutl -sign -rawin -inkey key.pem -in workplace.xml -out workplace.xml.sig"));
    EXPECT_TRUE(verify());
}

}  // namespace
