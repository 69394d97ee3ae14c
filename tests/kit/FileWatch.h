#pragma once

#include <sys/inotify.h>
#include <unistd.h>

#include <map>
#include <stdexcept>
#include <string>
#include <utility>

/// Counts how often each file of a directory is opened, by whomever.
class FileWatch {
public:
    explicit FileWatch(const std::string& directory) : m_fd(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        // Reads and closings keep the kernel from taking two openings for one.
        if (m_fd < 0 || ::inotify_add_watch(m_fd, directory.c_str(), IN_OPEN | IN_ACCESS | IN_CLOSE) < 0)
            throw std::runtime_error("cannot watch " + directory);
    }
    ~FileWatch() { ::close(m_fd); }
    FileWatch(const FileWatch&) = delete;
    FileWatch& operator=(const FileWatch&) = delete;

    /// How often the file was opened since the last question. What was done before the call counts.
    int opened(const std::string& name) {
        take();
        return std::exchange(m_opened[name], 0);
    }

private:
    void take() {
        alignas(inotify_event) char buffer[16384];
        for (ssize_t count = 0; (count = ::read(m_fd, buffer, sizeof buffer)) > 0;) {
            for (const char* p = buffer; p < buffer + count;) {
                const auto* pEvent = reinterpret_cast<const inotify_event*>(p);
                p += sizeof(inotify_event) + pEvent->len;
                if (pEvent->mask & IN_OPEN && pEvent->len > 0)
                    ++m_opened[pEvent->name];
            }
        }
    }

    const int m_fd;
    std::map<std::string, int> m_opened;
};
