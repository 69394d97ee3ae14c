#include "MfDriverManager.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "FIDParameterList.h"
#include "FakeHost.h"
#include "FlushedOutput.h"
#include "IDistributorFID.h"
#include "IMDMConfiguration.h"
#include "IPanelMFD.h"
#include "IPanelSettings.h"
#include "MDMFidDistributor.h"
#include "MDMModuleHandler.h"
#include "RecordingDriver.h"
#include "RecordingFunctionID.h"
#include "RecordingMacroSystem.h"
#include "RecordingPanelState.h"
#include "RecordingSystem.h"
#include "StandardOutput.h"

namespace {

using Calls = std::vector<std::string>;

// What the flag was before any test.
const bool s_flagAtFirst = g_debugStartMFDProcess;

class Settings : public IPanelSettings {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
};

class Panel : public IPanelMFD {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
};

struct Manager {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    RecordingSystem system;
    RecordingMacroSystem macros;
    Settings settings;
    Panel panelMfd;
    RecordingDriver* pPanelDriver = nullptr;
    std::unique_ptr<MfDriverManager> pSut = std::make_unique<MfDriverManager>();
    MfDriverManager& sut = *pSut;

    Manager() { g_debugStartMFDProcess = true; }
    ~Manager() {
        fakehost::printedBy([&] { pSut.reset(); });
        g_debugStartMFDProcess = true;
    }

    IMDMConfiguration* configuration() { return dynamic_cast<IMDMConfiguration*>(sut.queryInterface(1104)); }
    /// Makes modules of the types Panel and Axis known.
    void search() {
        host.writeFile("/mods/mods.xml",
                       "<mfDriverModule><module_type name=\"libPanel.so\" type=\"Panel\" version=\"1.0\"/>"
                       "<module_type name=\"libAxis.so\" type=\"Axis\" version=\"1.0\"/></mfDriverModule>");
        host.addModule("/mods/libPanel.so", [this]() -> IInterface* {
            pPanelDriver = new RecordingDriver("PANEL");
            return static_cast<IFunctionID*>(pPanelDriver);
        });
        host.addModule("/mods/libAxis.so", []() -> IInterface* {
            return static_cast<IFunctionID*>(new RecordingDriver("axis"));
        });
        configuration()->searchMfDriver("/mods");
    }
    void startPanel() {
        search();
        fakehost::printedBy([&] { EXPECT_TRUE(configuration()->startMfDrivers("")); });
    }
    void startAxis() {
        fakehost::printedBy([&] {
            EXPECT_TRUE(configuration()->startMfDriver(0, "A", "Axis", "1.0", "data/A", "", "",
                                                       EInterfaceTypes::Direct));
        });
    }
    bool execute(const std::string& line) {
        std::ostringstream reply;
        return sal::CmdProcessor::getInstance()->execute(line, reply);
    }
    std::string help(const std::string& name) {
        std::ostringstream reply;
        EXPECT_TRUE(sal::CmdProcessor::getInstance()->help(name, reply)) << name;
        return reply.str();
    }
};

}  // namespace

// Construction.

TEST(MfDriverManager, ConstructionAsksForTheLogOutputAndMakesNothing) {
    Manager s;
    EXPECT_EQ(s.host.journal().lines(), Calls{"getLogOutput MDM"});
}

TEST(MfDriverManager, MissingLogManagerEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            fakehost::FakeHost host;
            host.removeLogManager();
            const MfDriverManager sut;
        },
        "assertion failed: s_pInstance\n");
}

TEST(MfDriverManager, MissingLogOutputEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            fakehost::FakeHost host;
            host.fail("getLogOutput MDM");
            const MfDriverManager sut;
        },
        "assertion failed: m_pLog\n");
}

TEST(MfDriverManager, DestructionBeforeInitDoesNothing) {
    Manager s;
    s.host.journal().clear();
    EXPECT_EQ(fakehost::printedBy([&] { s.pSut.reset(); }), "");
    EXPECT_EQ(s.host.journal().lines(), Calls{});
}

// init.

