#pragma once

#include <exception>
#include <string>

namespace sal {

/// Type and words of an exception: "std::runtime_error: no such axis".
std::string exceptionText(const std::exception& exception);

/// The type of the exception that is being handled, for a catch (...).
std::string currentExceptionText();

/// In a catch (...): whether what was caught is the end of the thread by pthread_cancel, which has to be
/// thrown on.
bool isThreadEnding();

/// A C++ symbol in readable form; the symbol itself when it is none.
std::string demangled(const char* symbol);

}  // namespace sal
