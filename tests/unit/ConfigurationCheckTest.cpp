#include "ConfigurationCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "TemporaryDirectory.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

/// A workplace file, descriptors with their modules, and what the check says of them: severity, line and text
/// of each finding.
class Checked {
public:
    Checked() {
        m_directory.write("drivers/panel.so", "module");
        m_directory.write("drivers/axis.so", "module");
        m_directory.write("drivers/panel.xml",
                          "<mfDriverModule>\n<module_type name='panel.so' type='Panel' version='1.0'/>\n"
                          "</mfDriverModule>");
        m_directory.write("drivers/axis.xml",
                          "<mfDriverModule>\n<module_type name='axis.so' type='Axis' version='1.0'/>\n"
                          "<module_type name='axis.so' type='Axis' version='1.1'/>\n"
                          "</mfDriverModule>");
    }

    void describe(const std::string& file, const std::string& text) {
        m_directory.write("drivers/" + file, text);
    }

    std::vector<std::string> start(const std::string& entries) {
        return inWords(entries, [](const ConfigurationCheck& sut) { return sut.forStart(); });
    }
    std::vector<std::string> question(const std::string& entries) {
        return inWords(entries, [](const ConfigurationCheck& sut) { return sut.forQuestion(); });
    }
    std::vector<std::string> reload(const std::string& driverID, const std::string& entries) {
        return inWords(entries, [&](const ConfigurationCheck& sut) { return sut.forReload(driverID); });
    }

    /// As they are in the file, which the test has written itself; none where it has not.
    std::vector<std::string> startOfFile() {
        return inWords([](const ConfigurationCheck& sut) { return sut.forStart(); });
    }
    std::vector<std::string> questionOfFile() {
        return inWords([](const ConfigurationCheck& sut) { return sut.forQuestion(); });
    }
    void write(const std::string& text) { m_directory.write("w.xml", text); }

    std::string m_workDirectory = "/opt/mf";
    ConfigurationCheck::Machine m_machine{.adapterFault = [](const auto&) { return std::string(); }};

    std::string file(const std::string& name = "w.xml") const { return m_directory.path(name); }

    /// A right entry in a line of its own, with these attributes in place of the usual ones.
    static std::string entry(const std::string& id, const std::string& more = {},
                             const std::string& interface = "queue") {
        return "<mainframeDriver driverID='" + id + "' driverType='Axis' version='1.0' interfaceType='" +
               interface + "' " + (more.empty() ? "workingDirectory='data/" + id + "'" : more) + "/>\n";
    }

private:
    std::vector<std::string> inWords(
        const std::string& entries,
        const std::function<std::vector<Finding>(const ConfigurationCheck&)>& check) {
        m_directory.write("w.xml",
                          "<workplaces>\n<workplace id='0'>\n" + entries + "</workplace>\n</workplaces>\n");
        return inWords(check);
    }
    std::vector<std::string> inWords(
        const std::function<std::vector<Finding>(const ConfigurationCheck&)>& check) {
        const WorkplaceFile workplace(file(), XmlInput::read(file()));
        const DescriptorCatalogue catalogue({m_directory.path("drivers")});
        std::vector<std::string> words;
        for (const Finding& finding :
             check(ConfigurationCheck(workplace, catalogue, m_workDirectory, m_machine)))
            words.push_back((finding.isError() ? "error " : "warning ") +
                            (finding.file == file() ? std::string() : finding.file + " ") +
                            std::to_string(finding.line) + ": " + finding.text);
        return words;
    }

    TemporaryDirectory m_directory;
};

class ConfigurationCheckTest : public testing::Test, public Checked {};

struct Case {
    const char* claim;
    std::string entries;  ///< from line 3 on
    std::vector<std::string> findings;
};

class ConfigurationCheckFindings : public testing::TestWithParam<Case>, public Checked {};