TEST(MfDriverManager, InitMakesHandlerAndDistributorAndRegistersTheCommandsInOrder) {
    Manager s;
    s.host.journal().clear();
    s.sut.init();
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"getLogOutput MDM", "getLogOutput MDM", "command register setStateValue",
                     "command register unsetStateValue", "command register triggerEvent",
                     "command register sendFID", "command register reloadDriver"}));
}

TEST(MfDriverManager, MissingCommandProcessorEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Manager s;
            s.host.removeCmdProcessor();
            s.sut.init();
        },
        "assertion failed: s_pInstance\n");
}

TEST(MfDriverManager, HelpTextsAreThoseOfTheCommands) {
    Manager s;
    s.sut.init();
    EXPECT_EQ(s.help("setStateValue"),
              "setStateValue <state ID> <state value>\n\tchange the value of an PanelState entry.");
    EXPECT_EQ(s.help("unsetStateValue"), "unsetStateValue <state ID>\n\tremove a PanelState entry.");
    EXPECT_EQ(s.help("triggerEvent"),
              "triggerEvent <event ID> <event value>\n\tsend trigger event to PDL interpreter.");
    EXPECT_EQ(s.help("sendFID"),
              "sendFID <FID> [<parameter name>=<parameter value> [...]]\n\tSend a FunctionID with optional "
              "parameters");
    EXPECT_EQ(s.help("reloadDriver"),
              "reloadDriver <driver ID>\n\treloads an MF driver module (stop and restart).");
}

TEST(MfDriverManager, NoOtherCommandIsRegistered) {
    Manager s;
    s.sut.init();
    EXPECT_EQ(sal::CmdProcessor::getInstance()->names(),
              (Calls{"reloadDriver", "sendFID", "setStateValue", "triggerEvent", "unsetStateValue"}));
}

TEST(MfDriverManager, StateCommandsReachTheVirtualPanelAtFirst) {
    Manager s;
    s.sut.init();
    EXPECT_EQ(fakehost::printedBy([&] {
                  EXPECT_TRUE(s.execute("setStateValue PANEL.LAMP 1"));
                  EXPECT_TRUE(s.execute("unsetStateValue PANEL.LAMP"));
                  EXPECT_TRUE(s.execute("triggerEvent PANEL.ALARM hot"));
              }),
              "MDMVirtualPanelIPCI: sends => PANEL.LAMP   state => 1\n\n"
              "MDMVirtualPanelIPCI: sends => PANEL.LAMP   state => INVALID\n\n"
              "MDMVirtualPanelIPCI: triggers => PANEL.ALARM   value => hot\n\n");
}

TEST(MfDriverManager, StateCommandsReachTheHostsPanelOnceItIsSet) {
    Manager s;
    s.sut.init();
    s.sut.setVirtualPanelStateInterface(&s.panel);
    EXPECT_EQ(fakehost::printedBy([&] { s.execute("setStateValue PANEL.LAMP 1"); }), "");
    EXPECT_EQ(s.host.journal().linesOf({"panel"}), Calls{"panel setStateValue PANEL.LAMP 1"});
}

TEST(MfDriverManager, SendFidCommandReachesADriver) {
    Manager s;
    s.sut.init();
    s.search();
    s.startAxis();
    EXPECT_TRUE(s.execute("sendFID A.MOVE x=1"));
    EXPECT_EQ(s.host.journal().linesOf({"axis sendFID"}), Calls{"axis sendFID MOVE {x=1}"});
}

TEST(MfDriverManager, ReloadCommandReachesTheHandler) {
    Manager s;
    s.sut.init();
    EXPECT_FALSE(s.execute("reloadDriver A"));
    s.host.writeFile(
        "/wp/workplace.xml",
        "<workplaces><workplace id=\"0\"><mainframeDriver driverID=\"A\"/></workplace></workplaces>");
    s.configuration()->startMfDrivers("workplace.xml");
    EXPECT_TRUE(s.execute("reloadDriver A"));
}

