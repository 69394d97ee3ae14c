#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// What the command thread is doing, for the supervisor, which watches that it does not hang.
struct CommandActivity {
    bool busy = false;
    std::string what;      ///< the command line, or "start-up", "shutdown"
    std::string driverID;  ///< the driver that it concerns, if one
    std::chrono::steady_clock::time_point since;
    int thread = 0;  ///< the number that the system gives the command thread
};

/// A command that the command thread will take up when a driver's input queue has room.
struct CommandWait {
    std::string what;                             ///< the command line
    std::string driverID;                         ///< whose queue is full
    std::chrono::steady_clock::time_point since;  ///< when it was seen that full
    std::uint32_t received = 0;                   ///< messages that the driver had taken then
};
