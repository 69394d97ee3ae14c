#include "MDMModuleHandler.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <tinyxml.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <thread>

#include "FakeHost.h"
#include "FlushedOutput.h"
#include "HangGuard.h"
#include "MDMFidDistributor.h"
#include "MDMModuleInfo.h"
#include "RecordingDriver.h"
#include "RecordingPanelState.h"
#include "StandardOutput.h"
#include "sal/CmdParameters.h"
#include "sal/Module.h"

namespace {

using Calls = std::vector<std::string>;

// Notes the starts of drivers and the reloads that come through the interface, and can do without a loader.
class WatchedHandler : public MDMModuleHandler {
public:
    bool startMfDriver(int workplaceId, const std::string& driverID, const std::string& driverType,
                       const std::string& version, const std::string& workingDirectory,
                       const std::string& ipAddress, const std::string& networkAdapter,
                       EInterfaceTypes interfaceType) override {
        fakehost::Journal::instance().note("startMfDriver " + std::to_string(workplaceId) + " [" + driverID +
                                           "] [" + driverType + "] [" + version + "] [" + workingDirectory +
                                           "] [" + ipAddress + "] [" + networkAdapter + "] " +
                                           std::to_string(static_cast<int>(interfaceType)));
        return result;
    }
    bool reloadMfDriver(const std::string& driverID) override {
        fakehost::Journal::instance().note("reloadMfDriver " + driverID);
        return result;
    }
    void searchMfDriver(const std::string& directory) override {
        fakehost::Journal::instance().note("searchMfDriver " + directory);
    }

    bool result = true;
};

struct Workplace {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    MDMFidDistributor distributor;
    std::unique_ptr<MDMModuleHandler> pSut = std::make_unique<MDMModuleHandler>();
    MDMModuleHandler& sut = *pSut;

    Workplace() {
        sut.init();
        sut.setFidDistributor(&distributor);
        host.writeFile("/mods/axis.xml",
                       "<mfDriverModule><module_type name=\"libAxis.so\" type=\"Axis\" version=\"1.0\""
                       " pdlFile=\"axis.pdl\" description=\"moves\" prefix=\"AX\"/></mfDriverModule>");
        host.addModule("/mods/libAxis.so", []() -> IInterface* {
            return static_cast<IFunctionID*>(new RecordingDriver("driver"));
        });
        host.journal().clear();
    }
    ~Workplace() {
        fakehost::printedBy([&] { pSut.reset(); });
    }

    void search(const std::string& directory = "/mods") {
        sut.searchMfDriver(directory);
        host.journal().clear();
    }
    void configure(const std::string& text) { host.writeFile("/wp/workplace.xml", text); }
    bool start(const std::string& path = "workplace.xml") {
        bool result = false;
        fakehost::printedBy([&] { result = sut.startMfDrivers(path); });
        return result;
    }
    bool reload(const std::string& driverID) {
        bool result = false;
        fakehost::printedBy([&] { result = sut.reloadMfDriver(driverID); });
        return result;
    }
    /// The drivers whose working directory was linked, PANEL aside, by the journal.
    Calls prepared() {
        Calls result;
        for (const std::string& line : host.journal().linesOf({"symlink"})) {
            const std::string link = line.substr(line.find(" -> ") + 4);
            const std::string name =
                link.substr(sizeof "/var/data/" - 1, link.find(' ') - sizeof "/var/data/" + 1);
            if (name != "PANEL")
                result.push_back(name);
        }
        return result;
    }
    /// What a start with this configuration file prepares.
    Calls preparedFrom(const std::string& text, bool expected) {
        configure(text);
        search();
        EXPECT_EQ(start(), expected);
        return prepared();
    }
    Calls log() { return host.journal().linesOf({"log"}); }
    bool command(bool (MDMModuleHandler::*handler)(sal::CmdParameters&), std::vector<std::string> arguments) {
        sal::CmdParameters parameters(std::move(arguments));
        bool result = false;
        fakehost::printedBy([&] { result = (sut.*handler)(parameters); });
        return result;
    }
};

std::string driver(const std::string& driverID, const std::string& interfaceType = "none") {
    return "<mainframeDriver driverID=\"" + driverID +
           "\" driverType=\"Axis\" version=\"1.0\" workingDirectory=\"data/" + driverID +
           "\" interfaceType=\"" + interfaceType + "\"/>\n";
}

std::string workplaces(const std::string& content) {
    return "<?xml version=\"1.0\"?>\n<workplaces>\n<workplace id=\"0\">\n" + content +
           "</workplace>\n</workplaces>\n";
}

}  // namespace

// Construction.

TEST(MDMModuleHandler, AsksForTheLogOutput) {
    fakehost::FakeHost host;
    const MDMModuleHandler sut;
    EXPECT_EQ(host.journal().lines(), Calls{"getLogOutput MDM"});
}

TEST(MDMModuleHandler, MissingLogManagerEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            fakehost::FakeHost host;
            host.removeLogManager();
            const MDMModuleHandler sut;
        },
        "assertion failed: s_pInstance\n");
}

TEST(MDMModuleHandler, MissingLogOutputEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            fakehost::FakeHost host;
            host.fail("getLogOutput MDM");
            const MDMModuleHandler sut;
        },
        "assertion failed: m_pLog\n");
}

TEST(MDMModuleHandler, AnswersItsInterface) {
    Workplace s;
    EXPECT_EQ(dynamic_cast<IMDMConfiguration*>(s.sut.queryInterface(1104)),
              static_cast<IMDMConfiguration*>(&s.sut));
}

TEST(MDMModuleHandler, AnswersNoOtherIdentifier) {
    Workplace s;
    for (unsigned int id : {0u, 1012u, 1100u, 1101u, 1102u, 1103u, 1105u, 1106u, 1107u, 1109u, 1201u})
        EXPECT_EQ(s.sut.queryInterface(id), nullptr) << id;
}

TEST(MDMModuleHandler, NothingWorksBeforeInitAndNothingBreaks) {
    fakehost::FakeHost host;
    MDMFidDistributor distributor;
    MDMModuleHandler sut;
    host.journal().clear();
    sut.setFidDistributor(&distributor);
    sut.searchMfDriver("/mods");
    EXPECT_FALSE(sut.startMfDriver(0, "A", "Axis", "1.0", "", "", "", EInterfaceTypes::Direct));
    EXPECT_EQ(sut.getModule("A"), nullptr);
    sal::CmdParameters parameters({"0", "A", "Axis", "1.0", "", "", "", "Direct"});
    EXPECT_FALSE(sut.shellCmdLoadDriver(parameters));
    EXPECT_EQ(host.journal().lines(), Calls{});
}

// The catalogue.

TEST(MDMModuleHandler, CatalogueIsPublishedEntryByEntryAndThenCounted) {
    Workplace s;
    s.host.writeFile("/mods/spindle.xml",
                     "<mfDriverModule><module_type name=\"libS.so\" type=\"Spindle\" version=\"2.0\""
                     " description=\"turns\" prefix=\"SP\"/></mfDriverModule>");
    s.sut.setPanelStateInterface(&s.panel);
    s.sut.searchMfDriver("/mods");
    EXPECT_EQ(
        s.host.journal().linesOf({"panel"}),
        (Calls{
            "panel setStateValue PANEL.MFDDEF0.TYPE Axis", "panel setStateValue PANEL.MFDDEF0.VERSION 1.0",
            "panel setStateValue PANEL.MFDDEF0.DESCRIPTION moves",
            "panel setStateValue PANEL.MFDDEF0.PREFIX AX", "panel setStateValue PANEL.MFDDEF1.TYPE Spindle",
            "panel setStateValue PANEL.MFDDEF1.VERSION 2.0",
            "panel setStateValue PANEL.MFDDEF1.DESCRIPTION turns",
            "panel setStateValue PANEL.MFDDEF1.PREFIX SP", "panel setStateValueInt PANEL.MFDDEF.COUNT 2"}));
}

TEST(MDMModuleHandler, EmptyCatalogueIsCountedOnly) {
    Workplace s;
    s.host.makeDirectory("/empty");
    s.sut.setPanelStateInterface(&s.panel);
    s.sut.searchMfDriver("/empty");
    EXPECT_EQ(s.host.journal().linesOf({"panel"}), Calls{"panel setStateValueInt PANEL.MFDDEF.COUNT 0"});
}

