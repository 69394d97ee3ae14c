#include "ProgramOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <thread>

#include "UniqueFd.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Its process ID; 0 with errno when it does not start.
pid_t start(std::vector<std::string> words, int output) {
    posix_spawn_file_actions_t actions;
    if (const int failed = ::posix_spawn_file_actions_init(&actions); failed != 0) {
        errno = failed;
        return 0;
    }
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    pid_t pid = 0;
    const int failed = ::posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    errno = failed;
    return failed == 0 ? pid : 0;
}

/// Reads to the end; false at the deadline.
bool readAll(int fd, Clock::time_point deadline, std::string& text) {
    std::array<char, 4096> piece{};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd readable{fd, POLLIN, 0};
        const int ready = left > 0 ? ::poll(&readable, 1, static_cast<int>(left)) : 0;
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        const ssize_t count = ::read(fd, piece.data(), piece.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return true;
        if (text.size() < ProgramOutput::s_mostBytes)
            text.append(piece.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

ProgramOutput ProgramOutput::of(const std::vector<std::string>& words, std::chrono::milliseconds limit) {
    ProgramOutput result;
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        result.error = std::strerror(errno);
        return result;
    }
    const base::UniqueFd output(ends[0]);
    base::UniqueFd input(ends[1]);
    const pid_t pid = start(words, input.get());
    if (pid == 0) {
        result.error = words.front() + ": " + std::strerror(errno);
        return result;
    }
    input.reset();
    const auto deadline = Clock::now() + limit;
    bool isInTime = readAll(output.get(), deadline, result.text);
    int status = 0;
    // It may have closed its output and go on.
    while (isInTime && ::waitpid(pid, &status, WNOHANG) == 0) {
        isInTime = Clock::now() < deadline;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (!isInTime) {
        ::kill(pid, SIGKILL);
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        result.error = words.front() + " took too long";
        return result;
    }
    if (WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    else
        result.error = words.front() + " was ended by signal " + std::to_string(WTERMSIG(status));
    return result;
}
