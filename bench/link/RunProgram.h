#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "UniqueFd.h"

/// Runs a program to its end and returns what it has printed on its standard output. Throws when it cannot be
/// started or ends with another exit code than 0.
inline std::string runProgram(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    const base::UniqueFd output(ends[0]);
    base::UniqueFd input(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.get(), STDOUT_FILENO);
    pid_t process = 0;
    const int error = posix_spawnp(&process, arguments.front(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    input.reset();
    if (error != 0)
        throw std::system_error(error, std::generic_category(), words.front());
    std::string printed;
    std::array<char, 4096> piece{};
    for (ssize_t count = 0; (count = read(output.get(), piece.data(), piece.size())) > 0;)
        printed.append(piece.data(), static_cast<std::size_t>(count));
    int status = 0;
    waitpid(process, &status, 0);
    if (status != 0)
        throw std::runtime_error(words.front() + " has failed, and printed \"" + printed + "\"");
    return printed;
}
