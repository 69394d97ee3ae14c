#include "StartProgram.h"

#include <spawn.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace {

std::vector<char*> pointersTo(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    return pointers;
}

}  // namespace

pid_t startProgram(std::vector<std::string> words, const std::vector<std::pair<int, int>>& descriptors,
                   std::vector<std::string> variables) {
    std::vector<char*> arguments = pointersTo(words);
    arguments.push_back(nullptr);
    std::vector<char*> environment = pointersTo(variables);
    for (char** pVariable = environ; *pVariable; ++pVariable)
        environment.push_back(*pVariable);
    environment.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    for (const auto& [own, its] : descriptors)
        ::posix_spawn_file_actions_adddup2(&actions, own, its);
    pid_t pid = -1;
    const int error =
        ::posix_spawnp(&pid, arguments.front(), &actions, nullptr, arguments.data(), environment.data());
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::runtime_error(words.front() + " cannot be started: " + std::strerror(error));
    return pid;
}
