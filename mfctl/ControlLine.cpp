#include "ControlLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "AttachCommand.h"
#include "ChangeCommands.h"
#include "ControlError.h"
#include "DebugCommand.h"
#include "DoctorCommand.h"
#include "DriverCommands.h"
#include "EventCommand.h"
#include "LinkCommands.h"
#include "LinkRightsCommand.h"
#include "LogCommand.h"
#include "MonitorCommand.h"
#include "Nearest.h"
#include "NewDriver.h"
#include "OverviewCommands.h"
#include "PanelCommands.h"
#include "Printable.h"
#include "RecordingCommands.h"
#include "RecordingExport.h"
#include "RecordingKeep.h"
#include "RecordingSearch.h"
#include "RemoteControl.h"
#include "SendCommand.h"
#include "SigningCommands.h"
#include "StateCommands.h"

namespace {

/// In seconds: for what a driver does at once, and for what loads or unloads drivers.
constexpr double s_shortWait = 5;
constexpr double s_longWait = 60;
/// For which a host is asked to record messages; it is asked again after half of it.
constexpr unsigned s_wireSeconds = 60;

/// For the end of a line that names what is wrong.
constexpr const char* s_whatIsRight = "; mfctl [COMMAND] --help tells what is right";

/// Everything that may stand on the command line.
struct Words {
    RemoteControl::Options remote;
    std::string driver;
    bool showsRuns = false;
    std::string glob;
    std::string fid;
    std::vector<std::string> parameters;
    std::vector<std::string> debuggerOptions;
    std::string stage = "delivered";
    std::string role = "operate";
    std::string key;
    std::string value;
    std::string type;
    std::string plan;
    std::string macro;
    std::string name;
    std::string directory;
    std::string privateKey;
    std::string trust;
    std::vector<std::string> files;
    LogCommand::Choice log;
    DoctorCommand::Choice doctor;
    RecordingSearch::Choice recording;
    MonitorCommand::Choice monitor;
    std::string wire;
    EventCommand::Choice events;
    RecordingCommands::Choice records;
    RecordingExport::Choice exported;
    RecordingKeep::Choice kept;
    std::string recorded;  ///< the path of a recording
    unsigned number = 0;
    std::optional<double> timeout;  ///< in seconds
    bool isLong = false;
    bool watches = false;
    bool counts = false;
    bool follows = false;
    bool tellsChanges = false;

    ApiClient::Milliseconds limit(double usual) const {
        return ApiClient::Milliseconds(std::lround(timeout.value_or(usual) * 1000));
    }
};

/// The commands with what each does.
class Commands {
public:
    using Action = std::function<int()>;
    using RemoteAction = std::function<EExit(RemoteControl&)>;

    Commands(CLI::App& app, Words& words, const Screen& screen)
        : m_app(app), m_words(words), m_screen(screen) {}

