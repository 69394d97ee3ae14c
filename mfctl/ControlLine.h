#pragma once

#include <ostream>

/// Executes the command of mfctl that the arguments name, and returns the exit code: 0, 1 when it failed, 2
/// after wrong usage (said on err). Main thread.
int runControlLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err);
