#pragma once

#include <string>

#include "sal/CmdParameters.h"
#include "sal/Export.h"

namespace sal {

/// One console command: its word, its help text and, in CmdRegisterImpl, what it calls.
class SAL_API CmdRegister {
public:
    CmdRegister(const std::string& name, const char* help);
    virtual ~CmdRegister();

    /// Runs the command on the calling thread. False asks the processor to show the help text.
    virtual bool call(CmdParameters& parameters) = 0;

    const std::string& name() const { return m_name; }
    const char* help() const { return m_help; }

private:
    std::string m_name;
    const char* m_help;  ///< a constant, not copied: usage line, line feed, tab, what it does
};

}  // namespace sal