TEST(MfDriverManager, PanelStateTargetMayBeNull) {
    Manager s;
    s.sut.init();
    s.sut.setVirtualPanelStateInterface(nullptr);
    EXPECT_EQ(fakehost::printedBy([&] { EXPECT_TRUE(s.execute("setStateValue PANEL.LAMP 1")); }), "");
}

TEST(MfDriverManager, CatalogueIsPublishedToTheHostsPanelAlone) {
    Manager s;
    s.sut.init();
    EXPECT_EQ(fakehost::printedBy([&] { s.search(); }), "");
    s.sut.setVirtualPanelStateInterface(&s.panel);
    s.host.makeDirectory("/empty");
    s.configuration()->searchMfDriver("/empty");
    EXPECT_EQ(s.host.journal().count("panel setStateValueInt PANEL.MFDDEF.COUNT 2"), 1);
}

// The host's interfaces.

TEST(MfDriverManager, SystemInterfaceSetBeforeInitHasNoEffect) {
    Manager s;
    s.sut.setSystemInterface(&s.system);
    s.sut.init();
    s.startPanel();
    EXPECT_EQ(s.pPanelDriver->pSystem, nullptr);
}

TEST(MfDriverManager, SystemInterfaceReachesTheDrivers) {
    Manager s;
    s.sut.init();
    s.sut.setSystemInterface(&s.system);
    s.startPanel();
    EXPECT_EQ(s.pPanelDriver->pSystem, static_cast<ISystem*>(&s.system));
}

TEST(MfDriverManager, PanelStateInterfaceSetBeforeInitHasNoEffect) {
    Manager s;
    s.sut.setVirtualPanelStateInterface(&s.panel);
    s.sut.init();
    EXPECT_EQ(fakehost::printedBy([&] { s.execute("setStateValue PANEL.LAMP 1"); }),
              "MDMVirtualPanelIPCI: sends => PANEL.LAMP   state => 1\n\n");
    EXPECT_EQ(s.host.journal().linesOf({"panel"}), Calls{});
}

// Interfaces by number.

TEST(MfDriverManager, AnswersTheDistributorsFunctionID) {
    Manager s;
    s.sut.init();
    auto* pFunctionID = dynamic_cast<IFunctionID*>(s.sut.queryInterface(1100));
    ASSERT_NE(pFunctionID, nullptr);
    pFunctionID->sendFID("NOPE.x", FIDParameterList());
    EXPECT_EQ(s.host.journal().linesOf({"log"}),
              (Calls{"log MDM 5: MDM: NOPE.x ( ) received.", "log MDM 5: MDM:  -> but not dispatched"}));
}

TEST(MfDriverManager, AnswersAreTheComponentsThemselves) {
    Manager s;
    s.sut.init();
    EXPECT_NE(dynamic_cast<MDMFidDistributor*>(s.sut.queryInterface(1100)), nullptr);
    EXPECT_NE(dynamic_cast<MDMModuleHandler*>(s.sut.queryInterface(1104)), nullptr);
}

TEST(MfDriverManager, AnswersTheHandlersConfiguration) {
    Manager s;
    s.sut.init();
    EXPECT_NE(s.configuration(), nullptr);
}

TEST(MfDriverManager, AnswersNothingElse) {
    Manager s;
    s.sut.init();
    for (unsigned int id : {0u, 1011u, 1013u, 1101u, 1102u, 1103u, 1105u, 1106u, 1108u, 1110u, 1201u})
        EXPECT_EQ(s.sut.queryInterface(id), nullptr) << id;
}

TEST(MfDriverManager, PanelInterfacesAreNullBeforeInit) {
    Manager s;
    for (unsigned int id : {1012u, 1107u, 1109u})
        EXPECT_EQ(s.sut.queryInterface(id), nullptr) << id;
}

TEST(MfDriverManager, PanelInterfacesAreNullWithoutAPanelDriver) {
    Manager s;
    s.sut.init();
    s.search();
    s.startAxis();
    for (unsigned int id : {1012u, 1107u, 1109u})
        EXPECT_EQ(s.sut.queryInterface(id), nullptr) << id;
}