TEST(MDMModuleHandler, ScanWithoutAPanelFillsTheCatalogueAndALaterOnePublishesBoth) {
    Workplace s;
    s.host.writeFile("/more/s.xml", "<mfDriverModule><module_type type=\"Spindle\"/></mfDriverModule>");
    s.sut.searchMfDriver("/mods");
    s.sut.setPanelStateInterface(&s.panel);
    EXPECT_EQ(s.host.journal().linesOf({"panel"}), Calls{});
    s.sut.searchMfDriver("/more");
    EXPECT_EQ(s.host.journal().linesOf({"panel setStateValue PANEL.MFDDEF0.TYPE",
                                        "panel setStateValue PANEL.MFDDEF1.TYPE", "panel setStateValueInt"}),
              (Calls{"panel setStateValue PANEL.MFDDEF0.TYPE Axis",
                     "panel setStateValue PANEL.MFDDEF1.TYPE Spindle",
                     "panel setStateValueInt PANEL.MFDDEF.COUNT 2"}));
}

TEST(MDMModuleHandler, ScanWithoutDescriptorsPublishesTheWholeCatalogueAgain) {
    Workplace s;
    s.host.makeDirectory("/empty");
    s.search();
    s.sut.setPanelStateInterface(&s.panel);
    s.sut.searchMfDriver("/empty");
    EXPECT_EQ(
        s.host.journal().linesOf({"panel"}),
        (Calls{"panel setStateValue PANEL.MFDDEF0.TYPE Axis", "panel setStateValue PANEL.MFDDEF0.VERSION 1.0",
               "panel setStateValue PANEL.MFDDEF0.DESCRIPTION moves",
               "panel setStateValue PANEL.MFDDEF0.PREFIX AX",
               "panel setStateValueInt PANEL.MFDDEF.COUNT 1"}));
}

TEST(MDMModuleHandler, ScanBeforeInitPublishesNothing) {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    MDMModuleHandler sut;
    sut.setPanelStateInterface(&panel);
    host.journal().clear();
    sut.searchMfDriver("/mods");
    EXPECT_EQ(host.journal().lines(), Calls{});
}

TEST(MDMModuleHandler, EveryFieldIsPublishedThoughItIsEmpty) {
    Workplace s;
    s.host.writeFile("/more/a.xml", "<mfDriverModule><module_type/></mfDriverModule>");
    s.sut.setPanelStateInterface(&s.panel);
    s.sut.searchMfDriver("/more");
    EXPECT_EQ(
        s.host.journal().linesOf({"panel"}),
        (Calls{"panel setStateValue PANEL.MFDDEF0.TYPE ", "panel setStateValue PANEL.MFDDEF0.VERSION ",
               "panel setStateValue PANEL.MFDDEF0.DESCRIPTION ", "panel setStateValue PANEL.MFDDEF0.PREFIX ",
               "panel setStateValueInt PANEL.MFDDEF.COUNT 1"}));
}

TEST(MDMModuleHandler, SecondScanOfADirectoryPublishesItsEntriesTwice) {
    Workplace s;
    s.search();
    s.sut.setPanelStateInterface(&s.panel);
    s.sut.searchMfDriver("/mods");
    EXPECT_EQ(
        s.host.journal().linesOf({"panel setStateValue PANEL.MFDDEF0.TYPE",
                                  "panel setStateValue PANEL.MFDDEF1.TYPE", "panel setStateValueInt"}),
        (Calls{"panel setStateValue PANEL.MFDDEF0.TYPE Axis", "panel setStateValue PANEL.MFDDEF1.TYPE Axis",
               "panel setStateValueInt PANEL.MFDDEF.COUNT 2"}));
}

TEST(MDMModuleHandler, DirectoryThatCannotBeEnteredIsStillFollowedByThePublication) {
    Workplace s;
    s.search();
    s.sut.setPanelStateInterface(&s.panel);
    s.sut.searchMfDriver("/nowhere");
    EXPECT_EQ(s.host.journal().linesOf({"panel"}).size(), 5u);
    EXPECT_EQ(s.host.journal().count("panel setStateValueInt PANEL.MFDDEF.COUNT 1"), 1);
}

TEST(MDMModuleHandler, PublicationComesBehindTheWholeScan) {
    Workplace s;
    s.sut.setPanelStateInterface(&s.panel);
    s.sut.searchMfDriver("/mods");
    EXPECT_EQ(s.host.journal().lines(), (Calls{"files /mods xml 0", "chdir /mods", "chdir /wp",
                                               "panel setStateValue PANEL.MFDDEF0.TYPE Axis",
                                               "panel setStateValue PANEL.MFDDEF0.VERSION 1.0",
                                               "panel setStateValue PANEL.MFDDEF0.DESCRIPTION moves",
                                               "panel setStateValue PANEL.MFDDEF0.PREFIX AX",
                                               "panel setStateValueInt PANEL.MFDDEF.COUNT 1"}));
}

TEST(MDMModuleHandler, IndexIsNotPadded) {
    Workplace s;
    std::string text = "<mfDriverModule>";
    for (int index = 0; index < 11; ++index)
        text += "<module_type type=\"T" + std::to_string(index) + "\"/>";
    s.host.writeFile("/many/m.xml", text + "</mfDriverModule>");
    s.sut.setPanelStateInterface(&s.panel);
    s.sut.searchMfDriver("/many");
    EXPECT_EQ(s.host.journal().count("panel setStateValue PANEL.MFDDEF10.TYPE T10"), 1);
    EXPECT_EQ(s.host.journal().count("panel setStateValue PANEL.MFDDEF9.TYPE T9"), 1);
}

TEST(MDMModuleHandler, PdlFileIsThatOfTheFirstEntryOfTheType) {
    Workplace s;
    s.host.writeFile("/mods/b.xml",
                     "<mfDriverModule><module_type type=\"Axis\" pdlFile=\"other.pdl\"/></mfDriverModule>");
    s.search();
    std::string type = "Axis";
    EXPECT_EQ(s.sut.getPDLFilename(type), "axis.pdl");
    EXPECT_EQ(type, "Axis");
}

TEST(MDMModuleHandler, PdlFileIsThatOfTheFirstEntryThoughItIsEmpty) {
    Workplace s;
    s.host.writeFile("/more/a.xml",
                     "<mfDriverModule><module_type type=\"Lamp\"/>"
                     "<module_type type=\"Lamp\" pdlFile=\"lamp.pdl\"/></mfDriverModule>");
    s.search("/more");
    std::string type = "Lamp";
    EXPECT_EQ(s.sut.getPDLFilename(type), "");
}

TEST(MDMModuleHandler, PdlFileOfTheEmptyTypeIsThatOfAnEntryWithoutAType) {
    Workplace s;
    s.host.writeFile("/mods/b.xml", "<mfDriverModule><module_type pdlFile=\"none.pdl\"/></mfDriverModule>");
    s.search();
    std::string type;
    EXPECT_EQ(s.sut.getPDLFilename(type), "none.pdl");
}

TEST(MDMModuleHandler, PdlFileIsThatOfTheTypeWhateverItsVersion) {
    Workplace s;
    s.host.writeFile("/more/a.xml",
                     "<mfDriverModule><module_type type=\"Lamp\" version=\"2.0\" pdlFile=\"two.pdl\"/>"
                     "<module_type type=\"Lamp\" version=\"1.0\" pdlFile=\"one.pdl\"/></mfDriverModule>");
    s.search("/more");
    std::string type = "Lamp";
    EXPECT_EQ(s.sut.getPDLFilename(type), "two.pdl");
}

TEST(MDMModuleHandler, PdlFileOfAnUnknownTypeIsEmpty) {
    Workplace s;
    s.search();
    for (std::string type : {"Axi", "Axis1", "axis", ""})
        EXPECT_EQ(s.sut.getPDLFilename(type), "") << type;
}

TEST(MDMModuleHandler, ShowModulesListsTheCatalogueInItsOrder) {
    Workplace s;
    s.host.writeFile("/mods/z.xml", "<mfDriverModule><module_type type=\"Aaa\"/></mfDriverModule>");
    s.search();
    EXPECT_EQ(
        fakehost::printedBy([&] { s.sut.showModules(); }),
        "MDMModuleInfo:\nFilename : libAxis.so\nType     : Axis\nDirectory: /mods\nPDL file : axis.pdl\n"
        "Descript.: moves\nVersion  : 1.0\n\n"
        "MDMModuleInfo:\nFilename : \nType     : Aaa\nDirectory: /mods\nPDL file : \nDescript.: \n"
        "Version  : \n\n");
}

