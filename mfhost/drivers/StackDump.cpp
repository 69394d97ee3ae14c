#include "StackDump.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "ThreadName.h"
#include "UniqueFd.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Has what this thread starts keep the capabilities that a service manager has given the host: a process
/// with fewer may not look at the host itself. Nothing where it was given none.
void passCapabilities() {
    for (int capability = 0; ::prctl(PR_CAPBSET_READ, capability, 0, 0, 0) >= 0; ++capability)
        ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, capability, 0, 0);
}

/// Starts eu-stack with its output going to the descriptor; 0 when that is not possible.
pid_t startReader(int ofNumber, bool isOneThread, int output) {
    posix_spawn_file_actions_t actions;
    if (::posix_spawn_file_actions_init(&actions) != 0)
        return 0;
    posix_spawnattr_t attributes;
    if (::posix_spawnattr_init(&attributes) != 0) {
        ::posix_spawn_file_actions_destroy(&actions);
        return 0;
    }
    sigset_t none;
    sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    std::string program = "eu-stack";
    std::string option = isOneThread ? "-1p" : "-p";
    std::string number = std::to_string(ofNumber);
    char* const words[] = {program.data(), option.data(), number.data(), nullptr};
    pid_t reader = 0;
    if (::posix_spawnp(&reader, program.c_str(), &actions, &attributes, words, environ) != 0)
        reader = 0;
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    return reader;
}

/// What comes until the end or the deadline.
std::string readUntil(int fd, Clock::time_point deadline, std::size_t maxBytes) {
    std::string text;
    std::array<char, 4096> piece{};
    while (text.size() < maxBytes) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd readable{fd, POLLIN, 0};
        const int ready = left > 0 ? ::poll(&readable, 1, static_cast<int>(left)) : 0;
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            break;
        const ssize_t count = ::read(fd, piece.data(), piece.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        text.append(piece.data(), static_cast<std::size_t>(count));
    }
    return text;
}

}  // namespace

StackDump::StackDump(int number, std::chrono::milliseconds limit, std::function<void()> onDone,
                     EThreads threads)
    : m_onDone(std::move(onDone)), m_thread([this, number, limit, threads] {
          run(number, limit, threads);
          m_isDone = true;
          m_onDone();
      }) {}

StackDump::~StackDump() {
    m_thread.join();
}

void StackDump::run(int number, std::chrono::milliseconds limit, EThreads threads) {
    base::nameThread("stacks");
    passCapabilities();
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return;
    const base::UniqueFd output(ends[0]);
    base::UniqueFd input(ends[1]);
    const pid_t reader = startReader(number, threads == EThreads::One, input.get());
    // Where a process may look at its descendants only, this one has to permit its own child to look at it.
    if (reader > 0)
        ::prctl(PR_SET_PTRACER, reader);
    input.reset();
    std::string text;
    if (reader > 0) {
        text = readUntil(output.get(), Clock::now() + limit, s_maxBytes);
        // It has said all or is too late. A process that it holds must be let go before it can end.
        ::kill(reader, SIGKILL);
        while (::waitpid(reader, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    while (text.ends_with('\n'))
        text.pop_back();
    m_text = std::move(text);
}
