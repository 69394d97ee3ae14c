#pragma once

#include <string>
#include <utility>
#include <vector>

#include "FIDParameterList.h"

/// A FID's parameters, each a name with its value.
inline FIDParameterList parameters(const std::vector<std::pair<std::string, std::string>>& pairs) {
    FIDParameterList list;
    for (const auto& [name, value] : pairs)
        list.add(name, value);
    return list;
}
