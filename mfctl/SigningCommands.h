#pragma once

#include <ostream>
#include <string>
#include <vector>

/// mfctl's commands about signatures; none needs a running host. Each returns the exit code: 0, or 1 with a
/// line on err for what failed. One thread.
class SigningCommands {
public:
    SigningCommands(std::ostream& out, std::ostream& err) : m_out(out), m_err(err) {}

    /// Makes NAME.key, which stays secret, and NAME.pem, which goes into trust directories. Replaces nothing.
    int keygen(const std::string& name);
    /// Signs each file with the private key: FILE.sig, and FILE.sig.info, which tells for what it was made. A
    /// key that others may read or write is warned of on err, and used.
    int sign(const std::string& keyFile, const std::vector<std::string>& files);
    /// Tells of each file whether a key of the directory signed it.
    int verify(const std::string& trustDirectory, const std::vector<std::string>& files);

private:
    int fail(const std::string& reason);

    std::ostream& m_out;
    std::ostream& m_err;
};
