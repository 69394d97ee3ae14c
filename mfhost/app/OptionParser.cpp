#include "OptionParser.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <filesystem>

#include "ControlSocket.h"
#include "Printable.h"
#include "RingPlace.h"

namespace {

constexpr double s_largestRecord = 4e9;

std::string absolutePath(const std::string& path) {
    return path.empty() ? path : std::filesystem::absolute(path).string();
}

std::pair<std::string, std::string> adapterNames(const std::string& text) {
    const auto equals = text.find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == text.size())
        throw CLI::ValidationError("--adapter", "\"" + text + "\" is not NAME=REAL, such as eth0=enp3s0");
    return {text.substr(0, equals), text.substr(equals + 1)};
}

WebAddress webAddress(const std::string& text, bool isSecured) {
    WebAddress address;
    std::string error;
    if (!WebAddress::read(text, address, error))
        throw CLI::ValidationError("--web", error);
    if (!isSecured && !address.isLoopback())
        throw CLI::ValidationError(
            "--web", "\"" + text +
                         "\" is reached from other machines: it needs --web-cert and --web-key, or "
                         "--web-plain where nobody else is on the way");
    return address;
}

void checkCommandName(const std::string& name) {
    const auto isBlank = [](unsigned char c) { return std::isspace(c) || std::iscntrl(c); };
    if (name.empty() || std::any_of(name.begin(), name.end(), isBlank))
        throw CLI::ValidationError("--allow-command", "\"" + name + "\" is not one command word");
}

}  // namespace

