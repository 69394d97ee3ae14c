// The console commands as an operator meets them: the records that the manager registers, called with the
// words behind the command, and the handlers that no command reaches.
#include <gmock/gmock.h>

#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "Console.h"
#include "FIDParameterList.h"
#include "FakeHost.h"
#include "FlushedOutput.h"
#include "IMDMConfiguration.h"
#include "MDMFidDistributor.h"
#include "MDMModuleHandler.h"
#include "MfDriverManager.h"
#include "RecordingDriver.h"
#include "RecordingMacroSystem.h"
#include "RecordingPanelState.h"
#include "RecordingSystem.h"
#include "StandardOutput.h"
#include "sal/CmdProcessor.h"
#include "sal/CmdRegisterImpl.h"
#include "sal/Module.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Calls = std::vector<std::string>;
using Words = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

struct Sent {
    std::string fid;
    Pairs parameters;
    bool operator==(const Sent&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Sent& sent) {
    stream << "[" << sent.fid << "]";
    for (const auto& [name, value] : sent.parameters)
        stream << " [" << name << "][" << value << "]";
    return stream;
}

Pairs pairsOf(const FIDParameterList& parameters) {
    return {parameters.begin(), parameters.end()};
}

/// Keeps the FIDs that reach it.
class Receiver : public RecordingDriver {
public:
    explicit Receiver(std::vector<Sent>& received) : RecordingDriver("A"), m_received(received) {}
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        m_received.push_back({fid, pairsOf(parameters)});
        return true;
    }

private:
    std::vector<Sent>& m_received;
};

/// A manager behind init() with the driver A, and its commands by their names.
struct Operator {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    RecordingSystem system;
    std::vector<Sent> received;  ///< by the driver A
    std::unique_ptr<MfDriverManager> pManager = std::make_unique<MfDriverManager>();

    Operator() {
        g_debugStartMFDProcess = true;
        host.journal().clear();
        pManager->init();
        pManager->setSystemInterface(&system);
        pManager->setVirtualPanelStateInterface(&panel);
        host.writeFile("/mods/mods.xml",
                       "<mfDriverModule><module_type name=\"libAxis.so\" type=\"Axis\" version=\"1.0\"/>"
                       "<module_type name=\"libPanel.so\" type=\"Panel\" version=\"1.0\"/></mfDriverModule>");
        for (const char* module : {"/mods/libAxis.so", "/mods/libPanel.so"})
            host.addModule(module, [this]() -> IInterface* {
                return static_cast<IFunctionID*>(new Receiver(received));
            });
        configuration().searchMfDriver("/mods");
        fakehost::printedBy([&] {
            EXPECT_TRUE(configuration().startMfDriver(0, "A", "Axis", "1.0", "data/A", "", "",
                                                      EInterfaceTypes::Direct));
        });
        host.journal().clear();
    }
    ~Operator() {
        fakehost::printedBy([&] { pManager.reset(); });
    }

    IMDMConfiguration& configuration() {
        return dynamic_cast<IMDMConfiguration&>(*pManager->queryInterface(1104));
    }
    static const std::vector<sal::CmdRegister*>& commands() { return fakehost::Console::instance().commands; }
    static sal::CmdRegister& command(const std::string& name) {
        for (sal::CmdRegister* pCommand : commands())
            if (pCommand->name() == name)
                return *pCommand;
        throw std::logic_error("no command " + name);
    }

    /// What the command answers to these words.
    static bool run(const std::string& name, Words words) {
        sal::CmdParameters parameters(std::move(words));
        return command(name).call(parameters);
    }
    /// Besides, the command prints nothing.
    static bool runSilently(const std::string& name, const Words& words) {
        bool result = false;
        EXPECT_EQ(fakehost::printedBy([&] { result = run(name, words); }), "");
        return result;
    }
    /// What "sendFID" with these words sends to the driver A.
    Sent sentBy(const Words& words) {
        received.clear();
        EXPECT_TRUE(run("sendFID", words));
        EXPECT_EQ(received.size(), 1U);
        return received.empty() ? Sent{"nothing", {}} : received.front();
    }

    Calls panelCalls() { return host.journal().linesOf({"panel"}); }
    Calls log() { return host.journal().linesOf({"log"}); }
};

// The records.

TEST(MfDriverManagerConsole, FiveCommandsAreRegisteredTheDistributorsFirst) {
    Operator s;
    Words names;
    for (const sal::CmdRegister* pCommand : Operator::commands())
        names.push_back(pCommand->name());
    EXPECT_EQ(names, (Words{"setStateValue", "unsetStateValue", "triggerEvent", "sendFID", "reloadDriver"}));
}

struct Help {
    const char* name;
    const char* text;
};

class MfDriverManagerConsoleHelp : public testing::TestWithParam<Help> {};

