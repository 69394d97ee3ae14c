#pragma once

#include <map>
#include <string>
#include <vector>

#include "JsonView.h"

/// What changed among the state values from one answer of the host to the next. One thread.
class StateChanges {
public:
    /// The lines for what is new against all answers before: "13:15:16 KEY = VALUE", "... (stale: CAUSE)",
    /// "... unset". An answer that is complete unsets what does not stand in it. Printable.
    std::vector<std::string> take(const JsonView& answer);

private:
    std::map<std::string, std::string> m_shown;  ///< key, what was shown of it
};