const std::string g_second =
    "<mainframeDriver driverID='B' driverType='Axis' version='1.0' interfaceType='direct' ";

}  // namespace

TEST_P(ConfigurationCheckFindings, AreTheseAtAStart) {
    EXPECT_EQ(GetParam().findings, start(GetParam().entries));
}

INSTANTIATE_TEST_SUITE_P(
    , ConfigurationCheckFindings,
    testing::ValuesIn(std::vector<Case>{
        {"NoneInARightFile", Checked::entry("A") + Checked::entry("B-2_x"), {}},
        {"NoneInAFileWithoutDrivers", "", {}},
        {"EmptyID",
         Checked::entry("", "workingDirectory='data/A'"),
         {"error 3: the mainframeDriver has no driverID; give it one of its own"}},
        {"MissingID",
         Checked::entry("A") + "<mainframeDriver/>\n",
         {"error 4: the mainframeDriver has no driverID; give it one of its own",
          "warning 4: no descriptor announces the driver type \"\"; the driver is not started; there is "
          "\"Axis\", \"Panel\"",
          "warning 4: without an interfaceType the driver is not started; write \"direct\" or \"queue\""}},
        {"DuplicateID",
         Checked::entry("A") + Checked::entry("A", "workingDirectory='data/B'", "direct"),
         {"error 4: the driver ID \"A\" stands in line 3 already; give each driver one of its own"}},
        {"DuplicateIDOfAnEntryThatLoadsNothing",
         Checked::entry("A") + Checked::entry("A", "workingDirectory='data/B'", "socket"),
         {"error 4: the driver ID \"A\" stands in line 3 already; give each driver one of its own",
          "warning 4: the interfaceType \"socket\" loads nothing; write \"direct\" or \"queue\""}},
        {"IDWithAZeroByte",
         Checked::entry("A&#0;B", "workingDirectory='data/A'"),
         {"error 3: the driver ID \"A\\x00B\" holds a zero byte, at which the system ends a name; use "
          "letters, digits, \"_\" and \"-\""}},
        {"IDThatIsAZeroByte",
         Checked::entry("&#x0;", "workingDirectory='data/A'", "direct"),
         {"error 3: the driver ID \"\\x00\" holds a zero byte, at which the system ends a name; use "
          "letters, digits, \"_\" and \"-\""}},
        {"IDsThatDifferInCaseAreTwo", Checked::entry("A") + Checked::entry("a"), {}},
        {"PanelAsADriver",
         Checked::entry("PANEL"),
         {"error 3: the panel driver is started without an entry and would run twice; remove the entry"}},
        {"PanelAsADriverThatIsNotLoaded",
         Checked::entry("PANEL", "", "socket"),
         {"warning 3: PANEL is the panel driver, which is started without an entry; give this one another ID",
          "warning 3: the interfaceType \"socket\" loads nothing; write \"direct\" or \"queue\""}},
        {"IDOfTheDirectoryItself",
         Checked::entry(".", "workingDirectory='data/A'"),
         {"error 3: the driver ID \".\" is a directory of the system's own; give the driver another"}},
        {"IDOfTheDirectoryAbove",
         Checked::entry("..", "workingDirectory='data/A'"),
         {"error 3: the driver ID \"..\" is a directory of the system's own; give the driver another"}},
        {"SlashInAnID",
         Checked::entry("A/B"),
         {"error 3: the driver ID \"A/B\" holds \"/\", which leads into another directory; use letters, "
          "digits, \"_\" and \"-\""}},
        {"BackslashInAnIDWhichPathsTurnIntoASlash",
         Checked::entry("A\\B"),
         {"error 3: the driver ID \"A\\B\" holds \"\\\", which leads into another directory; use letters, "
          "digits, \"_\" and \"-\""}},
        {"DotInAnID",
         Checked::entry("A.B"),
         {"warning 3: the driver ID \"A.B\" holds \".\", and a FID names its driver up to its first \".\": "
          "no "
          "FID reaches this driver; use letters, digits, \"_\" and \"-\""}},
        {"ControlCharacterInAnID",
         Checked::entry("A&#9;B", "workingDirectory='data/A'"),
         {"warning 3: the driver ID \"A\\tB\" holds a character that cannot be shown, and standard output "
          "gets it as it is; use letters, digits, \"_\" and \"-\""}},
        {"ControlCharactersBeyondAsciiInAnID",
         Checked::entry("A&#27;\xc2\x9b\x9b"
                        "B",
                        "workingDirectory='data/A'"),
         {"warning 3: the driver ID \"A\\x1b\\u009b\\x9bB\" holds a character that cannot be shown, and "
          "standard output gets it as it is; use letters, digits, \"_\" and \"-\""}},
        {"LettersBeyondAsciiInAnID", Checked::entry("\xc3\x84X1"), {}},
        {"ControlCharacterInAWorkingDirectory",
         Checked::entry("A", "workingDirectory='data/\xc2\x9b'"),
         {"warning 3: the workingDirectory \"data/\\u009b\" holds a character that cannot be shown, and "
          "standard output gets it as it is"}},
        {"OtherFirstAttribute",
         Checked::entry("A") + "<mainframeDriver driverType='Axis' driverID='B' version='1.0' "
                               "interfaceType='queue' workingDirectory='data/B'/>\n",
         {"warning 4: driverID must be the first attribute of a mainframeDriver that can be reloaded"}},
        {"UnknownType",
         "<mainframeDriver driverID='A' driverType='axis' version='1.0' interfaceType='queue'/>\n",
         {"warning 3: no descriptor announces the driver type \"axis\"; the driver is not started; there is "
          "\"Axis\", \"Panel\""}},
        {"UnknownVersion",
         "<mainframeDriver driverID='A' driverType='Axis' version='1' interfaceType='queue'/>\n",
         {"warning 3: no descriptor announces version \"1\" of the driver type \"Axis\"; the driver is not "
          "started; there is \"1.0\", \"1.1\""}},
        {"UnknownInterfaceWord",
         Checked::entry("A", "", "Queue"),
         {"warning 3: the interfaceType \"Queue\" is unknown and the driver is not started; write \"direct\" "
          "or \"queue\""}},
        {"MissingInterfaceWord",
         Checked::entry("A", "", ""),
         {"warning 3: without an interfaceType the driver is not started; write \"direct\" or \"queue\""}},
        {"OneAddressForTwo",
         Checked::entry("A", "workingDirectory='data/A' ipAddress='192.0.2.20'") + g_second +
             "workingDirectory='data/B' ipAddress='192.0.2.20'/>\n",
         {"warning 4: the ipAddress 192.0.2.20 stands in line 3 already; give each driver one of its own"}},
        {"NoAddressForTwo",
         Checked::entry("A", "workingDirectory='data/A' ipAddress=''") + g_second +
             "workingDirectory='data/B' ipAddress=''/>\n",
         {}},
        {"AddressThatIsNone",
         Checked::entry("A", "ipAddress='192.0.2'"),
         {"warning 3: the ipAddress \"192.0.2\" is no IPv4 address, such as 192.0.2.20"}},
        {"OneDirectoryForTwo",
         Checked::entry("A") + g_second + "workingDirectory='data/A'/>\n",
         {"warning 4: the workingDirectory \"data/A\" is that of line 3, too; give each driver one of its "
          "own"}},
        {"OneDirectoryForTwoInOtherWords",
         Checked::entry("A") + g_second + "workingDirectory='/data/./x/../A/'/>\n",
         {"warning 4: the workingDirectory \"/data/./x/../A/\" is that of line 3, too; give each driver one "
          "of its own"}},
        {"DirectoryOfThePanel",
         Checked::entry("A", "workingDirectory='data/PANEL'"),
         {"warning 3: the workingDirectory \"data/PANEL\" is the panel driver's, too; give each driver one "
          "of "
          "its own"}},
        {"WorkplaceOutOfRange",
         Checked::entry("A") + "</workplace>\n<workplace id='8'>\n",
         {"warning 5: the workplace id \"8\" is not a number from 0 to 7; it and what stands behind it is "
          "not "
          "started"}},
        {"ErrorBehindAFaultIsNeverReached",
         Checked::entry("A") + "<!-- the end -->\n" + Checked::entry("A", "workingDirectory='data/B'"),
         {"warning 4: a comment may not stand in a workplace; no driver behind it is started",
          "warning 5: the driver ID \"A\" stands in line 3 already; give each driver one of its own"}},
        {"MisspeltElement",
         "<mainframedriver driverID='A'/>\n",
         {"warning 3: the element <mainframedriver> is unknown, and nothing in it is read; did you mean "
          "<mainframeDriver>?"}},
        {"MisspeltAttributeBeforeWhatComesOfIt",
         Checked::entry("A") +
             "<mainframeDriver DriverID='B' driverType='Axis' version='1.0' interfaceType='queue' "
             "workdir='data/B'/>\n",
         {"warning 4: the attribute \"DriverID\" of <mainframeDriver> is unknown and not read; did you mean "
          "\"driverID\"?",
          "warning 4: the attribute \"workdir\" of <mainframeDriver> is unknown and not read; did you mean "
          "\"workingDirectory\"?",
          "error 4: the mainframeDriver has no driverID; give it one of its own",
          "warning 4: driverID must be the first attribute of a mainframeDriver that can be reloaded"}},
        {"MisspeltWorkplaceNumberBeforeWhatComesOfIt",
         "</workplace>\n<workplace ID='1'>\n",
         {"warning 4: the attribute \"ID\" of <workplace> is unknown and not read; did you mean \"id\"?",
          "warning 4: the workplace has no id; give it a number from 0 to 7; it and what stands behind it is "
          "not started"}},
    }),
    [](const auto& test) { return test.param.claim; });

