#pragma once

#include <sys/types.h>

#include <fstream>
#include <string>

/// Whether there is a process of that number that has not ended; one that nobody has collected yet has.
inline bool isAlive(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(file, text);
    const auto end = text.rfind(") ");
    return end != std::string::npos && text[end + 2] != 'Z' && text[end + 2] != 'X';
}
