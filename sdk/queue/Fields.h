#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "mfdqueue.h"

/// The fields of the protocol's messages as mfdqueue.h has them. Any thread.
namespace fields {

/// Puts a message together. Its length, or MFDQUEUE_UNKNOWN or MFDQUEUE_MALFORMED with the reason in error.
int encode(std::string_view code, std::span<const mfdqueue_field> fields, std::span<unsigned char> buffer,
           std::string& error);

/// Takes a message apart; texts has room for MFDQUEUE_MESSAGE bytes, code for seven. The number of fields, or
/// as above.
int decode(std::span<const unsigned char> message, char* code, std::span<mfdqueue_field> fields, char* texts,
           std::string& error);

}  // namespace fields
