#include "BenchWorkplace.h"

#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <system_error>

#include "Affinity.h"
#include "WorkplaceHost.h"

namespace {

/// The process itself: answers each request with an empty text, or with what went wrong.
void serve(int socket, const BenchWorkplace::Settings& settings, const Results& results) {
    const auto reply = [socket](const std::string& text) {
        [[maybe_unused]] const auto sent = send(socket, text.data(), text.size() + 1, MSG_NOSIGNAL);
    };
    try {
        if (settings.cores > 0)
            Affinity::set(settings.cores);
        WorkplaceHost host(settings, results);
        reply("");
        Request request;
        while (recv(socket, &request, sizeof request, 0) == sizeof request) {
            host.measure(request);
            reply("");
        }
    } catch (const std::exception& e) {
        reply(e.what());
    }
}

}  // namespace

BenchWorkplace::BenchWorkplace(const Settings& settings, const Results& results) {
    std::array<int, 2> sockets{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    std::fflush(nullptr);
    m_process = fork();
    if (m_process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(sockets[0]);
        serve(sockets[1], settings, results);
        _exit(0);
    }
    close(sockets[1]);
    m_socket = sockets[0];
}

BenchWorkplace::~BenchWorkplace() {
    close(m_socket);
    waitpid(m_process, nullptr, 0);
}

void BenchWorkplace::waitUntilStarted() {
    readReply();
}

void BenchWorkplace::measure(const Request& request) {
    if (send(m_socket, &request, sizeof request, MSG_NOSIGNAL) != sizeof request)
        throw std::runtime_error("the workplace's process is gone");
    readReply();
}

void BenchWorkplace::readReply() {
    std::array<char, 1024> text{};
    if (recv(m_socket, text.data(), text.size() - 1, 0) < 1)
        throw std::runtime_error("the workplace's process is gone");
    if (text[0] != '\0')
        throw std::runtime_error(std::string("workplace: ") + text.data());
}