std::variant<Options, int> parseOptions(int argc, const char* const* argv, std::ostream& out,
                                        std::ostream& err) {
    Options options;
    bool noStartDrivers = false;
    bool noConsole = false;
    bool noControl = false;
    bool recordOff = false;
    std::size_t recordSize = 0;
    std::vector<std::string> secrets;
    double stopTimeout = 3;
    double hangTimeout = 10;
    double restartDelay = 1;
    double callLimit = 60;
    std::string startWait = "second";
    std::string follow;
    std::string control;
    std::string web;
    bool isWebPlain = false;
    std::vector<std::string> adapters;

    CLI::App app("Runs the device drivers of a workplace.", "mfhost");
    app.get_formatter()->column_width(28);
    app.set_version_flag("--version", "mfhost " MFHOST_VERSION);
    app.add_option("--drivers", options.driverDirectories, "directory of driver descriptors; may be repeated")
        ->type_name("DIR")
        ->expected(1)
        ->required()
        ->take_all();
    app.add_option("--config", options.config, "workplace configuration file")->type_name("FILE")->required();
    app.add_option("--workdir", options.workDirectory,
                   "working directory; data/, nvram/ and the drivers' directories lie under it")
        ->type_name("DIR");
    auto* pSandbox =
        app.add_option(
               "--sandbox", options.sandboxDirectory,
               "private mount and network namespaces with a /var/data, a /dev/shm and an adapter eth0 "
               "of their own; /var/data is kept in DIR, else gone at the end")
            ->type_name("[=DIR]")
            ->expected(0, 1);
    app.add_flag("--prefer-sandbox", options.prefersSandbox,
                 "--sandbox where it is possible; else the machine's own /var/data, if there is nothing of "
                 "others in it, and its first adapter that is up as eth0 where it has none")
        ->excludes(pSandbox);
    app.add_option("--adapter", adapters, "a second name for a network adapter")
        ->type_name("NAME=REAL")
        ->expected(1)
        ->take_all();
    app.add_flag("--no-start-mfds", noStartDrivers,
                 "make the queues only; driver processes are started by hand");
    app.add_option(
           "--start-wait", startWait,
           "how long a start or reload waits for a driver process: a full \"second\" for each, or until "
           "few of them are still to be \"attached\" to their queues, a second at most (default second)")
        ->type_name("WHAT")
        ->check(CLI::IsMember({"second", "attached"}).description(""));
    app.add_option("--log-level", options.logLevel,
                   "1 critical, 2 error, 3 warning, 4 info, 5 trace (default 4)")
        ->type_name("N")
        ->check(CLI::Range(1, 5).description(""));
    app.add_option("--log-file", options.logFile, "log also into this file")->type_name("FILE");
    auto* pFollow = app.add_option("--follow", follow, "print each state change and event as it comes")
                        ->type_name("[=GLOB]")
                        ->expected(0, 1);
    app.add_flag("--no-console", noConsole, "do not read standard input");
    auto* pControl = app.add_option("--control", control,
                                    "control socket (default mfhost.sock in $XDG_RUNTIME_DIR, else in /run)")
                         ->type_name("PATH");
    app.add_flag("--no-control", noControl, "without a control socket")->excludes(pControl);
    auto* pWeb = app.add_option("--web", web,
                                "web panel at this port, of this machine alone unless an address is named "
                                "(0: any free port)")
                     ->type_name("[ADDRESS:]PORT");
    auto* pCertificate = app.add_option("--web-cert", options.webCertificate,
                                        "certificate of the web panel, with its chain (PEM)")
                             ->type_name("FILE")
                             ->needs(pWeb);
    auto* pKey = app.add_option("--web-key", options.webKey, "its private key (PEM)")
                     ->type_name("FILE")
                     ->needs(pCertificate);
    pCertificate->needs(pKey);
    app.add_flag("--web-plain", isWebPlain,
                 "without encryption, also for other machines: who is on the way sees and may change all")
        ->needs(pWeb)
        ->excludes(pCertificate);
    app.add_option("--web-tokens", options.webTokens,
                   "file of bearer tokens for scripts: ROLE TOKEN [NAME] a line")
        ->type_name("FILE")
        ->needs(pWeb);
    app.add_option("--allow-command", options.allowedCommands, "a command that drivers may give")
        ->type_name("NAME")
        ->expected(1)
        ->take_all();
    app.add_flag(
        "--tell-panel", options.tellsPanel,
        "send the panel driver PANEL.DRIVER with id, state and cause when a driver starts, hangs or ends");
    app.add_option("--stop-timeout", stopTimeout,
                   "seconds that one driver may hold up a stop, a reload or a shutdown (default 3)")
        ->type_name("S")
        ->check(CLI::Range(0.1, 3600.0).description(""));
    app.add_option("--hang-timeout", hangTimeout,
                   "seconds without taking a message after which a driver process with messages waiting is "
                   "taken for hung and started again; 0 never (default 10)")
        ->type_name("S")
        ->check(CLI::Range(0.0, 86400.0).description(""));
    app.add_option(
           "--restart-limit", options.restartLimit,
           "how often in a row a driver process that ended is started again; 0 never (default without "
           "end)")
        ->type_name("N");
    app.add_option("--restart-delay", restartDelay,
                   "seconds before the first such start; they double up to 60; none before that of a driver "
                   "process that has run for a minute (default 1)")
        ->type_name("S")
        ->check(CLI::Range(0.1, 60.0).description(""));
    app.add_option("--call-limit", callLimit,
                   "seconds that a call of a driver in the host's process may hold up commands before the "
                   "watchdog of the service manager is let run out (default 60)")
        ->type_name("S")
        ->check(CLI::Range(1.0, 86400.0).description(""));
    auto* pRecordSize =
        app.add_option("--record-size", recordSize,
                       "memory for the recording of the last minutes, from 256K on (default 64M, or less "
                       "where there is less room)")
            ->type_name("SIZE")
            ->transform(CLI::AsSizeValue(false).description(""))
            ->check(CLI::Range(static_cast<double>(RingPlace::s_smallest), s_largestRecord).description(""));
    auto* pRecordKeep =
        app.add_option(
               "--record-keep", options.recordKeep,
               "what is kept of the recording in recording/ of the working directory; the oldest goes "
               "(default 1G)")
            ->type_name("SIZE")
            ->transform(CLI::AsSizeValue(false).description(""));
    app.add_flag("--record-off", recordOff, "record nothing of what happens")
        ->excludes(pRecordSize)
        ->excludes(pRecordKeep);
    app.add_option("--secret", secrets,
                   "record *** for the values of this parameter of FIDs; DRIVER.FUNCTION:PARAMETER of "
                   "these alone; wildcards; may be given several times")
        ->type_name("PARAMETER")
        ->allow_extra_args(false);
    auto* pTrust = app.add_option("--trust", options.trustDirectory, "directory of the trusted public keys")
                       ->type_name("DIR");
    app.add_flag("--require-signature", options.requireSignature,
                 "refuse an unsigned or wrongly signed configuration")
        ->needs(pTrust);
    auto* pCheck = app.add_flag("--check", options.check,
                                "check the configuration and the descriptors, start nothing: exit code 1 "
                                "when a start would be refused");
    app.add_flag("--json", options.checkAsJson, "write what --check finds as JSON")->needs(pCheck);
    app.add_flag("--strict", options.checkIsStrict, "exit code 1 when --check finds a warning, too")
        ->needs(pCheck);
    app.add_flag("--probe-sandbox", options.probeSandbox)->group("");

    const auto hasProbe = [&] {
        return std::any_of(argv + 1, argv + argc,
                           [](const char* argument) { return std::string(argument) == "--probe-sandbox"; });
    };
    if (argc > 1 && hasProbe()) {
        app.get_option("--drivers")->required(false);
        app.get_option("--config")->required(false);
    }

    try {
        app.parse(argc, argv);
        for (const std::string& text : adapters)
            options.adapters.push_back(adapterNames(text));
        for (const std::string& name : options.allowedCommands)
            checkCommandName(name);

        for (const std::string& pattern : secrets) {
            if (!options.secrets.add(pattern))
                throw CLI::ValidationError("--secret", base::quoted(pattern) +
                                                           " names no parameter; PARAMETER or "
                                                           "DRIVER.FUNCTION:PARAMETER does");
        }

        options.sandbox = pSandbox->count() > 0 || options.probeSandbox;
        if (pFollow->count() > 0)
            options.follow = follow;
        options.records = !recordOff;
        if (pRecordSize->count() > 0)
            options.recordSize = recordSize;
        options.startDriverProcesses = !noStartDrivers;
        options.waitsUntilAttached = startWait == "attached";
        options.console = !noConsole;
        if (pControl->count() > 0 && control.empty())
            throw CLI::ValidationError("--control",
                                       "an empty path names no socket; --no-control does without");
        if (!noControl)
            options.control = control.empty() ? ControlSocket::defaultPath() : absolutePath(control);
        if (pWeb->count() > 0)
            options.web = webAddress(web, isWebPlain || !options.webCertificate.empty());
        options.stopTimeout = std::chrono::milliseconds(static_cast<long>(stopTimeout * 1000));
        options.hangTimeout = std::chrono::milliseconds(static_cast<long>(hangTimeout * 1000));
        options.restartDelay = std::chrono::milliseconds(static_cast<long>(restartDelay * 1000));
        options.callLimit = std::chrono::milliseconds(static_cast<long>(callLimit * 1000));

        for (std::string& directory : options.driverDirectories)
            directory = absolutePath(directory);
        for (std::string* pPath :
             {&options.config, &options.workDirectory, &options.sandboxDirectory, &options.logFile,
              &options.trustDirectory, &options.webCertificate, &options.webKey, &options.webTokens})
            *pPath = absolutePath(*pPath);
    } catch (const CLI::Success& success) {
        return app.exit(success, out, err);
    } catch (const CLI::Error& error) {
        err << "mfhost: " << base::printable(error.what()) << "\n"
            << "usage: mfhost --drivers DIR [--drivers DIR ...] --config FILE [options]; "
               "mfhost --help lists them"
            << std::endl;
        return 2;
    } catch (const std::filesystem::filesystem_error& error) {
        err << "mfhost: " << base::printable(error.what()) << std::endl;
        return 2;
    }
    return options;
}
