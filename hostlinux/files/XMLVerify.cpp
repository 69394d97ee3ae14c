#include "XMLVerify.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "LogLine.h"
#include "RegularFile.h"
#include "Release.h"
#include "sal/LogOutput.h"

namespace {

constexpr std::size_t s_signatureSize = 64;
constexpr std::size_t s_largestKey = 64u << 10;
constexpr std::size_t s_largestRecord = 4u << 10;
constexpr std::size_t s_keySize = 32;
constexpr std::size_t s_digestDigits = 64;
const std::string s_keyLine = "ed25519: ";
const std::string s_digestLine = "sha256: ";
const std::string s_fileLine = "file: ";
const std::string s_signatureEnd = ".sig";
constexpr int s_mostNeighbours = 64;

using Key = std::unique_ptr<EVP_PKEY, base::Release<EVP_PKEY_free>>;
using Context = std::unique_ptr<EVP_MD_CTX, base::Release<EVP_MD_CTX_free>>;
using Bio = std::unique_ptr<BIO, base::Release<BIO_free>>;

std::string& trustDirectory() {
    static std::string s_directory;
    return s_directory;
}

const unsigned char* bytesAt(const std::string& content) {
    return reinterpret_cast<const unsigned char*>(content.data());
}

/// Never asks a person at the terminal.
int noPassphrase(char*, int, int, void*) {
    return 0;
}

/// Null when the file holds no Ed25519 public key.
Key readKey(const std::string& path) {
    const auto file = base::RegularFile::read(path, s_largestKey);
    if (!file)
        return nullptr;
    const Bio pBio(BIO_new_mem_buf(file.bytes.data(), static_cast<int>(file.bytes.size())));
    Key pKey(pBio ? PEM_read_bio_PUBKEY(pBio.get(), nullptr, noPassphrase, nullptr) : nullptr);
    ERR_clear_error();
    return pKey && EVP_PKEY_get_base_id(pKey.get()) == EVP_PKEY_ED25519 ? std::move(pKey) : nullptr;
}

bool isSignedBy(EVP_PKEY* pKey, const std::string& content, const std::string& signature) {
    const Context pContext(EVP_MD_CTX_new());
    const bool isRight = pContext &&
                         EVP_DigestVerifyInit(pContext.get(), nullptr, nullptr, nullptr, pKey) == 1 &&
                         EVP_DigestVerify(pContext.get(), bytesAt(signature), signature.size(),
                                          bytesAt(content), content.size()) == 1;
    ERR_clear_error();
    return isRight;
}

/// The trusted keys; what is wrong with the trust directory in error when there are none.
std::vector<Key> trustedKeys(std::string& error) {
    const std::string& directory = trustDirectory();
    if (directory.empty()) {
        error = "no trust directory is set";
        return {};
    }
    std::error_code code;
    std::filesystem::directory_iterator entry(directory, code);
    std::vector<Key> keys;
    while (!code && entry != std::filesystem::directory_iterator()) {
        if (entry->path().extension() == ".pem") {
            if (Key pKey = readKey(entry->path().string()))
                keys.push_back(std::move(pKey));
        }
        entry.increment(code);
    }
    if (code) {
        error = "the trust directory " + directory + " cannot be read: " + code.message();
        return {};
    }
    if (keys.empty())
        error = "the trust directory " + directory + " holds no Ed25519 public key (*.pem)";
    return keys;
}

bool isSignedBy(const std::vector<Key>& keys, const std::string& content, const std::string& signature) {
    return std::any_of(keys.begin(), keys.end(),
                       [&](const Key& pKey) { return isSignedBy(pKey.get(), content, signature); });
}

/// What "<file>.sig.info" says of how a signature was made. Nothing of it makes a signature right; it tells
/// why one does not fit, or that it came here with another file.
struct SigningRecord {
    std::string publicKey;
    std::string digest;
    std::string file;  ///< without directories; may be missing
};

std::string digestOf(const std::string& content) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (EVP_Digest(content.data(), content.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1)
        return {};
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 15];
    }
    return text;
}

