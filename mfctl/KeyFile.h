#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <vector>

/// An Ed25519 key pair for signing, from or to PEM files. Every failure gives a text that names the file. One
/// thread.
class KeyFile {
public:
    using Bytes = std::vector<unsigned char>;

    /// A new key; false when the system gives none.
    bool generate();
    /// Reads the private key. Returns what is wrong; empty when it was read. Never asks for a passphrase.
    std::string read(const std::string& path);
    /// What is careless about the file that was read: others than its owner may read or write it. Empty when
    /// nothing is.
    const std::string& exposure() const { return m_exposure; }

    /// Writes the private key, for its owner alone. Refuses to replace a file.
    std::string writePrivate(const std::string& path) const;
    /// Writes the public key for trust directories. Refuses to replace a file.
    std::string writePublic(const std::string& path) const;

    /// The 64 bytes; empty when the library fails.
    Bytes sign(const Bytes& content) const;
    /// The 32 bytes of the public key.
    Bytes publicKey() const;

private:
    struct Free {
        void operator()(EVP_PKEY* pKey) const { EVP_PKEY_free(pKey); }
    };
    std::unique_ptr<EVP_PKEY, Free> m_pKey;
    std::string m_exposure;
};
