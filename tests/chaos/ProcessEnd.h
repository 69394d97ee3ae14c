#pragma once

#include <sys/types.h>

#include <chrono>

/// Waits until the process is dead. At once true for one that there is not.
bool isDeadWithin(pid_t pid, std::chrono::milliseconds patience);
