#pragma once

#include <string>

#include "RecordingCommands.h"

/// mfctl recording export: what happened, for other programs. Main thread.
class RecordingExport {
public:
    struct Choice {
        std::string format = {};  ///< "mcap", "jsonl" or "csv"
        std::string output = {};  ///< a new file, which only its owner may read; empty: standard output
        bool isRedacted = false;  ///< without what drivers and people wrote (RecordRedaction)
    };
    explicit RecordingExport(const Screen& screen) : m_screen(screen) {}

    /// Throws a ControlError where the recording cannot be read or the output cannot be written; a file that
    /// is not whole is taken away.
    EExit run(const RecordingFiles& files, const RecordingCommands::Choice& what, const Choice& choice);

private:
    const Screen m_screen;
};