TEST(MfDriverManager, PanelInterfacesAreNullWhenThePanelDriverDoesNotAnswer) {
    Manager s;
    s.sut.init();
    s.startPanel();
    for (unsigned int id : {1012u, 1107u, 1109u})
        EXPECT_EQ(s.sut.queryInterface(id), nullptr) << id;
}

TEST(MfDriverManager, PanelInterfacesAreThePanelDriversOwn) {
    Manager s;
    s.sut.init();
    s.startPanel();
    s.pPanelDriver->answers = {{1012, &s.settings}, {1107, &s.macros}, {1109, &s.panelMfd}};
    EXPECT_EQ(dynamic_cast<IPanelSettings*>(s.sut.queryInterface(1012)), &s.settings);
    EXPECT_EQ(dynamic_cast<IMacroSystem*>(s.sut.queryInterface(1107)), static_cast<IMacroSystem*>(&s.macros));
    EXPECT_EQ(dynamic_cast<IPanelMFD*>(s.sut.queryInterface(1109)), &s.panelMfd);
}

TEST(MfDriverManager, PanelInterfacesAreHandedOnAsTheirOwnBase) {
    Manager s;
    s.sut.init();
    s.startPanel();
    s.pPanelDriver->answers = {{1012, &s.settings}, {1107, &s.macros}, {1109, &s.panelMfd}};
    EXPECT_EQ(s.sut.queryInterface(1012), static_cast<IInterface*>(&s.settings));
    EXPECT_EQ(s.sut.queryInterface(1107), static_cast<IInterface*>(&s.macros));
    EXPECT_EQ(s.sut.queryInterface(1109), static_cast<IInterface*>(&s.panelMfd));
}

TEST(MfDriverManager, PanelInterfacesAreThoseOfTheDriverNamedPanelAlone) {
    Manager s;
    s.sut.init();
    s.search();
    fakehost::printedBy([&] {
        for (const char* driverID : {"panel", "PANEL1", "PANE", "Panel"})
            EXPECT_TRUE(s.configuration()->startMfDriver(0, driverID, "Panel", "1.0", "", "", "",
                                                         EInterfaceTypes::Direct));
    });
    s.host.journal().clear();
    for (unsigned int id : {1012u, 1107u, 1109u})
        EXPECT_EQ(s.sut.queryInterface(id), nullptr) << id;
    EXPECT_EQ(s.host.journal().lines(), Calls{});
}

TEST(MfDriverManager, PanelDriverIsAskedForTheSameIdentifier) {
    Manager s;
    s.sut.init();
    s.startPanel();
    s.host.journal().clear();
    s.sut.queryInterface(1012);
    s.sut.queryInterface(1107);
    s.sut.queryInterface(1109);
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"module query /mods/libPanel.so 1012", "module query /mods/libPanel.so 1107",
                     "module query /mods/libPanel.so 1109"}));
}

TEST(MfDriverManager, AnswerThatIsAnotherInterfaceIsNull) {
    Manager s;
    s.sut.init();
    s.startPanel();
    s.pPanelDriver->answers = {{1012, &s.panelMfd}, {1107, &s.settings}, {1109, &s.macros}};
    for (unsigned int id : {1012u, 1107u, 1109u})
        EXPECT_EQ(s.sut.queryInterface(id), nullptr) << id;
}

// The macro system.

TEST(MfDriverManager, MacroSystemOfThePanelDriverIsToldOfFids) {
    Manager s;
    s.sut.init();
    s.startPanel();
    s.pPanelDriver->answers[1107] = &s.macros;
    s.execute("sendFID X.before");
    s.sut.onMfDriversStarted();
    s.execute("sendFID X.behind");
    EXPECT_EQ(s.host.journal().linesOf({"macro"}), Calls{"macro fidDispatched X.behind {}"});
}

TEST(MfDriverManager, MacroSystemThatIsNotThereAnyMoreIsForgotten) {
    Manager s;
    s.sut.init();
    s.startPanel();
    s.pPanelDriver->answers[1107] = &s.macros;
    s.sut.onMfDriversStarted();
    s.pPanelDriver->answers.clear();
    s.sut.onMfDriversStarted();
    s.execute("sendFID X.y");
    EXPECT_EQ(s.host.journal().linesOf({"macro"}), Calls{});
}