TEST(MDMModuleHandler, ModuleOfADriverIsFoundByItsID) {
    Workplace s;
    s.search();
    fakehost::printedBy(
        [&] { s.sut.startMfDriver(0, "A", "Axis", "1.0", "", "", "", EInterfaceTypes::Direct); });
    ASSERT_EQ(s.host.loaded.size(), 1u);
    EXPECT_EQ(s.sut.getModule("A"), s.host.loaded[0]);
    EXPECT_EQ(s.sut.getModule("B"), nullptr);
}

// One driver.

TEST(MDMModuleHandler, StartOfOneDriverHandsItsSettingsOn) {
    Workplace s;
    s.host.adapters.push_back({"wlan0", "198.51.100.1", {}});
    s.search();
    bool result = false;
    fakehost::printedBy([&] {
        result = s.sut.startMfDriver(5, "A", "Axis", "1.0", "data/A", "198.51.100.2", "wlan0",
                                     EInterfaceTypes::Direct);
    });
    EXPECT_TRUE(result);
    EXPECT_EQ(
        s.host.journal().linesOf({"driver setConfiguration"}),
        Calls{"driver setConfiguration 5 [A] [data/A] [198.51.100.2] [wlan0] [192.0.2.10] [/wp/nvram/A]"});
}

TEST(MDMModuleHandler, StartOfOneDriverThatFailsIsFalse) {
    Workplace s;
    s.search();
    s.host.fail("module load");
    bool result = true;
    fakehost::printedBy(
        [&] { result = s.sut.startMfDriver(0, "A", "Axis", "1.0", "", "", "", EInterfaceTypes::Direct); });
    EXPECT_FALSE(result);
}

TEST(MDMModuleHandler, FailedStartOfOneDriverIsNotLogged) {
    Workplace s;
    s.search();
    s.host.fail("module load");
    fakehost::printedBy(
        [&] { s.sut.startMfDriver(0, "A", "Axis", "1.0", "", "", "", EInterfaceTypes::Direct); });
    EXPECT_EQ(s.log(), Calls{});
}

TEST(MDMModuleHandler, StartOfADriverThatNobodyKnowsIsTrue) {
    Workplace s;
    EXPECT_TRUE(s.sut.startMfDriver(0, "A", "Axis", "1.0", "", "", "", EInterfaceTypes::Direct));
}

// Start of all drivers.

TEST(MDMModuleHandler, StartGoesThroughPanelFileDataDirectoryAndDriversInThisOrder) {
    Workplace s;
    s.host.writeFile("/mods/panel.xml",
                     "<mfDriverModule><module_type name=\"libPanel.so\" type=\"Panel\" version=\"1.0\"/>"
                     "</mfDriverModule>");
    s.host.addModule("/mods/libPanel.so",
                     []() -> IInterface* { return static_cast<IFunctionID*>(new RecordingDriver("PANEL")); });
    s.host.entries["/var/data"] = {"OLD", "PANEL"};
    s.configure(workplaces(driver("A", "direct")));
    s.search();
    {
        fakehost::StandardOutput output;
        output.intoJournal();
        EXPECT_TRUE(s.sut.startMfDrivers("workplace.xml"));
        output.journalNow();
    }
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"adapter list",
                     "adapter open eth0",
                     "mkdir /wp/data/PANEL",
                     "mkdir /wp/nvram/PANEL",
                     "symlink /wp/data/PANEL -> /var/data/PANEL replace",
                     "adapter list",
                     "adapter open eth0",
                     "stdout Loading MF driver /mods/libPanel.so (ID: PANEL)...",
                     "module load 0 /mods/libPanel.so",
                     "stdout OK\\0a",
                     "module query /mods/libPanel.so 1201",
                     "module query /mods/libPanel.so 1100",
                     "PANEL setPanelStateInterface",
                     "PANEL setSystemInterface",
                     "PANEL setConfiguration 0 [PANEL] [data/PANEL] [192.0.2.10] [eth0] [192.0.2.10] "
                     "[/wp/nvram/PANEL]",
                     "PANEL initializationCompleted",
                     "verify workplace.xml",
                     "entries /var/data 0",
                     "remove /var/data/OLD",
                     "remove /var/data/PANEL",
                     "mkdir /wp/data/PANEL",
                     "symlink /wp/data/PANEL -> /var/data/PANEL replace",
                     "adapter list",
                     "adapter open eth0",
                     "mkdir /wp/data/A",
                     "mkdir /wp/nvram/A",
                     "symlink /wp/data/A -> /var/data/A replace",
                     "adapter list",
                     "adapter open eth0",
                     "stdout Loading MF driver /mods/libAxis.so (ID: A)...",
                     "module load 0 /mods/libAxis.so",
                     "stdout OK\\0a",
                     "module query /mods/libAxis.so 1201",
                     "module query /mods/libAxis.so 1100",
                     "driver setPanelStateInterface",
                     "driver setSystemInterface",
                     "driver setConfiguration 0 [A] [data/A] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]",
                     "driver initializationCompleted"}));
}

TEST(MDMModuleHandler, PanelDriverIsStartedThroughTheInterface) {
    fakehost::FakeHost host;
    WatchedHandler sut;
    sut.init();
    EXPECT_TRUE(sut.startMfDrivers(""));
    EXPECT_EQ(host.journal().linesOf({"startMfDriver"}),
              Calls{"startMfDriver 0 [PANEL] [Panel] [1.0] [data/PANEL] [] [] 1"});
}

TEST(MDMModuleHandler, EntriesOfTheFileGoToTheLoaderDirectly) {
    fakehost::FakeHost host;
    WatchedHandler sut;
    sut.init();
    host.writeFile("/wp/workplace.xml", workplaces(driver("A") + driver("B")));
    EXPECT_TRUE(sut.startMfDrivers("workplace.xml"));
    EXPECT_TRUE(sut.MDMModuleHandler::reloadMfDriver("A"));
    EXPECT_EQ(host.journal().linesOf({"startMfDriver"}),
              Calls{"startMfDriver 0 [PANEL] [Panel] [1.0] [data/PANEL] [] [] 1"});
}

TEST(MDMModuleHandler, LoadCommandGoesToTheLoaderDirectly) {
    fakehost::FakeHost host;
    WatchedHandler sut;
    sut.init();
    sal::CmdParameters parameters({"0", "A", "Axis", "1.0", "", "", "", "Direct"});
    EXPECT_TRUE(sut.shellCmdLoadDriver(parameters));
    EXPECT_EQ(host.journal().linesOf({"startMfDriver"}), Calls{});
}

TEST(MDMModuleHandler, PanelDriverThatDoesNotStartEndsTheStart) {
    fakehost::FakeHost host;
    WatchedHandler sut;
    sut.init();
    sut.result = false;
    host.writeFile("/wp/workplace.xml", workplaces(driver("A")));
    host.journal().clear();
    EXPECT_FALSE(sut.startMfDrivers("workplace.xml"));
    EXPECT_EQ(host.journal().lines(), (Calls{"startMfDriver 0 [PANEL] [Panel] [1.0] [data/PANEL] [] [] 1",
                                             "log MDM 2: Failed to start panel driver"}));
}

TEST(MDMModuleHandler, PathOfAFailedPanelStartIsNotKept) {
    Workplace s;
    s.configure(workplaces(driver("A")));
    s.search();
    s.host.fail("adapter open", 1);
    EXPECT_FALSE(s.start());
    s.host.journal().clear();
    EXPECT_FALSE(s.reload("A"));
    EXPECT_EQ(s.host.journal().lines(), Calls{});
}

TEST(MDMModuleHandler, StartThatFailsAtThePanelDriverLeavesTheFormerPathForReloads) {
    Workplace s;
    s.configure(workplaces(driver("A")));
    s.host.writeFile("/wp/second.xml", workplaces(driver("B")));
    s.search();
    EXPECT_TRUE(s.start());
    s.host.fail("adapter open", 1);
    EXPECT_FALSE(s.start("second.xml"));
    EXPECT_TRUE(s.reload("A"));
    EXPECT_FALSE(s.reload("B"));
}

TEST(MDMModuleHandler, StartThatFailsAtThePanelDriverTouchesNothingElse) {
    Workplace s;
    s.host.entries["/var/data"] = {"OLD"};
    s.configure(workplaces(driver("A")));
    s.search();
    s.host.fail("adapter open", 1);
    EXPECT_FALSE(s.start());
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"adapter list", "adapter open eth0", "log MDM 2: Failed to start panel driver"}));
}

TEST(MDMModuleHandler, PathOfAReloadIsReadAgainEachTime) {
    Workplace s;
    s.configure(workplaces(driver("A")));
    s.search();
    s.start();
    s.configure(workplaces(driver("B")));
    EXPECT_FALSE(s.reload("A"));
    EXPECT_TRUE(s.reload("B"));
    s.configure(workplaces(driver("A")));
    EXPECT_TRUE(s.reload("A"));
}

