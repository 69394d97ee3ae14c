#pragma once

#include <unistd.h>

#include <array>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

/// Takes what is written to standard error for as long as it lives. A thread empties the pipe, so that the
/// writer never waits.
class StandardErrorCapture {
public:
    StandardErrorCapture() {
        std::array<int, 2> ends{};
        std::fflush(stderr);
        m_saved = ::dup(STDERR_FILENO);
        if (m_saved < 0 || ::pipe(ends.data()) != 0)
            throw std::runtime_error("no pipe");
        ::dup2(ends[1], STDERR_FILENO);
        ::close(ends[1]);
        m_thread = std::thread([this, end = ends[0]] { gather(end); });
    }
    ~StandardErrorCapture() { finish(); }
    StandardErrorCapture(const StandardErrorCapture&) = delete;
    StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;

    /// All that was written; the capture is over.
    std::string finish() {
        if (m_saved >= 0) {
            std::fflush(stderr);
            ::dup2(m_saved, STDERR_FILENO);
            ::close(m_saved);
            m_saved = -1;
            m_thread.join();
        }
        return text();
    }

    /// What was written until now.
    std::string text() {
        const std::lock_guard lock(m_mutex);
        return m_text;
    }

private:
    void gather(int end) {
        std::array<char, 4096> buffer{};
        for (;;) {
            const ssize_t count = ::read(end, buffer.data(), buffer.size());
            if (count <= 0)
                break;
            const std::lock_guard lock(m_mutex);
            m_text.append(buffer.data(), static_cast<std::size_t>(count));
        }
        ::close(end);
    }

    int m_saved = -1;
    std::mutex m_mutex;
    std::string m_text;
    std::thread m_thread;
};
