#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// One piece of work: so many updates of one kind.
struct Job {
    enum class EKind {
        States,  ///< a number each, counting up; the names take turns
        Events,  ///< a text each, never merged
        Texts,   ///< a text value each
        Paced,   ///< a number each, the time it was sent; with a pause before each
    };
    static constexpr std::size_t s_names = 1000;  ///< more than are ever held back: none replaces another
    static constexpr std::size_t s_mergedNames = 299;  ///< no more than these may be merged

    EKind kind = EKind::States;
    std::uint64_t count = 0;
    std::size_t nameSize = 8;
    std::size_t valueSize = 8;
    std::size_t names = s_names;
    bool isInBursts = false;  ///< sent as a BurstGate lets them pass

    bool isText() const { return kind == EKind::Events || kind == EKind::Texts; }
    bool isMerged() const { return kind == EKind::States && names <= s_mergedNames; }
    /// What the results call it.
    std::string work() const {
        if (isMerged())
            return "merging";
        if (isInBursts)
            return "bursts";
        return kind == EKind::States   ? "states"
               : kind == EKind::Events ? "events"
               : kind == EKind::Texts  ? "sizes"
                                       : "latency";
    }
};