TEST_F(ConfigurationCheckTest, IDThatFitsTheQueueNamesIsFine) {
    EXPECT_THAT(start(entry(std::string(225, 'A'), "workingDirectory='d'")), IsEmpty());
}

TEST_F(ConfigurationCheckTest, IDTooLongForTheQueueNamesIsNamed) {
    EXPECT_THAT(start(entry(std::string(251, 'A'), "workingDirectory='d'")),
                Contains("error 3: the driver ID \"" + std::string(80, 'A') +
                         "\"... makes no name for its queues: the name is too long: its file name would have "
                         "256 bytes, at most 255 are possible; give the driver a shorter one"));
}

TEST_F(ConfigurationCheckTest, ByteThatQueueNamesEncodeCountsThreefold) {
    EXPECT_THAT(start(entry(std::string(84, ' '), "workingDirectory='d'")),
                Contains("error 3: the driver ID \"" + std::string(80, ' ') +
                         "\"... makes no name for its queues: the name is too long: its file name would have "
                         "257 bytes, at most 255 are possible; give the driver a shorter one"));
    EXPECT_THAT(start(entry(std::string(83, ' '), "workingDirectory='d'")), IsEmpty());
}

TEST_F(ConfigurationCheckTest, IDTooLongForADirectoryIsNamed) {
    EXPECT_THAT(start(entry(std::string(256, 'A'), "workingDirectory='d'", "direct")),
                ElementsAre("warning 3: the driver ID \"" + std::string(80, 'A') +
                            "\"... has 256 bytes; at most 255 make the name of a directory"));
    EXPECT_THAT(start(entry(std::string(255, 'A'), "workingDirectory='d'", "direct")), IsEmpty());
}

