#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "sal/CmdRegister.h"
#include "sal/SingletonDll.h"

namespace sal {

/// The commands of the console. Owns its records and executes a line on the thread that calls execute(),
/// which is the host's command thread. Registering and executing must not overlap; help() and names() may be
/// called by any thread.
class SAL_API CmdProcessor : public SingletonDll<CmdProcessor> {
public:
    CmdProcessor();
    ~CmdProcessor();
    CmdProcessor(const CmdProcessor&) = delete;
    CmdProcessor& operator=(const CmdProcessor&) = delete;

    /// Takes a record made with new and keeps it. A later record of the same name replaces the earlier one.
    void registerCmd(CmdRegister* pRecord);

    /// Splits a line as a shell does (blanks, '...', "...", backslash) and runs the command. The processor's
    /// own words go to reply: the help text when the command returns false or its only argument is --help;
    /// "unknown command" with the nearest names; what is wrong with the quotes. An empty line and one that
    /// begins with # do nothing. True when the command ran and returned true, or there was nothing to do.
    bool execute(const std::string& line, std::ostream& reply);

    /// The help text of one command, or one line for each when name is empty. False when there is none of
    /// that name (said on reply).
    bool help(const std::string& name, std::ostream& reply) const;

    /// The command words in byte order.
    std::vector<std::string> names() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

extern template class SingletonDll<CmdProcessor>;

}  // namespace sal
