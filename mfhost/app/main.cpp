#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "AmbientCapabilities.h"
#include "CheckCommand.h"
#include "Console.h"
#include "ControlSocket.h"
#include "DataDirectoryLock.h"
#include "DescriptorLimit.h"
#include "Host.h"
#include "HostLog.h"
#include "LineOwner.h"
#include "OptionParser.h"
#include "Printable.h"
#include "RecordingPlace.h"
#include "RingPlace.h"
#include "Sandbox.h"
#include "ServiceManager.h"
#include "StandInAdapter.h"
#include "StopSignals.h"
#include "TerminalModes.h"
#include "TerminalRelay.h"
#include "WebPort.h"
#include "WorkDirectoryLock.h"
#include "XMLVerify.h"
#include "sal/HostQueueDirectory.h"
#include "sal/LogManager.h"
#include "sal/NetworkAdapter.h"

namespace {

/// A stream that the caller has closed would otherwise become the next file that is opened.
void openStandardStreams() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) == -1 && errno == EBADF)
            static_cast<void>(::open("/dev/null", O_RDWR));
    }
}

std::string environment(const char* name) {
    const char* const pValue = ::getenv(name);
    return pValue ? pValue : "";
}

/// Driver processes take these over. They get the soft limit of descriptors as it was: one of their libraries
/// may use select(), which breaks on a descriptor from 1024 on.
void setEnvironment(const Options& options, rlim_t descriptorLimit) {
    const auto seconds = (options.stopTimeout.count() + 999) / 1000;
    ::setenv("MFD_LOG_LEVEL", std::to_string(options.logLevel).c_str(), 1);
    ::setenv("MFD_STOP_TIMEOUT", std::to_string(seconds).c_str(), 1);
    if (descriptorLimit != RLIM_INFINITY)
        ::setenv("MFD_DESCRIPTORS", std::to_string(descriptorLimit).c_str(), 1);
}

/// Keeps what is made meanwhile from being open for writing to others than the owner.
class NarrowUmask {
public:
    NarrowUmask() : m_before(::umask(022)) { ::umask(m_before | 022); }
    ~NarrowUmask() { ::umask(m_before); }
    NarrowUmask(const NarrowUmask&) = delete;
    NarrowUmask& operator=(const NarrowUmask&) = delete;

private:
    const mode_t m_before;
};

bool enterWorkDirectory(const std::string& directory) {
    if (directory.empty())
        return true;
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (!error)
        std::filesystem::current_path(directory, error);
    if (error)
        std::cerr << base::printable("mfhost: --workdir " + directory + ": " + error.message()) << std::endl;
    return !error;
}

/// Whether the machine itself serves where no sandbox can be had; says so, or why not.
bool useMachine(Options& options, const std::string& refusal) {
    std::cerr << "mfhost: no sandbox here (" << base::printable(refusal)
              << "): the workplace uses this machine's /var/data and adapters" << std::endl;
    const std::string directory =
        options.workDirectory.empty() ? std::filesystem::current_path().string() : options.workDirectory;
    if (const std::string names = DataDirectoryLock::foreignEntries("/var/data", directory); !names.empty()) {
        std::cerr
            << "mfhost: a start empties /var/data, and it holds what is not this workplace's: "
            << base::printable(names) << "\n"
            << "mfhost: stopped. Move that away, or run it where a sandbox can be had: as root, or with "
               "user namespaces allowed"
            << std::endl;
        return false;
    }
    std::cerr << "mfhost: runs on this machine's own /var/data";
    if (const std::string adapter = standInAdapter(); !adapter.empty() && options.adapters.empty()) {
        std::cerr << ", with the adapter " << base::printable(adapter) << " as eth0";
        options.adapters.emplace_back("eth0", adapter);
    }
    std::cerr << std::endl;
    return true;
}

/// Sandbox and working directory; an exit code when that is all, or not possible.
std::optional<int> enterPlace(Options& options) {
    const NarrowUmask umask;
    if (options.prefersSandbox) {
        const std::string refusal = sandboxRefusal();
        if (!refusal.empty() && !useMachine(options, refusal))
            return 1;
        options.sandbox = refusal.empty();
    }
    if (options.sandbox) {
        if (const std::string reason = enterSandbox(options.sandboxDirectory); !reason.empty()) {
            std::cerr << "mfhost: --sandbox is not possible here: " << base::printable(reason) << std::endl;
            return 1;
        }
        if (options.prefersSandbox)
            std::cerr
                << "mfhost: runs in a sandbox: its own /var/data, /dev/shm and adapter eth0; nothing of "
                   "this machine is touched"
                << std::endl;
    }
    if (options.probeSandbox)
        return 0;
    if (!enterWorkDirectory(options.workDirectory))
        return 1;
    return std::nullopt;
}

