#include "KeyFile.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <sys/stat.h>

#include <sstream>

#include "OutputFile.h"
#include "RegularFile.h"
#include "Release.h"

namespace {

using Bio = std::unique_ptr<BIO, base::Release<BIO_free>>;
using Context = std::unique_ptr<EVP_MD_CTX, base::Release<EVP_MD_CTX_free>>;

constexpr mode_t s_othersReadOrWrite = S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;

std::string octal(mode_t mode) {
    std::ostringstream text;
    text << '0' << std::oct << mode;
    return text.str();
}

int noPassphrase(char*, int, int, void*) {
    return 0;
}

std::string textOf(BIO* pBio) {
    char* pText = nullptr;
    const long size = BIO_get_mem_data(pBio, &pText);
    return size > 0 ? std::string(pText, static_cast<std::size_t>(size)) : std::string();
}

}  // namespace

bool KeyFile::generate() {
    m_pKey.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
    return m_pKey != nullptr;
}

std::string KeyFile::read(const std::string& path) {
    m_exposure.clear();
    const auto file = base::RegularFile::read(path);
    if (!file)
        return path + ": " + file.reason;
    const Bio pBio(BIO_new_mem_buf(file.bytes.data(), static_cast<int>(file.bytes.size())));
    m_pKey.reset(pBio ? PEM_read_bio_PrivateKey(pBio.get(), nullptr, noPassphrase, nullptr) : nullptr);
    ERR_clear_error();
    if (!m_pKey)
        return path + " holds no private key that can be read without a passphrase";
    if (EVP_PKEY_get_base_id(m_pKey.get()) != EVP_PKEY_ED25519) {
        m_pKey.reset();
        return path + " holds a key of another kind; mfctl keygen makes an Ed25519 key";
    }
    if ((file.mode & s_othersReadOrWrite) != 0)
        m_exposure = path + ": others may read or write this private key (its mode is " + octal(file.mode) +
                     "); keep it to its owner: chmod 600 " + path;
    return {};
}

std::string KeyFile::writePrivate(const std::string& path) const {
    const Bio pBio(BIO_new(BIO_s_secmem()));
    if (!pBio ||
        PEM_write_bio_PrivateKey(pBio.get(), m_pKey.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1)
        return path + ": the key cannot be encoded";
    return createFile(path, textOf(pBio.get()), 0600);
}

std::string KeyFile::writePublic(const std::string& path) const {
    const Bio pBio(BIO_new(BIO_s_mem()));
    if (!pBio || PEM_write_bio_PUBKEY(pBio.get(), m_pKey.get()) != 1)
        return path + ": the key cannot be encoded";
    return createFile(path, textOf(pBio.get()), 0644);
}

KeyFile::Bytes KeyFile::sign(const Bytes& content) const {
    const Context pContext(EVP_MD_CTX_new());
    std::size_t size = 64;
    Bytes signature(size);
    const bool isSigned =
        pContext && EVP_DigestSignInit(pContext.get(), nullptr, nullptr, nullptr, m_pKey.get()) == 1 &&
        EVP_DigestSign(pContext.get(), signature.data(), &size, content.data(), content.size()) == 1;
    ERR_clear_error();
    return isSigned && size == signature.size() ? signature : Bytes();
}

KeyFile::Bytes KeyFile::publicKey() const {
    std::size_t size = 32;
    Bytes key(size);
    return EVP_PKEY_get_raw_public_key(m_pKey.get(), key.data(), &size) == 1 ? key : Bytes();
}