/// The bytes of a text of hexadecimal digits; nothing when it is none.
std::string bytesOf(const std::string& digits) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        unsigned char byte = 0;
        const char* pEnd = digits.data() + i + 2;
        const auto read = std::from_chars(digits.data() + i, pEnd, byte, 16);
        if (read.ec != std::errc() || read.ptr != pEnd)
            return {};
        bytes += static_cast<char>(byte);
    }
    return digits.size() % 2 == 0 ? bytes : std::string();
}

/// Nothing when there is no such file, or one that says less.
std::optional<SigningRecord> readRecord(const std::string& path) {
    const auto file = base::RegularFile::read(path, s_largestRecord);
    if (!file)
        return std::nullopt;
    SigningRecord record;
    std::istringstream lines(file.bytes);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(s_keyLine))
            record.publicKey = bytesOf(line.substr(s_keyLine.size()));
        else if (line.starts_with(s_digestLine))
            record.digest = line.substr(s_digestLine.size());
        else if (line.starts_with(s_fileLine))
            record.file = line.substr(s_fileLine.size());
    }
    const bool isWhole = record.publicKey.size() == s_keySize && record.digest.size() == s_digestDigits;
    return isWhole ? std::optional(record) : std::nullopt;
}

/// Which signed file of the same directory the content or the signature is really that of; empty when none.
std::string swapped(const std::string& path, const std::string& content, const std::string& signature,
                    const std::vector<Key>& keys) {
    std::error_code code;
    std::filesystem::path directory = std::filesystem::path(path).parent_path();
    std::filesystem::directory_iterator entry(directory.empty() ? "." : directory, code);
    for (int left = s_mostNeighbours; !code && entry != std::filesystem::directory_iterator() && left > 0;
         entry.increment(code)) {
        const std::string neighbourSignature = entry->path().string();
        if (!neighbourSignature.ends_with(s_signatureEnd))
            continue;
        // The one that does not fit is no swapped one, and its file is not read again.
        if (entry->path().filename() == std::filesystem::path(path + s_signatureEnd).filename())
            continue;
        --left;
        const std::string neighbour =
            neighbourSignature.substr(0, neighbourSignature.size() - s_signatureEnd.size());
        const auto other = base::RegularFile::read(neighbour);
        if (!other)
            continue;
        if (isSignedBy(keys, other.bytes, signature))
            return "the signature " + path + s_signatureEnd + " is that of " + neighbour +
                   ": the two were swapped";
        const auto otherSignature = base::RegularFile::read(neighbourSignature, s_signatureSize);
        if (otherSignature && other.bytes == content && isSignedBy(keys, content, otherSignature.bytes))
            return "the file is a copy of " + neighbour +
                   ": it was put in the place of the one that was signed";
    }
    return {};
}

/// Why a right signature does not count: it came with the file from elsewhere. Empty when nothing says so.
std::string displaced(const std::string& path, const std::string& content) {
    const std::string recordPath = path + s_signatureEnd + ".info";
    const auto record = readRecord(recordPath);
    if (!record)
        return {};
    if (digestOf(content) != record->digest)
        return "the file was swapped together with its signature: " + recordPath +
               " is of another file (remove it where this one was signed anew without mfctl)";
    if (!record->file.empty() && record->file != std::filesystem::path(path).filename())
        return "the file and its signature were made under the name " + record->file +
               " and were put here together (sign it anew where that is meant)";
    return {};
}

