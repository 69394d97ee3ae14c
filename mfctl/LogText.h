#pragma once

#include <string>

#include "JsonView.h"
#include "Screen.h"

/// A line of a host's log as the API gives it, printable and coloured by its level: "13:15:16 warning SYS
/// text". Main thread.
std::string logText(const JsonView& line, const Screen& screen);

/// Prints a text of several lines, each made printable.
void printLines(const std::string& text, const Screen& screen);