TEST_F(ConfigurationCheckTest, DirectoryTooLongForAMessageIsNamed) {
    EXPECT_THAT(start(entry("A", "workingDirectory='" + std::string(256, 'd') + "'")),
                ElementsAre("warning 3: the workingDirectory \"" + std::string(80, 'd') +
                            "\"... has 256 bytes; at most 255 reach a driver in its own process"));
    EXPECT_THAT(start(entry("A", "workingDirectory='" + std::string(255, 'd') + "'")), IsEmpty());
}

TEST_F(ConfigurationCheckTest, DirectoryOfTheHostsProcessMayBeLonger) {
    EXPECT_THAT(start(entry("A", "workingDirectory='" + std::string(256, 'd') + "'", "direct")), IsEmpty());
}

TEST_F(ConfigurationCheckTest, AllTogetherTooLongForAMessageIsNamed) {
    const std::string more = "ipAddress='192.100.200.100' workingDirectory='" + std::string(255, 'd') +
                             "' networkAdapter='" + std::string(255, 'n') + "'";
    EXPECT_THAT(start(entry(std::string(241, 'A'), more)),
                ElementsAre("warning 3: ID, directories, address and adapter have 1021 bytes together; fewer "
                            "than 1008 reach a driver in its own process"));
    EXPECT_THAT(start(entry(std::string(230, 'A'), more)), IsEmpty());
}

