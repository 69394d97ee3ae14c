#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "EExit.h"
#include "RecordingFiles.h"
#include "RecordingReader.h"
#include "Screen.h"
#include "StreamChoice.h"

/// mfctl recording: what happened, from what a host has recorded, without the host. Each throws a
/// ControlError where that cannot be read, or a word of the choice is wrong. Main thread.
class RecordingCommands {
public:
    struct Choice {
        StreamChoice what = {};
        std::string from = {};  ///< moments (Moment); empty: all
        std::string to = {};
        std::uint64_t count = 0;  ///< of records that are shown; 0: all
        bool asJson = false;
    };
    explicit RecordingCommands(const Screen& screen) : m_screen(screen) {}

    EExit list(const RecordingPlace& place, bool asJson);
    EExit show(const RecordingFiles& files, const Choice& choice);
    EExit stats(const RecordingFiles& files, const Choice& choice);
    /// What is otherwise at the end of the choice than at its beginning.
    EExit diff(const RecordingFiles& files, const Choice& choice);

    /// The times that the choice names. The end of a minute or second that is named is its beginning.
    static RecordingReader::Bounds boundsOf(const Choice& choice);
    /// Gives each record that is wanted, and each gap, to the two; as long as they say true. Complains of
    /// segments that are passed over.
    using Take = std::function<bool(const stream::IStreamReader&)>;
    void read(const RecordingFiles& files, const Choice& choice, const Take& takeRecord,
              const Take& takeGap) const;

private:
    EExit done() const;

    const Screen m_screen;
};