TEST_P(MfDriverManagerConsoleHelp, IsWordForWord) {
    Operator s;
    EXPECT_STREQ(Operator::command(GetParam().name).help(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Table, MfDriverManagerConsoleHelp,
    testing::Values(
        Help{"setStateValue",
             "setStateValue <state ID> <state value>\n\tchange the value of an PanelState entry."},
        Help{"unsetStateValue", "unsetStateValue <state ID>\n\tremove a PanelState entry."},
        Help{"triggerEvent",
             "triggerEvent <event ID> <event value>\n\tsend trigger event to PDL interpreter."},
        Help{"sendFID",
             "sendFID <FID> [<parameter name>=<parameter value> [...]]\n\tSend a FunctionID with optional "
             "parameters"},
        Help{"reloadDriver", "reloadDriver <driver ID>\n\treloads an MF driver module (stop and restart)."}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(MfDriverManagerConsole, HelpTextsAreConstantsThatOutliveTheManager) {
    std::vector<std::string> texts;
    fakehost::FakeHost host;
    {
        MfDriverManager manager;
        manager.init();
    }
    for (const sal::CmdRegister* pCommand : Operator::commands())
        texts.emplace_back(pCommand->help());
    EXPECT_THAT(texts,
                ElementsAre(testing::StartsWith("setStateValue <"), testing::StartsWith("unsetStateValue <"),
                            testing::StartsWith("triggerEvent <"), testing::StartsWith("sendFID <"),
                            testing::StartsWith("reloadDriver <")));
}

TEST(MfDriverManagerConsole, FourRecordsAreTheDistributorsAndOneIsTheHandlers) {
    Operator s;
    Words owners;
    for (sal::CmdRegister* pCommand : Operator::commands())
        owners.emplace_back(dynamic_cast<sal::CmdRegisterImpl<MDMFidDistributor>*>(pCommand)  ? "distributor"
                            : dynamic_cast<sal::CmdRegisterImpl<MDMModuleHandler>*>(pCommand) ? "handler"
                                                                                              : "other");
    EXPECT_EQ(owners, (Words{"distributor", "distributor", "distributor", "distributor", "handler"}));
}

TEST(MfDriverManagerConsole, RegistrationIsCheckedBeforeEachCommand) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const char* last : {"setStateValue", "unsetStateValue", "triggerEvent", "sendFID"}) {
        EXPECT_DEATH(
            {
                fakehost::FakeHost host;
                host.fail(std::string("command register ") + last);
                MfDriverManager manager;
                manager.init();
            },
            "assertion failed: s_pInstance\n")
            << last;
    }
}

TEST(MfDriverManagerConsole, EachManagerRegistersItsOwnRecords) {
    fakehost::FakeHost host;
    {
        MfDriverManager manager;
        manager.init();
        MfDriverManager other;
        other.init();
    }
    EXPECT_EQ(Operator::commands().size(), 10U);
}

TEST(MfDriverManagerConsole, RecordsStayWhenTheManagerIsGone) {
    Operator s;
    fakehost::printedBy([&] { s.pManager.reset(); });
    EXPECT_EQ(Operator::commands().size(), 5U);
    EXPECT_EQ(Operator::command("reloadDriver").name(), "reloadDriver");
    EXPECT_EQ(sal::CmdProcessor::getInstance()->names().size(), 5U);
}

TEST(MfDriverManagerConsole, CommandsRunOnTheThreadThatCallsThem) {
    struct Noting : RecordingPanelState {
        void setStateValue(const std::string&, const std::string&) override {
            thread = std::this_thread::get_id();
        }
        std::thread::id thread;
    };
    Operator s;
    Noting panel;
    s.pManager->setVirtualPanelStateInterface(&panel);
    std::thread::id caller;
    std::thread console([&] {
        caller = std::this_thread::get_id();
        Operator::run("setStateValue", {"PANEL.LAMP", "1"});
    });
    console.join();
    EXPECT_EQ(panel.thread, caller);
}

template <class T>
using Handler = bool (T::*)(sal::CmdParameters&);

TEST(MfDriverManagerConsole, AllHandlersHaveTheSameSignature) {
    EXPECT_TRUE(
        (std::is_same_v<decltype(&MDMFidDistributor::shellCmdSetStateValue), Handler<MDMFidDistributor>>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&MDMFidDistributor::shellCmdUnsetStateValue), Handler<MDMFidDistributor>>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&MDMFidDistributor::shellCmdTriggerEvent), Handler<MDMFidDistributor>>));
    EXPECT_TRUE((std::is_same_v<decltype(&MDMFidDistributor::shellCmdSendFID), Handler<MDMFidDistributor>>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&MDMFidDistributor::shellCmdListDrivers), Handler<MDMFidDistributor>>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&MDMModuleHandler::shellCmdReloadDriver), Handler<MDMModuleHandler>>));
    EXPECT_TRUE((std::is_same_v<decltype(&MDMModuleHandler::shellCmdLoadDriver), Handler<MDMModuleHandler>>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&MDMModuleHandler::shellCmdScanDirectory), Handler<MDMModuleHandler>>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(&MDMModuleHandler::shellCmdListAvailables), Handler<MDMModuleHandler>>));
}

TEST(MfDriverManagerConsole, FurtherHandlersHaveNoCommand) {
    Operator s;
    std::ostringstream reply;
    for (const char* name : {"loadDriver", "scanDirectory", "listAvailables", "listDrivers", "load", "scan",
                             "list", "showModules", ""})
        EXPECT_FALSE(sal::CmdProcessor::getInstance()->help(name, reply)) << name;
    EXPECT_EQ(reply.str(), "");
}

