#pragma once

#include <spawn.h>

namespace sal {

/// What a child process finds: no input, no foreign descriptor, a session and signals of its own. Owned by
/// the function that starts the child; one thread.
class SpawnSettings {
public:
    SpawnSettings();
    ~SpawnSettings();
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    /// The child's standard output goes nowhere, and its standard error into this descriptor.
    void captureErrors(int descriptor);

    /// The child's standard error goes into this descriptor, which is above s_handedOver; it finds the former
    /// one, if that is open, as its s_handedOver. Instead of the two others here.
    void replaceErrors(int descriptor, int former);

    /// The child finds this descriptor as its s_handedOver, beside the standard ones. Called after
    /// captureErrors().
    void handOver(int descriptor);
    static constexpr int s_handedOver = 3;

    /// Starts the program; argv ends with null. 0, or the system's error number.
    int spawn(pid_t& pid, const char* program, char* const* argv, char* const* environment);

private:
    void check(int result);

    posix_spawnattr_t m_attributes{};
    posix_spawn_file_actions_t m_actions{};
    int m_lastDescriptor;  ///< that the child keeps
    int m_error = 0;
};

}  // namespace sal
