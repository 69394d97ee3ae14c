#pragma once

#include <cstddef>
#include <cstdint>

namespace stream {

/// CRC-32C (Castagnoli) over these words as they lie in memory, lowest byte first, continued from the result
/// over what came before; 0 at the beginning. Uses the processor's own instruction where it has one. Any
/// thread.
std::uint32_t crc32c(std::uint32_t before, const std::uint64_t* pWords, std::size_t count);

/// The same over any bytes.
std::uint32_t crc32c(std::uint32_t before, const char* pBytes, std::size_t count);

/// The same without the instruction.
std::uint32_t crc32cByTable(std::uint32_t before, const std::uint64_t* pWords, std::size_t count);

}  // namespace stream
