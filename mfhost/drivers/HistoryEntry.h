#pragma once

#include <chrono>
#include <string>

/// What is known of a state of the workplace that was kept. A value; any thread.
struct HistoryEntry {
    unsigned number = 0;  ///< counted from 1; 0 for none
    std::chrono::system_clock::time_point when = {};
    std::string who = {};      ///< "start", "console", "signal" or a user
    std::string digest = {};   ///< of the plan that led to it
    std::string outcome = {};  ///< "3 of 3 drivers run"
    unsigned restores = 0;     ///< the earlier state that it is again; 0 where it is a new one
    /// Whether the host took it over. One that was not stood on disk when another state was written back.
    bool isApplied = true;

    /// The state that it is, whichever entry stands for it.
    unsigned state() const { return restores ? restores : number; }
};
