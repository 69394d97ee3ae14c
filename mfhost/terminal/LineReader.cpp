#include "LineReader.h"

#include <unistd.h>

#include <cerrno>

LineReader::EResult LineReader::read(std::string& line) {
    for (;;) {
        if (const auto end = m_buffer.find('\n'); end != std::string::npos) {
            line = m_buffer.substr(0, end);
            m_buffer.erase(0, end + 1);
            const bool isRest = m_skipping;
            m_skipping = false;
            if (isRest || line.size() > s_maxLine)
                return EResult::TooLong;
            return EResult::Line;
        }
        if (m_buffer.size() > s_maxLine) {
            m_skipping = true;
            m_buffer.clear();
        }
        if (m_atEnd) {
            line.swap(m_buffer);
            m_buffer.clear();
            if (m_skipping) {
                m_skipping = false;
                return EResult::TooLong;
            }
            return line.empty() ? EResult::End : EResult::Line;
        }
        const InputWaiter::EResult waited = m_waiter.wait();
        if (waited == InputWaiter::EResult::Stopped)
            return EResult::Stopped;
        if (waited == InputWaiter::EResult::Nudged)
            continue;
        char chunk[4096];
        const ssize_t count = ::read(m_fd, chunk, sizeof chunk);
        if (count > 0) {
            m_buffer.append(chunk, static_cast<std::size_t>(count));
        } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
            m_atEnd = true;
            m_error = count < 0 ? errno : 0;
        }
    }
}
