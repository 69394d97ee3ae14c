#pragma once

#include <functional>
#include <string>

namespace mfd {

/// Does the work; what the exception said that has left it, empty when none has. Any thread.
std::string failureOf(const std::function<void()>& work);

}  // namespace mfd
