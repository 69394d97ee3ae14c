#include "FollowPrinter.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "HostLog.h"
#include "Needed.h"
#include "Printable.h"
#include "ThreadName.h"

namespace {

std::string staleMark(const std::string& cause) {
    return "  (stale: " + cause + ")";
}

}  // namespace

FollowPrinter::FollowPrinter(std::string glob, int fd, std::function<void()> lookForEnds,
                             std::chrono::milliseconds patience)
    : m_glob(std::move(glob)),
      m_fd(fd),
      m_lookForEnds(std::move(lookForEnds)),
      m_patience(patience),
      m_thread(base::neededThread("--follow", [this] { run(); })) {}

FollowPrinter::~FollowPrinter() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_giveUp = std::chrono::steady_clock::now() + m_patience;
    }
    m_changed.notify_all();
    m_thread.join();
}

void FollowPrinter::valueChanged(const StateStore::Entry& entry) {
    if (!StateStore::matches(m_glob, entry.key))
        return;
    const std::string line = entry.key + " = " + entry.value.text();
    if (entry.isStale())
        add(line + staleMark(entry.staleCause));
    else
        add(line, entry.key);
}

void FollowPrinter::valueUnset(const std::string& key) {
    if (StateStore::matches(m_glob, key))
        add(key + " unset");
}

void FollowPrinter::eventTriggered(const StateStore::Event& event) {
    if (StateStore::matches(m_glob, event.id))
        add("event " + event.id + " " + event.value);
}

void FollowPrinter::valuesStale(const std::string& driverID, const std::string& cause,
                                const std::vector<std::string>& keys) {
    const auto count = std::count_if(keys.begin(), keys.end(), [this](const std::string& key) {
        return StateStore::matches(m_glob, key);
    });
    if (count == 0)
        return;
    const std::unordered_set<std::string_view> stale(keys.begin(), keys.end());
    const std::string mark = base::printable(staleMark(cause));
    {
        const std::lock_guard lock(m_mutex);
        for (Line& line : m_lines) {
            if (line.liveKey.empty() || !stale.contains(line.liveKey))
                continue;
            line.text += mark;
            line.liveKey.clear();
        }
    }
    add(driverID + ": " + std::to_string(count) + (count == 1 ? " value" : " values") + " stale: " + cause);
}

void FollowPrinter::add(const std::string& text, const std::string& liveKey) {
    Line line{base::printable(text), liveKey};
    {
        const std::lock_guard lock(m_mutex);
        if (m_lines.size() >= s_capacity) {
            m_lines.pop_front();
            ++m_dropped;
        }
        m_lines.push_back(std::move(line));
    }
    m_changed.notify_one();
}

/// As many whole lines as a pipe takes in one piece; a longer line alone.
std::string FollowPrinter::takeBatch() {
    std::string batch;
    if (m_dropped > 0) {
        batch = "... " + std::to_string(m_dropped) + " lines dropped\n";
        m_dropped = 0;
    }
    while (!m_lines.empty() &&
           (batch.empty() || batch.size() + m_lines.front().text.size() + 1 <= PIPE_BUF)) {
        batch += m_lines.front().text + "\n";
        m_lines.pop_front();
    }
    return batch;
}

void FollowPrinter::run() {
    base::nameThread("follow");
    for (;;) {
        std::string batch;
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [this] { return m_stopping || !m_lines.empty(); });
            if (m_lines.empty())
                return;
        }
        // Calls valuesStale for what has ended.
        if (m_lookForEnds)
            m_lookForEnds();
        {
            const std::lock_guard lock(m_mutex);
            batch = takeBatch();
        }
        if (!write(batch))
            return;
    }
}

bool FollowPrinter::write(const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        {
            const std::lock_guard lock(m_mutex);
            if (std::chrono::steady_clock::now() >= m_giveUp)
                return false;
        }
        pollfd output{m_fd, POLLOUT, 0};
        if (::poll(&output, 1, 100) <= 0)
            continue;
        const ssize_t count =
            ::write(m_fd, text.data() + done, std::min<std::size_t>(text.size() - done, PIPE_BUF));
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        // The reader has closed the pipe: the drivers' lines go nowhere, the workplace runs on.
        if (count < 0 && errno == EPIPE)
            return false;
        if (count < 0) {
            if (!std::exchange(m_isLosing, true))
                hostLog(sal::LogOutput::eWarning)
                    << "--follow loses lines: standard output: " << std::strerror(errno) << std::endl;
            return true;
        }
        m_isLosing = false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}
