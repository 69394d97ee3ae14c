#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace base {

/// Those of the words that were probably meant by one that is none of them, the likest first: they differ in
/// few characters that are missing, too many, wrong, or swapped with their neighbour. Capital and small
/// letters count alike. None for a word of more than 64 bytes. Any thread.
std::vector<std::string> nearest(std::string_view word, const std::vector<std::string>& words,
                                 std::size_t most = 3);

}  // namespace base
