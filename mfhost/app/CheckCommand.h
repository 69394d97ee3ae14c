#pragma once

#include <ostream>

#include "Options.h"

/// "mfhost --check": checks the files of a workplace and starts nothing. Used by main, before any thread is
/// there.
class CheckCommand {
public:
    /// Writes the report and returns the exit code: 0, or 1 when a start would be refused.
    static int run(const Options& options, std::ostream& out);
};
