#include "StreamChoice.h"

#include "ControlError.h"

namespace {

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ",") + word;
    return text;
}

}  // namespace

stream::StreamFilter StreamChoice::filter() const {
    stream::StreamFilter filter;
    if (const std::string fault = filter.setKinds(joined(kinds)); !fault.empty())
        throw ControlError(EExit::WrongUsage, fault);
    filter.setDrivers(joined(drivers));
    filter.setGlob(glob);
    return filter;
}
