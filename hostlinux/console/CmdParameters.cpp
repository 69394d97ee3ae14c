#include "sal/CmdParameters.h"

#include <utility>

namespace sal {

CmdParameters::CmdParameters(std::vector<std::string> arguments) : m_arguments(std::move(arguments)) {}

unsigned int CmdParameters::argumentCount() const {
    return static_cast<unsigned int>(m_arguments.size());
}

std::string CmdParameters::argument(unsigned int index) const {
    return index < m_arguments.size() ? m_arguments[index] : std::string();
}

}  // namespace sal
