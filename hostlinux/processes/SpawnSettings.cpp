#include "SpawnSettings.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

namespace sal {

SpawnSettings::SpawnSettings() : m_lastDescriptor(STDERR_FILENO) {
    check(::posix_spawnattr_init(&m_attributes));
    check(::posix_spawn_file_actions_init(&m_actions));
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    check(::posix_spawnattr_setsigdefault(&m_attributes, &all));
    check(::posix_spawnattr_setsigmask(&m_attributes, &none));
    check(::posix_spawnattr_setflags(&m_attributes,
                                     POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID));
    check(::posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
}

SpawnSettings::~SpawnSettings() {
    ::posix_spawn_file_actions_destroy(&m_actions);
    ::posix_spawnattr_destroy(&m_attributes);
}

void SpawnSettings::captureErrors(int descriptor) {
    check(::posix_spawn_file_actions_addopen(&m_actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0));
    check(::posix_spawn_file_actions_adddup2(&m_actions, descriptor, STDERR_FILENO));
}

void SpawnSettings::replaceErrors(int descriptor, int former) {
    check(descriptor > s_handedOver ? 0 : EINVAL);
    // A driver in this process may have closed it.
    if (::fcntl(former, F_GETFD) >= 0) {
        check(::posix_spawn_file_actions_adddup2(&m_actions, former, s_handedOver));
        m_lastDescriptor = s_handedOver;
    }
    check(::posix_spawn_file_actions_adddup2(&m_actions, descriptor, STDERR_FILENO));
}

void SpawnSettings::handOver(int descriptor) {
    check(::posix_spawn_file_actions_adddup2(&m_actions, descriptor, s_handedOver));
    m_lastDescriptor = s_handedOver;
}

int SpawnSettings::spawn(pid_t& pid, const char* program, char* const* argv, char* const* environment) {
    // Last of all, since the actions before it use descriptors.
    check(::posix_spawn_file_actions_addclosefrom_np(&m_actions, m_lastDescriptor + 1));
    if (m_error != 0)
        return m_error;
    return ::posix_spawn(&pid, program, &m_actions, &m_attributes, argv, environment);
}

void SpawnSettings::check(int result) {
    if (m_error == 0)
        m_error = result;
}

}  // namespace sal
