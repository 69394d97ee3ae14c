#pragma once

#include <string>

/// One thing that is wrong with a workplace's files. Where it concerns a file as a whole, the text follows
/// the file's name ("is no regular file").
struct Finding {
    enum class ESeverity { Error, Warning };

    ESeverity severity = ESeverity::Warning;
    std::string file;
    int line = 0;  ///< counted from 1; 0 for the file as a whole
    std::string text;

    bool isError() const { return severity == ESeverity::Error; }
    /// "FILE line N: TEXT", or "FILE TEXT".
    std::string inWords() const {
        return line > 0 ? file + " line " + std::to_string(line) + ": " + text : file + " " + text;
    }
    bool operator==(const Finding&) const = default;
};
