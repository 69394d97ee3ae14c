#pragma once

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "HangGuard.h"
#include "UniqueFd.h"

/// A child of the test, as a user of the test's choice: it does what it is given, tells lines of text, and
/// stays until it is told to go on or the object goes.
class ForkedProcess {
public:
    /// The child's side.
    class Side {
    public:
        Side(int tells, int hears) : m_tells(tells), m_hears(hears) {}
        void tell(std::string text) const {
            text += '\n';
            static_cast<void>(!::write(m_tells, text.data(), text.size()));
        }
        /// Until the test says so, or is gone.
        void wait() const {
            char byte = 0;
            static_cast<void>(!::read(m_hears, &byte, 1));
        }

    private:
        int m_tells;
        int m_hears;
    };

    explicit ForkedProcess(const std::function<void(const Side&)>& work) {
        int up[2];
        int down[2];
        if (::pipe2(up, O_CLOEXEC) != 0 || ::pipe2(down, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        m_hears = base::UniqueFd(up[0]);
        m_tells = base::UniqueFd(down[1]);
        m_pid = ::fork();
        if (m_pid == 0) {
            m_hears.reset();
            m_tells.reset();
            work(Side(up[1], down[0]));
            ::_exit(0);
        }
        ::close(up[1]);
        ::close(down[0]);
    }
    ~ForkedProcess() { kill(); }
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;

    pid_t pid() const { return m_pid; }
    void goOn() { static_cast<void>(!::write(m_tells.get(), "", 1)); }
    /// The next line that it tells; empty when it has ended.
    std::string hear() {
        std::string line;
        char byte = 0;
        pollfd status{m_hears.get(), POLLIN, 0};
        while (::poll(&status, 1, c_hangGuardMs) == 1 && ::read(m_hears.get(), &byte, 1) == 1) {
            if (byte == '\n')
                return line;
            line += byte;
        }
        return line;
    }
    void kill() {
        if (m_pid > 0)
            ::kill(m_pid, SIGKILL);
        end();
    }
    /// Waits for its end.
    void end() {
        if (m_pid > 0)
            ::waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }

    /// From now on the calling process is that user's. Needs root.
    static bool become(uid_t user, gid_t group, const std::vector<gid_t>& groups = {}) {
        return ::setgroups(groups.size(), groups.data()) == 0 && ::setgid(group) == 0 && ::setuid(user) == 0;
    }

private:
    pid_t m_pid = -1;
    base::UniqueFd m_hears;
    base::UniqueFd m_tells;
};
