#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "EExit.h"
#include "Screen.h"
#include "StreamChoice.h"

/// mfctl monitor: what happens in a workplace, as it happens. Reads the host's rings itself, so that it also
/// shows what a host did that hangs or is dead. Main thread.
class MonitorCommand {
public:
    struct Choice {
        StreamChoice what = {};
        std::string from = {};    ///< a place in the stream; empty: the newest, of a dead host the oldest
        std::uint64_t count = 0;  ///< how many records; 0: all that come
        bool withDate = false;
        bool asJson = false;
        /// Has the host record what is to be shown, where it does so on demand only; called again and again,
        /// each time as long before it ends.
        std::function<void()> ask = {};
        std::chrono::seconds askEach{30};
    };
    explicit MonitorCommand(const Screen& screen) : m_screen(screen) {}

    /// Until the process is ended, the count is reached, or the host has ended and all is printed. Throws a
    /// ControlError where the rings cannot be read or the choice is none.
    EExit run(const std::string& ring, const Choice& choice);

private:
    void askAgain(const Choice& choice) const;

    const Screen m_screen;
};