int runHost(const Options& options, StopSignals& signals, const sal::HostQueueDirectory& queueDirectory,
            ControlSocket& controlSocket, WebPort& webPort, RingPlace& ringPlace,
            std::vector<RingPlace::Left> leftRings) {
    // What an operator types is not torn by what is printed meanwhile.
    TerminalRelay::Pointer pRelay;
    std::string noRelay;
    if (options.console && Console::isInteractive())
        pRelay = TerminalRelay::make(noRelay);
    ServiceManager service(ServiceManager::Settings::ofEnvironment(options.callLimit));
    // The log's thread may outlive the log when its destination blocks.
    const auto pLineOwner = std::make_shared<LineOwner>();
    sal::LogManager log({.level = options.logLevel,
                         .file = options.logFile,
                         .tag = {},
                         .driverOf = [pLineOwner](const std::string& output, const std::string& text) {
                             return pLineOwner->driverOf(output, text);
                         }});
    if (!noRelay.empty())
        hostLog(sal::LogOutput::eWarning)
            << "what is printed while a line is typed comes into that line: " << noRelay << std::endl;
    XMLVerify::setTrustDirectory(options.trustDirectory);
    for (const auto& [name, real] : options.adapters)
        sal::NetworkAdapter::setSecondName(name, real);

    DataDirectoryLock data("/var/data");
    if (const std::string reason = data.acquire(); !reason.empty()) {
        hostLog(sal::LogOutput::eCritical) << reason << std::endl;
        log.flush();
        return 1;
    }
    WorkDirectoryLock workDirectory;
    if (const std::string reason = workDirectory.acquire(); !reason.empty()) {
        hostLog(sal::LogOutput::eCritical) << reason << std::endl;
        log.flush();
        return 1;
    }
    if (const std::string names = DataDirectoryLock::foreignEntries("/var/data"); !names.empty())
        hostLog(sal::LogOutput::eWarning) << "/var/data holds more than drivers' links (" << names
                                          << "); the start removes all that it can" << std::endl;
    queueDirectory.removeLeft();
    const int exitCode = Host(options, signals, queueDirectory, controlSocket, webPort, service, *pLineOwner,
                              ringPlace, std::move(leftRings), pRelay.get())
                             .run();
    log.flush();
    return exitCode;
}

int runProgram(int argc, char** argv) {
    // The terminal's character set, for line editing; numbers stay as they are written everywhere.
    std::setlocale(LC_CTYPE, "");
    auto parsed = parseOptions(argc, argv, std::cout, std::cerr);
    if (const int* pExitCode = std::get_if<int>(&parsed))
        return *pExitCode;
    auto& options = std::get<Options>(parsed);

    if (options.check)
        return runCheck(options, std::cout);
    // A sandbox has a /run and a network of its own.
    ControlSocket controlSocket;
    if (options.control && !options.probeSandbox) {
        if (const std::string reason = controlSocket.open(*options.control); !reason.empty())
            std::cerr << "mfhost: runs without a control socket: " << base::printable(reason) << std::endl;
    }
    WebPort webPort;
    if (options.web && !options.probeSandbox) {
        const std::string reason = webPort.open({.address = *options.web,
                                                 .certificateFile = options.webCertificate,
                                                 .keyFile = options.webKey,
                                                 .tokenFile = options.webTokens});
        if (!reason.empty())
            std::cerr << "mfhost: runs without the web panel: " << base::printable(reason) << std::endl;
    }
    // Nor does who reads it see a sandbox's memory.
    RingPlace::Settings rings{.isWanted = options.records,
                              .isFile = true,
                              .size = options.recordSize,
                              .queueDirectory = environment("MFD_QUEUE_DIR"),
                              .recording = recordingDirectory(options)};
    std::vector<RingPlace::Left> leftRings;
    std::optional<RingPlace> ringPlace;
    if (!options.probeSandbox) {
        if (options.records)
            leftRings = RingPlace::takeLeft(rings);
        ringPlace.emplace(rings, leftRings);
    }
    if (const std::optional<int> exitCode = enterPlace(options))
        return *exitCode;
    setEnvironment(options, raiseDescriptorLimit());
    makeRoomForDescriptors();
    const sal::HostQueueDirectory queueDirectory;
    rememberTerminalModes();
    StopSignals signals;
    return runHost(options, signals, queueDirectory, controlSocket, webPort, *ringPlace,
                   std::move(leftRings));
}

}  // namespace

int main(int argc, char** argv) {
    clearAmbientCapabilities();
    openStandardStreams();
    try {
        return runProgram(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "mfhost: " << base::printable(error.what()) << std::endl;
        return 1;
    }
}