TEST(MfDriverManager, DriversStartedAsksTheManagerItselfForTheMacroSystem) {
    struct Asked : MfDriverManager {
        IInterface* queryInterface(unsigned int id) override {
            fakehost::Journal::instance().note("manager query " + std::to_string(id));
            return answer;
        }
        IInterface* answer = nullptr;
    };
    fakehost::FakeHost host;
    RecordingMacroSystem macros;
    Asked sut;
    sut.init();
    sut.answer = &macros;
    host.journal().clear();
    sut.onMfDriversStarted();
    EXPECT_EQ(host.journal().lines(), Calls{"manager query 1107"});
    std::ostringstream reply;
    sal::CmdProcessor::getInstance()->execute("sendFID X.y", reply);
    EXPECT_EQ(host.journal().linesOf({"macro"}), Calls{"macro fidDispatched X.y {}"});
}

TEST(MfDriverManager, MissingPanelDriverGivesNoMacroSystem) {
    Manager s;
    s.sut.init();
    s.sut.onMfDriversStarted();
    s.execute("sendFID X.y");
    EXPECT_EQ(s.host.journal().linesOf({"log"}),
              (Calls{"log MDM 5: MDM: X.y ( ) received.", "log MDM 5: MDM:  -> but not dispatched"}));
}

TEST(MfDriverManager, DriversStartedBeforeInitIsIgnored) {
    Manager s;
    s.host.journal().clear();
    s.sut.onMfDriversStarted();
    EXPECT_EQ(s.host.journal().lines(), Calls{});
}

// Reports.

TEST(MfDriverManager, ShowModulesBeforeInitPrintsNothing) {
    Manager s;
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.showModules(); }), "");
}

TEST(MfDriverManager, ShowModulesListsCatalogueAndDriversInUse) {
    Manager s;
    s.sut.init();
    s.search();
    s.startAxis();
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.showModules(); }),
              "Available MfDriver Modules\n"
              "\n"
              "MDMModuleInfo:\n"
              "Filename : libPanel.so\n"
              "Type     : Panel\n"
              "Directory: /mods\n"
              "PDL file : \n"
              "Descript.: \n"
              "Version  : 1.0\n"
              "\n"
              "MDMModuleInfo:\n"
              "Filename : libAxis.so\n"
              "Type     : Axis\n"
              "Directory: /mods\n"
              "PDL file : \n"
              "Descript.: \n"
              "Version  : 1.0\n"
              "\n"
              "Used MfDriver Modules\n"
              "A\n");
    EXPECT_EQ(s.host.journal().linesOf({"axis showState"}), Calls{"axis showState"});
}

TEST(MfDriverManager, ShowModulesLogsNothing) {
    Manager s;
    s.sut.init();
    s.search();
    s.host.journal().clear();
    fakehost::printedBy([&] { s.sut.showModules(); });
    EXPECT_EQ(s.host.journal().lines(), Calls{});
}

TEST(MfDriverManager, ShowModulesFlushes) {
    Manager s;
    s.sut.init();
    fakehost::StandardOutput output;
    s.sut.showModules();
    const std::string flushed = output.flushed();
    EXPECT_EQ(flushed, "Available MfDriver Modules\n\nUsed MfDriver Modules\n");
}

// Driver processes.

TEST(MfDriverManager, DriverProcessesAreStartedUnlessTheHostSaysOtherwise) {
    Manager s;
    EXPECT_TRUE(g_debugStartMFDProcess);
    s.sut.dontStartMFDs();
    EXPECT_FALSE(g_debugStartMFDProcess);
}

TEST(MfDriverManager, FlagIsTrueAtFirst) {
    EXPECT_TRUE(s_flagAtFirst);
}

