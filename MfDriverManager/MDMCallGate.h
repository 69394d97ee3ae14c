#pragma once

#include <atomic>

#include "MDMUseCount.h"

/// Guards calls through a borrowed pointer that another thread takes away: calls enter from any thread
/// without a lock, and the thread that takes the pointer away waits until the calls inside have returned.
/// Only then may the object be deleted. A thread that is inside such a call must not take the pointer away.
class MDMCallGate {
public:
    /// One call on its way through the gate. Empty when the pointer was null.
    template <class T>
    class Call {
    public:
        Call(MDMCallGate& gate, T* const& pObject) : m_gate(gate) {
            // A closed gate is seen before its count is touched: else threads that come all the time would
            // keep close() waiting.
            if (!MDMCallGate::load(pObject))
                return;
            m_place = m_gate.m_inside.enter();
            m_inside = true;
            m_pObject = MDMCallGate::load(pObject);
        }
        ~Call() {
            if (m_inside)
                m_gate.m_inside.leave(m_place);
        }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

        explicit operator bool() const { return m_pObject != nullptr; }
        T* operator->() const { return m_pObject; }

    private:
        MDMCallGate& m_gate;
        T* m_pObject = nullptr;
        std::size_t m_place = 0;
        bool m_inside = false;
    };

    template <class T>
    static T* load(T* const& pObject) {
        return std::atomic_ref<T*>(const_cast<T*&>(pObject)).load();
    }

    /// Puts another pointer in place. Calls that are inside go on with the former one.
    template <class T>
    static void store(T*& pObject, T* pNew) {
        std::atomic_ref<T*>(pObject).store(pNew);
    }

    /// Puts null in place and waits for the calls inside.
    template <class T>
    void close(T*& pObject) {
        store(pObject, static_cast<T*>(nullptr));
        m_inside.waitForAll();
    }

private:
    MDMUseCount m_inside;
};
