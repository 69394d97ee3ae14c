#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <charconv>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>

#include "InterfaceIds.h"
#include "Printable.h"
#include "SpawnSettings.h"
#include "TrialResult.h"
#include "sal/CmdProcessor.h"
#include "sal/LogManager.h"
#include "sal/Module.h"
#include "sal/ModuleLoader.h"

namespace {

constexpr int s_wrongUsage = 2;

constexpr const char* s_usage =
    "usage: mfdprobe MODULE\n"
    "Tries a driver module out as a host does before it loads it: maps it, makes its driver, asks for the\n"
    "driver interfaces, deletes it. Ends with 90 when that went well, and with 91 when the module cannot be\n"
    "loaded; any other end is the module's own.\n";

/// A host that starts this program names itself; the trial must not outlive it. The thread that started it
/// waits for it, so that thread's death is the host's.
bool endWith(std::string_view host) {
    int pid = 0;
    if (std::from_chars(host.data(), host.data() + host.size(), pid).ptr != host.data() + host.size())
        return false;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    return ::getppid() == pid;
}

int tryOut(const std::string& path) {
    const std::unique_ptr<sal::Module> pModule(
        sal::ModuleLoader().load(sal::ModuleLoader::eLoadUnprobed, path));
    if (!pModule)
        return sal::TrialResult::s_notLoaded;
    const bool takesFids = pModule->queryInterface(IID_IFunctionID) != nullptr;
    const bool isConfigured = pModule->queryInterface(IID_IMFDConfiguration) != nullptr;
    std::cout << base::printable(path) << " is loaded; IFunctionID (" << IID_IFunctionID
              << "): " << (takesFids ? "yes" : "no") << ", IMFDConfiguration (" << IID_IMFDConfiguration
              << "): " << (isConfigured ? "yes" : "no") << std::endl;
    return sal::TrialResult::s_answered;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3 || std::string_view(argv[1]).starts_with("--")) {
        const bool isAsked = argc == 2 && std::string_view(argv[1]) == "--help";
        (isAsked ? std::cout : std::cerr) << s_usage;
        return isAsked ? 0 : s_wrongUsage;
    }
    if (argc == 3 && !endWith(argv[2]))
        return s_wrongUsage;
    // What the module starts is not to speak for the trial.
    if (argc == 3)
        ::fcntl(sal::SpawnSettings::s_handedOver, F_SETFD, FD_CLOEXEC);
    // As a driver finds it in the host.
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
    sal::LogManager log;
    const sal::CmdProcessor commands;
    const int result = tryOut(argv[1]);
    log.flush();
    if (argc == 3) {
        const auto word = static_cast<unsigned char>(result);
        static_cast<void>(!::write(sal::SpawnSettings::s_handedOver, &word, 1));
    }
    // A thread or a handler that the module has left is no part of the trial: the host does not end with it.
    ::_exit(result);
}
