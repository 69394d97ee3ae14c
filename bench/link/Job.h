#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// One piece of work: so many updates of one kind.
struct Job {
    enum EKind {
        eStates,  ///< a number each, counting up; the names take turns
        eEvents,  ///< a text each, never merged
        eTexts,   ///< a text value each
        ePaced,   ///< a number each, the time it was sent; with a pause before each
    };
    static constexpr std::size_t s_names = 1000;  ///< more than are ever held back: none replaces another
    static constexpr std::size_t s_mergedNames = 299;  ///< no more than these may be merged

    EKind kind = eStates;
    std::uint64_t count = 0;
    std::size_t nameSize = 8;
    std::size_t valueSize = 8;
    std::size_t names = s_names;
    bool isInBursts = false;  ///< sent as a BurstGate lets them pass

    bool isText() const { return kind == eEvents || kind == eTexts; }
    bool isMerged() const { return kind == eStates && names <= s_mergedNames; }
    /// What the results call it.
    std::string work() const {
        if (isMerged())
            return "merging";
        if (isInBursts)
            return "bursts";
        return kind == eStates ? "states" : kind == eEvents ? "events" : kind == eTexts ? "sizes" : "latency";
    }
};
