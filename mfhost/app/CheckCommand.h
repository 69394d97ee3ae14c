#pragma once

#include <ostream>

#include "Options.h"

/// "mfhost --check": checks the files of a workplace and starts nothing. Writes the report and returns the
/// exit code: 0, or 1 when a start would be refused. Called by main, before it starts a thread.
int runCheck(const Options& options, std::ostream& out);
