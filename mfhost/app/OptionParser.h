#pragma once

#include <ostream>
#include <variant>

#include "Options.h"

/// Reads the command line: the options, or the exit code with which the program ends now, 0 after --help and
/// --version (written to out), 2 after wrong usage (said on err).
std::variant<Options, int> parseOptions(int argc, const char* const* argv, std::ostream& out,
                                        std::ostream& err);
