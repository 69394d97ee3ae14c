#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

/// Starts a program, looked for in PATH, with those words. Each pair is a descriptor of the caller and what
/// it is in the new process; the variables ("NAME=value") come before the caller's own. An exception where it
/// cannot be started. Unlike a fork this does not copy the page tables of a sanitizer's shadow memory, which
/// takes longer than most of these processes run.
pid_t startProgram(std::vector<std::string> words, const std::vector<std::pair<int, int>>& descriptors,
                   std::vector<std::string> variables = {});