TEST_F(ConfigurationCheckTest, TwoRecordsOfAUsedTypeAreAnErrorInTheSecondDescriptor) {
    describe("copy.xml",
             "<mfDriverModule>\n\n<module_type name='axis.so' type='Axis' version='1.0'/></mfDriverModule>");
    EXPECT_THAT(
        start(entry("A")),
        ElementsAre("error " + file("drivers/copy.xml") +
                    " 3: type \"Axis\" in version \"1.0\" is announced in " + file("drivers/axis.xml") +
                    " line 2 already, and each driver of it would be loaded twice; remove one"));
}

TEST_F(ConfigurationCheckTest, TwoRecordsOfATypeThatNobodyUsesAreAWarning) {
    describe("copy.xml",
             "<mfDriverModule>\n<module_type name='axis.so' type='Axis' version='1.1'/></mfDriverModule>");
    EXPECT_THAT(
        start(entry("A")),
        ElementsAre("warning " + file("drivers/copy.xml") +
                    " 2: type \"Axis\" in version \"1.1\" is announced in " + file("drivers/axis.xml") +
                    " line 3 already, and each driver of it would be loaded twice; remove one"));
}

TEST_F(ConfigurationCheckTest, TwoRecordsOfThePanelAreAnErrorWithoutAnEntry) {
    describe("second.xml",
             "<mfDriverModule>\n<module_type name='panel.so' type='Panel' version='1.0'/></mfDriverModule>");
    EXPECT_THAT(start(""), ElementsAre(testing::StartsWith("error " + file("drivers/second.xml") + " 2: ")));
}

TEST_F(ConfigurationCheckTest, MissingModuleFileIsAWarningInItsDescriptor) {
    describe("gone.xml",
             "<mfDriverModule>\n<module_type name='gone.so' type='Gone' version='1.0'/></mfDriverModule>");
    EXPECT_THAT(start(entry("A")),
                ElementsAre("warning " + file("drivers/gone.xml") + " 2: the module file " +
                            file("drivers/gone.so") + " cannot be loaded: No such file or directory"));
}

TEST_F(ConfigurationCheckTest, MissingModuleFileNamesTheDriversThatAreNotStarted) {
    describe("gone.xml",
             "<mfDriverModule>\n<module_type name='gone.so' type='Gone' version='1.0'/></mfDriverModule>");
    const auto gone = [](const std::string& id) {
        return "<mainframeDriver driverID='" + id +
               "' driverType='Gone' version='1.0' workingDirectory='data/" + id +
               "' interfaceType='queue'/>\n";
    };
    EXPECT_THAT(
        start(gone("A") + gone("B")),
        ElementsAre("warning " + file("drivers/gone.xml") + " 2: the module file " + file("drivers/gone.so") +
                    " cannot be loaded: No such file or directory; A, B are not started"));
}

