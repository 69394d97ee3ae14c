#include "sal/Thread.h"

#include <chrono>
#include <exception>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include "ExceptionText.h"
#include "LogLine.h"
#include "ProcessObserver.h"
#include "ThreadName.h"
#include "ThreadState.h"
#include "sal/Assert.h"
#include "sal/LogOutput.h"

namespace sal {

struct Thread::Impl {
    std::mutex mutex;                     ///< start and the join; never held while run() is waited for
    std::shared_ptr<ThreadState> pState;  ///< of the latest start; null before the first
    std::thread thread;
};

Thread::Thread() : m_pImpl(std::make_unique<Impl>()) {}

Thread::~Thread() {
    if (m_pImpl->pState && !m_pImpl->pState->ended())
        logLine("THREAD", LogOutput::eCritical,
                "a thread is destroyed before its shutdown; waiting for its end");
    shutdown(-1);
}

bool Thread::start(EPriority /*priority: there is but the normal one*/) {
    const std::lock_guard lock(m_pImpl->mutex);
    if (m_pImpl->pState && !m_pImpl->pState->ended()) {
        logLine("THREAD", LogOutput::eError, "a thread that runs cannot be started again");
        return false;
    }
    if (m_pImpl->thread.joinable())
        m_pImpl->thread.join();
    auto pState = std::make_shared<ThreadState>();
    try {
        m_pImpl->thread = std::thread([this, pState] {
            // The first queue that it receives from gives it a name of its own.
            base::nameThread("thread");
            ThreadState::setCurrent(&pState);
            try {
                run();
            } catch (const std::exception& exception) {
                logLine("THREAD", LogOutput::eCritical, "a thread has ended by " + exceptionText(exception));
            }
            ThreadState::setCurrent(nullptr);
            pState->setEnded();
        });
    } catch (const std::system_error& error) {
        logLine("THREAD", LogOutput::eError, std::string("a thread cannot be started: ") + error.what());
        return false;
    }
    m_pImpl->pState = std::move(pState);
    return true;
}

bool Thread::shutdown(int timeout) {
    std::shared_ptr<ThreadState> pState;
    {
        const std::lock_guard lock(m_pImpl->mutex);
        pState = m_pImpl->pState;
        SAL_ASSERT(m_pImpl->thread.get_id() != std::this_thread::get_id());
    }
    if (!pState)
        return true;
    pState->requestStop();
    if (!pState->waitForEnd(timeout))
        return false;
    const std::lock_guard lock(m_pImpl->mutex);
    if (m_pImpl->pState == pState && m_pImpl->thread.joinable())
        m_pImpl->thread.join();
    return true;
}

void Thread::sleep(unsigned int seconds) {
    if (!ProcessObserver::awaitStart(seconds))
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
}

void Thread::mssleep(unsigned int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

}  // namespace sal
