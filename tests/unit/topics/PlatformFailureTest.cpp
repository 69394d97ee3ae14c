// A whole life of the module, once for each call that it makes of its host, with exactly that call failing:
// what is specified follows, nothing is in the way of the next try, and nothing is left.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "IMDMConfiguration.h"
#include "MfDriverManager.h"
#include "RecordingDriver.h"
#include "RecordingMacroSystem.h"
#include "RecordingPanelState.h"
#include "RecordingSystem.h"
#include "StandardOutput.h"
#include "sal/Path.h"

namespace {

using Calls = std::vector<std::string>;
using EFailure = fakehost::Journal::EFailure;

const char* const c_configuration = "/wp/workplace.xml";

/// Calls that may fail without a word of the module's: the host has said why, or nothing is lost.
const Calls c_silent{"adapter list", "adapter main address",
                     "adapter has",  "adapter delete",
                     "files",        "entries",
                     "remove",       "chdir",
                     "queue send"};

/// What is said of each other call, on standard output or in the log; "thread mssleep 100" is the pause
/// before a queue is tried again.
const std::map<std::string, Calls> c_texts{
    {"adapter open", {"Failed to determine virtual panel IP address\n", "FAILED! (IP address problem)\n"}},
    {"adapter add", {"FAILED! (IP address problem)\n"}},
    {"mkdir",
     {"Failed to create working directory data/", "Failed to create NVRAM directory /wp/nvram/",
      "Failed to create PANEL working directory\n"}},
    {"working directory",
     {"Failed to create working directory data/", "Failed to create NVRAM directory ",
      "Failed to create PANEL working directory\n"}},
    {"symlink", {"Failed to create symlink to file driver working directory /wp/data/"}},
    {"module load", {"...FAILED!\n"}},
    {"queue create", {"\nFailed to create IPC queues\nFAILED!\n", "thread mssleep 100\n"}},
    {"thread start", {"\nFailed to create receiving thread.\nFAILED!\n"}},
    {"program directory", {"\nFailed to create MFD process.\nFAILED!\n"}},
    {"process start", {"\nFailed to create MFD process.\nFAILED!\n"}},
    {"verify", {"/wp/workplace.xml\" has invalid signature\n"}}};

bool begins(const std::string& call, const std::string& kind) {
    return call.starts_with(kind);
}

/// A machine with two drivers in the host's process and two in processes of their own.
class Machine {
public:
    Machine() {
        g_debugStartMFDProcess = true;
        host.adapters = {{"eth0", "192.0.2.10", {"192.0.2.20"}}};
        host.entries["/var/data"] = {"OLD"};
        host.writeFile("/mods/mods.xml",
                       "<mfDriverModule>"
                       "<module_type name=\"libPanel.so\" type=\"Panel\" version=\"1.0\" pdlFile=\"p.pdl\"/>"
                       "<module_type name=\"libA.so\" type=\"TypeA\" version=\"1.0\"/>"
                       "<module_type name=\"libB.so\" type=\"TypeB\" version=\"1.0\"/>"
                       "<module_type name=\"libQ.so\" type=\"TypeQ\" version=\"1.0\"/></mfDriverModule>");
        host.writeFile(c_configuration, "<workplaces><workplace id=\"1\">" +
                                            entry("A", "direct", "192.0.2.20") +
                                            entry("Q", "queue", "192.0.2.20") + entry("R", "queue", "") +
                                            entry("B", "direct", "") + "</workplace></workplaces>");
        addModule("Panel", "PANEL");
        addModule("A", "A");
        addModule("B", "B");
    }
    ~Machine() { g_debugStartMFDProcess = true; }

    /// The host's part: each step goes on whatever came of the one before it.
    void live() {
        attempt([&] { pManager = std::make_unique<MfDriverManager>(); });
        if (!pManager)
            return;
        if (!attempt([&] { pManager->init(); })) {
            pManager.reset();
            return;
        }
        start();
        use();
        for (const char* driverID : {"A", "Q", "R", "B"})
            attempt([&] { configuration()->reloadMfDriver(driverID); });
        use();
        attempt([&] { pManager->showModules(); });
    }

    void start() {
        attempt([&] { pManager->setSystemInterface(&system); });
        attempt([&] { pManager->setVirtualPanelStateInterface(&panel); });
        search();
        attempt([&] { configuration()->startMfDrivers(host.realPath(c_configuration)); });
        attempt([&] { pManager->onMfDriversStarted(); });
    }

    /// A scan changes the working directory; the host sees to it that it is its own again.
    void search() {
        attempt([&] { configuration()->searchMfDriver("/mods"); });
        if (host.workingDirectory != "/wp")
            sal::Path::setCurrentWorkingDirPath(sal::Path("/wp"));
    }