TEST_F(ConfigurationCheckTest, MissingModuleFileOfThePanelIsAnErrorForWhoOnlyAsks) {
    describe("panel.xml",
             "<mfDriverModule>\n<module_type name='gone.so' type='Panel' version='1.0'/></mfDriverModule>");
    const std::string text = file("drivers/panel.xml") + " 2: the module file " + file("drivers/gone.so") +
                             " cannot be loaded: No such file or directory";
    EXPECT_THAT(question(entry("A")),
                ElementsAre("error " + text + "; without the panel driver nothing is started"));
    // The module ends such a start by itself, and says so in its own words.
    EXPECT_THAT(start(entry("A")), ElementsAre("warning " + text));
    EXPECT_THAT(reload("A", entry("A")), ElementsAre("warning " + text));
}

TEST_F(ConfigurationCheckTest, StartWithoutADescriptorOfThePanelIsAWarning) {
    const std::string text =
        "warning 0: runs without a panel driver: no descriptor announces type \"Panel\" in version \"1.0\"";
    describe("panel.xml",
             "<mfDriverModule>\n<module_type name='panel.so' type='Panel' version='2.0'/></mfDriverModule>");
    EXPECT_THAT(start(entry("A")), ElementsAre(text));
    EXPECT_THAT(question(entry("A")), ElementsAre(text));
    EXPECT_THAT(reload("A", entry("A")), IsEmpty());
}

TEST_F(ConfigurationCheckTest, ReloadThatWouldSpinIsAnError) {
    const std::string entries = entry("A") +
                                "<mainframeDriver driverType='Axis' driverID='B' version='1.0' "
                                "interfaceType='queue' workingDirectory='data/B'/>\n" +
                                entry("C");
    const std::string text =
        " 4: driverID must be the first attribute of a mainframeDriver that can be reloaded";
    EXPECT_THAT(reload("A", entries), ElementsAre("warning" + text));
    EXPECT_THAT(reload("B", entries), ElementsAre("error" + text));
    EXPECT_THAT(reload("C", entries), ElementsAre("error" + text));
}

TEST_F(ConfigurationCheckTest, EntryWithoutAttributesDoesNotMakeAReloadSpin) {
    EXPECT_THAT(reload("A", "<mainframeDriver/>\n" + entry("A")),
                Not(Contains(testing::HasSubstr("first attribute"))));
}

TEST_F(ConfigurationCheckTest, DuplicateIDIsAnErrorForAReload) {
    EXPECT_THAT(
        reload("B", entry("A") + entry("A", "workingDirectory='data/C'") + entry("B")),
        ElementsAre(
            "error 4: the driver ID \"A\" stands in line 3 already; give each driver one of its own"));
}

TEST_F(ConfigurationCheckTest, PanelMayHaveAnEntryForAReload) {
    EXPECT_THAT(reload("PANEL",
                       "<mainframeDriver driverID='PANEL' driverType='Panel' version='1.0' "
                       "workingDirectory='data/PANEL' interfaceType='direct'/>\n" +
                           entry("A")),
                IsEmpty());
}

TEST_F(ConfigurationCheckTest, DescriptorsComeBeforeTheEntriesThatFindNone) {
    describe("axis.xml", "<mfDriverModule>\n<module_type name='axis.so'\n</mfDriverModule>");
    EXPECT_THAT(start(entry("A")),
                ElementsAre("warning " + file("drivers/axis.xml") +
                                " 3: Error reading Attributes; the descriptor is skipped",
                            "warning 3: no descriptor announces the driver type \"Axis\"; the driver is not "
                            "started; there is \"Panel\""));
}

