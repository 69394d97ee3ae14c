#pragma once

#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "Files.h"
#include "Patience.h"

/// Processor time of one thread of a process. It is found by its name, as ps -L shows it, and must live as
/// long as the object is asked.
class ThreadClock {
public:
    /// Throws when the process has no such thread.
    ThreadClock(pid_t process, const std::string& name) : m_file(fileOf(process, name)), m_begin(used()) {}

    /// Seconds since the construction. Waits until the thread sleeps, since only then all of it is counted;
    /// throws when it goes on and on.
    double seconds() const {
        double last = -1;
        waitUntil("a thread that has nothing to do", [&] { return std::exchange(last, used()) == last; });
        return last - m_begin;
    }

private:
    static std::filesystem::path fileOf(pid_t process, const std::string& name) {
        const std::filesystem::path threads = "/proc/" + std::to_string(process) + "/task";
        for (const auto& thread : std::filesystem::directory_iterator(threads)) {
            if (textOf(thread.path() / "comm") == name + "\n")
                return thread.path() / "schedstat";
        }
        throw std::runtime_error("process " + std::to_string(process) + " has no thread \"" + name + "\"");
    }
    double used() const {
        std::ifstream file(m_file);
        double nanoseconds = 0;
        file >> nanoseconds;
        return nanoseconds * 1e-9;
    }

    std::filesystem::path m_file;
    double m_begin;
};
