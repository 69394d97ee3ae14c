#include "SignalWatch.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <utility>

#include "ThreadName.h"

namespace {

constexpr int s_endSignals[] = {SIGTERM, SIGINT, SIGHUP};

std::atomic<int> s_wakeFd = -1;
std::atomic<int> s_signal = 0;  ///< the first that came; 0 for none
static_assert(std::atomic<int>::is_always_lock_free, "used by a signal handler");

void onEndSignal(int signal) {
    int none = 0;
    if (!s_signal.compare_exchange_strong(none, signal))
        _exit(128 + signal);
    base::Wakeup::wake(s_wakeFd);
}

}  // namespace

SignalWatch::SignalWatch(std::function<void(int)> onSignal)
    : m_onSignal(std::move(onSignal)), m_wakeup("signals") {
    s_signal = 0;
    s_wakeFd = m_wakeup.fd();
    m_thread = std::thread([this] { watch(); });

    struct sigaction action {};
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
    sigaction(SIGXFSZ, &action, nullptr);
    action.sa_handler = onEndSignal;
    for (const int signal : s_endSignals) {
        struct sigaction previous {};
        sigaction(signal, nullptr, &previous);
        if (signal != SIGHUP || previous.sa_handler != SIG_IGN)
            sigaction(signal, &action, nullptr);
    }
}

SignalWatch::~SignalWatch() {
    for (const int signal : s_endSignals) {
        struct sigaction current {};
        sigaction(signal, nullptr, &current);
        if (current.sa_handler == onEndSignal)
            ::signal(signal, SIG_IGN);
    }
    m_wakeup.wake();
    m_thread.join();
    s_wakeFd = -1;
}

void SignalWatch::watch() {
    base::nameThread("signals");
    m_wakeup.wait();
    if (const int signal = s_signal)
        m_onSignal(signal);
}
