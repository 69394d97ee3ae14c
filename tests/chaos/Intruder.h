#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

/// Another user of the machine, without any right, who interferes all the while: locks what can be locked,
/// makes directories of the names that a host may want, signals, reads, connects. A process of its own. Made
/// by main before there is a second thread.
class Intruder {
public:
    /// Whoever it is: a user without a name and without any right.
    static constexpr uid_t s_user = 65534;

    explicit Intruder(std::uint32_t seed);
    ~Intruder();
    Intruder(const Intruder&) = delete;
    Intruder& operator=(const Intruder&) = delete;

    pid_t pid() const { return m_pid; }
    /// Whether it has become that user and lost every capability. Not possible for a user who cannot become
    /// another.
    bool isUnprivileged() const;
    /// Which host and whose children it is at; 0 for none.
    void setHost(pid_t host);

    /// How often it has tried something.
    std::uint64_t attempts() const;
    /// What it could do and should not have been able to, a line each.
    std::vector<std::string> successes() const;

    /// Ends it and removes what it has made.
    void end();

private:
    struct Page;

    Page* m_pPage;
    pid_t m_pid = -1;
};