TEST(MDMModuleHandler, EmptyPathStartsThePanelDriverOnly) {
    Workplace s;
    s.host.entries["/var/data"] = {"OLD"};
    EXPECT_TRUE(s.start(""));
    EXPECT_EQ(s.host.journal().lines(), (Calls{"adapter list", "adapter open eth0"}));
}

TEST(MDMModuleHandler, EmptyPathLeavesTheFormerOneForReloads) {
    Workplace s;
    s.configure(workplaces(driver("A")));
    s.search();
    s.start();
    s.start("");
    s.host.journal().clear();
    EXPECT_TRUE(s.reload("A"));
    EXPECT_EQ(s.prepared(), Calls{"A"});
}

TEST(MDMModuleHandler, MissingFileIsLoggedAndTheStartSucceeds) {
    Workplace s;
    s.host.entries["/var/data"] = {"OLD"};
    EXPECT_TRUE(s.start("missing.xml"));
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"adapter list", "adapter open eth0",
                     "log MDM 2: Failed to open \"missing.xml\" ('Failed to open file')"}));
}

TEST(MDMModuleHandler, PathOfAMissingFileIsKeptForReloads) {
    Workplace s;
    s.start("missing.xml");
    s.host.journal().clear();
    EXPECT_FALSE(s.reload("A"));
    EXPECT_EQ(s.host.journal().lines(),
              Calls{"log MDM 2: Failed to open \"missing.xml\" ('Failed to open file')"});
}

TEST(MDMModuleHandler, BrokenFileIsLoggedAndTheStartSucceeds) {
    Workplace s;
    s.configure("<workplaces");
    EXPECT_TRUE(s.start());
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Failed to open \"workplace.xml\" ('Failed to read Element name')"});
    EXPECT_EQ(s.host.journal().linesOf({"verify", "entries"}), Calls{});
}

TEST(MDMModuleHandler, DirectoryInPlaceOfTheFileIsLoggedAndTheStartSucceeds) {
    Workplace s;
    s.host.makeDirectory("/wp/workplace.xml");
    EXPECT_TRUE(s.start());
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Failed to open \"workplace.xml\" ('Failed to open file')"});
}

TEST(MDMModuleHandler, RepeatedAttributeMakesTheFileOneThatCannotBeLoaded) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom(workplaces("<mainframeDriver driverID=\"A\" driverID=\"B\"/>"), true), Calls{});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Failed to open \"workplace.xml\" ('Error parsing Element.')"});
}

TEST(MDMModuleHandler, InvalidSignatureIsAWarningOnly) {
    Workplace s;
    s.host.fail("verify");
    EXPECT_EQ(s.preparedFrom(workplaces(driver("A")), true), Calls{"A"});
    EXPECT_EQ(s.log(), Calls{"log MDM 3: \"workplace.xml\" has invalid signature"});
}

TEST(MDMModuleHandler, EveryEntryOfTheDataDirectoryIsRemovedThoughOneStays) {
    Workplace s;
    s.configure("<workplaces/>");
    s.host.entries["/var/data"] = {"A", "B", "C"};
    s.host.fail("remove /var/data/B");
    EXPECT_TRUE(s.start());
    EXPECT_EQ(s.host.journal().linesOf({"entries", "remove", "symlink"}),
              (Calls{"entries /var/data 0", "remove /var/data/A", "remove /var/data/B", "remove /var/data/C",
                     "symlink /wp/data/PANEL -> /var/data/PANEL replace"}));
}

TEST(MDMModuleHandler, EveryStartEmptiesTheDataDirectoryAgain) {
    Workplace s;
    s.configure("<workplaces/>");
    s.start();
    s.host.entries["/var/data"] = {"A"};
    s.host.journal().clear();
    s.start();
    EXPECT_EQ(s.host.journal().linesOf({"entries", "remove", "symlink"}),
              (Calls{"entries /var/data 0", "remove /var/data/A",
                     "symlink /wp/data/PANEL -> /var/data/PANEL replace"}));
}

TEST(MDMModuleHandler, EmptyDataDirectoryIsLeftAlone) {
    Workplace s;
    s.configure("<workplaces/>");
    s.start();
    EXPECT_EQ(s.host.journal().linesOf({"remove"}), Calls{});
}

TEST(MDMModuleHandler, PanelDirectoryThatCannotBeMadeEndsTheStart) {
    Workplace s;
    s.configure(workplaces(driver("A")));
    s.search();
    s.host.fail("mkdir /wp/data/PANEL");
    bool result = true;
    EXPECT_EQ(fakehost::printedBy([&] { result = s.sut.startMfDrivers("workplace.xml"); }),
              "Failed to create PANEL working directory\n");
    EXPECT_FALSE(result);
    EXPECT_EQ(s.host.journal().linesOf({"symlink", "log"}), Calls{});
}

TEST(MDMModuleHandler, PanelLinkThatCannotBeMadeEndsTheStart) {
    Workplace s;
    s.configure(workplaces(driver("A")));
    s.search();
    s.host.fail("symlink");
    bool result = true;
    EXPECT_EQ(
        fakehost::printedBy([&] { result = s.sut.startMfDrivers("workplace.xml"); }),
        "Failed to create symlink to file driver working directory /wp/data/PANEL -> /var/data/PANEL for "
        "PANEL driver\n");
    EXPECT_FALSE(result);
    EXPECT_EQ(s.prepared(), Calls{});
    EXPECT_EQ(s.log(), Calls{});
}

TEST(MDMModuleHandler, PathOfAFailedStartIsKeptForReloads) {
    Workplace s;
    s.configure(workplaces(driver("A")));
    s.search();
    s.host.fail("mkdir /wp/data/PANEL", 1);
    EXPECT_FALSE(s.start());
    EXPECT_TRUE(s.reload("A"));
    EXPECT_EQ(s.prepared(), Calls{"A"});
}

TEST(MDMModuleHandler, StartLinesAreFlushed) {
    Workplace s;
    s.configure("<workplaces/>");
    s.host.fail("mkdir");
    fakehost::StandardOutput output;
    s.sut.startMfDrivers("workplace.xml");
    const std::string flushed = output.flushed();
    EXPECT_EQ(flushed, "Failed to create PANEL working directory\n");
}

TEST(MDMModuleHandler, LineOfAPanelLinkThatFailsIsFlushed) {
    Workplace s;
    s.configure("<workplaces/>");
    s.host.fail("symlink");
    FlushedOutput output;
    s.sut.startMfDrivers("workplace.xml");
    EXPECT_EQ(output.pieces, Calls{"Failed to create symlink to file driver working directory "
                                   "/wp/data/PANEL -> /var/data/PANEL for PANEL driver\n"});
}

TEST(MDMModuleHandler, FaultsAreLoggedAndNotPrinted) {
    Workplace s;
    s.search();
    s.host.fail("verify");
    s.host.fail("mkdir /wp/data/A");
    const std::string printed = fakehost::printedBy([&] {
        s.sut.startMfDrivers("missing.xml");
        for (const char* text : {"<workplaces", "<other/>", "<workplaces><workplace/></workplaces>"}) {
            s.configure(text);
            s.sut.startMfDrivers("workplace.xml");
            s.sut.reloadMfDriver("A");
        }
    });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(s.log().size(), 11u);
}

TEST(MDMModuleHandler, PanelDriverThatFailsIsLoggedAndNotPrinted) {
    fakehost::FakeHost host;
    WatchedHandler sut;
    sut.result = false;
    EXPECT_EQ(fakehost::printedBy([&] { sut.startMfDrivers(""); }), "");
    EXPECT_EQ(host.journal().linesOf({"log"}), Calls{"log MDM 2: Failed to start panel driver"});
}

TEST(MDMModuleHandler, SecondStartReplacesThePathOfReloads) {
    Workplace s;
    s.configure(workplaces(driver("A")));
    s.host.writeFile("/wp/second.xml", workplaces(driver("B")));
    s.search();
    s.start();
    s.start("second.xml");
    EXPECT_FALSE(s.reload("A"));
    EXPECT_TRUE(s.reload("B"));
}

// The walk of the file.

TEST(MDMModuleHandler, RootWithoutChildrenStartsNothingAndSucceeds) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<workplaces/>", true), Calls{});
    EXPECT_EQ(s.log(), Calls{});
}

