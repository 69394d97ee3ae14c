#include "DriverErrors.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include "HostLog.h"
#include "Needed.h"
#include "ThreadName.h"

namespace {

/// Of one pipe before the others have their turn.
constexpr std::size_t s_turn = 64u << 10;
/// Of a process that has ended: more than a pipe holds is written by others.
constexpr std::size_t s_rest = 1u << 20;
constexpr std::chrono::milliseconds s_tick{100};
/// The number of no pipe.
constexpr std::uint64_t s_wakeup = 0;

}  // namespace

struct DriverErrors::Entry {
    Entry(int ofPid, const std::string& driverID, base::UniqueFd pipe, const ErrorStream::Limits& limits,
          const ErrorStream::Sink& sink)
        : pid(ofPid), stream(driverID, std::move(pipe), limits, sink) {}

    const int pid;
    bool isWatched = true;  ///< by the epoll; one for which that had no room is read at each tick
    std::mutex mutex;
    ErrorStream stream;
    std::vector<std::string> stack = {};  ///< where it died
    bool isOver = false;                  ///< finished
    std::optional<Clock::time_point> ended = {};
};

DriverErrors::DriverErrors(ErrorStream::Sink sink) : DriverErrors(std::move(sink), Settings()) {}

DriverErrors::DriverErrors(ErrorStream::Sink sink, Settings settings)
    : m_sink(std::move(sink)),
      m_settings(std::move(settings)),
      m_epoll(base::neededDescriptor(::epoll_create1(EPOLL_CLOEXEC), "the drivers' errors")),
      m_wakeup("the drivers' errors") {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = s_wakeup;
    base::neededDescriptor(::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, m_wakeup.fd(), &event),
                           "the drivers' errors");
}

DriverErrors::~DriverErrors() {
    stop();
}

void DriverErrors::start() {
    m_thread = base::neededThread("the drivers' errors", [this] { run(); });
}

void DriverErrors::add(const std::string& driverID, int pid, int errorFd) {
    base::UniqueFd pipe(errorFd);
    auto pEntry = std::make_shared<Entry>(pid, driverID, std::move(pipe), m_settings.limits, m_sink);
    {
        const std::lock_guard lock(m_mutex);
        const std::uint64_t number = ++m_lastNumber;
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = number;
        pEntry->isWatched = ::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, errorFd, &event) == 0;
        m_entries.emplace(number, std::move(pEntry));
    }
    m_wakeup.wake();
}

void DriverErrors::noteStack(int pid, const std::vector<std::string>& lines) {
    for (const auto& [number, pEntry] : entries()) {
        const std::lock_guard lock(pEntry->mutex);
        if (pEntry->pid == pid && !pEntry->ended)
            pEntry->stack = lines;
    }
}

DriverErrors::Words DriverErrors::ended(int pid) {
    for (const auto& [number, pEntry] : entries()) {
        Entry& entry = *pEntry;
        const std::lock_guard lock(entry.mutex);
        if (entry.pid != pid || entry.ended)
            continue;
        entry.ended = Clock::now();
        if (!entry.isOver && !entry.stream.read(s_rest)) {
            entry.isOver = true;
            entry.stream.finish();
        }
        // The thread takes it out.
        m_wakeup.wake();
        Words words{entry.stream.lastWords(), entry.stream.loadFault()};
        words.last.insert(words.last.end(), entry.stack.begin(), entry.stack.end());
        return words;
    }
    return {};
}

void DriverErrors::drain() {
    for (const auto& [number, pEntry] : entries())
        read(number, *pEntry);
}

void DriverErrors::stop() {
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
    }
    m_wakeup.wake();
    if (m_thread.joinable())
        m_thread.join();
    for (const auto& [number, pEntry] : entries()) {
        read(number, *pEntry);
        const std::lock_guard lock(pEntry->mutex);
        if (!std::exchange(pEntry->isOver, true))
            pEntry->stream.finish();
        remove(number);
    }
}

DriverErrors::Entries DriverErrors::entries() const {
    const std::lock_guard lock(m_mutex);
    return m_entries;
}

void DriverErrors::remove(std::uint64_t number) {
    const std::lock_guard lock(m_mutex);
    m_entries.erase(number);
}

void DriverErrors::run() {
    base::nameThread("drivers' errors");
    std::array<epoll_event, 64> events;
    for (;;) {
        const int count =
            ::epoll_wait(m_epoll.get(), events.data(), static_cast<int>(events.size()), timeout());
        try {
            const Entries all = entries();
            for (int i = 0; i < count; ++i) {
                const std::uint64_t number = events.at(static_cast<std::size_t>(i)).data.u64;
                if (const auto found = all.find(number); found != all.end())
                    read(number, *found->second);
                else if (number == s_wakeup)
                    m_wakeup.take();
            }
            look(all);
        } catch (const std::exception& error) {
            // Memory, that is: the next round may have it again.
            hostLog(sal::LogOutput::eError)
                << "what drivers write to standard error is held up: " << error.what() << std::endl;
            std::this_thread::sleep_for(s_tick);
        }
        const std::lock_guard lock(m_mutex);
        if (m_isStopping)
            return;
    }
}

/// Until something is to be done that no pipe wakes the thread for.
int DriverErrors::timeout() const {
    for (const auto& [number, pEntry] : entries()) {
        const std::lock_guard lock(pEntry->mutex);
        if (!pEntry->isWatched || pEntry->ended || pEntry->stream.hasLeftOut())
            return static_cast<int>(s_tick.count());
    }
    return -1;
}

void DriverErrors::read(std::uint64_t number, Entry& entry) {
    const auto crash = readLocked(number, entry);
    if (crash && m_settings.onCrash)
        m_settings.onCrash(entry.pid, *crash);
}

std::optional<sal::CrashNote::Crash> DriverErrors::readLocked(std::uint64_t number, Entry& entry) {
    const std::lock_guard lock(entry.mutex);
    if (!entry.isOver && !entry.stream.read(s_turn)) {
        entry.isOver = true;
        entry.stream.finish();
    }
    // One that closes its standard error says nothing more, and its last words are asked for at its end.
    if (entry.isOver && entry.ended)
        remove(number);
    else if (entry.isOver)
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, entry.stream.fd(), nullptr);
    return entry.stream.takeCrash();
}

void DriverErrors::look(const Entries& entries) {
    for (const auto& [number, pEntry] : entries) {
        Entry& entry = *pEntry;
        if (!entry.isWatched)
            read(number, entry);
        const std::lock_guard lock(entry.mutex);
        entry.stream.tell();
        const bool isLeft = entry.ended && Clock::now() - *entry.ended >= m_settings.patience;
        if (isLeft && !std::exchange(entry.isOver, true))
            entry.stream.finish();
        if (entry.ended && entry.isOver)
            remove(number);
    }
}
