#include "DebugCommand.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>

#include "ControlError.h"
#include "Printable.h"

namespace {

constexpr const char* s_debugger = "gdb";

bool isInPath(const std::string& program) {
    const char* pPath = std::getenv("PATH");
    std::istringstream directories(pPath ? pPath : "");
    for (std::string directory; std::getline(directories, directory, ':');) {
        if (::access((directory + "/" + program).c_str(), X_OK) == 0)
            return true;
    }
    return false;
}

/// The driver's module is loaded later, so a breakpoint in it has to wait.
std::vector<std::string> commandLine(int process, const std::vector<std::string>& options) {
    std::vector<std::string> words{s_debugger, "-iex", "set breakpoint pending on", "-p",
                                   std::to_string(process)};
    words.insert(words.end(), options.begin(), options.end());
    return words;
}

}  // namespace

EExit DebugCommand::run(const std::string& driverID, const std::vector<std::string>& options,
                        ApiClient::Milliseconds limit) {
    if (!isInPath(s_debugger))
        throw ControlError(EExit::Failed, "there is no gdb in PATH; install the package gdb");
    const ApiClient::Reply reply = m_control.act("/drivers/" + ApiClient::encoded(driverID) + "/debug",
                                                 ApiClient::Json::object(), limit, "debug " + driverID);
    const int process = static_cast<int>(reply.view().member("driver").number("pid"));
    if (process <= 0)
        throw ControlError(EExit::Failed, driverID + " has no process");
    if (!m_control.asJson())
        m_control.screen().out << base::printable(driverID) << ": process " << process
                               << " loads the driver when gdb continues it" << std::endl;
    std::vector<std::string> words = commandLine(process, options);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    // mfctl itself ignores it.
    ::signal(SIGPIPE, SIG_DFL);
    ::execvp(s_debugger, arguments.data());
    throw ControlError(EExit::Failed, std::string("gdb cannot be started: ") + std::strerror(errno));
}
