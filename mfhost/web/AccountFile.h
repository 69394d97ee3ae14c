#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>

/// The names that /etc/passwd or /etc/group gives to numbers, read anew when the file has changed. Only the
/// file is asked: a directory service may take as long as it likes. Owned by PeerRoles; API thread.
class AccountFile {
public:
    explicit AccountFile(std::string path);

    /// Empty when the file has no such number. A file that cannot be read now is read the next time.
    std::string nameOf(unsigned number);

private:
    bool readAnew();

    const std::string m_path;
    struct timespec m_changed {};
    ino_t m_inode = 0;
    std::map<unsigned, std::string> m_names;
};
