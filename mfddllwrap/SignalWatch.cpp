#include "SignalWatch.h"

#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>
#include <utility>

namespace {

constexpr int endSignals[] = {SIGTERM, SIGINT, SIGHUP};

std::atomic<int> s_eventFd = -1;
std::atomic<int> s_signal = 0;  ///< the first that came; 0 for none
static_assert(std::atomic<int>::is_always_lock_free, "used by a signal handler");

void wake() {
    const eventfd_t one = 1;
    // The counter cannot be full, and a handler could not tell anybody.
    [[maybe_unused]] const auto written = write(s_eventFd, &one, sizeof one);
}

void onEndSignal(int signal) {
    const int error = errno;
    int none = 0;
    if (!s_signal.compare_exchange_strong(none, signal))
        _exit(128 + signal);
    wake();
    errno = error;
}

}  // namespace

SignalWatch::SignalWatch(std::function<void(int)> onSignal) : m_onSignal(std::move(onSignal)) {
    s_signal = 0;
    s_eventFd = eventfd(0, EFD_CLOEXEC);
    if (s_eventFd < 0)
        throw std::system_error(errno, std::generic_category(), "no descriptor can be had for signals");
    m_thread = std::thread([this] { watch(); });

    struct sigaction action {};
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
    sigaction(SIGXFSZ, &action, nullptr);
    action.sa_handler = onEndSignal;
    for (const int signal : endSignals) {
        struct sigaction previous {};
        sigaction(signal, nullptr, &previous);
        if (signal != SIGHUP || previous.sa_handler != SIG_IGN)
            sigaction(signal, &action, nullptr);
    }
}

SignalWatch::~SignalWatch() {
    for (const int signal : endSignals) {
        struct sigaction current {};
        sigaction(signal, nullptr, &current);
        if (current.sa_handler == onEndSignal)
            ::signal(signal, SIG_IGN);
    }
    wake();
    m_thread.join();
    close(s_eventFd.exchange(-1));
}

void SignalWatch::watch() {
    eventfd_t count = 0;
    while (eventfd_read(s_eventFd, &count) != 0 && errno == EINTR) {
    }
    if (const int signal = s_signal)
        m_onSignal(signal);
}
