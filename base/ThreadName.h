#pragma once

#include <string_view>

namespace base {

/// Names the calling thread as ps -L and gdb show it: "SYS receive" from "SYS" and "receive". The kernel
/// keeps 15 bytes, so what the thread does is cut before whom it serves. A thread that is not named shows the
/// name of the one that made it, so each begins with this.
void nameThread(std::string_view servesWhom, std::string_view does) noexcept;
/// The same for a thread that serves no driver or queue in particular.
void nameThread(std::string_view does) noexcept;

}  // namespace base