TEST_F(ConfigurationCheckTest, MisspeltAttributeOfADescriptorIsAWarning) {
    describe("gone.xml",
             "<mfDriverModule>\n<module_type name='axis.so' typ='Gone' version='1.0'/></mfDriverModule>");
    EXPECT_THAT(
        start(entry("A")),
        ElementsAre("warning " + file("drivers/gone.xml") +
                    " 2: the attribute \"typ\" of <module_type> is unknown and not read; did you mean "
                    "\"type\"?"));
}

TEST_F(ConfigurationCheckTest, MissingEmptyAndIllFormedFilesAreErrorsForWhoOnlyAsks) {
    EXPECT_THAT(questionOfFile(), ElementsAre("error 0: cannot be read: No such file or directory; only the "
                                              "panel driver is started"));
    write("");
    EXPECT_THAT(
        questionOfFile(),
        ElementsAre("error 0: cannot be read: Error document empty; only the panel driver is started"));
    write("<workplaces>\n<workplace id='0'>");
    EXPECT_THAT(questionOfFile(), ElementsAre("error 2: Error reading Element value; only the panel "
                                              "driver is started"));
    write("<desk/>");
    EXPECT_THAT(questionOfFile(), ElementsAre("error 1: the root is <desk>; it must be <workplaces>"));
    write("<!-- nothing -->");
    EXPECT_THAT(questionOfFile(), ElementsAre("error 0: holds no element; its root must be <workplaces>"));
}

TEST_F(ConfigurationCheckTest, MissingEmptyAndIllFormedFilesStayWarningsForAStart) {
    EXPECT_THAT(startOfFile(), ElementsAre(testing::StartsWith("warning 0: cannot be read: ")));
    write("");
    EXPECT_THAT(startOfFile(), ElementsAre(testing::StartsWith("warning 0: cannot be read: ")));
    write("<workplaces>\n<workplace id='0'>");
    EXPECT_THAT(startOfFile(), ElementsAre(testing::StartsWith("warning 2: Error reading Element value")));
}

TEST_F(ConfigurationCheckTest, FaultOfAWorkplaceFileStaysAWarningForWhoOnlyAsks) {
    EXPECT_THAT(question(entry("A") + "<!-- one -->\n"),
                ElementsAre("warning 4: a comment may not stand in a workplace; no driver behind it is "
                            "started"));
}

TEST_F(ConfigurationCheckTest, AdapterThatIsNotThereIsAWarning) {
    m_machine.adapterFault = [](const std::string& name) {
        return name.empty() || name == "eth0" ? std::string() : "no adapter " + name;
    };
    const auto on = [](const std::string& id, const std::string& adapter) {
        return entry(id, "workingDirectory='data/" + id + "' networkAdapter='" + adapter + "'");
    };
    const std::string entries = on("A", "eth0") + on("B", "eth7") + on("C", "");
    const std::string text = "warning 4: there is no adapter eth7; the driver is not started";
    EXPECT_THAT(start(entries), ElementsAre(text));
    EXPECT_THAT(question(entries), ElementsAre(text));
    EXPECT_THAT(reload("A", entries), ElementsAre(text));
}

TEST_F(ConfigurationCheckTest, EachAdapterIsLookedForOnce) {
    std::vector<std::string> asked;
    m_machine.adapterFault = [&](const std::string& name) {
        asked.push_back(name);
        return std::string();
    };
    start(entry("A"));
    EXPECT_THAT(asked, IsEmpty());
    start(entry("A", "networkAdapter='eth7' workingDirectory='a'") +
          entry("B", "networkAdapter='eth8' workingDirectory='b'") +
          entry("C", "networkAdapter='eth7' workingDirectory='c'"));
    EXPECT_THAT(asked, ElementsAre("eth7", "eth8"));
}

