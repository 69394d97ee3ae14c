#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <initializer_list>
#include <stdexcept>

/// Takes capabilities from the calling thread for as long as it lives, so that a test of missing rights is
/// one for root as well.
class WithoutCapabilities {
public:
    explicit WithoutCapabilities(std::initializer_list<int> capabilities) {
        m_before = read();
        auto now = m_before;
        for (const int capability : capabilities)
            now.at(CAP_TO_INDEX(capability)).effective &= ~CAP_TO_MASK(capability);
        write(now);
    }
    ~WithoutCapabilities() { ::syscall(SYS_capset, &s_header, m_before.data()); }
    WithoutCapabilities(const WithoutCapabilities&) = delete;
    WithoutCapabilities& operator=(const WithoutCapabilities&) = delete;

    static bool has(int capability) {
        return (read().at(CAP_TO_INDEX(capability)).effective & CAP_TO_MASK(capability)) != 0;
    }

private:
    using Sets = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

    static Sets read() {
        Sets sets{};
        if (::syscall(SYS_capget, &s_header, sets.data()) != 0)
            throw std::runtime_error("capget");
        return sets;
    }
    static void write(const Sets& sets) {
        if (::syscall(SYS_capset, &s_header, sets.data()) != 0)
            throw std::runtime_error("capset");
    }

    static inline __user_cap_header_struct s_header{_LINUX_CAPABILITY_VERSION_3, 0};
    Sets m_before;
};
