#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "DriverProcess.h"
#include "Printable.h"
#include "WrapperOptions.h"
#include "sal/LogManager.h"

namespace {

constexpr const char* usage =
    "usage: mfddllwrap MODULEPATH DRIVERID\n"
    "Runs the driver module in this process, behind the queues DRIVERID_INQ and DRIVERID_OUTQ of a running "
    "host.\n";

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    if (arguments == std::vector<std::string>{"--help"}) {
        std::cout << usage;
        return 0;
    }
    const WrapperOptions options =
        WrapperOptions::parse(arguments, [](const char* name) { return std::getenv(name); });
    if (!options.usable) {
        std::cerr << usage;
        return 2;
    }

    try {
        sal::LogManager log({.level = options.logLevel, .file = {}, .tag = options.driverID});
        try {
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
