#pragma once

#include <string>
#include <vector>

#include "FIDParameterList.h"

/// What the module's command sendFID sends of a console line, which it does not tell. A parameter may stand
/// there as a=5, a= 5, a =5, a = 5 or a 5.
struct FidLine {
    /// The words of the line, sendFID and the FID among them.
    explicit FidLine(const std::vector<std::string>& words);

    /// For an operator: the FID and its parameters, each in quotes.
    std::string text() const;

    std::string fid;
    FIDParameterList parameters;
    /// A parameter came of words without a "=", as of a text that does not stand in quotes.
    bool hasStrayWord = false;
};