    /// FIDs to all, state of all.
    void use() {
        for (const char* driverID : {"PANEL", "A", "B", "Q", "R"})
            attempt([&] { sendFID(std::string(driverID) + ".MOVE"); });
        for (const auto& [name, pDriver] : drivers) {
            if (pDriver->pPanelState)
                attempt([&] { pDriver->pPanelState->setStateValue("POSITION", "1"); });
        }
    }

    /// What an operator does next on the same host: looks for modules again where none were found, starts
    /// again what did not start, reloads the rest.
    void tryAgain() {
        if (!pManager) {
            live();
            return;
        }
        std::string panelType = "Panel";
        if (configuration()->getPDLFilename(panelType).empty())
            search();
        if (!drivers.contains("PANEL") && drivers.contains("A"))
            expect(configuration()->startMfDriver(0, "PANEL", "Panel", "1.0", "data/PANEL", "", "",
                                                  EInterfaceTypes::Direct),
                   "the panel does not start");
        else if (!drivers.contains("PANEL"))
            expect(configuration()->startMfDrivers(host.realPath(c_configuration)), "the start fails again");
        for (const std::string driverID : {"A", "Q", "R", "B"})
            expect(configuration()->reloadMfDriver(driverID), driverID + " is not reloaded");
        pManager->onMfDriversStarted();
    }

    /// Every driver is there and talks in both directions.
    void expectServes() {
        for (const std::string driverID : {"A", "B", "PANEL"}) {
            host.journal().clear();
            sendFID(driverID + ".PING");
            expect(host.journal().linesOf({driverID + " sendFID PING"}).size() == 1,
                   driverID + " gets no FID");
            if (!drivers.contains(driverID) || !drivers[driverID]->pPanelState) {
                expect(false, driverID + " is not connected");
                continue;
            }
            drivers[driverID]->pPanelState->setStateValue("POSITION", "7");
            expect(host.journal().count("panel setStateValue " + driverID + ".POSITION 7") == 1,
                   driverID + " reports nothing");
        }
        for (const std::string driverID : {"Q", "R"}) {
            host.journal().clear();
            sendFID(driverID + ".PING");
            const auto waiting = host.queues().messages(driverID + "_INQ");
            expect(!waiting.empty() && waiting.back().find("PING") != std::string::npos,
                   driverID + " gets no FID");
            host.queues().push(driverID + "_OUTQ", std::string("SETVAL\x08POSITION\x01") + "7");
            expect(host.journal().waitFor("panel setStateValue " + driverID + ".POSITION 7"),
                   driverID + " reports nothing");
        }
    }

    void end() {
        attempt([&] { pManager.reset(); });
    }

    /// Behind the end of the manager.
    void expectNothingIsLeft() {
        for (const auto& [driverID, pDriver] : drivers)
            expect(false, driverID + " is left");
        for (const std::string name : {"Q_INQ", "Q_OUTQ", "R_INQ", "R_OUTQ"})
            expect(!host.queues().held(name), name + " is left");
        expect(host.loaded.size() == static_cast<std::size_t>(deletedModules), "modules are left");
        expect(host.workingDirectory == "/wp", "the working directory is " + host.workingDirectory);
    }

    /// Kept, since standard output is caught meanwhile.
    void expect(bool holds, const std::string& complaint) {
        if (!holds)
            complaints.push_back(complaint);
    }

    IMDMConfiguration* configuration() {
        return dynamic_cast<IMDMConfiguration*>(pManager->queryInterface(1104));
    }

