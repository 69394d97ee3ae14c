#pragma once

#include <string>

#include "sal/Export.h"

namespace sal {

/// A path as text. Nothing is normalised; nothing is looked up on disk.
class SAL_API Path {
public:
    Path();
    explicit Path(std::string path);

    /// Joins text to the end of this path with exactly one separator between them; a separator at the front
    /// of text does not make it absolute, and "\" counts as one. Does nothing and returns false when either
    /// is empty.
    bool expand(const std::string& text);

    const std::string& getPathString() const;

    /// The working directory of the process; empty when it cannot be told.
    static Path getCurrentWorkingDirPath();
    /// False when the directory cannot be entered. Changes it for all threads.
    static bool setCurrentWorkingDirPath(const Path& path);
    /// The directory of the running executable.
    static Path getExeBasePath();

private:
    std::string m_path;
    char m_separator = '/';
    std::string m_alternativeSeparators = "\\";
};

}  // namespace sal