TEST(MDMModuleHandler, DriversOfAllWorkplacesAreStartedInDocumentOrder) {
    Workplace s;
    EXPECT_EQ(
        s.preparedFrom("<workplaces><workplace id=\"1\">" + driver("B") + driver("A") +
                           "</workplace><workplace id=\"0\">" + driver("C") + "</workplace></workplaces>",
                       true),
        (Calls{"B", "A", "C"}));
}

TEST(MDMModuleHandler, NodesBeforeTheRootAreSkippedAndThoseBehindItNotLookedAt) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<?xml version=\"1.0\"?><!-- a --><!-- b --><workplaces><workplace id=\"0\">" +
                                 driver("A") + "</workplace></workplaces><other/>",
                             true),
              Calls{"A"});
    EXPECT_EQ(s.log(), Calls{});
}

TEST(MDMModuleHandler, DocumentWithoutAnElementIsAParseErrorOfLineMinusOne) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<?xml version=\"1.0\"?>\n<!-- nothing -->\n", false), Calls{});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Parse error in \"workplace.xml\" line -1"});
}

TEST(MDMModuleHandler, WrongRootIsAParseErrorOfItsLine) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<?xml version=\"1.0\"?>\n\n<Workplaces/>\n", false), Calls{});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Parse error in \"workplace.xml\" line 3"});
}

TEST(MDMModuleHandler, CommentInsideWorkplacesIsAParseErrorOfItsLine) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<workplaces>\n<workplace id=\"0\">\n" + driver("A") +
                                 "</workplace>\n<!-- more -->\n<workplace id=\"1\">\n" + driver("B") +
                                 "</workplace>\n</workplaces>\n",
                             false),
              Calls{"A"});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Parse error in \"workplace.xml\" line 5"});
}

TEST(MDMModuleHandler, TextInsideWorkplacesIsAParseError) {
    Workplace s;
    s.preparedFrom("<workplaces>\ntext</workplaces>", false);
    ASSERT_EQ(s.log().size(), 1u);
    EXPECT_TRUE(s.log()[0].starts_with("log MDM 2: Parse error in \"workplace.xml\" line ")) << s.log()[0];
}

TEST(MDMModuleHandler, TextInsideWorkplacesIsAParseErrorOfItsOwnLine) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<workplaces>\n<workplace id=\"0\"/>\ntext\n</workplaces>", false), Calls{});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Parse error in \"workplace.xml\" line 3"});
}

TEST(MDMModuleHandler, ElementOfAnotherNameInsideWorkplacesIsAParseErrorOfItsLine) {
    Workplace s;
    EXPECT_EQ(
        s.preparedFrom("<workplaces>\n<Workplace id=\"0\">\n" + driver("A") + "</Workplace>\n</workplaces>",
                       false),
        Calls{});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Parse error in \"workplace.xml\" line 2"});
}

TEST(MDMModuleHandler, CommentInsideAWorkplaceIsAParseErrorOfTheWorkplacesLine) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<workplaces>\n<workplace id=\"0\">\n" + driver("A") + "\n<!-- more -->\n" +
                                 driver("B") + "</workplace>\n</workplaces>\n",
                             false),
              Calls{"A"});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Parse error in \"workplace.xml\" line 2"});
}

TEST(MDMModuleHandler, TextInsideAWorkplaceIsAParseErrorOfTheWorkplacesLine) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<workplaces>\n<workplace id=\"0\">\n\ntext\n</workplace></workplaces>", false),
              Calls{});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Parse error in \"workplace.xml\" line 2"});
}

TEST(MDMModuleHandler, DriversInsidePortsAreSkippedAndThoseBesideAreStarted) {
    Workplace s;
    EXPECT_EQ(
        s.preparedFrom(workplaces("<ports>\n" + driver("A") + "<!-- comment -->text</ports>\n" + driver("B")),
                       true),
        Calls{"B"});
    EXPECT_EQ(s.log(), Calls{});
}

TEST(MDMModuleHandler, OtherElementsInsideAWorkplaceAreIgnored) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom(workplaces("<note>" + driver("A") + "</note><MainframeDriver driverID=\"X\"/>" +
                                        driver("B")),
                             true),
              Calls{"B"});
    EXPECT_EQ(s.log(), Calls{});
}

TEST(MDMModuleHandler, ChildNodesOfADriverEntryAreIgnored) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom(workplaces("<mainframeDriver driverID=\"A\" driverType=\"Axis\" version=\"1.0\">"
                                        "text<!-- comment -->" +
                                        driver("B") + "</mainframeDriver>"),
                             true),
              Calls{"A"});
}

TEST(MDMModuleHandler, WorkplaceIdBeyondSevenIsInvalid) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom(
                  "<workplaces>\n\n<workplace id=\"8\">" + driver("A") + "</workplace></workplaces>", false),
              Calls{});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Workplace ID missing or invalid in \"workplace.xml\" line 3"});
}

TEST(MDMModuleHandler, NegativeWorkplaceIdIsInvalid) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<workplaces><workplace id=\"-1\">" + driver("A") + "</workplace></workplaces>",
                             false),
              Calls{});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Workplace ID missing or invalid in \"workplace.xml\" line 1"});
}

TEST(MDMModuleHandler, WorkplaceWithoutAttributesIsInvalid) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<workplaces><workplace>" + driver("A") + "</workplace></workplaces>", false),
              Calls{});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Workplace ID missing or invalid in \"workplace.xml\" line 1"});
}

TEST(MDMModuleHandler, WorkplaceWithoutIdIsInvalid) {
    Workplace s;
    EXPECT_EQ(
        s.preparedFrom(
            "<workplaces><workplace ID=\"1\" name=\"x\">" + driver("A") + "</workplace></workplaces>", false),
        Calls{});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Workplace ID missing or invalid in \"workplace.xml\" line 1"});
}

TEST(MDMModuleHandler, DriversBeforeAnInvalidWorkplaceStayLoaded) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<workplaces><workplace id=\"0\">" + driver("A", "direct") +
                                 "</workplace><workplace id=\"8\"/></workplaces>",
                             false),
              Calls{"A"});
    EXPECT_NE(s.sut.getModule("A"), nullptr);
    EXPECT_EQ(s.host.journal().linesOf({"driver deinitialize"}), Calls{});
}

TEST(MDMModuleHandler, WorkplaceNumberReachesTheDriver) {
    Workplace s;
    s.preparedFrom(
        "<workplaces><workplace name=\"x\" id=\"7\">" + driver("A", "direct") + "</workplace></workplaces>",
        true);
    EXPECT_EQ(s.host.journal().linesOf({"driver setConfiguration"}),
              Calls{"driver setConfiguration 7 [A] [data/A] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]"});
}

TEST(MDMModuleHandler, WorkplaceIdThatIsNoNumberIsZero) {
    Workplace s;
    s.preparedFrom("<workplaces><workplace id=\"x\">" + driver("A", "direct") + "</workplace></workplaces>",
                   true);
    EXPECT_EQ(s.host.journal().linesOf({"driver setConfiguration"}),
              Calls{"driver setConfiguration 0 [A] [data/A] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]"});
}

TEST(MDMModuleHandler, WorkplaceIdIsReadAsTheLibraryReadsNumbers) {
    const std::pair<const char*, int> numbers[] = {{"7abc", 7}, {" 3", 3},  {"007", 7}, {"+2", 2},
                                                   {"", 0},     {"0x5", 0}, {"6.9", 6}};
    for (const auto& [text, number] : numbers) {
        Workplace s;
        s.preparedFrom(std::string("<workplaces><workplace id=\"") + text + "\">" + driver("A", "direct") +
                           "</workplace></workplaces>",
                       true);
        EXPECT_EQ(s.host.journal().linesOf({"driver setConfiguration"}),
                  Calls{"driver setConfiguration " + std::to_string(number) +
                        " [A] [data/A] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]"})
            << text;
    }
}

TEST(MDMModuleHandler, EveryWorkplaceFromZeroToSevenIsValid) {
    Workplace s;
    std::string text = "<workplaces>";
    for (const char* number : {"0", "1", "2", "3", "4", "5", "6", "7"})
        text += std::string("<workplace id=\"") + number + "\">" + driver(number) + "</workplace>";
    EXPECT_EQ(s.preparedFrom(text + "</workplaces>", true), (Calls{"0", "1", "2", "3", "4", "5", "6", "7"}));
    EXPECT_EQ(s.log(), Calls{});
}

TEST(MDMModuleHandler, WorkplaceIdIsLookedAtBeforeTheChildrenOfTheWorkplace) {
    Workplace s;
    EXPECT_EQ(
        s.preparedFrom("<workplaces><workplace id=\"8\"><!-- comment --></workplace></workplaces>", false),
        Calls{});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Workplace ID missing or invalid in \"workplace.xml\" line 1"});
}

