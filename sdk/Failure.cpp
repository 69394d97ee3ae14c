#include "Failure.h"

#include <exception>

namespace mfd {

std::string failureOf(const std::function<void()>& work) {
    try {
        work();
        return {};
    } catch (const std::exception& exception) {
        const std::string reason = exception.what();
        return reason.empty() ? "an exception without words" : reason;
    } catch (...) {
        return "an exception that is no std::exception";
    }
}

}  // namespace mfd
