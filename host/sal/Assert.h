#pragma once

#include "sal/Export.h"

namespace sal {

/// Flushes standard output, prints file, line and the expression's text to standard error and aborts.
[[noreturn]] SAL_API void assertFailed(const char* file, int line, const char* expression);

}  // namespace sal

/// A state that must not occur. Stands in every build type; the expression's own text is the message.
#define SAL_ASSERT(expression) \
    ((expression) ? static_cast<void>(0) : ::sal::assertFailed(__FILE__, __LINE__, #expression))