TEST(MDMModuleHandler, WorkplaceWithoutDriversIsPassed) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<workplaces><workplace id=\"0\"/><workplace id=\"0\">" + driver("A") +
                                 "</workplace></workplaces>",
                             true),
              Calls{"A"});
    EXPECT_EQ(s.log(), Calls{});
}

TEST(MDMModuleHandler, OtherNodesThanElementsBeforeTheRootAreSkipped) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom("<?xml version=\"1.0\"?><!DOCTYPE workplaces><!-- a --><workplaces>"
                             "<workplace id=\"0\">" +
                                 driver("A") + "</workplace></workplaces>",
                             true),
              Calls{"A"});
    EXPECT_EQ(s.log(), Calls{});
}

// One entry of the file.

TEST(MDMModuleHandler, EveryAttributeOfAnEntryReachesTheLoader) {
    Workplace s;
    s.host.adapters.push_back({"wlan0", "198.51.100.1", {}});
    s.preparedFrom(
        workplaces("<mainframeDriver interfaceType=\"direct\" networkAdapter=\"wlan0\" color=\"red\""
                   " ipAddress=\"198.51.100.2\" workingDirectory=\"data/x\" version=\"1.0\""
                   " driverType=\"Axis\" driverID=\"A\"/>"),
        true);
    EXPECT_EQ(
        s.host.journal().linesOf({"adapter add", "driver setConfiguration"}),
        (Calls{"adapter add wlan0 198.51.100.2 255.255.255.0",
               "driver setConfiguration 0 [A] [data/x] [198.51.100.2] [wlan0] [192.0.2.10] [/wp/nvram/A]"}));
}

TEST(MDMModuleHandler, AttributeNamesOfAnEntryAreCaseSensitive) {
    Workplace s;
    s.preparedFrom(
        workplaces("<mainframeDriver driverID=\"A\" DriverID=\"X\" driverType=\"Axis\" drivertype=\"X\""
                   " version=\"1.0\" Version=\"2\" workingDirectory=\"data/A\" workingdirectory=\"x\""
                   " ipAddress=\"\" IPAddress=\"x\" networkAdapter=\"\" NetworkAdapter=\"x\""
                   " interfaceType=\"direct\" InterfaceType=\"queue\"/>"),
        true);
    EXPECT_EQ(s.host.journal().linesOf({"driver setConfiguration"}),
              Calls{"driver setConfiguration 0 [A] [data/A] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]"});
}

TEST(MDMModuleHandler, MissingAttributesOfAnEntryAreEmptyTexts) {
    Workplace s;
    s.preparedFrom(workplaces("<mainframeDriver driverID=\"A\" driverType=\"Axis\" version=\"1.0\""
                              " interfaceType=\"direct\"/>"),
                   true);
    EXPECT_EQ(s.host.journal().linesOf({"driver setConfiguration"}),
              Calls{"driver setConfiguration 0 [A] [] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]"});
}

TEST(MDMModuleHandler, MissingInterfaceTypeIsNone) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom(
                  workplaces("<mainframeDriver driverID=\"A\" driverType=\"Axis\" version=\"1.0\"/>"), true),
              Calls{"A"});
    EXPECT_EQ(s.host.journal().linesOf({"module load", "process", "queue", "log"}), Calls{});
}

TEST(MDMModuleHandler, DirectDriverIsLoadedIntoTheHost) {
    Workplace s;
    s.preparedFrom(workplaces(driver("A", "direct")), true);
    EXPECT_EQ(s.host.journal().linesOf({"module load", "process"}), Calls{"module load 0 /mods/libAxis.so"});
}

TEST(MDMModuleHandler, QueueDriverIsLoadedIntoAProcess) {
    Workplace s;
    class System : public ISystem {
        IInterface* queryInterface(unsigned int) override { return nullptr; }
        void executeCommand(const std::string&, const std::string&) override {}
    } system;
    s.distributor.setSystemInterface(&system);
    s.preparedFrom(workplaces(driver("A", "queue")), true);
    EXPECT_EQ(s.host.journal().linesOf({"module load", "process"}),
              Calls{"process start /opt/host/bin/mfddllwrap [A MFD Console] [/mods/libAxis.so] [A]"});
}

TEST(MDMModuleHandler, OtherInterfaceTypesArePreparedOnly) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom(workplaces(driver("A", "socket") + driver("B", "Queue") + driver("C", "Direct") +
                                        driver("D", "")),
                             true),
              (Calls{"A", "B", "C", "D"}));
    EXPECT_EQ(s.host.journal().linesOf({"module load", "process", "queue", "log"}), Calls{});
}

TEST(MDMModuleHandler, DriverThatFailsToLoadIsLoggedAndTheNextIsStarted) {
    Workplace s;
    s.host.fail("mkdir /wp/data/A");
    EXPECT_EQ(s.preparedFrom(workplaces(driver("A") + driver("B")), true), Calls{"B"});
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Failed to load \"A\" mainframe driver"});
}

TEST(MDMModuleHandler, DriverThatNobodyKnowsIsPassedOverSilently) {
    Workplace s;
    EXPECT_EQ(
        s.preparedFrom(
            workplaces("<mainframeDriver driverID=\"A\" driverType=\"Axis\" version=\"1\"/>" + driver("B")),
            true),
        Calls{"B"});
    EXPECT_EQ(s.log(), Calls{});
}

TEST(MDMModuleHandler, EntryWithoutAttributesMatchesNothing) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom(workplaces("<mainframeDriver/>" + driver("B")), true), Calls{"B"});
    EXPECT_EQ(s.log(), Calls{});
}

TEST(MDMModuleHandler, EntryTellsTheRecordThatWasUsed) {
    Workplace s;
    s.search();
    TiXmlDocument document;
    document.Parse(driver("A").c_str());
    MDMModuleInfo* pInfo = nullptr;
    EXPECT_TRUE(s.sut.parseMainframeDriver(0, document.RootElement(), pInfo));
    ASSERT_NE(pInfo, nullptr);
    EXPECT_EQ(pInfo->getMFDriverFilename(), "libAxis.so");
}

TEST(MDMModuleHandler, EntryWithoutALoaderIsLoggedAndFails) {
    fakehost::FakeHost host;
    MDMModuleHandler sut;
    TiXmlDocument document;
    document.Parse(driver("A").c_str());
    MDMModuleInfo* pInfo = nullptr;
    host.journal().clear();
    EXPECT_FALSE(sut.parseMainframeDriver(0, document.RootElement(), pInfo));
    EXPECT_EQ(host.journal().lines(), Calls{"log MDM 2: No module loader - can't load mainframe driver"});
    EXPECT_EQ(pInfo, nullptr);
}

TEST(MDMModuleHandler, EntryOutsideADocumentEndsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Workplace s;
            TiXmlElement element("mainframeDriver");
            MDMModuleInfo* pInfo = nullptr;
            s.sut.parseMainframeDriver(0, &element, pInfo);
        },
        "assertion failed: pDoc\n");
}

TEST(MDMModuleHandler, StartWithoutALoaderEndsAtTheFirstEntry) {
    fakehost::FakeHost host;
    WatchedHandler sut;
    host.writeFile("/wp/workplace.xml", workplaces(driver("A") + driver("B")));
    EXPECT_FALSE(sut.startMfDrivers("workplace.xml"));
    EXPECT_EQ(host.journal().linesOf({"log"}),
              Calls{"log MDM 2: No module loader - can't load mainframe driver"});
}

// Reload.

TEST(MDMModuleHandler, ReloadBeforeAnyStartFails) {
    Workplace s;
    EXPECT_FALSE(s.reload("A"));
    EXPECT_EQ(s.host.journal().lines(), Calls{});
}

