#pragma once

#include <sys/resource.h>
#include <sys/types.h>

/// Leaves a process no descriptor beyond those that it has open, for as long as it lives. Made by Trial.
class DescriptorLimit {
public:
    explicit DescriptorLimit(pid_t process);
    ~DescriptorLimit();  ///< puts its limit back
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

    /// False when the kernel refused.
    explicit operator bool() const { return m_isSet; }

private:
    const pid_t m_process;
    rlimit m_before{};
    bool m_isSet = false;
};
