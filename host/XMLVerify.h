#pragma once

#include <string>

#include "sal/Export.h"
#include "sal/Path.h"

/// Ed25519 signatures of files: "<file>.sig" beside the file holds the 64 bytes, detached. "<file>.sig.info",
/// which may be missing, says with which key, for which content and under which name it was made; it makes no
/// signature right, and tells why one does not fit or that it came with its file from elsewhere. Any thread.
class SAL_API XMLVerify {
public:
    /// True when the signature is right for a key of the trust directory. False otherwise, with a log line
    /// that tells apart a missing signature, a truncated one, one of a foreign key, a changed file, a file or
    /// signature swapped with another's, a wrong signature, and an empty or unreadable trust directory.
    static bool verifySignature(const sal::Path& file);

    /// The same test without the log line: what is wrong; empty when the signature is right.
    static std::string signatureFault(const sal::Path& file);
    /// The same for content that the caller has read from the file: the file itself is not opened, and its
    /// signature is read once.
    static std::string signatureFault(const sal::Path& file, const std::string& content);
    /// The same, and what was read of the signature: empty where there is none or it cannot be used.
    static std::string signatureFault(const sal::Path& file, const std::string& content,
                                      std::string& signature);

    /// For a program that hands verified content on in a file of its own: verifySignature of that copy opens
    /// nothing from now on. It answers for the content's own file, with this fault (as signatureFault gave
    /// it), and its log line names that file. A second call for the same copy replaces the first.
    static void setCopy(const sal::Path& copy, const sal::Path& file, const std::string& fault);

    /// Directory of the trusted public keys (PEM, "*.pem"). Set at start; without one no signature is
    /// trusted.
    static void setTrustDirectory(const std::string& directory);
};
