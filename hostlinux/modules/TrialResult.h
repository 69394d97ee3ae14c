#pragma once

namespace sal {

/// How mfdprobe ends when the module let it. Numbers that no program ends with by chance. A host that starts
/// it hands a descriptor over as well, into which it writes the number as a byte: an exit code can get lost.
struct TrialResult {
    static constexpr int s_answered = 90;   ///< loaded, answered, deleted
    static constexpr int s_notLoaded = 91;  ///< not to be loaded, which the loader finds out without harm
};

}  // namespace sal