/// Why a signature of the right size fits no trusted key.
std::string misfit(const std::string& path, const std::string& content, const std::string& signature,
                   const std::vector<Key>& keys) {
    const std::string signaturePath = path + s_signatureEnd;
    if (std::string other = swapped(path, content, signature, keys); !other.empty())
        return other;
    const std::string trusted = "the " + std::to_string(keys.size()) + " trusted keys";
    const auto record = readRecord(signaturePath + ".info");
    if (!record)
        return "the signature " + signaturePath + " does not fit the file for any of " + trusted +
               ": the file or the signature was changed, or the key is not trusted (" + signaturePath +
               ".info would tell which)";
    const Key pKey(EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, bytesAt(record->publicKey),
                                               record->publicKey.size()));
    ERR_clear_error();
    if (pKey && isSignedBy(pKey.get(), content, signature))
        return "the signature " + signaturePath + " was made with a foreign key, " +
               digestOf(record->publicKey).substr(0, 16) + ", which is none of " + trusted;
    if (digestOf(content) != record->digest)
        return "the file is not the one that was signed: it was changed or swapped after " + signaturePath +
               " was made";
    return "the signature " + signaturePath + " is wrong: it was damaged, or was made for another file";
}

/// Empty when the signature is right for the content, else what is wrong. What was read of it is in read.
std::string verify(const std::string& path, const std::string& content, std::string& read) {
    const std::string signaturePath = path + s_signatureEnd;
    const auto signature = base::RegularFile::read(signaturePath, s_signatureSize);
    read = signature.bytes;
    if (!signature && ::access(signaturePath.c_str(), F_OK) != 0 && errno == ENOENT)
        return "it is not signed, there is no " + signaturePath;
    if (!signature)
        return "the signature " + signaturePath + " cannot be used: " + signature.reason;
    if (signature.size != s_signatureSize)
        return "the signature " + signaturePath + " is truncated: it has " + std::to_string(signature.size) +
               " bytes instead of " + std::to_string(s_signatureSize);
    std::string error;
    const std::vector<Key> keys = trustedKeys(error);
    if (keys.empty())
        return error;
    return isSignedBy(keys, content, signature.bytes) ? displaced(path, content)
                                                      : misfit(path, content, signature.bytes, keys);
}

/// What is known of a copy that the program hands out.
struct Copy {
    std::string file;
    std::string fault;
};

/// The copies by their paths, for any thread.
class Copies {
public:
    void set(const std::string& path, const Copy& copy) {
        const std::lock_guard lock(m_mutex);
        m_copies[path] = copy;
    }
    std::optional<Copy> find(const std::string& path) const {
        const std::lock_guard lock(m_mutex);
        const auto found = m_copies.find(path);
        return found == m_copies.end() ? std::nullopt : std::optional(found->second);
    }

private:
    mutable std::mutex m_mutex;
    std::map<std::string, Copy> m_copies;
};

Copies& copies() {
    static Copies s_copies;
    return s_copies;
}

}  // namespace

bool XMLVerify::verifySignature(const sal::Path& file) {
    const auto copy = copies().find(file.getPathString());
    const std::string error = copy ? copy->fault : signatureFault(file);
    if (!error.empty())
        sal::logLine("VERIFY", sal::LogOutput::eWarning,
                     (copy ? copy->file : file.getPathString()) + ": " + error);
    return error.empty();
}

std::string XMLVerify::signatureFault(const sal::Path& file) {
    const auto content = base::RegularFile::read(file.getPathString());
    return content ? signatureFault(file, content.bytes) : "the file cannot be read: " + content.reason;
}

std::string XMLVerify::signatureFault(const sal::Path& file, const std::string& content) {
    std::string signature;
    return signatureFault(file, content, signature);
}

std::string XMLVerify::signatureFault(const sal::Path& file, const std::string& content,
                                      std::string& signature) {
    return verify(file.getPathString(), content, signature);
}

void XMLVerify::setCopy(const sal::Path& copy, const sal::Path& file, const std::string& fault) {
    copies().set(copy.getPathString(), {file.getPathString(), fault});
}

void XMLVerify::setTrustDirectory(const std::string& directory) {
    trustDirectory() = directory;
}
