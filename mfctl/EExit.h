#pragma once

/// The exit codes of mfctl; scripts rely on them.
enum class EExit {
    Done = 0,
    Failed = 1,       ///< refused, or tried and failed
    WrongUsage = 2,   ///< also where several hosts answer and none was named
    NoHost = 3,       ///< none there, or it is gone
    NotAllowed = 4,   ///< the caller's role does not suffice
    NotFinished = 5,  ///< not in time; it goes on in the host
    Changes = 6,      ///< plan --exit-code, and there are changes
};
