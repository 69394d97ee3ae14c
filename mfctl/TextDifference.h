#pragma once

#include <string>

struct NamedText {
    std::string name;
    std::string text;
};

/// The lines in which two texts differ, as "diff -u" has them; empty where they are the same, and where the
/// system cannot tell: then error says why. Main thread.
std::string textDifference(const NamedText& before, const NamedText& after, std::string& error);
