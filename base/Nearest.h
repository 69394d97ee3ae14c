#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace base {

/// Those of the words that were probably meant by one that is none of them, the likest first: they differ in
/// few characters that are missing, too many, wrong, or swapped with their neighbour, or begin with it where
/// it has three characters at least. Capital and small letters count alike. None for a word of more than 64
/// bytes. Any thread.
std::vector<std::string> nearest(std::string_view word, const std::vector<std::string>& words,
                                 std::size_t most = 3);

/// "; did you mean A, B or C?" for the end of a message, with the names as they are given; empty for none.
std::string didYouMean(const std::vector<std::string>& names);
/// The same with each name printable and in quotes.
std::string didYouMeanQuoted(std::vector<std::string> names);

}  // namespace base
