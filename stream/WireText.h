#pragma once

#include <string>
#include <string_view>

namespace stream {

/// A message between host and driver process, taken apart: SETVAF "TEMP" 21.5, DSPFID "LAMP.ON" x="5". What
/// does not fit the form of its code is shown as bytes. Texts are as the message has them. Any thread.
std::string wireText(std::string_view message);

}  // namespace stream
