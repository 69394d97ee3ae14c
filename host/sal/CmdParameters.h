#pragma once

#include <string>
#include <vector>

#include "sal/Export.h"

namespace sal {

/// The words after the command name, in order.
class SAL_API CmdParameters {
public:
    explicit CmdParameters(std::vector<std::string> arguments);

    unsigned int argumentCount() const;
    /// Counted from 0; the empty string at and beyond argumentCount().
    std::string argument(unsigned int index) const;

private:
    std::vector<std::string> m_arguments;
};

}  // namespace sal