TEST(MDMModuleHandler, ReloadUnloadsTheDriverAndLoadsItWithWhatTheFileNowSays) {
    Workplace s;
    s.preparedFrom(workplaces(driver("A", "direct")), true);
    s.configure(
        "<workplaces><workplace id=\"4\"><mainframeDriver driverID=\"A\" driverType=\"Axis\" version=\"1.0\""
        " workingDirectory=\"data/new\" interfaceType=\"direct\"/></workplace></workplaces>");
    s.host.journal().clear();
    bool result = false;
    {
        fakehost::StandardOutput output;
        output.intoJournal();
        result = s.sut.reloadMfDriver("A");
        output.journalNow();
    }
    EXPECT_TRUE(result);
    EXPECT_EQ(
        s.host.journal().lines(),
        (Calls{"verify workplace.xml",
               "stdout Deinitializing MF driver ID: A...",
               "driver deinitialize",
               "stdout OK\\0a",
               "module delete /mods/libAxis.so",
               "driver gone",
               "adapter list",
               "adapter open eth0",
               "mkdir /wp/data/new",
               "mkdir /wp/nvram/A",
               "symlink /wp/data/new -> /var/data/A replace",
               "adapter list",
               "adapter open eth0",
               "stdout Loading MF driver /mods/libAxis.so (ID: A)...",
               "module load 0 /mods/libAxis.so",
               "stdout OK\\0a",
               "module query /mods/libAxis.so 1201",
               "module query /mods/libAxis.so 1100",
               "driver setPanelStateInterface",
               "driver setSystemInterface",
               "driver setConfiguration 4 [A] [data/new] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]",
               "driver initializationCompleted"}));
}

TEST(MDMModuleHandler, ReloadLoadsADriverThatWasNotRunning) {
    Workplace s;
    s.preparedFrom(workplaces(""), true);
    s.configure(workplaces(driver("A", "direct")));
    s.host.journal().clear();
    EXPECT_TRUE(s.reload("A"));
    EXPECT_EQ(s.host.journal().linesOf({"driver deinitialize", "driver initializationCompleted"}),
              Calls{"driver initializationCompleted"});
}

TEST(MDMModuleHandler, ReloadWhoseLoadFailsIsLoggedAndSucceeds) {
    Workplace s;
    s.preparedFrom(workplaces(driver("A", "direct")), true);
    s.host.fail("module load");
    EXPECT_TRUE(s.reload("A"));
    EXPECT_EQ(s.log(), Calls{"log MDM 2: Failed to load \"A\" mainframe driver"});
    EXPECT_EQ(s.sut.getModule("A"), nullptr);
}

TEST(MDMModuleHandler, ReloadOfAnIDThatIsNotInTheFileUnloadsNothing) {
    Workplace s;
    s.preparedFrom(workplaces(driver("A", "direct")), true);
    s.configure(workplaces(driver("B", "direct")));
    s.host.journal().clear();
    EXPECT_FALSE(s.reload("A"));
    EXPECT_EQ(s.host.journal().lines(), Calls{"verify workplace.xml"});
    EXPECT_NE(s.sut.getModule("A"), nullptr);
}

TEST(MDMModuleHandler, ReloadComparesTheIDExactly) {
    Workplace s;
    s.preparedFrom(workplaces(driver("AXIS1")), true);
    EXPECT_FALSE(s.reload("AXIS"));
    EXPECT_FALSE(s.reload("AXIS11"));
    EXPECT_FALSE(s.reload("axis1"));
    EXPECT_TRUE(s.reload("AXIS1"));
}

TEST(MDMModuleHandler, ReloadOfTheEmptyIDTakesAnEntryWithTheEmptyIDOnly) {
    Workplace s;
    s.preparedFrom(workplaces(driver("A")), true);
    EXPECT_FALSE(s.reload(""));
    s.configure(workplaces("<mainframeDriver driverID=\"\"/>"));
    EXPECT_TRUE(s.reload(""));
}

TEST(MDMModuleHandler, ReloadLooksAtTheFirstAttributeAlone) {
    Workplace s;
    s.preparedFrom(workplaces("<mainframeDriver driverID=\"B\" driverType=\"A\" version=\"A\"/>"), true);
    EXPECT_FALSE(s.reload("A"));
}

TEST(MDMModuleHandler, ReloadTakesTheFirstEntryOfTheID) {
    Workplace s;
    s.preparedFrom(workplaces("<mainframeDriver driverID=\"A\" driverType=\"Axis\" version=\"1.0\""
                              " workingDirectory=\"data/first\"/><mainframeDriver driverID=\"A\""
                              " driverType=\"Axis\" version=\"1.0\" workingDirectory=\"data/second\"/>"),
                   true);
    s.host.journal().clear();
    EXPECT_TRUE(s.reload("A"));
    EXPECT_EQ(s.host.journal().linesOf({"symlink"}), Calls{"symlink /wp/data/first -> /var/data/A replace"});
}

TEST(MDMModuleHandler, ReloadSkipsEntriesWithoutAttributes) {
    Workplace s;
    s.preparedFrom(workplaces("<mainframeDriver/>" + driver("A")), true);
    EXPECT_TRUE(s.reload("A"));
}

TEST(MDMModuleHandler, ReloadOfThePanelDriverHandlesItsEntryLikeAnyOther) {
    Workplace s;
    s.preparedFrom(workplaces(driver("PANEL", "direct")), true);
    s.host.journal().clear();
    EXPECT_TRUE(s.reload("PANEL"));
    EXPECT_EQ(
        s.host.journal().linesOf({"driver", "symlink"}),
        (Calls{"driver deinitialize", "driver gone", "symlink /wp/data/PANEL -> /var/data/PANEL replace",
               "driver setPanelStateInterface", "driver setSystemInterface",
               "driver setConfiguration 0 [PANEL] [data/PANEL] [192.0.2.10] [eth0] [192.0.2.10] "
               "[/wp/nvram/PANEL]",
               "driver initializationCompleted"}));
}

TEST(MDMModuleHandler, ReloadFindsADriverOfALaterWorkplace) {
    Workplace s;
    s.preparedFrom("<workplaces><workplace id=\"0\">" + driver("A") + "</workplace><workplace id=\"3\">" +
                       driver("B", "direct") + "</workplace></workplaces>",
                   true);
    s.host.journal().clear();
    EXPECT_TRUE(s.reload("B"));
    EXPECT_EQ(s.host.journal().linesOf({"driver setConfiguration"}),
              Calls{"driver setConfiguration 3 [B] [data/B] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/B]"});
}

TEST(MDMModuleHandler, ReloadTouchesNeitherPanelNorDataDirectory) {
    Workplace s;
    s.host.entries["/var/data"] = {"A"};
    s.preparedFrom(workplaces(driver("A")), true);
    s.host.journal().clear();
    s.reload("A");
    EXPECT_EQ(s.host.journal().linesOf({"entries", "remove", "mkdir", "symlink"}),
              (Calls{"mkdir /wp/data/A", "mkdir /wp/nvram/A", "symlink /wp/data/A -> /var/data/A replace"}));
}

TEST(MDMModuleHandler, ReloadOfAFileThatBrokeFailsAndUnloadsNothing) {
    Workplace s;
    s.preparedFrom(workplaces(driver("A", "direct")), true);
    s.configure("<workplaces");
    s.host.journal().clear();
    EXPECT_FALSE(s.reload("A"));
    EXPECT_EQ(s.host.journal().lines(),
              Calls{"log MDM 2: Failed to open \"workplace.xml\" ('Failed to read Element name')"});
    EXPECT_NE(s.sut.getModule("A"), nullptr);
}

TEST(MDMModuleHandler, ReloadWarnsOfAnInvalidSignatureAndGoesOn) {
    Workplace s;
    s.preparedFrom(workplaces(driver("A")), true);
    s.host.fail("verify");
    EXPECT_TRUE(s.reload("A"));
    EXPECT_EQ(s.log(), Calls{"log MDM 3: \"workplace.xml\" has invalid signature"});
}

TEST(MDMModuleHandler, ReloadReportsTheFaultsOfTheFile) {
    Workplace s;
    s.preparedFrom("<workplaces/>", true);
    s.configure("<workplaces>\n<other/></workplaces>");
    EXPECT_FALSE(s.reload("A"));
    s.configure("<workplaces>\n\n<workplace id=\"8\"/></workplaces>");
    EXPECT_FALSE(s.reload("A"));
    EXPECT_EQ(s.log(), (Calls{"log MDM 2: Parse error in \"workplace.xml\" line 2",
                              "log MDM 2: Workplace ID missing or invalid in \"workplace.xml\" line 3"}));
}

TEST(MDMModuleHandler, ReloadReachesAnEntryBeforeAFaultOfTheFile) {
    Workplace s;
    s.preparedFrom("<workplaces/>", true);
    s.configure("<workplaces><workplace id=\"0\">" + driver("A") + "</workplace><other/></workplaces>");
    EXPECT_TRUE(s.reload("A"));
    EXPECT_EQ(s.log(), Calls{});
}

TEST(MDMModuleHandler, ReloadDoesNotReachADriverInsidePorts) {
    Workplace s;
    s.preparedFrom(workplaces("<ports>" + driver("A") + "</ports>"), true);
    EXPECT_FALSE(s.reload("A"));
}

