#include "SigningCommands.h"

#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "KeyFile.h"
#include "OutputFile.h"
#include "Printable.h"
#include "RegularFile.h"
#include "XMLVerify.h"
#include "sal/Path.h"

namespace {

std::string hexadecimal(const unsigned char* pBytes, std::size_t size) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += digits[pBytes[i] >> 4];
        text += digits[pBytes[i] & 15];
    }
    return text;
}

std::string digest(const unsigned char* pBytes, std::size_t size) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int count = 0;
    if (EVP_Digest(pBytes, size, bytes.data(), &count, EVP_sha256(), nullptr) != 1)
        return {};
    return hexadecimal(bytes.data(), count);
}

/// What people compare keys by; logs name a foreign key so.
std::string fingerprint(const KeyFile& key) {
    const KeyFile::Bytes bytes = key.publicKey();
    return digest(bytes.data(), bytes.size()).substr(0, 16);
}

std::string record(const KeyFile& key, const KeyFile::Bytes& content, const std::string& file) {
    const KeyFile::Bytes publicKey = key.publicKey();
    return "ed25519: " + hexadecimal(publicKey.data(), publicKey.size()) +
           "\nsha256: " + digest(content.data(), content.size()) +
           "\nfile: " + std::filesystem::path(file).filename().string() + "\n";
}

}  // namespace

int SigningCommands::keygen(const std::string& name) {
    KeyFile key;
    if (!key.generate())
        return fail("the system makes no Ed25519 key");
    const std::string privateFile = name + ".key";
    const std::string publicFile = name + ".pem";
    if (const std::string error = key.writePrivate(privateFile); !error.empty())
        return fail(error);
    if (const std::string error = key.writePublic(publicFile); !error.empty()) {
        ::unlink(privateFile.c_str());
        return fail(error);
    }
    m_out << base::printable(privateFile) << ": private key, keep it secret\n"
          << base::printable(publicFile) << ": public key " << fingerprint(key)
          << ", for the trust directories of hosts" << std::endl;
    return 0;
}

int SigningCommands::sign(const std::string& keyFile, const std::vector<std::string>& files) {
    KeyFile key;
    if (const std::string error = key.read(keyFile); !error.empty())
        return fail(error);
    if (!key.exposure().empty())
        m_err << "mfctl: warning: " << key.exposure() << std::endl;
    int exitCode = 0;
    for (const std::string& file : files) {
        const auto content = base::RegularFile::read(file);
        if (!content) {
            exitCode = fail(file + ": " + content.reason);
            continue;
        }
        const KeyFile::Bytes bytes(content.bytes.begin(), content.bytes.end());
        const KeyFile::Bytes signature = key.sign(bytes);
        if (signature.empty()) {
            exitCode = fail(file + " cannot be signed");
            continue;
        }
        std::string error = replaceFile(file + ".sig", std::string(signature.begin(), signature.end()));
        if (error.empty())
            error = replaceFile(file + ".sig.info", record(key, bytes, file));
        if (error.empty())
            m_out << base::printable(file) << ": signed with " << fingerprint(key) << std::endl;
        else
            exitCode = fail(error);
    }
    return exitCode;
}

int SigningCommands::verify(const std::string& trustDirectory, const std::vector<std::string>& files) {
    XMLVerify::setTrustDirectory(trustDirectory);
    int exitCode = 0;
    for (const std::string& file : files) {
        const std::string fault = XMLVerify::signatureFault(sal::Path(file));
        if (fault.empty())
            m_out << base::printable(file) << ": signed by a trusted key" << std::endl;
        else
            exitCode = fail(file + ": " + fault);
    }
    return exitCode;
}

int SigningCommands::fail(const std::string& reason) {
    m_err << "mfctl: " << base::printable(reason) << std::endl;
    return 1;
}
