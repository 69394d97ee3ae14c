#pragma once

#include <string>

#include "RecordingCommands.h"

/// mfctl recording keep: the last minute of a recording as a segment of its own, which no host takes away.
/// Main thread.
class RecordingKeep {
public:
    struct Choice {
        std::string note = {};    ///< stands in it as a mark, its last record; empty: none
        std::string output = {};  ///< the new file; empty: one in the directory, named by the time
        unsigned before = 60;     ///< seconds before the last record
    };
    explicit RecordingKeep(const Screen& screen) : m_screen(screen) {}

    /// Throws a ControlError where the recording cannot be read, or the file cannot be made. The directory is
    /// that of the segments; empty where there is none.
    EExit run(const RecordingFiles& files, const std::string& directory, const Choice& choice);

private:
    const Screen m_screen;
};