TEST(MDMModuleHandler, ReloadWithoutALoaderIsLoggedAndFails) {
    struct NoLoader : MDMModuleHandler {
        bool startMfDriver(int, const std::string&, const std::string&, const std::string&,
                           const std::string&, const std::string&, const std::string&,
                           EInterfaceTypes) override {
            return true;
        }
    };
    fakehost::FakeHost host;
    NoLoader sut;
    host.writeFile("/wp/workplace.xml", "<workplaces/>");
    EXPECT_TRUE(sut.startMfDrivers("workplace.xml"));
    host.writeFile("/wp/workplace.xml", workplaces(driver("A")));
    EXPECT_FALSE(sut.reloadMfDriver("A"));
    EXPECT_EQ(host.journal().linesOf({"log"}),
              Calls{"log MDM 2: No module loader - can't load mainframe driver"});
}

TEST(MDMModuleHandler, EntryThatBeginsWithAnotherAttributeIsStarted) {
    Workplace s;
    EXPECT_EQ(s.preparedFrom(
                  workplaces("<mainframeDriver driverType=\"Axis\" driverID=\"A\" version=\"1.0\"/>"), true),
              Calls{"A"});
}

TEST(MDMModuleHandler, ReloadReachesAnEntryBeforeOneThatBeginsWithAnotherAttribute) {
    Workplace s;
    s.preparedFrom(
        workplaces(driver("A") + "<mainframeDriver driverType=\"Axis\" driverID=\"B\" version=\"1.0\"/>"),
        true);
    EXPECT_TRUE(s.reload("A"));
}

TEST(MDMModuleHandler, ReloadHeldByAnEntryPausesATenthOfASecondEachTime) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Workplace s;
            s.preparedFrom(workplaces("<mainframeDriver driverType=\"Axis\" driverID=\"B\"/>" + driver("A")),
                           true);
            std::thread([&s] {
                const bool paused = s.host.journal().waitFor("thread mssleep 100", 3);
                fakehost::FakeHost::removeFiles();
                _exit(paused ? 5 : 6);
            }).detach();
            s.sut.reloadMfDriver("A");
        },
        testing::ExitedWithCode(5), "");
}

TEST(MDMModuleHandler, ReloadNeverReturnsFromAnEntryThatBeginsWithAnotherAttributeAndPausesThere) {
    Workplace s;
    s.preparedFrom(
        workplaces("<mainframeDriver driverType=\"Axis\" driverID=\"B\" version=\"1.0\"/>" + driver("A")),
        true);
    int calls[2];
    ASSERT_EQ(pipe(calls), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(calls[0]);
        // One byte for each call of the host: the reload itself makes one, each pause of its spin another.
        s.host.journal().setObserver([&]() -> Calls {
            if (write(calls[1], "x", 1) != 1)
                _exit(8);
            return {};
        });
        s.sut.reloadMfDriver("A");
        _exit(7);
    }
    close(calls[1]);
    int seen = 0;
    char byte = 0;
    pollfd readable{calls[0], POLLIN, 0};
    while (seen < 30 && poll(&readable, 1, c_hangGuardMs) == 1 && read(calls[0], &byte, 1) == 1)
        ++seen;
    EXPECT_EQ(seen, 30) << "the reload ended, or spins without a pause";
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, WNOHANG), 0) << "the reload ended with status " << status;
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    close(calls[0]);
}

// Console commands.

TEST(MDMModuleHandler, ReloadCommandGoesThroughTheInterfaceAndHandsItsResultBack) {
    fakehost::FakeHost host;
    WatchedHandler sut;
    sal::CmdParameters parameters({"AXIS1", "more"});
    EXPECT_TRUE(sut.shellCmdReloadDriver(parameters));
    sut.result = false;
    EXPECT_FALSE(sut.shellCmdReloadDriver(parameters));
    EXPECT_EQ(host.journal().linesOf({"reloadMfDriver"}),
              (Calls{"reloadMfDriver AXIS1", "reloadMfDriver AXIS1"}));
}

TEST(MDMModuleHandler, ScanCommandGoesThroughTheInterfaceAndSucceeds) {
    fakehost::FakeHost host;
    WatchedHandler sut;
    sal::CmdParameters parameters({"/mods"});
    EXPECT_TRUE(sut.shellCmdScanDirectory(parameters));
    EXPECT_EQ(host.journal().linesOf({"searchMfDriver"}), Calls{"searchMfDriver /mods"});
}

TEST(MDMModuleHandler, ListCommandListsTheCatalogue) {
    Workplace s;
    s.search();
    sal::CmdParameters parameters({});
    bool result = false;
    const std::string printed =
        fakehost::printedBy([&] { result = s.sut.shellCmdListAvailables(parameters); });
    EXPECT_TRUE(result);
    EXPECT_EQ(
        printed,
        "MDMModuleInfo:\nFilename : libAxis.so\nType     : Axis\nDirectory: /mods\nPDL file : axis.pdl\n"
        "Descript.: moves\nVersion  : 1.0\n\n");
}

TEST(MDMModuleHandler, LoadCommandLoadsOneDriver) {
    Workplace s;
    s.host.adapters.push_back({"wlan0", "198.51.100.1", {}});
    s.search();
    EXPECT_TRUE(s.command(&MDMModuleHandler::shellCmdLoadDriver,
                          {"2", "A", "Axis", "1.0", "data/A", "198.51.100.2", "wlan0", "Direct"}));
    EXPECT_EQ(
        s.host.journal().linesOf({"driver setConfiguration"}),
        Calls{"driver setConfiguration 2 [A] [data/A] [198.51.100.2] [wlan0] [192.0.2.10] [/wp/nvram/A]"});
}

TEST(MDMModuleHandler, LoadCommandHandsTheLoadersResultBack) {
    Workplace s;
    s.search();
    s.host.fail("module load");
    EXPECT_FALSE(s.command(&MDMModuleHandler::shellCmdLoadDriver,
                           {"2", "A", "Axis", "1.0", "data/A", "", "", "Direct"}));
}

TEST(MDMModuleHandler, LoadCommandReadsTheWorkplaceFromItsLeadingDigits) {
    Workplace s;
    s.search();
    for (const char* number : {"12abc", "abc", "-3", ""})
        s.command(&MDMModuleHandler::shellCmdLoadDriver, {number, "A", "Axis", "1.0", "", "", "", "Direct"});
    std::vector<std::unique_ptr<sal::Module>> orphans;
    for (std::size_t index = 0; index + 1 < s.host.loaded.size(); ++index)
        orphans.emplace_back(s.host.loaded[index]);
    EXPECT_EQ(s.host.journal().linesOf({"driver setConfiguration"}),
              (Calls{"driver setConfiguration 12 [A] [] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]",
                     "driver setConfiguration 0 [A] [] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]",
                     "driver setConfiguration -3 [A] [] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]",
                     "driver setConfiguration 0 [A] [] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]"}));
}

TEST(MDMModuleHandler, LoadCommandSelectsQueueByItsWord) {
    Workplace s;
    s.search();
    s.sut.setFidDistributor(nullptr);
    EXPECT_FALSE(
        s.command(&MDMModuleHandler::shellCmdLoadDriver, {"0", "A", "Axis", "1.0", "", "", "", "Queue"}));
}

TEST(MDMModuleHandler, LoadCommandTakesAnyOtherWordAsNone) {
    Workplace s;
    s.search();
    for (const char* word : {"queue", "direct", "Socket", "socket", "QUEUE", ""})
        EXPECT_TRUE(
            s.command(&MDMModuleHandler::shellCmdLoadDriver, {"0", "A", "Axis", "1.0", "", "", "", word}))
            << word;
    EXPECT_EQ(s.host.journal().linesOf({"module load", "queue", "process"}), Calls{});
    EXPECT_EQ(s.prepared().size(), 6u);
}

TEST(MDMModuleHandler, LoadCommandWithoutArgumentsMatchesNothing) {
    Workplace s;
    s.search();
    EXPECT_TRUE(s.command(&MDMModuleHandler::shellCmdLoadDriver, {}));
    EXPECT_EQ(s.prepared(), Calls{});
}

// End.

TEST(MDMModuleHandler, DestructionUnloadsTheDrivers) {
    Workplace s;
    s.preparedFrom(workplaces(driver("A", "direct")), true);
    s.host.journal().clear();
    EXPECT_EQ(fakehost::printedBy([&] { s.pSut.reset(); }), "Deinitializing MF driver ID: A...OK\n");
    EXPECT_EQ(s.host.journal().lines(),
              (Calls{"driver deinitialize", "module delete /mods/libAxis.so", "driver gone"}));
}
