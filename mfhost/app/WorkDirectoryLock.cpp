#include "WorkDirectoryLock.h"

#include <fcntl.h>

#include <filesystem>
#include <system_error>

#include "HostLog.h"

std::string WorkDirectoryLock::acquire() {
    std::error_code error;
    const std::string path = std::filesystem::current_path(error).string();
    m_directory = base::UniqueFd(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    m_lock.emplace(path);
    const std::string reason = m_lock->acquire(m_directory.get());
    if (reason.empty())
        return {};
    if (m_lock->isTaken())
        return reason + "; name another working directory with --workdir";
    hostLog(sal::LogOutput::eWarning)
        << "the working directory is not kept from other hosts: " << reason << std::endl;
    return {};
}
