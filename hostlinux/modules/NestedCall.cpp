#include "NestedCall.h"

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "DriverGuard.h"

namespace sal {
namespace {

constexpr std::size_t s_longestName = 80;
constexpr std::size_t s_mostNames = 20;

/// The memory of the calling thread's stack.
struct Stack {
    std::uintptr_t low = 0;  ///< it grows down to here
    std::size_t size = 0;    ///< 0 when the system does not tell

    static Stack ofThisThread() {
        Stack stack;
        pthread_attr_t attributes;
        if (::pthread_getattr_np(::pthread_self(), &attributes) != 0)
            return stack;
        void* pLow = nullptr;
        if (::pthread_attr_getstack(&attributes, &pLow, &stack.size) == 0)
            stack.low = reinterpret_cast<std::uintptr_t>(pLow);
        ::pthread_attr_destroy(&attributes);
        return stack;
    }
};

// Plain data: a thread-local with a destructor would keep this library mapped.
thread_local NestedCall* t_pInnermost = nullptr;
thread_local Stack t_stack;
thread_local bool t_isStackKnown = false;

}  // namespace

NestedCall::NestedCall(const DriverGuard& driver, const std::string& function)
    : m_driver(driver),
      m_function(function),
      m_pOuter(t_pInnermost),
      m_outermost(m_pOuter ? m_pOuter->m_outermost : *this),
      m_depth(m_pOuter ? m_pOuter->m_depth + 1 : 1) {
    t_pInnermost = this;
}

NestedCall::~NestedCall() {
    t_pInnermost = m_pOuter;
}

NestedCall::EVerdict NestedCall::judge() {
    // Nearly every call: outermost on its thread.
    if (!m_pOuter)
        return EVerdict::Allowed;
    if (m_outermost.m_isCircleFound)
        return m_depth <= s_maxDepth && hasRoom() && ++m_outermost.m_callsSince <= s_callsAfterwards
                   ? EVerdict::Allowed
                   : EVerdict::RefusedAlso;
    if (m_depth <= s_maxDepth && hasRoom())
        return EVerdict::Allowed;
    m_outermost.m_isCircleFound = true;
    return EVerdict::Refused;
}

/// Drivers that keep much data on the stack use it up sooner. The last quarter is for what the driver itself
/// does.
bool NestedCall::hasRoom() const {
    if (!t_isStackKnown) {
        t_stack = Stack::ofThisThread();
        t_isStackKnown = true;
    }
    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    // A driver may run on a stack of its own making, of which nothing is known.
    const bool isElsewhere = here < t_stack.low || here - t_stack.low >= t_stack.size;
    return isElsewhere || here - t_stack.low >= t_stack.size / 4;
}

const NestedCall* NestedCall::beginOfCircle() const {
    for (const NestedCall* pCall = m_pOuter; pCall; pCall = pCall->m_pOuter) {
        if (&pCall->m_driver == &m_driver && pCall->m_function == m_function)
            return pCall;
    }
    // Functions that change from call to call.
    for (const NestedCall* pCall = m_pOuter; pCall; pCall = pCall->m_pOuter) {
        if (&pCall->m_driver == &m_driver)
            return pCall;
    }
    return &m_outermost;
}

std::string NestedCall::circle() const {
    const NestedCall* const pBegin = beginOfCircle();
    std::vector<const NestedCall*> calls;
    for (const NestedCall* pCall = this; pCall; pCall = pCall->m_pOuter) {
        calls.push_back(pCall);
        if (pCall == pBegin || calls.size() == s_mostNames)
            break;
    }
    std::string text = calls.back() == pBegin ? "" : "... -> ";
    for (auto call = calls.rbegin(); call != calls.rend(); ++call)
        text += (call == calls.rbegin() ? "" : " -> ") + (*call)->name();
    return text;
}

std::string NestedCall::name() const {
    return m_driver.name() + "." +
           (m_function.size() <= s_longestName ? m_function : m_function.substr(0, s_longestName) + "...");
}

}  // namespace sal
