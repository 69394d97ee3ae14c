#include "FollowedLines.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <utility>
#include <vector>

#include "UpdateSeries.h"

namespace {

constexpr std::chrono::seconds g_patience{120};
constexpr std::string_view g_dropped = "... ";

}  // namespace

FollowedLines::FollowedLines(int fd, unsigned int linesPerSecond)
    : m_fd(fd),
      m_linesPerSecond(linesPerSecond),
      m_thread([this](const std::stop_token& stop) { run(stop); }) {}

FollowedLines::~FollowedLines() {
    m_thread.request_stop();
    m_thread.join();
}

void FollowedLines::expect(std::string beginning, std::uint64_t count) {
    const std::lock_guard lock(m_mutex);
    m_beginning = std::move(beginning);
    m_expected = count;
    m_printed = m_dropped = 0;
}

void FollowedLines::wait() {
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, g_patience, [this] { return m_printed + m_dropped >= m_expected; });
    if (m_printed + m_dropped != m_expected)
        throw std::runtime_error("--follow printed " + std::to_string(m_printed) + " lines and dropped " +
                                 std::to_string(m_dropped) + " of " + std::to_string(m_expected));
}

void FollowedLines::run(const std::stop_token& stop) {
    std::vector<char> buffer(m_linesPerSecond > 0 ? 1 << 12 : 1 << 16);
    std::string rest;
    while (!stop.stop_requested()) {
        pollfd fd{m_fd, POLLIN, 0};
        if (poll(&fd, 1, 50) < 1)
            continue;
        const ssize_t count = read(m_fd, buffer.data(), buffer.size());
        if (count == 0)
            return;
        if (count < 0)
            continue;
        rest.append(buffer.data(), static_cast<std::size_t>(count));
        std::size_t begin = 0;
        unsigned int lines = 0;
        std::unique_lock lock(m_mutex);
        for (auto end = rest.find('\n'); end != std::string::npos; end = rest.find('\n', begin)) {
            take(std::string_view(rest).substr(begin, end - begin));
            begin = end + 1;
            ++lines;
        }
        lock.unlock();
        rest.erase(0, begin);
        if (m_linesPerSecond > 0)
            std::this_thread::sleep_for(std::chrono::duration<double>(1) * lines / m_linesPerSecond);
    }
}

void FollowedLines::take(std::string_view line) {
    if (line.starts_with(g_dropped))
        m_dropped += std::strtoull(line.data() + g_dropped.size(), nullptr, 10);
    else if (line.starts_with(m_beginning))
        ++m_printed;
    else
        return;
    if (m_printed + m_dropped < m_expected)
        return;
    m_last = UpdateSeries::now();
    m_changed.notify_all();
}
