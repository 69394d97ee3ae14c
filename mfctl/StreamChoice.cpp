#include "StreamChoice.h"

#include "ControlError.h"

std::string StreamChoice::joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ",") + word;
    return text;
}

stream::StreamFilter StreamChoice::filter() const {
    stream::StreamFilter filter;
    if (const std::string fault = filter.setKinds(joined(kinds)); !fault.empty())
        throw ControlError(EExit::WrongUsage, fault);
    filter.setDrivers(joined(drivers));
    filter.setGlob(glob);
    return filter;
}