TEST_F(ConfigurationCheckTest, MachineWithoutAnAdapterForTheDriversIsAWarningForWhoOnlyAsks) {
    m_machine.adapterFault = [](const std::string& name) {
        return name == "lo" ? std::string() : "no adapter eth0";
    };
    EXPECT_THAT(question(entry("A", "networkAdapter='eth0' workingDirectory='d'")),
                ElementsAre("warning 0: starts no driver here: there is no adapter eth0; --adapter "
                            "eth0=NAME gives another one that name"));
    // The module says it by itself.
    EXPECT_THAT(start(entry("A")), IsEmpty());
}

TEST_F(ConfigurationCheckTest, ModuleThatCannotBeLoadedIsAWarningForWhoOnlyAsks) {
    std::vector<std::string> tried;
    m_machine.loadFault = [&](const std::string& module) {
        tried.push_back(module);
        return module == file("drivers/axis.so") ? "undefined symbol: x" : "";
    };
    EXPECT_THAT(
        question(entry("A") + entry("B", "workingDirectory='data/B'", "direct")),
        ElementsAre("warning " + file("drivers/axis.xml") + " 2: the module file " + file("drivers/axis.so") +
                    " cannot be loaded: undefined symbol: x; A, B are not "
                    "started"));
    EXPECT_THAT(tried, ElementsAre(file("drivers/axis.so"), file("drivers/panel.so")));
    EXPECT_THAT(start(entry("A")), IsEmpty());
    EXPECT_THAT(reload("A", entry("A")), IsEmpty());
}

TEST_F(ConfigurationCheckTest, ModuleThatNoEntryUsesIsNotTried) {
    std::vector<std::string> tried;
    m_machine.loadFault = [&](const std::string& module) {
        tried.push_back(module);
        return std::string();
    };
    question(entry("A", "", "socket"));
    EXPECT_THAT(tried, ElementsAre(file("drivers/panel.so")));
}

TEST_F(ConfigurationCheckTest, PanelThatCannotBeLoadedIsAnErrorForWhoOnlyAsks) {
    m_machine.loadFault = [&](const std::string& module) {
        return module == file("drivers/panel.so") ? "file too short" : "";
    };
    EXPECT_THAT(
        question(entry("A")),
        ElementsAre("error " + file("drivers/panel.xml") + " 2: the module file " + file("drivers/panel.so") +
                    " cannot be loaded: file too short; without the panel driver nothing is started"));
}

TEST_F(ConfigurationCheckTest, FileOfALinkIsCheckedForWhoOnlyAsks) {
    describe("link.xml",
             "<mfDriverModule>\n<module_type name='axis.so' type='Link' version='1.0'/>\n</mfDriverModule>");
    const auto link = [](const std::string& id, const std::string& interface) {
        return "<mainframeDriver driverID='" + id + "' driverType='Link' version='1.0' interfaceType='" +
               interface + "' workingDirectory='data/" + id + "'/>\n";
    };
    m_workDirectory = file("site");
    describe("../site/data/SITE2/link.xml",
             "<link site='SITE1' expiry='soon'>\n<broker host='192.0.2.1'/>\n</link>\n");
    const std::string entries = link("SITE2", "direct") + link("SITE3", "queue");
    EXPECT_THAT(
        question(entries),
        ElementsAre("warning 4: a link runs in the host's process alone and is not started; write "
                    "interfaceType=\"direct\"",
                    "warning " + file("site/data/SITE2/link.xml") +
                        " 1: expiry=\"soon\" is not a whole number from 1 to 3600; the driver SITE2 is "
                        "not started",
                    "warning " + file("site/data/SITE2/link.xml") +
                        " 2: what passes to \"192.0.2.1\" can be read and changed on its way; "
                        "authorities=\"...\" gives it TLS",
                    "warning " + file("site/data/SITE3/link.xml") +
                        " 0: cannot be read: No such file or directory; the driver SITE3 is not "
                        "started"));
    EXPECT_THAT(start(link("SITE2", "direct")), IsEmpty());
}
