#pragma once

#include "Screen.h"

/// Executes the command of mfctl that the arguments name, and returns the exit code (EExit); what fails is
/// said in one line on standard error. Main thread.
int runControlLine(int argc, const char* const* argv, const Screen& screen);
