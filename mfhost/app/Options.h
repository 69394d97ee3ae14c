#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "SecretNames.h"
#include "WebAddress.h"

/// What the command line asks for. All paths are absolute, so that they hold whatever directory is entered.
struct Options {
    std::vector<std::string> driverDirectories;
    std::string config;  ///< empty: the panel driver alone
    std::string workDirectory;
    bool sandbox = false;
    bool prefersSandbox = false;   ///< where it is refused, the machine itself serves
    std::string sandboxDirectory;  ///< empty: nothing of the sandbox is kept
    bool probeSandbox = false;
    bool check = false;  ///< only check the files
    bool checkAsJson = false;
    bool checkIsStrict = false;                                 ///< warnings count as well
    std::vector<std::pair<std::string, std::string>> adapters;  ///< second name, real name
    bool startDriverProcesses = true;
    /// A start goes on as the driver processes come up, not after a second for each.
    bool waitsUntilAttached = false;
    int logLevel = 4;
    std::string logFile;
    bool tellsPanel = false;            ///< of the other drivers' starts and ends
    std::optional<std::string> follow;  ///< a shell pattern, empty for everything
    bool console = true;
    std::optional<std::string> control;  ///< the control socket's path; nothing: there is none
    std::optional<WebAddress> web;       ///< nothing: there is no web panel
    std::string webCertificate;          ///< empty: no TLS
    std::string webKey;
    std::string webTokens;  ///< empty for none
    std::vector<std::string> allowedCommands;
    std::chrono::milliseconds stopTimeout{3000};
    std::chrono::milliseconds hangTimeout{10000};  ///< 0: nothing is taken for hung
    std::chrono::milliseconds restartDelay{1000};  ///< before the first of several starts in a row
    std::optional<unsigned int> restartLimit;      ///< starts in a row; nothing: without end
    /// How long a call of a driver in the host's process may hold up commands before the service manager is
    /// left to end the host.
    std::chrono::milliseconds callLimit{60000};
    bool records = true;                    ///< what happens is kept in a file and on the disk
    std::optional<std::size_t> recordSize;  ///< bytes of the stream; nothing: as there is room
    std::size_t recordKeep = std::size_t{1} << 30;
    SecretNames secrets;  ///< parameters whose values are not recorded
    bool requireSignature = false;
    std::string trustDirectory;
};
