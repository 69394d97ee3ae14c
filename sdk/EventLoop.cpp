#include "EventLoop.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "Failure.h"
#include "ThreadName.h"

namespace mfd {

namespace {

/// Stands for the wake-up among the descriptors; no number of a watch.
constexpr std::uint64_t s_wakeupPlace = 0;
/// How many descriptors are served between two looks at what was posted.
constexpr std::size_t s_eventsAtOnce = 16;

std::uint64_t placeOf(int fd, unsigned number) {
    return static_cast<std::uint64_t>(number) << 32U | static_cast<std::uint32_t>(fd);
}

/// False with errno when the system refuses.
bool add(int epoll, int fd, std::uint64_t place) {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP;
    event.data.u64 = place;
    return ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

}  // namespace

EventLoop::EventLoop(Settings settings)
    : m_settings(std::move(settings)),
      m_wakeup("the driver's thread"),
      m_epoll(::epoll_create1(EPOLL_CLOEXEC)),
      m_standsAt(std::chrono::steady_clock::now()) {
    if (!m_epoll || !add(m_epoll.get(), m_wakeup.fd(), s_wakeupPlace))
        throw std::system_error(errno, std::generic_category(), "no descriptor for the driver's thread");
}

EventLoop::~EventLoop() {
    stop(Milliseconds(0));
}

void EventLoop::start() {
    m_thread = std::thread(&EventLoop::run, this);
}

std::size_t EventLoop::stop(Milliseconds patience) {
    {
        std::lock_guard lock(m_mutex);
        if (!m_stopping)
            m_lastWork = patience;
        m_stopping = true;
    }
    m_wakeup.wake();
    if (m_thread.joinable())
        m_thread.join();
    std::lock_guard lock(m_mutex);
    return m_posted.size();
}

bool EventLoop::post(std::string what, Work work) {
    {
        std::lock_guard lock(m_mutex);
        if (m_stopping || m_posted.size() >= m_settings.longest)
            return false;
        m_posted.emplace_back(std::move(what), std::move(work));
    }
    m_wakeup.wake();
    return true;
}

unsigned EventLoop::startTimer(Milliseconds first, std::optional<Milliseconds> period, Work work) {
    const TimePoint due = now() + first;
    // A period of nothing would keep the thread from all else.
    if (period)
        period = std::max(*period, Milliseconds(1));
    unsigned number = 0;
    {
        std::lock_guard lock(m_mutex);
        number = ++m_lastNumber;
        m_timers[number] = {due, period, std::make_shared<const Work>(std::move(work))};
        m_due.emplace(due, number);
    }
    m_wakeup.wake();
    return number;
}

void EventLoop::cancelTimer(unsigned timer) {
    std::lock_guard lock(m_mutex);
    const auto found = m_timers.find(timer);
    if (found == m_timers.end())
        return;
    m_due.erase({found->second.due, timer});
    m_timers.erase(found);
}

std::string EventLoop::watch(int fd, Work work) {
    std::lock_guard lock(m_mutex);
    const unsigned number = ++m_lastNumber;
    if (!add(m_epoll.get(), fd, placeOf(fd, number)))
        return std::strerror(errno);
    m_watched[fd] = {number, std::make_shared<const Work>(std::move(work))};
    return {};
}

void EventLoop::unwatch(int fd) {
    std::lock_guard lock(m_mutex);
    if (m_watched.erase(fd) != 0)
        static_cast<void>(::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, fd, nullptr));
}

EventLoop::TimePoint EventLoop::now() const {
    if (!m_settings.timeStandsStill)
        return std::chrono::steady_clock::now();
    std::lock_guard lock(m_mutex);
    return m_standsAt;
}

void EventLoop::advance(Milliseconds time) {
    const TimePoint end = now() + time;
    while (!isStopping() && runTimer(end))
        ;
    std::lock_guard lock(m_mutex);
    m_standsAt = std::max(m_standsAt, end);
}

bool EventLoop::isStopping() const {
    std::lock_guard lock(m_mutex);
    return m_stopping;
}

int EventLoop::patience() const {
    std::lock_guard lock(m_mutex);
    if (m_stopping || !m_posted.empty())
        return 0;
    if (m_settings.timeStandsStill || m_due.empty())
        return -1;
    const auto left =
        std::chrono::ceil<Milliseconds>(m_due.begin()->first - std::chrono::steady_clock::now());
    constexpr Milliseconds longest = std::chrono::hours(1);
    return static_cast<int>(std::clamp(left, Milliseconds(0), longest).count());
}

void EventLoop::run() {
    base::nameThread(m_settings.driverID, "driver");
    std::array<epoll_event, s_eventsAtOnce> events;
    while (!isStopping()) {
        const int found =
            ::epoll_wait(m_epoll.get(), events.data(), static_cast<int>(events.size()), patience());
        m_wakeup.take();
        runPosted();
        // As many as there are: a timer that its own work starts anew waits for the next round.
        for (std::size_t left = m_settings.timeStandsStill ? 0 : s_eventsAtOnce; left > 0; --left) {
            if (isStopping() || !runTimer(now()))
                break;
        }
        for (int i = 0; i < found && !isStopping(); ++i)
            runWatched(events[static_cast<std::size_t>(i)].data.u64);
    }
    const TimePoint end = std::chrono::steady_clock::now() + m_lastWork;
    std::pair<std::string, Work> piece;
    while (std::chrono::steady_clock::now() < end && takePosted(piece))
        perform(piece.first, piece.second);
}

bool EventLoop::takePosted(std::pair<std::string, Work>& piece) {
    std::lock_guard lock(m_mutex);
    if (m_posted.empty())
        return false;
    piece = std::move(m_posted.front());
    m_posted.pop_front();
    return true;
}

void EventLoop::runPosted() {
    std::size_t count = 0;
    {
        std::lock_guard lock(m_mutex);
        count = m_posted.size();
    }
    std::pair<std::string, Work> piece;
    for (; count > 0 && !isStopping() && takePosted(piece); --count)
        perform(piece.first, piece.second);
}

bool EventLoop::runTimer(TimePoint until) {
    std::shared_ptr<const Work> pWork;
    {
        std::lock_guard lock(m_mutex);
        if (m_due.empty() || m_due.begin()->first > until)
            return false;
        const auto [due, number] = *m_due.begin();
        m_due.erase(m_due.begin());
        Timer& timer = m_timers.at(number);
        pWork = timer.pWork;
        if (m_settings.timeStandsStill)
            m_standsAt = std::max(m_standsAt, due);
        if (timer.period) {
            timer.due = due + *timer.period;
            if (!m_settings.timeStandsStill && timer.due <= until)
                timer.due = until + *timer.period;
            m_due.emplace(timer.due, number);
        } else {
            m_timers.erase(number);
        }
    }
    perform("a timer", *pWork);
    return true;
}

void EventLoop::runWatched(std::uint64_t place) {
    std::shared_ptr<const Work> pWork;
    {
        std::lock_guard lock(m_mutex);
        const auto found = m_watched.find(static_cast<int>(place & 0xffffffffU));
        // It may have been taken out, and its number given again, since the descriptors were looked at.
        if (place != s_wakeupPlace && found != m_watched.end() && found->second.number == place >> 32U)
            pWork = found->second.pWork;
    }
    if (pWork)
        perform("a watched descriptor", *pWork);
}

void EventLoop::perform(const std::string& what, const Work& work) const {
    const std::string reason = failureOf(work);
    if (!reason.empty() && m_settings.onFailure)
        m_settings.onFailure(what, reason);
}

}  // namespace mfd
