#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "StreamKind.h"

namespace stream {

/// What is to be recorded. Refers to texts of the caller's.
struct StreamEntry {
    EKind kind = EKind::None;
    std::uint32_t key = 0;  ///< of KeyTable; the driver's number in its upper half
    std::uint32_t value = 0;
    std::uint64_t cause = 0;        ///< a record's number; 0 for none
    std::string_view keyText = {};  ///< where the key has no number
    /// The driver that has caused it and of whose share it is; nothing: that of the key.
    std::optional<std::uint16_t> causedBy = {};
    /// The text in parts, one after another without anything between.
    std::array<std::string_view, 3> texts = {};
};

}  // namespace stream
