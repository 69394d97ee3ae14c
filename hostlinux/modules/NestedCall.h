#pragma once

#include <string>

namespace sal {

class DriverGuard;

/// A call into a driver, on its thread's stack. FIDs that drivers of one process send each other arrive one
/// inside the other on the same thread, so that drivers which answer each other in a circle, or one that
/// answers itself, would use up the stack. Made for each call and gone when it returns; knows the call that
/// it is inside of.
class NestedCall {
public:
    /// Both live as long as the call.
    NestedCall(const DriverGuard& driver, const std::string& function);
    ~NestedCall();
    NestedCall(const NestedCall&) = delete;
    NestedCall& operator=(const NestedCall&) = delete;

    enum class EVerdict {
        Allowed,
        Refused,      ///< too deep: there is a circle
        RefusedAlso,  ///< what comes of a circle that was refused before on this thread
    };
    /// Asked once, before the driver is called.
    EVerdict judge();

    unsigned int depth() const { return m_depth; }

    /// From the last call of the same driver and function to this one, "A.PING -> B.PONG -> A.PING".
    std::string circle() const;

    /// Far more than any chain of drivers needs that comes to an end.
    static constexpr unsigned int s_maxDepth = 200;
    /// How many more calls a circle may cause while the calls in it return. Each of them may send several
    /// FIDs, every one of which could begin the circle anew.
    static constexpr unsigned int s_callsAfterwards = 1000;

private:
    bool hasRoom() const;
    const NestedCall* beginOfCircle() const;
    std::string name() const;

    const DriverGuard& m_driver;
    const std::string& m_function;
    NestedCall* const m_pOuter;
    NestedCall& m_outermost;
    const unsigned int m_depth;

    // The outermost call's.
    bool m_isCircleFound = false;
    unsigned int m_callsSince = 0;
};

}  // namespace sal