TEST(MfDriverManager, FlagIsClearedWithoutAnyComponentAndSilently) {
    Manager s;
    s.host.journal().clear();
    EXPECT_EQ(fakehost::printedBy([&] { s.sut.dontStartMFDs(); }), "");
    EXPECT_EQ(s.host.journal().lines(), Calls{});
    EXPECT_FALSE(g_debugStartMFDProcess);
}

TEST(MfDriverManager, FlagStaysWithAFurtherManager) {
    Manager s;
    s.sut.dontStartMFDs();
    MfDriverManager second;
    second.init();
    EXPECT_FALSE(g_debugStartMFDProcess);
}

TEST(MfDriverManager, FlagIsNeverSetBack) {
    Manager s;
    s.sut.dontStartMFDs();
    s.sut.init();
    s.sut.onMfDriversStarted();
    s.pSut.reset();
    EXPECT_FALSE(g_debugStartMFDProcess);
}

TEST(MfDriverManager, QueueDriverGetsNoProcessOnceTheHostSaidSo) {
    Manager s;
    s.sut.dontStartMFDs();
    s.sut.init();
    s.sut.setSystemInterface(&s.system);
    s.search();
    EXPECT_EQ(fakehost::printedBy([&] {
                  EXPECT_TRUE(s.configuration()->startMfDriver(0, "A", "Axis", "1.0", "", "", "",
                                                               EInterfaceTypes::Queue));
              }),
              "Loading MF driver /mods/libAxis.so (ID: A)...OK\n");
    EXPECT_EQ(s.host.journal().linesOf({"process"}), Calls{});
}

TEST(MfDriverManager, PanelDriverInAProcessOfItsOwnHasNoPanelInterfaces) {
    Manager s;
    s.sut.dontStartMFDs();
    s.sut.init();
    s.sut.setSystemInterface(&s.system);
    s.search();
    fakehost::printedBy([&] {
        EXPECT_TRUE(
            s.configuration()->startMfDriver(0, "PANEL", "Axis", "1.0", "", "", "", EInterfaceTypes::Queue));
    });
    EXPECT_EQ(s.sut.queryInterface(1012), nullptr);
    EXPECT_EQ(s.sut.queryInterface(1107), nullptr);
    EXPECT_EQ(s.sut.queryInterface(1109), nullptr);
}

TEST(MfDriverManager, EveryLineOfShowModulesIsFlushed) {
    Manager s;
    s.sut.init();
    FlushedOutput output;
    s.sut.showModules();
    EXPECT_EQ(output.pieces, (Calls{"Available MfDriver Modules\n", "\n", "Used MfDriver Modules\n"}));
}

// End.

TEST(MfDriverManager, DestructionUnloadsTheDriversWhileTheDistributorStillRoutes) {
    Manager s;
    s.sut.init();
    s.sut.setVirtualPanelStateInterface(&s.panel);
    s.startPanel();
    s.startAxis();
    s.pPanelDriver->onDeinitialize = [&] {
        s.pPanelDriver->pPanelState->unsetStateValue("LAMP");
        s.execute("sendFID A.LAST");
    };
    s.host.journal().clear();
    EXPECT_EQ(fakehost::printedBy([&] { s.pSut.reset(); }),
              "Deinitializing MF driver ID: A...OK\nDeinitializing MF driver ID: PANEL...OK\n");
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"axis deinitialize", "PANEL deinitialize", "panel unsetStateValue PANEL.LAMP",
                     "log MDM 5: MDM: A.LAST ( ) received.", "axis sendFID LAST {}",
                     "module delete /mods/libAxis.so", "axis gone", "module delete /mods/libPanel.so",
                     "PANEL gone"}));
}

TEST(MfDriverManager, DestructionLeavesTheCommandsRegistered) {
    Manager s;
    s.sut.init();
    s.pSut.reset();
    EXPECT_EQ(sal::CmdProcessor::getInstance()->names().size(), 5u);
}

TEST(MfDriverManager, IsDeletedThroughItsInterface) {
    fakehost::FakeHost host;
    auto* pManager = new MfDriverManager;
    pManager->init();
    const std::unique_ptr<IInterface> sut(pManager);
    EXPECT_NE(sut->queryInterface(1104), nullptr);
}
