#pragma once

#include <ostream>

#include "ConfigurationCheck.h"
#include "Options.h"

/// "mfhost --check": checks the files of a workplace against the machine as a start with these options would
/// find it, and starts none of its drivers; the modules that it uses are tried out, each in a process that
/// ends with it. Writes the report and returns the exit code: 0, or 1 when a start would be refused or would
/// start nothing of the file, with --strict also after a warning. Called by main, before it starts a thread.
int runCheck(const Options& options, std::ostream& out);

/// The same against a machine that is known. Any thread.
int runCheck(const Options& options, const ConfigurationCheck::Machine& machine, std::ostream& out);
