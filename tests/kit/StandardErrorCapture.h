#pragma once

#include <fcntl.h>
#include <poll.h>
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
        m_end = ends[0];
        ::fcntl(m_end, F_SETFL, O_NONBLOCK);
        m_thread = std::thread([this] { run(); });
    }
    ~StandardErrorCapture() {
        finish();
        ::close(m_end);
    }
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

    /// What was written before this call, whether the thread has come to it or not.
    std::string text() {
        const std::lock_guard lock(m_mutex);
        gather();
        return m_text;
    }

private:
    void run() {
        pollfd written{m_end, POLLIN, 0};
        for (bool isOpen = true; isOpen;) {
            ::poll(&written, 1, -1);
            const std::lock_guard lock(m_mutex);
            isOpen = gather();
        }
    }
    /// Takes what stands in the pipe, with the lock held; false when nobody has its other end any more.
    bool gather() {
        std::array<char, 4096> buffer{};
        ssize_t count = 0;
        while ((count = ::read(m_end, buffer.data(), buffer.size())) > 0)
            m_text.append(buffer.data(), static_cast<std::size_t>(count));
        return count < 0;
    }

    int m_saved = -1;
    int m_end = -1;
    std::mutex m_mutex;
    std::string m_text;
    std::thread m_thread;
};
