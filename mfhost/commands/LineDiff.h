#pragma once

#include <string>

/// The lines in which two texts differ, each with "-" for one of the first text alone or "+" for one of the
/// second, up to two equal ones round them with a blank, and "@@ line N" of the second text before each
/// group. Empty when the texts have the same lines. Any thread.
std::string lineDiff(const std::string& before, const std::string& after);
