#pragma once

#include <sys/stat.h>

/// Another umask for as long as it lives.
class ChangedUmask {
public:
    explicit ChangedUmask(mode_t mask) : m_before(::umask(mask)) {}
    ~ChangedUmask() { ::umask(m_before); }
    ChangedUmask(const ChangedUmask&) = delete;
    ChangedUmask& operator=(const ChangedUmask&) = delete;

private:
    const mode_t m_before;
};
