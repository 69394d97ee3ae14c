#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace base {

// What the program cannot do without: where the system refuses it, an exception says what it was for, and the
// start fails.

/// A descriptor just made.
inline int neededDescriptor(int fd, const std::string& purpose) {
    if (fd < 0)
        throw std::runtime_error("no descriptor can be had for " + purpose + ": " + std::strerror(errno));
    return fd;
}

template <class Run>
std::thread neededThread(const std::string& purpose, Run run) {
    try {
        return std::thread(std::move(run));
    } catch (const std::system_error& error) {
        throw std::runtime_error("no thread can be had for " + purpose + ": " + error.code().message());
    }
}

}  // namespace base
