#pragma once

#include <string>

#include "EExit.h"
#include "Screen.h"

/// mfctl link acl: the rights of a workplace's links at their broker, from its files; needs no host. Main
/// thread.
class LinkRightsCommand {
public:
    explicit LinkRightsCommand(const Screen& screen) : m_screen(screen) {}

    /// Prints linkRights() of all links of that workplace file; their own files lie in its working directory.
    /// Failed, with a line for each fault and without any rights, where one of the files is wrong or there is
    /// no link.
    EExit run(const std::string& workplace, const std::string& workDirectory);

private:
    EExit fail(const std::string& reason);

    const Screen& m_screen;
};
