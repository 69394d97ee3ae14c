#pragma once

#include <string>

#include "FIDParameterList.h"

/// "{a=5, b=}" for the journal.
inline std::string recorded(const FIDParameterList& parameters) {
    std::string text = "{";
    for (const auto& [name, value] : parameters)
        text += (text.size() > 1 ? ", " : "") + name + "=" + value;
    return text + "}";
}
