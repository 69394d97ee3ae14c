#pragma once

#include <vector>

#include "JsonView.h"
#include "Screen.h"

/// Prints message queues as the API gives them, one a row; one that somebody waits at is yellow. Main thread.
void printQueues(const std::vector<JsonView>& queues, const Screen& screen);
