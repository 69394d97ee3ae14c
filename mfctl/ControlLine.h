#pragma once

#include <ostream>

/// mfctl's command line. One thread.
class ControlLine {
public:
    /// Executes the command that the arguments name, and returns the exit code: 0, 1 when it failed, 2 after
    /// wrong usage (said on err).
    static int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);
};
