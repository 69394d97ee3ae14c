#pragma once

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>

#include "ChildProcess.h"

/// Runs a body in a process of its own, since what it uses starts threads, and throws what the body has
/// thrown. Used while this process has one thread.
class ForkedWork {
public:
    template <class Body>
    static void run(Body body) {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe");
        const ChildProcess process([&] {
            close(ends[0]);
            report(ends[1], messageOf(body));
        });
        close(ends[1]);
        const std::string text = readUntilZero(ends[0]);
        close(ends[0]);
        if (text.empty() || text.back() != '\0')
            throw std::runtime_error("a measuring process is gone");
        if (text.size() > 1)
            throw std::runtime_error(text.substr(0, text.size() - 1));
    }

private:
    /// Empty when the body was done.
    template <class Body>
    static std::string messageOf(Body& body) {
        try {
            body();
            return {};
        } catch (const std::exception& e) {
            return e.what();
        }
    }

    static void report(int fd, const std::string& text) {
        [[maybe_unused]] const auto written = write(fd, text.c_str(), text.size() + 1);
    }

    static std::string readUntilZero(int fd) {
        std::string text;
        char byte = 0;
        while (read(fd, &byte, 1) == 1) {
            text += byte;
            if (byte == '\0')
                break;
        }
        return text;
    }
};
