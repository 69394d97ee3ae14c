#pragma once

#include <string>
#include <string_view>

/// Text from outside (of a driver, a file, an operator) on its way to a person or a program that reads it.
/// Whatever of it reaches a terminal, a log or a report goes through one of these, once. Any thread.
namespace base {

/// One line for a terminal that reads UTF-8. What could steer the terminal, end the line or turn its
/// direction is written out: \n, \r, \t, \xNN for other control characters and for bytes that are no UTF-8,
/// \uNNNN for control characters beyond ASCII (U+0080 to U+009F), the line separators (U+2028, U+2029) and
/// the marks that change the direction of writing. All else stays as it is, backslashes too: the result is
/// for reading, not for reading back.
std::string printable(std::string_view text);

/// Whether printable() would leave the text as it is.
bool isPrintable(std::string_view text);

/// The printable text in quotes, as messages have it. Only the first 80 bytes of it, and "..." after the
/// closing quote, when it is longer.
std::string quoted(std::string_view text);

/// The text as a JSON string, in quotes. What printable() would write out is escaped as JSON has it, so that
/// a terminal may show it and a reader gets it back; bytes that are no UTF-8 become U+FFFD each.
std::string jsonText(std::string_view text);
/// The same, put at the end of a text that has other JSON before it.
void appendJsonText(std::string& json, std::string_view text);

}  // namespace base
