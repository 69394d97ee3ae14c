#pragma once

#include <string>
#include <vector>

/// The words of a console line, split as the command processor splits it.
class CommandWords {
public:
    /// Empty for an empty line, a comment, or quotes that do not close.
    static std::vector<std::string> split(const std::string& line);
};
