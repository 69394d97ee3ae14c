#pragma once

#include <string>

#include "sal/Export.h"
#include "sal/Path.h"

/// Ed25519 signatures of files: "<file>.sig" beside the file holds the 64 bytes, detached. Any thread.
class SAL_API XMLVerify {
public:
    /// True when the signature is right for a key of the trust directory. False otherwise, with a log line
    /// that tells a missing signature, a malformed one, one that no trusted key made for this file, and an
    /// empty or unreadable trust directory apart.
    static bool verifySignature(const sal::Path& file);

    /// Directory of the trusted public keys (PEM, "*.pem"). Set at start; without one no signature is
    /// trusted.
    static void setTrustDirectory(const std::string& directory);
};
