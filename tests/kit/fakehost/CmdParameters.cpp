#include "sal/CmdParameters.h"

#include <utility>

#include "Console.h"

fakehost::Console& fakehost::Console::instance() {
    static Console s_console;
    return s_console;
}

namespace sal {

CmdParameters::CmdParameters(std::vector<std::string> arguments) : m_arguments(std::move(arguments)) {}

unsigned int CmdParameters::argumentCount() const {
    ++fakehost::Console::instance().argumentCounts;
    return static_cast<unsigned int>(m_arguments.size());
}

std::string CmdParameters::argument(unsigned int index) const {
    return index < m_arguments.size() ? m_arguments[index] : fakehost::Console::instance().missingArgument;
}

}  // namespace sal
