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
    EKind kind = eStates;
    std::uint64_t count = 0;
    std::size_t nameSize = 8;
    std::size_t valueSize = 8;

    bool isText() const { return kind == eEvents || kind == eTexts; }
    static std::string name(EKind kind) {
        return kind == eStates ? "states" : kind == eEvents ? "events" : kind == eTexts ? "texts" : "paced";
    }
};
