#include "Surroundings.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "HostLog.h"
#include "Needed.h"

namespace {

/// A driver that does it all the time is not worth a line each time.
constexpr std::chrono::minutes s_interval{1};

/// The system tells the mask only as the answer to setting it.
mode_t currentUmask() {
    const mode_t mask = ::umask(077);
    ::umask(mask);
    return mask;
}

std::string currentDirectory() {
    char path[PATH_MAX];
    return ::getcwd(path, sizeof path) ? path : "a place without a name";
}

std::string octal(mode_t mask) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned int>(mask));
    return text;
}

}  // namespace

Surroundings::Surroundings()
    : m_directory(
          base::neededDescriptor(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC), "the working directory")),
      m_umask(currentUmask()) {
    static_cast<void>(::fstat(m_directory.get(), &m_status));
}

void Surroundings::restore(const std::string& changer) {
    restoreDirectory(changer);
    restoreUmask(changer);
}

void Surroundings::restoreDirectory(const std::string& changer) {
    struct stat now {};
    if (::stat(".", &now) == 0 && now.st_dev == m_status.st_dev && now.st_ino == m_status.st_ino)
        return;
    const std::string elsewhere = currentDirectory();
    if (::fchdir(m_directory.get()) == 0)
        say(m_directorySaid, changer + " has changed the working directory of the host's process to " +
                                 elsewhere + "; it is put back");
    else
        say(m_directorySaid, changer + " has changed the working directory of the host's process to " +
                                 elsewhere + "; it cannot be put back: " + std::strerror(errno));
}

void Surroundings::restoreUmask(const std::string& changer) {
    const mode_t mask = ::umask(m_umask);
    if (mask != m_umask)
        say(m_umaskSaid, changer + " has changed the umask of the host's process from " + octal(m_umask) +
                             " to " + octal(mask) + "; it is put back");
}

void Surroundings::say(std::optional<Clock::time_point>& said, const std::string& text) const {
    const auto now = Clock::now();
    if (said && now - *said < s_interval)
        return;
    said = now;
    hostLog(sal::LogOutput::eWarning) << text << std::endl;
}
