#include "ExceptionText.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

namespace sal {

std::string demangled(const char* symbol) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> pName(
        abi::__cxa_demangle(symbol, nullptr, nullptr, &status), &std::free);
    return pName && status == 0 ? pName.get() : symbol;
}

std::string exceptionText(const std::exception& exception) {
    const char* words = exception.what();
    return demangled(typeid(exception).name()) + ": " + (words ? words : "");
}

std::string currentExceptionText() {
    const std::type_info* pType = abi::__cxa_current_exception_type();
    return "an exception of type " + (pType ? demangled(pType->name()) : std::string("unknown"));
}

bool isThreadEnding() {
    // That is no C++ exception and has no type.
    return !abi::__cxa_current_exception_type();
}

}  // namespace sal
