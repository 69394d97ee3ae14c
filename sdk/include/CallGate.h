#pragma once

#include <condition_variable>
#include <mutex>
#include <utility>

namespace mfd {

/// Counts the calls inside a driver and shuts it against more. A driver that is called on any thread owns
/// one: it opens it in initializationCompleted(), passes it in every operation that reports or sends, and
/// closes it in deinitialize(), which so returns with no call inside. A thread may be inside several times.
class CallGate {
public:
    /// Held for the length of a call; false when the gate is closed.
    class Pass {
    public:
        explicit Pass(CallGate* pGate) : m_pGate(pGate) {}
        Pass(Pass&& other) noexcept : m_pGate(std::exchange(other.m_pGate, nullptr)) {}
        Pass& operator=(Pass&&) = delete;
        ~Pass() {
            if (m_pGate)
                m_pGate->leave();
        }
        explicit operator bool() const { return m_pGate != nullptr; }

    private:
        CallGate* m_pGate;
    };

    void open() {
        std::lock_guard lock(m_mutex);
        m_open = true;
    }

    /// Lets no call in any more and waits for those inside. Never called by a thread that is inside.
    void close() {
        std::unique_lock lock(m_mutex);
        m_open = false;
        m_empty.wait(lock, [this] { return m_inside == 0; });
    }

    /// Never waits for anybody inside.
    [[nodiscard]] Pass enter() {
        std::lock_guard lock(m_mutex);
        if (!m_open)
            return Pass(nullptr);
        ++m_inside;
        return Pass(this);
    }

private:
    void leave() {
        std::lock_guard lock(m_mutex);
        if (--m_inside == 0)
            m_empty.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_empty;
    bool m_open = false;
    int m_inside = 0;
};

}  // namespace mfd