// The state commands.

struct StateCase {
    const char* claim;
    const char* command;
    Words words;
    std::string call;
};

class MfDriverManagerConsoleState : public testing::TestWithParam<StateCase> {};

TEST_P(MfDriverManagerConsoleState, ReachesThePanelSilentlyAndSucceeds) {
    Operator s;
    EXPECT_TRUE(Operator::runSilently(GetParam().command, GetParam().words));
    EXPECT_EQ(s.panelCalls(), Calls{GetParam().call});
    EXPECT_THAT(s.log(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, MfDriverManagerConsoleState,
    testing::Values(
        StateCase{"KeyAndValue", "setStateValue", {"PANEL.LAMP", "1"}, "panel setStateValue PANEL.LAMP 1"},
        StateCase{"WithoutDriver", "setStateValue", {"LAMP", "on"}, "panel setStateValue LAMP on"},
        StateCase{"NumberIsText", "setStateValue", {"A.T", "-21.50"}, "panel setStateValue A.T -21.50"},
        StateCase{"WordIsText", "setStateValue", {"A.T", "true"}, "panel setStateValue A.T true"},
        StateCase{"BlanksInside", "setStateValue", {"A T", " x  y "}, "panel setStateValue A T  x  y "},
        StateCase{"EqualsSign", "setStateValue", {"A.T=1", "=2"}, "panel setStateValue A.T=1 =2"},
        StateCase{"EmptyTexts", "setStateValue", {"", ""}, "panel setStateValue  "},
        StateCase{"ValueMissing", "setStateValue", {"A.T"}, "panel setStateValue A.T "},
        StateCase{"NothingAtAll", "setStateValue", {}, "panel setStateValue  "},
        StateCase{"MoreWords", "setStateValue", {"A.T", "1", "2", "3"}, "panel setStateValue A.T 1"},
        StateCase{"LongValue",
                  "setStateValue",
                  {"A.T", std::string(70000, 'v')},
                  "panel setStateValue A.T " + std::string(70000, 'v')},
        StateCase{"Unset", "unsetStateValue", {"PANEL.LAMP"}, "panel unsetStateValue PANEL.LAMP"},
        StateCase{"UnsetNothing", "unsetStateValue", {}, "panel unsetStateValue "},
        StateCase{"UnsetMoreWords", "unsetStateValue", {"A.T", "A.U"}, "panel unsetStateValue A.T"},
        StateCase{"Event", "triggerEvent", {"PANEL.ALARM", "hot"}, "panel triggerEvent PANEL.ALARM hot"},
        StateCase{"EventValueMissing", "triggerEvent", {"A.E"}, "panel triggerEvent A.E "},
        StateCase{"EventNothing", "triggerEvent", {}, "panel triggerEvent  "},
        StateCase{"EventMoreWords", "triggerEvent", {"A.E", "v", "w"}, "panel triggerEvent A.E v"}),
    [](const auto& test) { return test.param.claim; });

TEST(MfDriverManagerConsole, StateCommandsPassOnWhatStandsForAMissingArgument) {
    Operator s;
    fakehost::Console::instance().missingArgument = "<none>";
    EXPECT_TRUE(Operator::run("setStateValue", {"A.T"}));
    EXPECT_TRUE(Operator::run("setStateValue", {}));
    EXPECT_TRUE(Operator::run("unsetStateValue", {}));
    EXPECT_TRUE(Operator::run("triggerEvent", {"A.E"}));
    EXPECT_TRUE(Operator::run("triggerEvent", {}));
    EXPECT_EQ(s.panelCalls(), (Calls{"panel setStateValue A.T <none>", "panel setStateValue <none> <none>",
                                     "panel unsetStateValue <none>", "panel triggerEvent A.E <none>",
                                     "panel triggerEvent <none> <none>"}));
}

TEST(MfDriverManagerConsole, StateCommandsDoNotCountTheirArguments) {
    Operator s;
    for (const char* name : {"setStateValue", "unsetStateValue", "triggerEvent"})
        Operator::run(name, {"A.T", "1"});
    EXPECT_EQ(fakehost::Console::instance().argumentCounts, 0U);
}

TEST(MfDriverManagerConsole, StateCommandsWithoutAPanelAreSilentAndSucceed) {
    Operator s;
    s.pManager->setVirtualPanelStateInterface(nullptr);
    for (const char* name : {"setStateValue", "unsetStateValue", "triggerEvent"})
        EXPECT_TRUE(Operator::runSilently(name, {"A.T", "1"})) << name;
    EXPECT_THAT(s.host.journal().lines(), IsEmpty());
}

TEST(MfDriverManagerConsole, StateCommandsShowOnTheVirtualPanelUntilTheHostHasOne) {
    fakehost::FakeHost host;
    MfDriverManager manager;
    manager.init();
    EXPECT_EQ(fakehost::printedBy([&] {
                  EXPECT_TRUE(Operator::run("setStateValue", {"PANEL.LAMP", "1"}));
                  EXPECT_TRUE(Operator::run("unsetStateValue", {""}));
                  EXPECT_TRUE(Operator::run("triggerEvent", {"PANEL.ALARM", ""}));
              }),
              "MDMVirtualPanelIPCI: sends => PANEL.LAMP   state => 1\n\n"
              "MDMVirtualPanelIPCI: sends =>    state => INVALID\n\n"
              "MDMVirtualPanelIPCI: triggers => PANEL.ALARM   value => \n\n");
}

// sendFID.

TEST(MfDriverManagerConsole, SendFidAlonePrintsItsUsageSendsNothingAndFails) {
    Operator s;
    FlushedOutput output;
    EXPECT_FALSE(Operator::run("sendFID", {}));
    EXPECT_EQ(output.pieces, Calls{"Usage: sendFID <FID> [<parameter name>=<parameter value> [...]]\n"});
    EXPECT_THAT(s.received, IsEmpty());
    EXPECT_THAT(s.host.journal().lines(), IsEmpty());
}

struct Line {
    const char* claim;
    Words words;
    Pairs parameters;
};

class MfDriverManagerConsoleSendFID : public testing::TestWithParam<Line> {};

TEST_P(MfDriverManagerConsoleSendFID, GivesThePairs) {
    Operator s;
    Words words = GetParam().words;
    words.insert(words.begin(), "A.MOVE");
    EXPECT_TRUE(Operator::runSilently("sendFID", words));
    EXPECT_THAT(s.received, ElementsAre(Sent{"MOVE", GetParam().parameters}));
}

INSTANTIATE_TEST_SUITE_P(
    Table, MfDriverManagerConsoleSendFID,
    testing::Values(Line{"NoParameters", {}, {}}, Line{"Joined", {"a=5"}, {{"a", "5"}}},
                    Line{"EqualsAtTheName", {"a=", "5"}, {{"a", "5"}}},
                    Line{"EqualsAtTheValue", {"a", "=5"}, {{"a", "5"}}},
                    Line{"EqualsAlone", {"a", "=", "5"}, {{"a", "5"}}},
                    Line{"NoEquals", {"a", "5"}, {{"a", "5"}}},
                    Line{"AllFormsInOrder",
                         {"x=1", "y=", "2", "z", "3", "w", "=4", "v", "=", "5"},
                         {{"x", "1"}, {"y", "2"}, {"z", "3"}, {"w", "4"}, {"v", "5"}}},
                    Line{"SplitsAtTheFirstEquals", {"a=b=c"}, {{"a", "b=c"}}},
                    Line{"KeepsATrailingEquals", {"a=b=", "c", "d"}, {{"a", "b="}, {"c", "d"}}},
                    Line{"KeepsEqualsInARow", {"a==5"}, {{"a", "=5"}}},
                    Line{"TwoEqualsAreANameAndOne", {"a==", "5", "6"}, {{"a", "="}, {"5", "6"}}},
                    Line{"EmptyNameAndValue", {"=5"}, {{"", "5"}}},
                    Line{"LoneEqualsTakesTheNext", {"=", "5"}, {{"", "5"}}},
                    Line{"LoneEqualsTakesALoneEquals", {"=", "=", "5"}, {{"", "="}, {"5", ""}}},
                    Line{"TwoEqualsAlone", {"==", "5", "6"}, {{"", "="}, {"5", "6"}}},
                    Line{"NameEqualsTakesTheNextWithItsEquals", {"a=", "=5"}, {{"a", "=5"}}},
                    Line{"NameEqualsTakesALoneEquals", {"a=", "=", "5"}, {{"a", "="}, {"5", ""}}},
                    Line{"NameEqualsTakesTheNextWhole", {"a=", "b=1"}, {{"a", "b=1"}}},
                    Line{"NameTakesTheNextWithEqualsInside", {"a", "b=1"}, {{"a", "b=1"}}},
                    Line{"NameTakesTheNextWithEqualsAtItsEnd", {"a", "b=", "c"}, {{"a", "b="}, {"c", ""}}},
                    Line{"DropsOneLeadingEqualsOnly", {"a", "==5"}, {{"a", "=5"}}},
                    Line{"DropsOneOfTwoEquals", {"a", "==", "5"}, {{"a", "="}, {"5", ""}}},
                    Line{"ValueBehindALoneEqualsKeepsItsEquals", {"a", "=", "=5"}, {{"a", "=5"}}},
                    Line{"ValueBehindALoneEqualsMayBeOne", {"a", "=", "="}, {{"a", "="}}},
                    Line{"NameAtTheEnd", {"a"}, {{"a", ""}}},
                    Line{"NameEqualsAtTheEnd", {"b=1", "a="}, {{"b", "1"}, {"a", ""}}},
                    Line{"NameAndEqualsAtTheEnd", {"a", "="}, {{"a", ""}}},
                    Line{"LoneEqualsAtTheEnd", {"="}, {{"", ""}}},
                    Line{"EmptyWordIsANameWithTheNext", {"", "5"}, {{"", "5"}}},
                    Line{"EmptyWordIsAValue", {"a", "", "b", "1"}, {{"a", ""}, {"b", "1"}}},
                    Line{"EmptyValueBehindNameEquals", {"a=", "", "b=1"}, {{"a", ""}, {"b", "1"}}},
                    Line{"EmptyValueBehindALoneEquals", {"a", "=", "", "b=1"}, {{"a", ""}, {"b", "1"}}},
                    Line{"EmptyWordAtTheEnd", {"a=1", ""}, {{"a", "1"}, {"", ""}}},
                    Line{"RepeatedNames", {"a=1", "a=2", "a", "1"}, {{"a", "1"}, {"a", "2"}, {"a", "1"}}},
                    Line{"BlanksInside", {"a b= c d ", " e", " =f"}, {{"a b", " c d "}, {" e", " =f"}}},
                    Line{"NegativeNumber", {"a=-5", "b", "-6"}, {{"a", "-5"}, {"b", "-6"}}},
                    Line{"NumbersStayText",
                         {"a=007", "b=99999999999999999999", "c=1e999", "d=0x10", "e=+1", "f=1.50"},
                         {{"a", "007"},
                          {"b", "99999999999999999999"},
                          {"c", "1e999"},
                          {"d", "0x10"},
                          {"e", "+1"},
                          {"f", "1.50"}}},
                    Line{"NoTypePrefixes", {"i:a=1", "int", "a"}, {{"i:a", "1"}, {"int", "a"}}},
                    Line{"QuotesAreText", {"\"a\"='5'", "b=\\n"}, {{"\"a\"", "'5'"}, {"b", "\\n"}}},
                    Line{"SeparatorsAreText", {"a,b=1;2", "c:3", "d,4"}, {{"a,b", "1;2"}, {"c:3", "d,4"}}},
                    Line{"DotsAreText", {"A.x=B.y"}, {{"A.x", "B.y"}}},
                    Line{"OptionsAreText", {"--help", "-v"}, {{"--help", "-v"}}},
                    Line{"BytesBeyondAscii", {"\xc3\xa4=\xff\x01"}, {{"\xc3\xa4", "\xff\x01"}}},
                    Line{"ZeroByteInside",
                         {std::string("a\0b=c\0d", 7)},
                         {{std::string("a\0b", 3), std::string("c\0d", 3)}}},
                    Line{"LongNameAndValue",
                         {std::string(70000, 'n') + "=" + std::string(70000, 'v')},
                         {{std::string(70000, 'n'), std::string(70000, 'v')}}}),
    [](const auto& test) { return test.param.claim; });

TEST(MfDriverManagerConsole, SendFidTakesAnyNumberOfParameters) {
    Operator s;
    Words words{"A.MOVE"};
    Pairs expected;
    for (int index = 0; index < 5000; ++index) {
        words.push_back("n" + std::to_string(index) + "=");
        words.push_back(std::to_string(index));
        expected.emplace_back("n" + std::to_string(index), std::to_string(index));
    }
    EXPECT_EQ(s.sentBy(words).parameters, expected);
}

TEST(MfDriverManagerConsole, SendFidTakesWhatStandsForAMissingArgumentAsTheValue) {
    Operator s;
    fakehost::Console::instance().missingArgument = "<none>";
    EXPECT_EQ(s.sentBy({"A.x", "a"}).parameters, (Pairs{{"a", "<none>"}}));
    EXPECT_EQ(s.sentBy({"A.x", "a="}).parameters, (Pairs{{"a", "<none>"}}));
    EXPECT_EQ(s.sentBy({"A.x", "a", "="}).parameters, (Pairs{{"a", "<none>"}}));
    EXPECT_EQ(s.sentBy({"A.x", "="}).parameters, (Pairs{{"", "<none>"}}));
}

TEST(MfDriverManagerConsole, SendFidTreatsWhatStandsForAMissingArgumentAsAnyValue) {
    Operator s;
    fakehost::Console::instance().missingArgument = "=x";
    EXPECT_EQ(s.sentBy({"A.x", "a"}).parameters, (Pairs{{"a", "x"}}));
    EXPECT_EQ(s.sentBy({"A.x", "a="}).parameters, (Pairs{{"a", "=x"}}));
    fakehost::Console::instance().missingArgument = "=";
    EXPECT_EQ(s.sentBy({"A.x", "a"}).parameters, (Pairs{{"a", "="}}));
}

TEST(MfDriverManagerConsole, SendFidCountsItsArgumentsAfreshOnEachPass) {
    Operator s;
    s.sentBy({"A.x", "a=1", "b", "2", "c", "=", "3"});
    EXPECT_EQ(fakehost::Console::instance().argumentCounts, 1U + 4U);
}

/// The grammar once more, word by word.
Pairs pairsByTheGrammar(const Words& words) {
    Words rest(words.rbegin(), words.rend());
    const auto next = [&rest] {
        std::string word;
        if (!rest.empty()) {
            word = rest.back();
            rest.pop_back();
        }
        return word;
    };
    Pairs result;
    while (!rest.empty()) {
        const std::string token = next();
        const auto equals = token.find('=');
        if (equals == std::string::npos) {
            std::string value = next();
            if (value == "=")
                value = next();
            else if (!value.empty() && value[0] == '=')
                value = value.substr(1);
            result.emplace_back(token, value);
        } else if (equals == token.size() - 1) {
            result.emplace_back(token.substr(0, equals), next());
        } else {
            result.emplace_back(token.substr(0, equals), token.substr(equals + 1));
        }
    }
    return result;
}

TEST(MfDriverManagerConsole, SendFidObeysTheGrammarForEveryCombinationOfFourWords) {
    Operator s;
    const Words alphabet{"", "a", "=", "b=", "=c", "d=e", "=="};
    std::size_t lines = 0;
    for (std::size_t length = 0; length <= 4; ++length) {
        std::size_t combinations = 1;
        for (std::size_t word = 0; word < length; ++word)
            combinations *= alphabet.size();
        for (std::size_t index = 0; index < combinations; ++index, ++lines) {
            Words words{"A.x"};
            for (std::size_t word = 0, rest = index; word < length; ++word, rest /= alphabet.size())
                words.push_back(alphabet[rest % alphabet.size()]);
            ASSERT_EQ(s.sentBy(words).parameters, pairsByTheGrammar(Words(words.begin() + 1, words.end())))
                << testing::PrintToString(words);
        }
    }
    EXPECT_EQ(lines, 1U + 7U + 49U + 343U + 2401U);
}

struct Target {
    const char* claim;
    std::string fid;
    Calls log;
    std::vector<Sent> received;
};

class MfDriverManagerConsoleTarget : public testing::TestWithParam<Target> {};

TEST_P(MfDriverManagerConsoleTarget, IsRoutedAndTheCommandSucceedsSilently) {
    Operator s;
    EXPECT_TRUE(Operator::runSilently("sendFID", {GetParam().fid, "a=1"}));
    EXPECT_EQ(s.log(), GetParam().log);
    EXPECT_EQ(s.received, GetParam().received);
}

INSTANTIATE_TEST_SUITE_P(
    Table, MfDriverManagerConsoleTarget,
    testing::Values(
        Target{"Known", "A.MOVE", {"log MDM 5: MDM: A.MOVE ( a=1) received."}, {{"MOVE", {{"a", "1"}}}}},
        Target{"FurtherDots", "A.B.C", {"log MDM 5: MDM: A.B.C ( a=1) received."}, {{"B.C", {{"a", "1"}}}}},
        Target{"EmptyFunction", "A.", {"log MDM 5: MDM: A. ( a=1) received."}, {{"", {{"a", "1"}}}}},
        Target{
            "EqualsInTheFid", "A.x=1", {"log MDM 5: MDM: A.x=1 ( a=1) received."}, {{"x=1", {{"a", "1"}}}}},
        Target{"BlankInTheFid", "A.x y", {"log MDM 5: MDM: A.x y ( a=1) received."}, {{"x y", {{"a", "1"}}}}},
        Target{"Unknown",
               "NOPE.x",
               {"log MDM 5: MDM: NOPE.x ( a=1) received.", "log MDM 5: MDM:  -> but not dispatched"},
               {}},
        Target{"OtherCase",
               "a.x",
               {"log MDM 5: MDM: a.x ( a=1) received.", "log MDM 5: MDM:  -> but not dispatched"},
               {}},
        Target{"EmptyDriver",
               ".x",
               {"log MDM 5: MDM: .x ( a=1) received.", "log MDM 5: MDM:  -> but not dispatched"},
               {}},
        Target{"NoDot", "A", {"log MDM 5: MDM: A ( a=1) received."}, {}},
        Target{"Empty", "", {"log MDM 5: MDM:  ( a=1) received."}, {}}),
    [](const auto& test) { return test.param.claim; });

TEST(MfDriverManagerConsole, SendFidLogsItsParametersInOrder) {
    Operator s;
    Operator::run("sendFID", {"NODOT", "b=2", "a", "1"});
    EXPECT_EQ(s.log(), Calls{"log MDM 5: MDM: NODOT ( b=2, a=1) received."});
}

TEST(MfDriverManagerConsole, SendFidReportsNoState) {
    Operator s;
    Operator::run("sendFID", {"A.x", "a=1"});
    EXPECT_THAT(s.panelCalls(), IsEmpty());
}

// reloadDriver.

struct Reload {
    const char* claim;
    Words words;
    bool result;
    Calls calls;
};

class MfDriverManagerConsoleReload : public testing::TestWithParam<Reload> {};

TEST_P(MfDriverManagerConsoleReload, HandsTheResultBack) {
    Operator s;
    s.host.writeFile(
        "/wp/workplace.xml",
        "<workplaces><workplace id=\"3\"><mainframeDriver driverID=\"A\" driverType=\"Axis\" version=\"1.0\""
        " workingDirectory=\"data/A\" interfaceType=\"direct\"/></workplace></workplaces>");
    fakehost::printedBy([&] { s.configuration().reloadMfDriver("A"); });
    fakehost::printedBy([&] { s.configuration().startMfDrivers("workplace.xml"); });
    // The first driver A was replaced in the registry and is nobody's any more.
    const std::unique_ptr<sal::Module> pOrphan(s.host.loaded.front());
    s.host.journal().clear();
    bool result = false;
    fakehost::printedBy([&] { result = Operator::run("reloadDriver", GetParam().words); });
    EXPECT_EQ(result, GetParam().result);
    EXPECT_EQ(s.host.journal().linesOf({"A deinitialize", "A gone", "A setConfiguration"}), GetParam().calls);
}

const Calls reloaded{"A deinitialize", "A gone",
                     "A setConfiguration 3 [A] [data/A] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/A]"};

INSTANTIATE_TEST_SUITE_P(
    Table, MfDriverManagerConsoleReload,
    testing::Values(Reload{"Known", {"A"}, true, reloaded}, Reload{"MoreWords", {"A", "B"}, true, reloaded},
                    Reload{"Unknown", {"B"}, false, {}}, Reload{"OtherCase", {"a"}, false, {}},
                    Reload{"WithBlank", {"A "}, false, {}}, Reload{"Nothing", {}, false, {}}),
    [](const auto& test) { return test.param.claim; });

TEST(MfDriverManagerConsole, ReloadOfAnUnknownDriverIsSilent) {
    Operator s;
    s.host.writeFile("/wp/workplace.xml", "<workplaces><workplace id=\"0\"/></workplaces>");
    fakehost::printedBy([&] { s.configuration().startMfDrivers("workplace.xml"); });
    s.host.journal().clear();
    EXPECT_FALSE(Operator::runSilently("reloadDriver", {"B"}));
    EXPECT_THAT(s.log(), IsEmpty());
}

TEST(MfDriverManagerConsole, ReloadTakesWhatStandsForAMissingArgumentAsTheDriverID) {
    Operator s;
    s.host.writeFile("/wp/workplace.xml",
                     "<workplaces><workplace id=\"0\"><mainframeDriver driverID=\"&lt;none>\"/></workplace>"
                     "</workplaces>");
    fakehost::printedBy([&] { s.configuration().startMfDrivers("workplace.xml"); });
    EXPECT_FALSE(Operator::run("reloadDriver", {}));
    fakehost::Console::instance().missingArgument = "<none>";
    EXPECT_TRUE(Operator::run("reloadDriver", {}));
}

// Handlers that no command reaches.

struct Handlers {
    fakehost::FakeHost host;
    RecordingPanelState panel;
    MDMFidDistributor distributor;
    std::unique_ptr<MDMModuleHandler> pSut = std::make_unique<MDMModuleHandler>();

    Handlers() {
        pSut->init();
        pSut->setFidDistributor(&distributor);
        pSut->setPanelStateInterface(&panel);
        host.writeFile("/mods/axis.xml",
                       "<mfDriverModule><module_type name=\"libAxis.so\" type=\"Axis\" version=\"1.0\"/>"
                       "</mfDriverModule>");
        host.addModule("/mods/libAxis.so", []() -> IInterface* {
            return static_cast<IFunctionID*>(new RecordingDriver("driver"));
        });
    }
    ~Handlers() {
        fakehost::printedBy([&] { pSut.reset(); });
    }
    template <class T>
    static bool call(T& object, Handler<T> handler, Words words) {
        sal::CmdParameters parameters(std::move(words));
        return (object.*handler)(parameters);
    }
    bool load(const Words& words) {
        host.journal().clear();
        bool result = false;
        fakehost::printedBy([&] { result = call(*pSut, &MDMModuleHandler::shellCmdLoadDriver, words); });
        return result;
    }
    Calls configured() { return host.journal().linesOf({"driver setConfiguration"}); }
};

TEST(MfDriverManagerConsole, ScanAddsToTheCataloguePublishesItAndSucceeds) {
    Handlers s;
    EXPECT_TRUE(Handlers::call(*s.pSut, &MDMModuleHandler::shellCmdScanDirectory, {"/mods", "/more"}));
    EXPECT_EQ(s.host.journal().linesOf({"panel setStateValueInt"}),
              Calls{"panel setStateValueInt PANEL.MFDDEF.COUNT 1"});
}

TEST(MfDriverManagerConsole, ScanOfNothingSucceeds) {
    Handlers s;
    EXPECT_TRUE(Handlers::call(*s.pSut, &MDMModuleHandler::shellCmdScanDirectory, {"/nowhere"}));
}

TEST(MfDriverManagerConsole, ScanTakesWhatStandsForAMissingArgumentAsTheDirectory) {
    Handlers s;
    fakehost::Console::instance().missingArgument = "/mods";
    EXPECT_TRUE(Handlers::call(*s.pSut, &MDMModuleHandler::shellCmdScanDirectory, {}));
    EXPECT_EQ(s.host.journal().count("panel setStateValueInt PANEL.MFDDEF.COUNT 1"), 1);
}

TEST(MfDriverManagerConsole, ListOfAnEmptyCataloguePrintsNothingAndSucceeds) {
    Handlers s;
    bool result = false;
    EXPECT_EQ(fakehost::printedBy([&] {
                  result = Handlers::call(*s.pSut, &MDMModuleHandler::shellCmdListAvailables, {"more"});
              }),
              "");
    EXPECT_TRUE(result);
}

TEST(MfDriverManagerConsole, ListOfDriversIsInByteOrderWithTheirOwnReports) {
    Handlers s;
    RecordingDriver driver("driver");
    for (const char* driverID : {"a", "B", "A.1", "PANEL"})
        s.distributor.addDriverPort(driverID, &driver);
    s.host.journal().clear();
    bool result = false;
    EXPECT_EQ(fakehost::printedBy([&] {
                  result = Handlers::call(s.distributor, &MDMFidDistributor::shellCmdListDrivers, {"more"});
              }),
              "A.1\nB\nPANEL\na\n");
    EXPECT_TRUE(result);
    EXPECT_EQ(s.host.journal().count("driver showState"), 4);
}

TEST(MfDriverManagerConsole, ListOfNoDriversPrintsNothingAndSucceeds) {
    Handlers s;
    bool result = false;
    EXPECT_EQ(fakehost::printedBy([&] {
                  result = Handlers::call(s.distributor, &MDMFidDistributor::shellCmdListDrivers, {});
              }),
              "");
    EXPECT_TRUE(result);
}

TEST(MfDriverManagerConsole, LoadTakesItsEightArgumentsByPosition) {
    Handlers s;
    s.host.adapters.push_back({"wlan0", "198.51.100.1", {}});
    s.pSut->searchMfDriver("/mods");
    EXPECT_TRUE(s.load({"4", "ID", "Axis", "1.0", "work", "198.51.100.2", "wlan0", "Direct", "more"}));
    EXPECT_EQ(s.configured(),
              Calls{"driver setConfiguration 4 [ID] [work] [198.51.100.2] [wlan0] [192.0.2.10]"
                    " [/wp/nvram/ID]"});
}

TEST(MfDriverManagerConsole, LoadTakesWhatStandsForMissingArguments) {
    Handlers s;
    s.pSut->searchMfDriver("/mods");
    fakehost::Console::instance().missingArgument = "Direct";
    s.host.adapters.push_back({"Direct", "198.51.100.1", {}});
    EXPECT_TRUE(s.load({"4", "ID", "Axis", "1.0", "work", ""}));
    EXPECT_EQ(s.configured(),
              Calls{"driver setConfiguration 4 [ID] [work] [198.51.100.1] [Direct] [192.0.2.10]"
                    " [/wp/nvram/ID]"});
}

TEST(MfDriverManagerConsole, LoadReadsTheWorkplaceInDecimal) {
    Handlers s;
    s.pSut->searchMfDriver("/mods");
    const std::pair<const char*, int> numbers[] = {{"7", 7},   {"007", 7}, {"0x10", 0}, {"1e3", 1},
                                                   {"4.9", 4}, {"-2", -2}, {"8", 8},    {"12abc", 12},
                                                   {"abc", 0}, {"", 0}};
    for (const auto& [text, number] : numbers) {
        EXPECT_TRUE(s.load({text, "ID", "Axis", "1.0", "", "", "", "Direct"}));
        EXPECT_EQ(s.configured(), Calls{"driver setConfiguration " + std::to_string(number) +
                                        " [ID] [] [192.0.2.10] [eth0] [192.0.2.10] [/wp/nvram/ID]"})
            << text;
        fakehost::printedBy([&] { s.pSut->reloadMfDriver("ID"); });
    }
    for (std::size_t index = 0; index + 1 < s.host.loaded.size(); ++index)
        delete s.host.loaded[index];
}

struct Word {
    const char* claim;
    std::string word;
    Calls loads;
};

class MfDriverManagerConsoleInterfaceWord : public testing::TestWithParam<Word> {};

TEST_P(MfDriverManagerConsoleInterfaceWord, SelectsHowTheDriverIsReached) {
    Handlers s;
    RecordingSystem system;
    s.distributor.setSystemInterface(&system);
    s.pSut->searchMfDriver("/mods");
    EXPECT_TRUE(s.load({"0", "ID", "Axis", "1.0", "", "", "", GetParam().word}));
    EXPECT_EQ(s.host.journal().linesOf({"module load", "process"}), GetParam().loads);
}

INSTANTIATE_TEST_SUITE_P(
    Table, MfDriverManagerConsoleInterfaceWord,
    testing::Values(Word{"Direct", "Direct", {"module load 0 /mods/libAxis.so"}},
                    Word{"Queue",
                         "Queue",
                         {"process start /opt/host/bin/mfddllwrap [ID MFD Console] [/mods/libAxis.so] [ID]"}},
                    Word{"Socket", "Socket", {}}, Word{"Lower", "direct", {}},
                    Word{"LowerQueue", "queue", {}}, Word{"Upper", "DIRECT", {}},
                    Word{"Beginning", "Dir", {}}, Word{"Longer", "Direct1", {}}, Word{"Blank", " Direct", {}},
                    Word{"Number", "1", {}}, Word{"Empty", "", {}}),
    [](const auto& test) { return test.param.claim; });

}  // namespace
