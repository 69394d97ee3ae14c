#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "FIDParameterList.h"

// What the tests of both ends of the queue protocol make their cases of.

namespace golden {

/// A frame, and the calls that come of it.
struct FrameCase {
    std::string frame;
    std::vector<std::string> calls;
};

inline void PrintTo(const FrameCase& read, std::ostream* pStream) {
    *pStream << read.frame;
}

inline std::string many(int count, char letter) {
    return std::string(static_cast<std::size_t>(count), letter);
}

inline std::string repeated(int count, const std::string& text) {
    std::string result;
    for (int index = 0; index < count; ++index)
        result += text;
    return result;
}

inline FIDParameterList list(const std::vector<FIDParameterList::Parameter>& parameters) {
    FIDParameterList result;
    for (const auto& [name, value] : parameters)
        result.add(name, value);
    return result;
}

inline FIDParameterList emptyPairs(int count) {
    return list(std::vector<FIDParameterList::Parameter>(static_cast<std::size_t>(count)));
}

}  // namespace golden
