#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

/// Whether an operation has exactly this type.
template <class Expected, class Operation>
bool has(Operation) {
    return std::is_same_v<Expected, Operation>;
}

/// A pointer to a virtual member holds an offset into the virtual table, marked by an odd number.
template <class Operation>
bool isVirtual(Operation operation) {
    std::intptr_t words[2];
    static_assert(sizeof operation == sizeof words);
    std::memcpy(words, &operation, sizeof words);
#ifdef __aarch64__
    return (words[1] & 1) != 0;
#else
    return (words[0] & 1) != 0;
#endif
}