    /// Whether no exception came.
    static bool attempt(const std::function<void()>& step) {
        try {
            step();
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    fakehost::FakeHost host;
    RecordingPanelState panel;
    RecordingSystem system;
    RecordingMacroSystem macros;
    std::map<std::string, RecordingDriver*> drivers;  ///< those that live in the host's process
    int deletedModules = 0;
    Calls complaints;
    std::unique_ptr<MfDriverManager> pManager;

private:
    static std::string entry(const std::string& driverID, const std::string& interfaceType,
                             const std::string& address) {
        const std::string type = driverID == "R" ? "Q" : driverID;
        return "<mainframeDriver driverID=\"" + driverID + "\" driverType=\"Type" + type +
               "\" version=\"1.0\" workingDirectory=\"data/" + driverID + "\" ipAddress=\"" + address +
               "\" interfaceType=\"" + interfaceType + "\"/>";
    }

    void addModule(const std::string& name, const std::string& driverID) {
        host.addModule("/mods/lib" + name + ".so", [this, driverID]() -> IInterface* {
            expect(!drivers.contains(driverID), driverID + " is loaded twice");
            auto* pDriver = new RecordingDriver(driverID);
            drivers[driverID] = pDriver;
            if (driverID == "PANEL")
                pDriver->answers[1107] = &macros;
            pDriver->onGone = [this, driverID] {
                drivers.erase(driverID);
                ++deletedModules;
            };
            return static_cast<IFunctionID*>(pDriver);
        });
    }

    void sendFID(const std::string& fid) {
        dynamic_cast<IFunctionID*>(pManager->queryInterface(1100))->sendFID(fid, FIDParameterList());
    }
};

/// The calls of the life without any failure.
Calls callsOfALife() {
    Machine machine;
    machine.host.journal().failCall(-1);
    fakehost::printedBy([&] {
        machine.live();
        machine.end();
    });
    return machine.host.journal().countedCalls();
}

/// Those whose failure ends the program by an assertion; their classes' tests show it.
bool isAsserted(const std::string& call) {
    return begins(call, "getLogOutput") || begins(call, "command register");
}

std::string joined(const Calls& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

void expectIsSaid(const std::string& call, const std::string& text) {
    const auto isKind = [&](const std::string& kind) { return begins(call, kind); };
    if (std::any_of(c_silent.begin(), c_silent.end(), isKind))
        return;
    const auto found =
        std::find_if(c_texts.begin(), c_texts.end(), [&](const auto& entry) { return isKind(entry.first); });
    ASSERT_NE(found, c_texts.end()) << "nobody has said what becomes of it";
    EXPECT_TRUE(std::any_of(found->second.begin(), found->second.end(), [&](const std::string& expected) {
        return text.find(expected) != std::string::npos;
    })) << text;
}

}  // namespace

TEST(PlatformFailure, LifeMakesCallsOfEveryKindThatCanFail) {
    const Calls calls = callsOfALife();
    Calls kinds = c_silent;
    for (const auto& [kind, texts] : c_texts)
        kinds.push_back(kind);
    for (const std::string& kind : kinds) {
        EXPECT_TRUE(std::any_of(calls.begin(), calls.end(), [&](const std::string& call) {
            return begins(call, kind);
        })) << kind;
    }
}

TEST(PlatformFailure, EachCallRefusedOnceIsSaidAndTheNextTryServes) {
    const Calls calls = callsOfALife();
    for (int number = 0; number < static_cast<int>(calls.size()); ++number) {
        const std::string& call = calls[static_cast<std::size_t>(number)];
        if (isAsserted(call))
            continue;
        SCOPED_TRACE("call " + std::to_string(number) + ": " + call);
        Machine machine;
        machine.host.journal().failCall(number, EFailure::Refused);
        std::string text = fakehost::printedBy([&] { machine.live(); });
        text += joined(machine.host.journal().lines());
        const bool isLate = machine.host.journal().countedCalls().size() <= static_cast<std::size_t>(number);
        fakehost::printedBy([&] {
            if (isLate) {
                machine.end();
                return;
            }
            machine.host.journal().failCall(-1);
            machine.tryAgain();
            machine.expectServes();
            machine.end();
        });
        const bool isScan = !isLate && begins(calls[static_cast<std::size_t>(number) + 1], "chdir");
        if (!isLate && !isScan)
            expectIsSaid(call, text);
        machine.expectNothingIsLeft();
        ASSERT_EQ(machine.complaints, Calls());
    }
}

TEST(PlatformFailure, EachCallWithoutMemoryOnceLeavesTheNextTryFree) {
    const Calls calls = callsOfALife();
    for (int number = 0; number < static_cast<int>(calls.size()); ++number) {
        SCOPED_TRACE("call " + std::to_string(number) + ": " + calls[static_cast<std::size_t>(number)]);
        Machine machine;
        machine.host.journal().failCall(number, EFailure::Throws);
        fakehost::printedBy([&] { machine.live(); });
        const bool isOver = machine.host.journal().countedCalls().size() <= static_cast<std::size_t>(number);
        machine.host.journal().failCall(-1);
        fakehost::printedBy([&] {
            if (!isOver) {
                machine.tryAgain();
                machine.expectServes();
            }
            machine.end();
        });
        machine.expectNothingIsLeft();
        ASSERT_EQ(machine.complaints, Calls());
        // What is left of the calls belongs to the end, out of which nothing can be thrown.
        if (isOver)
            break;
    }
}

TEST(PlatformFailure, FreshManagerStartsWhereEachCallWasRefused) {
    const Calls calls = callsOfALife();
    for (int number = 0; number < static_cast<int>(calls.size()); ++number) {
        const std::string& call = calls[static_cast<std::size_t>(number)];
        if (isAsserted(call))
            continue;
        SCOPED_TRACE("call " + std::to_string(number) + ": " + call);
        Machine machine;
        machine.host.journal().failCall(number, EFailure::Refused);
        fakehost::printedBy([&] {
            machine.live();
            machine.end();
        });
        machine.host.journal().failCall(-1);
        fakehost::printedBy([&] {
            machine.live();
            machine.expectServes();
            machine.end();
        });
        machine.expectNothingIsLeft();
        ASSERT_EQ(machine.complaints, Calls());
    }
}
