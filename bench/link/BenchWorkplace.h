#pragma once

#include <sys/types.h>

#include <string>

#include "Request.h"
#include "Results.h"

/// A workplace in a process of its own: the manager, a panel and so many probe drivers, each in its
/// driver process or in that one. Made while this process has one thread. The process ends with the object.
class BenchWorkplace {
public:
    /// What the manager reports to.
    enum class EPanel {
        Checked,   ///< a target that checks what it gets
        Empty,     ///< one that does nothing
        Store,     ///< the host's store
        Followed,  ///< the host's store and, as with --follow, a printer, whose lines nobody is slow to read
    };

    struct Settings {
        std::string directory = {};  ///< its own, made by it
        int drivers = 2;
        int driversInHost = 0;  ///< the last so many of them are in the manager's process
        int cores = 0;          ///< all its processes stay on the first so many; 0 for all there are
        EPanel panel = EPanel::Checked;
        bool isObserved = false;  ///< what observes FIDs and messages in the host program does so here
    };

    BenchWorkplace(const Settings& settings, const Results& results);
    ~BenchWorkplace();
    BenchWorkplace(const BenchWorkplace&) = delete;
    BenchWorkplace& operator=(const BenchWorkplace&) = delete;

    /// Until all drivers are there; throws when the start failed.
    void waitUntilStarted();
    /// Returns when the result is written; throws when there is none.
    void measure(const Request& request);

private:
    void readReply();

    pid_t m_process = -1;
    int m_socket = -1;
};
