#include "QueueLayout.h"

#include <algorithm>
#include <bit>

namespace sal {

namespace {

constexpr std::size_t s_alignment = 4096;
constexpr std::uint32_t s_chunkSize = 32 * 1024;

constexpr std::size_t roundUp(std::size_t size, std::size_t unit) {
    return (size + unit - 1) / unit * unit;
}

}  // namespace

std::optional<QueueGeometry> QueueGeometry::make(std::uint32_t capacity, std::uint32_t messageSize) {
    if (capacity == 0 || capacity > s_maxCapacity || messageSize == 0 || messageSize > s_maxMessageSize)
        return std::nullopt;
    QueueGeometry geometry;
    geometry.capacity = capacity;
    geometry.messageSize = messageSize;
    const std::uint64_t record = QueueRecord::sizeOf(messageSize);
    geometry.chunkSize =
        std::max(s_chunkSize, static_cast<std::uint32_t>(roundUp(4 * std::size_t{record}, s_alignment)));
    // A chunk is left when the next record does not fit, so it is full but for less than one record. Add the
    // chunk that the receiver is leaving, the one being filled and the one about to be.
    const std::uint64_t full = capacity * record / (geometry.chunkSize - record) + 1;
    geometry.chunkCount = static_cast<std::uint32_t>(std::min<std::uint64_t>(full, capacity) + 3);
    geometry.ringSize = std::bit_ceil(geometry.chunkCount);
    geometry.ringOffset = s_alignment;
    geometry.allocatedOffset = geometry.ringOffset + geometry.ringSize * sizeof(std::uint32_t);
    geometry.chunksOffset = roundUp(geometry.allocatedOffset + geometry.chunkCount, s_alignment);
    geometry.fileSize = geometry.chunksOffset + std::size_t{geometry.chunkCount} * geometry.chunkSize;
    return geometry;
}

}  // namespace sal
