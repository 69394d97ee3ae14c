#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "DriverProcess.h"
#include "DriverProgram.h"
#include "Printable.h"
#include "WrapperOptions.h"
#include "sal/CrashNote.h"
#include "sal/LogManager.h"

namespace {

constexpr const char* s_usage =
    "usage: mfddllwrap MODULEPATH DRIVERID\n"
    "Runs the driver module in this process, behind the queues DRIVERID_INQ and DRIVERID_OUTQ of a running "
    "host.\nWhere the module is an executable file that is not named .so, becomes that program with "
    "DRIVERID.\n";

/// The host has raised its own limit; the driver gets what a program started by hand would have.
void limitDescriptors(rlim_t descriptors) {
    struct rlimit limit {};
    if (descriptors == 0 || ::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = std::min(descriptors, limit.rlim_max);
    static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    if (arguments == std::vector<std::string>{"--help"}) {
        std::cout << s_usage;
        return 0;
    }
    const WrapperOptions options =
        WrapperOptions::parse(arguments, [](const char* name) { return std::getenv(name); });
    if (!options.usable) {
        std::cerr << s_usage;
        return 2;
    }

    // The host may be gone before the log is written.
    ::signal(SIGPIPE, SIG_IGN);
    limitDescriptors(options.descriptors);
    try {
        // Before the log has a thread.
        const std::string whyNoProgram = driverprogram::isProgram(options.modulePath)
                                             ? driverprogram::become(options.modulePath, options.driverID)
                                             : std::string();
        sal::LogManager log({.level = options.logLevel, .file = {}, .tag = options.driverID});
        try {
            sal::CrashNote::install(options.driverID);
            if (!whyNoProgram.empty())
                throw std::runtime_error(whyNoProgram);
            return DriverProcess(options).run();
        } catch (const std::exception& exception) {
            log.getLogOutput("MFD")->level(sal::LogOutput::eError)
                << "The driver process cannot go on: " << exception.what() << std::endl;
            return 1;
        }
    } catch (const std::exception& exception) {
        std::cerr << base::printable(options.driverID +
                                     ": the driver process cannot go on: " + exception.what())
                  << std::endl;
        return 1;
    }
}