    CLI::App* add(const char* pName, const char* pHelp, Action action) {
        return add(m_app, pName, pHelp, std::move(action));
    }
    /// One below another.
    CLI::App* add(CLI::App& above, const char* pName, const char* pHelp, Action action) {
        CLI::App* pCommand = above.add_subcommand(pName, pHelp);
        m_actions.emplace_back(pCommand, std::move(action));
        return pCommand;
    }
    /// A name that has commands below it.
    CLI::App* addGroup(const char* pName, const char* pHelp) {
        CLI::App* pGroup = m_app.add_subcommand(pName, pHelp);
        pGroup->require_subcommand(1);
        return pGroup;
    }
    /// One that needs a host.
    CLI::App* addRemote(const char* pName, const char* pHelp, RemoteAction action) {
        CLI::App* pCommand = add(pName, pHelp, [this, action = std::move(action)] {
            RemoteControl control(m_screen, m_words.remote);
            return static_cast<int>(action(control));
        });
        addCommonOptions(*pCommand);
        return pCommand;
    }
    void addCommonOptions(CLI::App& app) {
        app.add_option(
               "--host", m_words.remote.host,
               "the host: the path of its socket, or its workplace (default $MFCTL_HOST, or the only one)")
            ->type_name("PATH|WORKPLACE");
        app.add_flag("--json", m_words.remote.asJson, "print the host's answers as they come");
    }
    /// For what the host may need time for.
    void addTimeout(CLI::App& app, double usual) {
        // Longer the host does not keep what a request came to.
        constexpr double longest = 600;
        app.add_option("--timeout", m_words.timeout,
                       "seconds to wait for its end (default " + std::to_string(std::lround(usual)) + ")")
            ->type_name("S")
            ->check(CLI::Range(0.0, longest).description(""));
    }
    int run() const {
        for (const auto& [pCommand, action] : m_actions) {
            if (pCommand->parsed())
                return action();
        }
        return static_cast<int>(EExit::WrongUsage);
    }

private:
    CLI::App& m_app;
    Words& m_words;
    const Screen& m_screen;
    std::vector<std::pair<CLI::App*, Action>> m_actions;
};

void addDriverCommands(Commands& commands, Words& words) {
    auto* pDrivers = commands.addRemote(
        "drivers", "list the drivers and how they are",
        [&](RemoteControl& control) { return DriverCommands(control).list(words.isLong); });
    pDrivers->add_flag("-l,--long", words.isLong, "everything that is known of each, however wide");

    const auto addOfDriver = [&](const char* pName, const char* pHelp, Commands::RemoteAction action) {
        CLI::App* pCommand = commands.addRemote(pName, pHelp, std::move(action));
        pCommand->add_option("driver", words.driver, "driver ID")->type_name("ID")->required();
        return pCommand;
    };
    CLI::App* pDriver = commands.addRemote(
        "driver", "show all of one driver, or of each that has ended or hangs", [&](RemoteControl& control) {
            DriverCommands driver(control);
            if (words.showsRuns)
                return driver.runs(words.driver);
            return words.driver.empty() ? driver.troubled() : driver.card(words.driver);
        });
    auto* const pCardOf = pDriver->add_option("driver", words.driver, "driver ID")->type_name("ID");
    pDriver
        ->add_flag("--runs", words.showsRuns, "what has become of it instead: starts, ends and their causes")
        ->needs(pCardOf);
    const auto addChange = [&](const char* pName, const char* pHelp, const char* pOperation) {
        CLI::App* pCommand = addOfDriver(pName, pHelp, [&words, pOperation](RemoteControl& control) {
            return DriverCommands(control).change(words.driver, pOperation, words.limit(s_longWait));
        });
        commands.addTimeout(*pCommand, s_longWait);
    };
    addChange("reload", "stop a driver, and start it with what the workplace file says now", "reload");
    CLI::App* pDebug = addOfDriver(
        "debug", "load a driver anew under gdb; what follows the ID is for gdb", [&](RemoteControl& control) {
            return DebugCommand(control).run(words.driver, words.debuggerOptions, words.limit(s_longWait));
        });
    commands.addTimeout(*pDebug, s_longWait);
    pDebug->prefix_command();
    pDebug->parse_complete_callback([&words, pDebug] { words.debuggerOptions = pDebug->remaining(); });
    addChange("stop", "stop a driver and keep it so until \"start\", over restarts of the host too", "park");
    addChange("start", "start a driver that was stopped, or that has ended for good", "unpark");
}

/// Which records are wanted.
void addStreamOptions(CLI::App& app, StreamChoice& choice) {
    app.add_option(
           "--driver", choice.drivers,
           "only of drivers that match; a FID is its sender's and its receiver's; \"host\" is the host")
        ->type_name("GLOB")
        ->allow_extra_args(false);
    app.add_option("--kind", choice.kinds, "only of these kinds, such as value, fid, exit, log")
        ->type_name("KIND")
        ->allow_extra_args(false);
    app.add_option("--glob", choice.glob, "only about what matches: names of values, functions, texts")
        ->type_name("GLOB");
}

void addValueCommands(Commands& commands, Words& words) {
    auto* pState = commands.addRemote("state", "list the state values", [&](RemoteControl& control) {
        StateCommands state(control);
        if (words.counts)
            return state.counts();
        return words.watches ? state.watch(words.glob) : state.show(words.glob);
    });
    auto* pGlob =
        pState->add_option("glob", words.glob, "only keys that match, such as 'SYS.*'")->type_name("GLOB");
    auto* pWatch = pState->add_flag("--watch", words.watches,
                                    "then print each change, until Ctrl-C; waits for a host that goes");
    pState
        ->add_flag("--counts", words.counts,
                   "instead, how much each driver has reported, and how much of it was merged away")
        ->excludes(pGlob)
        ->excludes(pWatch);

    auto* pSend = commands.addRemote(
        "send", "send a function ID, and tell what became of it", [&](RemoteControl& control) {
            return SendCommand(control).run(words.fid, words.parameters, words.stage,
                                            words.limit(s_shortWait));
        });
    pSend->add_option("fid", words.fid, "such as AXIS1.MOVE")->type_name("FID")->required();
    pSend->add_option("parameters", words.parameters, "its parameters, NAME=VALUE each")
        ->type_name("NAME=VALUE");
    pSend
        ->add_option("--wait", words.stage,
                     "how far to wait: accepted, dispatched, delivered or taken (default delivered)")
        ->type_name("STAGE")
        ->check(CLI::IsMember({"accepted", "dispatched", "delivered", "taken"}).description(""));
    commands.addTimeout(*pSend, s_shortWait);

    auto* pSet = commands.addRemote("set", "set a state value", [&](RemoteControl& control) {
        return StateCommands(control).set(words.key, words.value, words.type);
    });
    pSet->add_option("key", words.key)->type_name("KEY")->required();
    pSet->add_option("value", words.value)->type_name("VALUE")->required();
    pSet->add_option("--type", words.type, "string, int, float or bool (default what the value looks like)")
        ->type_name("T")
        ->check(CLI::IsMember({"string", "int", "float", "bool"}).description(""));

    auto* pUnset = commands.addRemote("unset", "remove a state value", [&](RemoteControl& control) {
        return StateCommands(control).unset(words.key);
    });
    pUnset->add_option("key", words.key)->type_name("KEY")->required();

    auto* pEvent = commands.addRemote("event", "trigger an event", [&](RemoteControl& control) {
        return StateCommands(control).trigger(words.key, words.value);
    });
    pEvent->add_option("id", words.key)->type_name("ID")->required();
    pEvent->add_option("value", words.value)->type_name("VALUE");
    auto* pEvents = commands.addRemote(
        "events", "list what has happened last: function IDs, events, commands, starts and ends of drivers",
        [&](RemoteControl& control) {
            // What is wrong with the line is told before a host is asked.
            words.events.what.filter();
            words.events.follows = words.follows;
            return EventCommand(control).show(words.events);
        });
    addStreamOptions(*pEvents, words.events.what);
    pEvents->add_option("-n,--lines", words.events.lines, "how many (default 50)")
        ->type_name("N")
        ->check(CLI::Range(1, 1000).description(""));
    pEvents->add_flag("-f,--follow", words.follows,
                      "then print what comes, until Ctrl-C; waits for a host that goes");
    commands.addRemote("macros", "list the macros",
                       [](RemoteControl& control) { return OverviewCommands(control).macros(); });
    commands.addRemote("links", "list the links to other workplaces and how they are",
                       [](RemoteControl& control) { return LinkCommands(control).list(); });
    auto* pMacro = commands.addRemote("macro", "play a macro", [&](RemoteControl& control) {
        return OverviewCommands(control).play(words.macro, words.limit(s_shortWait));
    });
    pMacro->add_option("name", words.macro)->type_name("NAME")->required();
    commands.addTimeout(*pMacro, s_shortWait);
}

void addFileCommands(Commands& commands, Words& words) {
    commands.addRemote("check", "check the workplace file and the descriptors",
                       [](RemoteControl& control) { return ChangeCommands(control).check(); });
    auto* pPlan = commands.addRemote("plan", "tell what apply would do", [&](RemoteControl& control) {
        return ChangeCommands(control).plan(words.tellsChanges);
    });
    pPlan->add_flag("--exit-code", words.tellsChanges, "end with 6 when there are changes");
    auto* pApply =
        commands.addRemote("apply", "do what the changed files ask for", [&](RemoteControl& control) {
            return ChangeCommands(control).apply(words.plan, words.limit(s_longWait));
        });
    pApply
        ->add_option("plan", words.plan,
                     "only this plan, as \"plan\" named it; refused when the files changed since")
        ->type_name("PLAN");
    commands.addTimeout(*pApply, s_longWait);
    commands.addRemote("history", "list what was applied",
                       [](RemoteControl& control) { return ChangeCommands(control).history(); });
    const auto addNumbered = [&](const char* pName, const char* pHelp, const char* pNumberHelp,
                                 Commands::RemoteAction action) {
        CLI::App* pCommand = commands.addRemote(pName, pHelp, std::move(action));
        pCommand->add_option("number", words.number, pNumberHelp)
            ->type_name("N")
            ->check(CLI::Range(1u, 4'000'000'000u).description(""));
        return pCommand;
    };
    addNumbered("diff", "show what an applied state changed in the workplace file",
                "number of the history (default the last)",
                [&](RemoteControl& control) { return ChangeCommands(control).diff(words.number); });
    CLI::App* pUndo =
        addNumbered("undo", "write a former workplace file back and apply it",
                    "number of the history (default the one before the last)", [&](RemoteControl& control) {
                        return ChangeCommands(control).undo(words.number, words.limit(s_longWait));
                    });
    commands.addTimeout(*pUndo, s_longWait);
}

void addHostCommands(Commands& commands, Words& words, const Screen& screen) {
    commands.addRemote("health", "tell whether all is well: exit code 0, else 1",
                       [](RemoteControl& control) { return OverviewCommands(control).health(); });
    auto* pLog =
        commands.addRemote("log", "show the last log lines of host and drivers", [&](RemoteControl& control) {
            LogCommand log(control);
            return words.follows ? log.follow(words.log) : log.show(words.log);
        });
    pLog->add_option("driver", words.log.driver, "only those of this driver")->type_name("ID");
    pLog->add_option("-n,--lines", words.log.lines, "how many (default 50)")
        ->type_name("N")
        ->check(CLI::Range(1, 1000).description(""));
    pLog->add_option("--level", words.log.level,
                     "only those as urgent: 1 critical, 2 error, 3 warning, 4 info, 5 trace")
        ->type_name("N")
        ->check(CLI::Range(1, 5).description(""));
    pLog->add_flag("-f,--follow", words.follows,
                   "then print what comes, until Ctrl-C; waits for a host that goes");
    commands.addRemote("queues", "list the message queues of driver processes",
                       [](RemoteControl& control) { return OverviewCommands(control).queues(); });
    commands.addRemote("panel", "print the address that opens the web panel with the caller's role",
                       [](RemoteControl& control) { return PanelCommands(control).open(); });
    auto* pPair =
        commands.addRemote("pair", "print six digits that open the web panel on another device",
                           [&](RemoteControl& control) { return PanelCommands(control).pair(words.role); });
    pPair->add_option("--role", words.role, "view, operate or admin (default operate)")
        ->type_name("ROLE")
        ->check(CLI::IsMember({"view", "operate", "admin"}).description(""));
    auto* pSessions = commands.addRemote(
        "sessions", "list who is connected and who may use the web panel, or end a session of that",
        [&](RemoteControl& control) {
            PanelCommands panel(control);
            return words.key == "revoke" ? panel.revoke(words.number) : panel.sessions();
        });
    pSessions->add_option("action", words.key, "list or revoke (default list)")
        ->type_name("ACTION")
        ->check(CLI::IsMember({"list", "revoke"}).description(""));
    pSessions->add_option("number", words.number, "of the session to end")
        ->type_name("N")
        ->check(CLI::Range(1u, 4'000'000'000u).description(""));
    commands.addRemote("attach", "be at the host's console; lines of a pipe are executed one after another",
                       [](RemoteControl& control) { return AttachCommand(control).run(); });
    // For the completions of shells, not for people.
    auto* pComplete = commands.addRemote(
        "complete", "tell what the last word of a line of the host's console may become",
        [&](RemoteControl& control) { return OverviewCommands(control).complete(words.value); });
    pComplete->group("");
    pComplete->add_option("line", words.value)->type_name("LINE")->required();
    commands.addRemote("shutdown", "stop all drivers and end the host",
                       [](RemoteControl& control) { return OverviewCommands(control).shutdown(); });

    auto* pDoctor = commands.add(
        "doctor", "tell what hosts here do or did, whether they answer or not", [&words, &screen] {
            const std::string& host = words.remote.host;
            const bool isPath = host.find('/') != std::string::npos;
            HostSurvey::Settings settings;
            settings.sockets = isPath ? std::vector<std::string>{host} : HostSocket::ofMachine().candidates();
            words.doctor.asJson = words.remote.asJson;
            return static_cast<int>(DoctorCommand(screen, settings).run(words.doctor));
        });
    commands.addCommonOptions(*pDoctor);
    pDoctor->add_flag(
        "--stacks", words.doctor.hasStacks,
        "with the stacks of all threads, which halts each process for some milliseconds; without, only "
        "of hosts that do not answer");
    pDoctor
        ->add_option("--bundle", words.doctor.bundle,
                     "write all that is known into a new file for support, without what looks secret")
        ->type_name("FILE.tar.gz");
}

void addRingOption(CLI::App& app, Words& words) {
    app.add_option("--ring", words.recording.ring, "this file of rings, whatever hosts there are")
        ->type_name("FILE");
}

void addRecordingCommands(Commands& commands, Words& words, const Screen& screen) {
    const auto place = [&words, &screen] {
        words.recording.host = words.remote.host;
        return RecordingSearch(screen).find(words.recording);
    };
    auto* pMonitor =
        commands.add("monitor", "print what happens as it happens, also of a host that hangs or has died",
                     [&words, &screen, place] {
                         words.monitor.asJson = words.remote.asJson;
                         // What is wrong with the line is told before a host is looked for.
                         words.monitor.what.filter();
                         RemoteControl control(screen, {.host = words.remote.host});
                         if (!words.wire.empty()) {
                             words.monitor.what = {
                                 .drivers = {words.wire}, .kinds = {"wire"}, .glob = words.monitor.what.glob};
                             words.monitor.ask = [&] {
                                 control.act("/drivers/" + ApiClient::encoded(words.wire) + "/wire",
                                             {{"seconds", s_wireSeconds}});
                             };
                         }
                         return static_cast<int>(MonitorCommand(screen).run(place().ring, words.monitor));
                     });
    commands.addCommonOptions(*pMonitor);
    addStreamOptions(*pMonitor, words.monitor.what);
    pMonitor
        ->add_option(
            "--from", words.monitor.from,
            "where to begin: oldest, newest (the default while the host lives), or a \"cursor\" that "
            "--json gave")
        ->type_name("PLACE");
    pMonitor
        ->add_option("--wire", words.wire,
                     "only the messages between the host and the process of this driver, each as it is "
                     "before any are merged; the host records them meanwhile")
        ->type_name("ID")
        ->excludes(pMonitor->get_option("--driver"))
        ->excludes(pMonitor->get_option("--kind"));
    pMonitor->add_flag("--date", words.monitor.withDate, "with the date before the time");
    pMonitor->add_option("--count", words.monitor.count, "end after so many records")
        ->type_name("N")
        ->check(CLI::Range(1u, 4'000'000'000u).description(""));
    addRingOption(*pMonitor, words);

    CLI::App& recording = *commands.addGroup("recording", "what happened, from what hosts have recorded");
    const auto addPlace = [&words, &commands](CLI::App& app) {
        commands.addCommonOptions(app);
        addRingOption(app, words);
        app.add_option("--directory", words.recording.directory, "this directory of segments")
            ->type_name("DIR");
    };
    const auto addRecords = [&, place, addPlace](const char* pName, const char* pHelp, auto action) {
        CLI::App* pCommand = commands.add(recording, pName, pHelp, [&words, &screen, place, action] {
            words.records.asJson = words.remote.asJson;
            words.records.what.filter();
            RecordingCommands::boundsOf(words.records);
            const RecordingFiles files =
                words.recorded.empty() ? RecordingFiles::of(place()) : RecordingFiles::at(words.recorded);
            return static_cast<int>(action(RecordingCommands(screen), files));
        });
        addPlace(*pCommand);
        addStreamOptions(*pCommand, words.records.what);
        pCommand
            ->add_option(
                "recording", words.recorded,
                "a black box, a segment, a directory of these or a file of rings (default what the host "
                "has recorded)")
            ->type_name("PATH");
        pCommand
            ->add_option("--from", words.records.from,
                         "only from this moment on: 14:03, 2026-11-22 14:03:22.5, or 5m for five minutes ago")
            ->type_name("TIME");
        return pCommand;
    };
    const auto addEnd = [&words](CLI::App& app, const char* pName) {
        app.add_option(pName, words.records.to, "only up to this moment")->type_name("TIME");
    };
    CLI::App* pList = commands.add(recording, "list", "list what is recorded", [&words, &screen, place] {
        return static_cast<int>(RecordingCommands(screen).list(place(), words.remote.asJson));
    });
    addPlace(*pList);
    CLI::App* pShow = addRecords(
        "show", "print the records",
        [&words](auto sut, const RecordingFiles& files) { return sut.show(files, words.records); });
    addEnd(*pShow, "--to,--until");
    pShow->add_option("--count", words.records.count, "end after so many records")
        ->type_name("N")
        ->check(CLI::Range(1u, 4'000'000'000u).description(""));
    CLI::App* pStats = addRecords(
        "stats", "count the records by driver and kind",
        [&words](auto sut, const RecordingFiles& files) { return sut.stats(files, words.records); });
    addEnd(*pStats, "--to,--until");
    CLI::App* pExport =
        addRecords("export", "write the records for other programs",
                   [&words, &screen](auto, const RecordingFiles& files) {
                       return RecordingExport(screen).run(files, words.records, words.exported);
                   });
    addEnd(*pExport, "--until");
    pExport->add_option("--to", words.exported.format, "mcap, jsonl or csv")
        ->type_name("FORMAT")
        ->required()
        ->check(CLI::IsMember({"mcap", "jsonl", "csv"}).description(""));
    pExport->add_option("--output", words.exported.output, "a new file (default standard output)")
        ->type_name("FILE");
    pExport->add_flag("--redact", words.exported.isRedacted,
                      "without what drivers and people wrote: texts, parameters, commands, lines");
    CLI::App* pDiff = addRecords(
        "diff", "tell what is otherwise at one moment than at an earlier one",
        [&words](auto sut, const RecordingFiles& files) { return sut.diff(files, words.records); });
    addEnd(*pDiff, "--to,--until");
    pDiff->get_option("--from")->required();

    CLI::App* pKeep =
        commands.add(recording, "keep", "put the last minute aside, where no host takes it away",
                     [&words, &screen, place] {
                         const RecordingPlace found = place();
                         return static_cast<int>(RecordingKeep(screen).run(RecordingFiles::of(found),
                                                                           found.directory, words.kept));
                     });
    addPlace(*pKeep);
    pKeep->add_option("--note", words.kept.note, "what it is kept for")->type_name("TEXT");
    pKeep->add_option("--before", words.kept.before, "how many seconds (default 60)")
        ->type_name("S")
        ->check(CLI::Range(1u, 86'400u).description(""));
    pKeep
        ->add_option("--output", words.kept.output,
                     "a new file (default one in the directory, below \"kept\")")
        ->type_name("FILE");
}

void addLinkFileCommands(Commands& commands, Words& words, const Screen& screen) {
    CLI::App& link = *commands.addGroup("link", "what the files of links to other workplaces say");
    auto* pAcl = commands.add(
        link, "acl", "print what the sites of a workplace's links may do, for the ACL file of their broker",
        [&] { return static_cast<int>(LinkRightsCommand(screen).run(words.name, words.directory)); });
    pAcl->add_option("workplace", words.name, "workplace configuration file")->type_name("FILE")->required();
    pAcl->add_option("--workdir", words.directory,
                     "working directory of its host, below which link.xml lies (default .)")
        ->type_name("DIR");
}

void addSigningCommands(Commands& commands, Words& words, const Screen& screen) {
    auto* pKeygen = commands.add("keygen", "make NAME.key (keep it secret) and NAME.pem (to be trusted)",
                                 [&] { return SigningCommands(screen.out, screen.err).keygen(words.name); });
    pKeygen->add_option("name", words.name, "path of the two files without their endings")
        ->type_name("NAME")
        ->required();
    auto* pSign = commands.add("sign", "sign files: FILE.sig, and FILE.sig.info with the key's number", [&] {
        return SigningCommands(screen.out, screen.err).sign(words.privateKey, words.files);
    });
    pSign->add_option("--key", words.privateKey, "private key")->type_name("FILE")->required();
    pSign->add_option("files", words.files, "what to sign")->type_name("FILE")->required();
    auto* pVerify = commands.add("verify", "tell whether trusted keys signed the files", [&] {
        return SigningCommands(screen.out, screen.err).verify(words.trust, words.files);
    });
    pVerify->add_option("--trust", words.trust, "directory of the trusted public keys (*.pem)")
        ->type_name("DIR")
        ->required();
    pVerify->add_option("files", words.files, "what to check")->type_name("FILE")->required();
}

void addAuthorCommands(Commands& commands, Words& words, const Screen& screen) {
    auto* pNew = commands.add("new-driver", "write the project of a new driver: code, descriptor, test", [&] {
        return static_cast<int>(NewDriver(screen).write(words.name, words.directory));
    });
    pNew->add_option("name", words.name, "name of the driver, such as lamp")->type_name("NAME")->required();
    pNew->add_option("--directory", words.directory, "where its files are written (default ./NAME)")
        ->type_name("DIR");
}

/// "there is no command "drivres"; did you mean "drivers"?"
std::string unknownText(const char* pKind, const std::string& word, const std::vector<std::string>& known) {
    const std::vector<std::string> names = base::nearest(word, known);
    const std::string text = std::string("there is no ") + pKind + " " + base::quoted(word);
    return text + (names.empty() ? s_whatIsRight : base::didYouMeanQuoted(names));
}

/// What is wrong with the first words that can only be meant as a command; empty where nothing is.
std::string commandFault(const CLI::App& app, int argc, const char* const* argv) {
    const CLI::App* pAbove = &app;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--host") {
            ++i;
            continue;
        }
        if (word.starts_with("-"))
            continue;
        const CLI::App* pNamed = nullptr;
        std::vector<std::string> names;
        for (const CLI::App* pCommand : pAbove->get_subcommands(nullptr)) {
            names.push_back(pCommand->get_name());
            if (word == pCommand->get_name())
                pNamed = pCommand;
        }
        if (!pNamed)
            return unknownText("command", word, names);
        if (pNamed->get_subcommands(nullptr).empty())
            return {};
        pAbove = pNamed;
    }
    return {};
}

/// The same for the first word that nothing takes and that can only be meant as an option. After parsing.
std::string optionFault(const CLI::App& app) {
    std::vector<const CLI::App*> places{&app};
    for (std::size_t i = 0; i < places.size(); ++i) {
        const CLI::App* const pPlace = places[i];
        for (const CLI::App* pCommand : pPlace->get_subcommands())
            places.push_back(pCommand);
        std::vector<std::string> names;
        for (const CLI::Option* pOption : pPlace->get_options()) {
            for (const std::string& name : pOption->get_lnames())
                names.push_back("--" + name);
            for (const std::string& name : pOption->get_snames())
                names.push_back("-" + name);
        }
        for (const std::string& word : pPlace->remaining()) {
            if (word.starts_with("-") && word != "-" && word != "--")
                return unknownText("option", word.substr(0, word.find('=')), names);
        }
    }
    return {};
}

}  // namespace

int runControlLine(int argc, const char* const* argv, const Screen& screen) {
    Words words;
    CLI::App app("Controls a running mfhost, signs the files of a workplace, begins new drivers.", "mfctl");
    app.set_version_flag("--version", "mfctl " MFCTL_VERSION);
    app.require_subcommand(1);
    app.get_formatter()->column_width(28);

    Commands commands(app, words, screen);
    commands.addCommonOptions(app);
    addDriverCommands(commands, words);
    addValueCommands(commands, words);
    addFileCommands(commands, words);
    addHostCommands(commands, words, screen);
    addRecordingCommands(commands, words, screen);
    addLinkFileCommands(commands, words, screen);
    addSigningCommands(commands, words, screen);
    addAuthorCommands(commands, words, screen);

    try {
        app.parse(argc, argv);
        if (const char* pHost = std::getenv("MFCTL_HOST"); pHost && words.remote.host.empty())
            words.remote.host = pHost;
        return commands.run();
    } catch (const CLI::Success& success) {
        return app.exit(success, screen.out, screen.err);
    } catch (const CLI::Error& error) {
        std::string fault = commandFault(app, argc, argv);
        if (fault.empty())
            fault = optionFault(app);
        if (fault.empty())
            fault = std::string(error.what()) + s_whatIsRight;
        screen.complain(fault);
        return static_cast<int>(EExit::WrongUsage);
    } catch (const ControlError& error) {
        screen.complain(error.what());
        return static_cast<int>(error.exit());
    } catch (const std::exception& error) {
        screen.complain(std::string("cannot go on: ") + error.what());
        return static_cast<int>(EExit::Failed);
    }
}
