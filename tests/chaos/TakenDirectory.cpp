#include "TakenDirectory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

namespace {
constexpr uid_t s_nobody = 65534;
}

TakenDirectory::TakenDirectory(std::filesystem::path directory, EHow how)
    : m_directory(std::move(directory)) {
    struct stat status {};
    if (::stat(m_directory.c_str(), &status) != 0)
        return;
    m_mode = status.st_mode & 07777;
    m_user = status.st_uid;
    m_group = status.st_gid;
    m_isTaken = how == EHow::Opened ? ::chmod(m_directory.c_str(), 0777) == 0
                                    : ::chown(m_directory.c_str(), s_nobody, s_nobody) == 0;
}

TakenDirectory::~TakenDirectory() {
    if (!m_isTaken)
        return;
    // A host that is gone may have taken it along.
    static_cast<void>(::chown(m_directory.c_str(), m_user, m_group) + ::chmod(m_directory.c_str(), m_mode));
}
