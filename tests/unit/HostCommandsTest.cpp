#include "HostCommands.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <utility>
#include <vector>

#include "LogCapture.h"
#include "sal/CmdProcessor.h"
#include "sal/MessageQueue.h"

namespace {

class HostCommandsTest : public testing::Test {
protected:
    HostCommandsTest() {
        std::string directory = (std::filesystem::temp_directory_path() / "hostcommands-XXXXXX").string();
        m_queueDirectory = ::mkdtemp(directory.data());
        ::setenv("MFD_QUEUE_DIR", m_queueDirectory.c_str(), 1);
        m_sut.registerCommands();
    }
    ~HostCommandsTest() override {
        ::unsetenv("MFD_QUEUE_DIR");
        std::filesystem::remove_all(m_queueDirectory);
    }

    std::string reply(const std::string& line) {
        m_reply.str("");
        m_processor.execute(line, m_reply);
        return m_reply.str();
    }

    std::filesystem::path m_queueDirectory;
    LogCapture m_log;
    sal::CmdProcessor m_processor;
    StateStore m_store;
    DriverTable m_drivers{m_store, RestartPlan::Settings{.firstDelay = std::chrono::hours(1),
                                                         .longestDelay = std::chrono::hours(1),
                                                         .random = [] { return 0.5; }}};
    AlarmList m_alarms{[this] { return m_now; }};
    std::ostringstream m_reply;
    base::Table::Look m_look;
    int m_refusals = 0;
    bool m_isFollowed = false;
    int m_quits = 0;
    int m_listings = 0;
    int m_settled = 0;
    std::function<void()> m_onLook = [] {};
    std::vector<std::string> m_calls;
    std::string m_refusal;
    /// The time stands still, so that it is the same for whoever is starved.
    StateStore::Clock::time_point m_now = StateStore::Clock::now();
    HostCommands m_sut{
        {.store = m_store,
         .drivers = m_drivers,
         .alarms = m_alarms,
         .reply = [this]() -> std::ostream& { return m_reply; },
         .quit = [this] { ++m_quits; },
         .showModules = [this] { ++m_listings; },
         .settle = [this] { ++m_settled; },
         .lookForEnds = [this] { m_onLook(); },
         .park = [this](const auto& id) { return m_calls.emplace_back("park " + id), m_refusal; },
         .unpark = [this](const auto& id) { return m_calls.emplace_back("unpark " + id), m_refusal; },
         .now = [this] { return m_now; },
         .look = [this] { return m_look; },
         .refused = [this] { ++m_refusals; },
         .follow = [this](const auto& glob) { m_calls.emplace_back("follow " + glob); },
         .unfollow = [this] { return m_isFollowed; },
         .place =
             [](const auto&) {
                 return Workplace::Place{.module = "/m/axis.so",
                                         .descriptor = "/m/axis.xml",
                                         .directory = "data/AXIS1",
                                         .ipAddress = "192.0.2.7",
                                         .networkAdapter = "eth1"};
             }}};
};

/// What a terminal would obey: a control character, ESC, the same as one character beyond ASCII and as its
/// second byte alone.
const std::string g_text =
    "\a\x1b[2J\xc2\x9b"
    "2J\x9b";
const std::string g_shown = "\\x07\\x1b[2J\\u009b2J\\x9b";

}  // namespace

TEST_F(HostCommandsTest, HelpListsEachCommandOnALine) {
    EXPECT_NE(std::string::npos, reply("help").find("quit: stops all drivers and ends the host.\n"));
    EXPECT_NE(std::string::npos, reply("help").find("state [--now] [<pattern>]: lists the state values"));
}

TEST_F(HostCommandsTest, HelpOfACommandTellsItsUse) {
    EXPECT_EQ("events\n\tlists the last events.\n", reply("help events"));
}

TEST_F(HostCommandsTest, QuitAsksForTheEnd) {
    EXPECT_EQ("", reply("quit"));
    EXPECT_EQ(1, m_quits);
}

TEST_F(HostCommandsTest, ModulesAreListedByTheModule) {
    reply("modules");
    EXPECT_EQ(1, m_listings);
}

TEST_F(HostCommandsTest, DriversShowsHowEachIs) {
    m_drivers.processStarted("AXIS1", 42);
    m_drivers.processEnded("AXIS1", 42, "exit code 3", {}, false);
    m_drivers.processStarted("AXIS2", 43);
    const std::string text = reply("drivers");
    EXPECT_EQ(0u,
              text.find("ID     type   version  mode    process  status      since                restarts  "
                        "last cause   next try  msg/s in/out  queued in/out  values lost\n"))
        << text;
    EXPECT_NE(std::string::npos, text.find("AXIS1                  queue   42       ended       20")) << text;
    EXPECT_NE(std::string::npos,
              text.find("  0         exit code 3  -         0/0           -              0\n"))
        << text;
    EXPECT_NE(std::string::npos, text.find("AXIS2                  queue   43       running     20")) << text;
    EXPECT_NE(
        std::string::npos,
        text.find("PANEL  Panel  1.0      direct  -        not loaded  -                    0         -  "
                  "          -         -             -              0\n"))
        << text;
}

TEST_F(HostCommandsTest, DriversShowsRestartsAndTheNextTry) {
    m_drivers.processStarted("AXIS1", 42);
    m_drivers.processEnded("AXIS1", 42, "exit code 3", {}, true);
    m_drivers.addRestart("AXIS1");
    m_now = *m_drivers.find("AXIS1")->nextTry - std::chrono::seconds(3600);
    m_drivers.processStarted("AXIS2", 43);
    m_drivers.processHung("AXIS2", 43, "hung for 10 s");
    m_drivers.processStarted("AXIS3", 44);
    m_drivers.processEnded("AXIS3", 44, "exit code 4", std::chrono::hours(2), true);
    const std::string text = reply("drivers");
    EXPECT_NE(std::string::npos, text.find("  1         exit code 3    in 3600 s  0/0 ")) << text;
    EXPECT_NE(std::string::npos, text.find("43       hung        20")) << text;
    EXPECT_NE(std::string::npos, text.find("  0         hung for 10 s  -          0/0 ")) << text;
}

TEST_F(HostCommandsTest, DriversShowsTrafficAndWhatIsQueued) {
    m_drivers.processStarted("TRAFFIC", 42);
    m_drivers.setTraffic("TRAFFIC", 12.4, 340.6);
    sal::MessageQueue in;
    sal::MessageQueue out;
    ASSERT_TRUE(in.create("TRAFFIC_INQ", 10, 100, 0));
    ASSERT_TRUE(out.create("TRAFFIC_OUTQ", 10, 100, 0));
    const unsigned char byte = 1;
    ASSERT_TRUE(in.send(&byte, 1, 0));
    ASSERT_TRUE(in.send(&byte, 1, 0));
    ASSERT_TRUE(out.send(&byte, 1, 0));
    const std::string text = reply("drivers");
    EXPECT_NE(std::string::npos, text.find("  12/341        2/1            0\n")) << text;
}

TEST_F(HostCommandsTest, DriversShowsHowEachIsReached) {
    std::vector<WorkplaceFile::Entry> entries;
    for (const auto& [id, type] : {std::pair{"A", EInterfaceTypes::Direct},
                                   {"B", EInterfaceTypes::Queue},
                                   {"C", EInterfaceTypes::Socket},
                                   {"D", EInterfaceTypes::None}}) {
        entries.emplace_back();
        entries.back().driverID = id;
        entries.back().driverType = "T";
        entries.back().version = "1";
        entries.back().interfaceType = type;
    }
    m_drivers.configure(entries, true);
    const std::string text = reply("drivers");
    EXPECT_NE(std::string::npos, text.find("\nA      T      1        direct  -  ")) << text;
    EXPECT_NE(std::string::npos, text.find("\nB      T      1        queue   -  ")) << text;
    EXPECT_NE(std::string::npos, text.find("\nC      T      1        socket  -  ")) << text;
    EXPECT_NE(std::string::npos, text.find("\nD      T      1        none    -  ")) << text;
}

TEST_F(HostCommandsTest, QueuesShowsHowEachIs) {
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("SYS_INQ", 10, 100, 0));
    const unsigned char bytes[5] = {};
    ASSERT_TRUE(queue.send(bytes, 5, 0));
    ASSERT_TRUE(queue.send(bytes, 5, 0));
    EXPECT_EQ(
        "queue    depth  capacity  highest  messages  bytes  waits  waiting  holders  receiver\n"
        "SYS_INQ  2      10        2        2         10     0      -        1        no\n",
        reply("queues"));
}

TEST_F(HostCommandsTest, StateShowsTypeValueOwnerAndWhetherItHolds) {
    m_store.setStateValueFloat("AXIS1.POS", 1.5F);
    m_store.setStateValue("SYS.NAME", "vm");
    m_store.driverEnded("SYS", "signal 9 (Killed)");
    EXPECT_EQ(
        "key        type    value  set by  age  holds\n"
        "AXIS1.POS  float   1.5    AXIS1   0 s  yes\n"
        "SYS.NAME   string  vm     SYS     0 s  stale for 0 s (signal 9 (Killed))\n",
        reply("state"));
}

TEST_F(HostCommandsTest, StateShowsHowOldAValueIs) {
    m_store.setStateValueInt("SYS.N", 1);
    m_now = StateStore::Clock::now() + std::chrono::minutes(10);
    EXPECT_EQ("key    type  value  set by  age     holds\nSYS.N  int   1      SYS     10 min  yes\n",
              reply("state"));
}

TEST_F(HostCommandsTest, AgeIsShownInTheLargestUnitThatGivesTwo) {
    m_store.setStateValueInt("SYS.N", 1);
    const auto reported = m_store.entries("SYS.N").front().reported;
    const auto shown = [&](std::chrono::seconds age) {
        m_now = reported + age;
        const std::string text = reply("state");
        const auto begin = text.find("SYS     ", text.find('\n')) + 8;
        return text.substr(begin, text.find("  ", begin) - begin);
    };
    EXPECT_EQ("119 s", shown(std::chrono::seconds(119)));
    EXPECT_EQ("2 min", shown(std::chrono::minutes(2)));
    EXPECT_EQ("119 min", shown(std::chrono::seconds(7199)));
    EXPECT_EQ("2 h", shown(std::chrono::hours(2)));
    EXPECT_EQ("47 h", shown(std::chrono::seconds(48 * 3600 - 1)));
    EXPECT_EQ("2 d", shown(std::chrono::hours(48)));
    EXPECT_EQ("3 d", shown(std::chrono::hours(72)));
}

TEST_F(HostCommandsTest, StateTakesAPattern) {
    m_store.setStateValueInt("AXIS1.POS", 1);
    m_store.setStateValueInt("SYS.N", 1);
    EXPECT_EQ("key    type  value  set by  age  holds\nSYS.N  int   1      SYS     0 s  yes\n",
              reply("state SYS.*"));
    EXPECT_EQ("no state value matches X.*\n", reply("state X.*"));
}

TEST_F(HostCommandsTest, LossesOfADriverAreShownWithItsStateAndInItsRow) {
    m_drivers.processStarted("AXIS1", 42);
    for (int i = 0; i < 16384 + 3; ++i)
        m_store.setStateValueInt("AXIS1." + std::to_string(i), i);
    EXPECT_EQ("no state value matches X.*\nAXIS1: 3 new values dropped, at most 16384 are kept\n",
              reply("state X.*"));
    EXPECT_TRUE(reply("state AXIS1.7").ends_with("\nAXIS1: 3 new values dropped, at most 16384 are kept\n"));
    const std::string text = reply("drivers");
    EXPECT_NE(std::string::npos, text.find("  0/0           -              3\n")) << text;
}

TEST_F(HostCommandsTest, StateAndEventsWaitForWhatIsOnItsWay) {
    reply("state");
    reply("events");
    EXPECT_EQ(2, m_settled);
}

TEST_F(HostCommandsTest, StateOfNowWaitsForNothingAndTakesAPattern) {
    m_store.setStateValueInt("AXIS1.POS", 1);
    m_store.setStateValueInt("SYS.N", 1);
    EXPECT_EQ("key    type  value  set by  age  holds\nSYS.N  int   1      SYS     0 s  yes\n",
              reply("state --now SYS.*"));
    EXPECT_EQ(0, m_settled);
}

TEST_F(HostCommandsTest, EmptyListsAreSaidToBeEmpty) {
    EXPECT_EQ("no state values\n", reply("state"));
    EXPECT_EQ("no events\n", reply("events"));
    EXPECT_EQ("no queues\n", reply("queues"));
}

TEST_F(HostCommandsTest, StateShowsNothingOfADriversAsItIs) {
    m_store.setStateValue("A" + g_text + "." + g_text, "v" + g_text);
    m_store.driverEnded("A" + g_text, "c" + g_text);
    const std::string text = reply("state");
    EXPECT_NE(std::string::npos, text.find("\nA" + g_shown + "." + g_shown + "  string  v" + g_shown + "  A" +
                                           g_shown + "  0 s  stale for 0 s (c" + g_shown + ")\n"))
        << text;
}

TEST_F(HostCommandsTest, PatternThatMatchesNothingIsNotEchoedAsItIs) {
    EXPECT_EQ("no state value matches X" + g_shown + "\n", reply("state 'X" + g_text + "'"));
}

TEST_F(HostCommandsTest, DriversShowsNoIDTypeOrCauseAsItIs) {
    WorkplaceFile::Entry entry;
    entry.driverID = "A" + g_text;
    entry.driverType = "T" + g_text;
    entry.version = "V" + g_text;
    m_drivers.configure({entry}, true);
    m_drivers.processStarted("A" + g_text, 42);
    m_drivers.processEnded("A" + g_text, 42, "c" + g_text, {}, false);
    const std::string text = reply("drivers");
    EXPECT_NE(std::string::npos,
              text.find("\nA" + g_shown + "  T" + g_shown + "  V" + g_shown + "  queue   42 "))
        << text;
    EXPECT_NE(std::string::npos, text.find("  c" + g_shown + "  ")) << text;
    EXPECT_EQ(std::string::npos, text.find_first_of("\a\x1b\xc2\x9b")) << text;
}

TEST_F(HostCommandsTest, EventsShowsNothingOfADriversAsItIs) {
    m_store.triggerEvent("A" + g_text + "." + g_text, "v" + g_text);
    const std::string text = reply("events");
    EXPECT_NE(std::string::npos,
              text.find("  A" + g_shown + "." + g_shown + "  v" + g_shown + "  A" + g_shown + "\n"))
        << text;
}

TEST_F(HostCommandsTest, QueuesShowsNoNameAsItIs) {
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("A" + g_text + "_INQ", 10, 100, 0));
    const std::string text = reply("queues");
    EXPECT_NE(std::string::npos, text.find("\nA" + g_shown + "_INQ  ")) << text;
}

TEST_F(HostCommandsTest, EventsAreListedInOrder) {
    m_store.triggerEvent("SYS.HIGH", "7");
    m_store.triggerEvent("AXIS1.DONE", "");
    const std::string text = reply("events");
    EXPECT_TRUE(text.starts_with("time                 event       value  from\n20")) << text;
    EXPECT_LT(text.find("SYS.HIGH"), text.find("AXIS1.DONE"));
}

TEST_F(HostCommandsTest, DriversShowsNoProcessOfAParkedDriver) {
    m_drivers.processStarted("AXIS1", 4711);
    m_drivers.beginParking("AXIS1", "parked at the console");
    m_drivers.endParking("AXIS1");
    EXPECT_NE(std::string::npos, reply("drivers").find("4711"));
    m_drivers.processEnded("AXIS1", 4711, "exit code 0", {}, true);
    EXPECT_EQ(std::string::npos, reply("drivers").find("4711"));
}

TEST_F(HostCommandsTest, DriversShowsWhatIsDueAndWhatIsParked) {
    m_drivers.processStarted("AXIS1", 42);
    m_drivers.processEnded("AXIS1", 42, "exit code 3", {}, true);
    m_now = *m_drivers.find("AXIS1")->nextTry;
    m_drivers.beginParking("AXIS2", "parked at the console");
    m_drivers.endParking("AXIS2");
    const std::string text = reply("drivers");
    EXPECT_NE(std::string::npos, text.find("  exit code 3            now       ")) << text;
    EXPECT_NE(std::string::npos, text.find("  parked      ")) << text;
    EXPECT_NE(std::string::npos, text.find("  parked at the console  -         ")) << text;
}

TEST_F(HostCommandsTest, EndsAreLookedForBeforeDriversAndValuesAreShown) {
    m_drivers.processStarted("AXIS1", 42);
    m_store.setStateValueInt("AXIS1.N", 7);
    m_onLook = [&] { m_drivers.processEnded("AXIS1", 42, "exit code 3", {}, false); };
    EXPECT_NE(std::string::npos, reply("state").find("(exit code 3)"));
    m_drivers.processStarted("AXIS1", 43);
    m_onLook = [&] { m_drivers.processEnded("AXIS1", 43, "exit code 4", {}, false); };
    EXPECT_NE(std::string::npos, reply("drivers").find("  exit code 4  "));
}

TEST_F(HostCommandsTest, DriversAreStoppedAndStarted) {
    EXPECT_EQ("", reply("stopDriver AXIS1"));
    EXPECT_EQ("", reply("startDriver AXIS1"));
    EXPECT_EQ((std::vector<std::string>{"park AXIS1", "unpark AXIS1"}), m_calls);
    m_refusal = "a reason";
    EXPECT_EQ("AXIS1 is not stopped: a reason\n", reply("stopDriver AXIS1"));
    EXPECT_EQ("AXIS1 is not started: a reason\n", reply("startDriver AXIS1"));
}

TEST_F(HostCommandsTest, StopAndStartWithoutADriverTellTheirUse) {
    EXPECT_EQ(0u, reply("stopDriver").find("stopDriver <driverID>\n"));
    EXPECT_EQ(0u, reply("startDriver").find("startDriver <driverID>\n"));
    EXPECT_TRUE(m_calls.empty());
}

TEST_F(HostCommandsTest, DriversIsWholeInAPipeAndWhatMattersInANarrowTerminal) {
    m_drivers.processStarted("AXIS1", 42);
    const std::string whole = reply("drivers");
    EXPECT_EQ(whole, reply("drivers -l"));
    m_look.width = 80;
    const std::string text = reply("drivers");
    EXPECT_EQ(0u, text.find("ID     mode    process  status      for  restarts  next try  last cause\n"
                            "AXIS1  queue   42       running     "))
        << text;
    EXPECT_EQ(text, reply("drivers -s"));
    EXPECT_EQ(whole, reply("drivers -l"));
    m_look.width = 160;
    EXPECT_EQ(whole, reply("drivers"));
    m_look.width = 0;
    EXPECT_EQ(text, reply("drivers -s"));
}

TEST_F(HostCommandsTest, NarrowDriversFitTheTerminal) {
    m_drivers.processStarted("AXIS1", 42);
    m_drivers.processEnded("AXIS1", 42, std::string(200, 'c'), {}, false);
    m_look.width = 80;
    std::istringstream lines(reply("drivers"));
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 80u) << line;
}

TEST_F(HostCommandsTest, CardOfADriverTellsAllOfIt) {
    m_drivers.processStarted("AXIS1", 42);
    m_drivers.processEnded("AXIS1", 42, "exit code 3", {}, true);
    m_drivers.addRestart("AXIS1");
    m_now = *m_drivers.find("AXIS1")->nextTry - std::chrono::seconds(90);
    m_store.setStateValueInt("AXIS1.N", 7);
    sal::MessageQueue in;
    ASSERT_TRUE(in.create("AXIS1_INQ", 10, 100, 0));
    const unsigned char byte = 1;
    ASSERT_TRUE(in.send(&byte, 1, 0));
    const std::string text = reply("drivers AXIS1");
    EXPECT_EQ(0u, text.find("AXIS1\nstatus        ended\nsince         20")) << text;
    const auto rest = text.find("last cause");
    ASSERT_NE(std::string::npos, rest) << text;
    EXPECT_EQ(
        "last cause    exit code 3\n"
        "next try      in 90 s\n"
        "restarts      1\n"
        "mode          queue\n"
        "process       42\n"
        "module        /m/axis.so\n"
        "descriptor    /m/axis.xml\n"
        "directory     data/AXIS1\n"
        "address       192.0.2.7\n"
        "adapter       eth1\n"
        "queue in      1 of 10 waiting, 1 at most so far, 1 in all\n"
        "msg/s in/out  0/0\n"
        "values        1\n"
        "values lost   0\n",
        text.substr(rest));
    EXPECT_EQ(0, m_refusals);
}

TEST_F(HostCommandsTest, CardOfADriverThatThereIsNotIsRefused) {
    EXPECT_EQ("there is no driver AXSI1; drivers lists them\n", reply("drivers AXSI1"));
    EXPECT_EQ(1, m_refusals);
    EXPECT_EQ(0u, reply("drivers -x").find("drivers [-s|-l|<driverID>]\n"));
    EXPECT_EQ(0u, reply("drivers A B").find("drivers [-s|-l|<driverID>]\n"));
}

TEST_F(HostCommandsTest, WhatIsWrongHasAColourWhereThereAreSome) {
    m_drivers.processStarted("AXIS1", 42);
    m_drivers.processEnded("AXIS1", 42, "exit code 3", {}, false);
    m_store.setStateValueInt("SYS.N", 1);
    m_store.driverEnded("SYS", "exit code 3");
    EXPECT_EQ(std::string::npos, (reply("drivers") + reply("state")).find('\x1b'));
    m_look.isColoured = true;
    EXPECT_NE(std::string::npos, reply("drivers").find("\x1b[31mended\x1b[0m"));
    EXPECT_NE(std::string::npos, reply("drivers AXIS1").find("\x1b[31mended\x1b[0m"));
    EXPECT_NE(std::string::npos, reply("state").find("\x1b[33mstale for "));
}

TEST_F(HostCommandsTest, StateFitsTheTerminal) {
    m_store.setStateValue("SYS.TEXT", std::string(200, 'x'));
    m_look.width = 60;
    EXPECT_EQ(
        "key       type    value                   set by  age  holds\n"
        "SYS.TEXT  string  xxxxxxxxxxxxxxxxxxx...  SYS     0 s  yes\n",
        reply("state"));
}

TEST_F(HostCommandsTest, AlarmsAreListedUntilTheyAreAcknowledged) {
    EXPECT_EQ("no alarms\n", reply("alarms"));
    m_alarms.eventTriggered({"PANEL.ALARM", "SYS: load 3 is above 2", {}, {}});
    const std::string text = reply("alarms");
    EXPECT_EQ(0u, text.find("alarm  raised               times  now  text\nSYS    20")) << text;
    EXPECT_TRUE(text.ends_with("  1      on   load 3 is above 2\n")) << text;
    EXPECT_EQ("", reply("acknowledge SYS"));
    EXPECT_EQ("no alarms\n", reply("alarms"));
    EXPECT_EQ("there is no alarm SYS; alarms lists them\n", reply("acknowledge SYS"));
    EXPECT_EQ(1, m_refusals);
    EXPECT_EQ("0 acknowledged\n", reply("acknowledge all"));
    EXPECT_EQ(0u, reply("acknowledge").find("acknowledge <alarm>|all\n"));
}

TEST_F(HostCommandsTest, AlarmsThatHaveGivenWayToOthersAreCounted) {
    const auto raise = [this](std::size_t number) {
        m_alarms.eventTriggered({"PANEL.ALARM", "A" + std::to_string(number) + ": hot", {}, {}});
    };
    for (std::size_t i = 0; i < AlarmList::s_capacity; ++i)
        raise(i);
    EXPECT_EQ(std::string::npos, reply("alarms").find("not listed"));
    raise(AlarmList::s_capacity);
    EXPECT_TRUE(reply("alarms").ends_with("  hot\n1 older alarm is not listed any more\n"));
    raise(AlarmList::s_capacity + 1);
    EXPECT_TRUE(reply("alarms").ends_with("  hot\n2 older alarms are not listed any more\n"));
}

TEST_F(HostCommandsTest, AlarmIsShelvedForSeconds) {
    m_now = AlarmList::Clock::now() + std::chrono::hours(1);
    m_alarms.eventTriggered({"PANEL.ALARM", "SYS: hot", {}, {}});
    EXPECT_EQ("", reply("shelve SYS 60"));
    EXPECT_NE(std::string::npos, reply("alarms").find("  shelved for 60 s  hot\n")) << reply("alarms");
    for (const char* seconds : {"0", "-1", "1x", "1.5", "99999999999", "604801"})
        EXPECT_EQ("\"" + std::string(seconds) + "\" is no number of seconds from 1 to 604800\n",
                  reply("shelve SYS " + std::string(seconds)));
    EXPECT_EQ("there is no alarm A; alarms lists them\n", reply("shelve A 60"));
    EXPECT_EQ(7, m_refusals);
    EXPECT_EQ(0u, reply("shelve SYS").find("shelve <alarm> <seconds>\n"));
}

TEST_F(HostCommandsTest, FollowTakesAPatternAndUnfollowEndsIt) {
    EXPECT_EQ("", reply("follow SYS.*"));
    EXPECT_EQ("", reply("follow"));
    EXPECT_EQ((std::vector<std::string>{"follow SYS.*", "follow "}), m_calls);
    EXPECT_EQ("nothing is followed\n", reply("unfollow"));
    m_isFollowed = true;
    EXPECT_EQ("", reply("unfollow"));
}

TEST_F(HostCommandsTest, RefusedStopsAndStartsAreToldToTheShell) {
    m_refusal = "a reason";
    reply("stopDriver AXIS1");
    reply("startDriver AXIS1");
    EXPECT_EQ(2, m_refusals);
}

TEST_F(HostCommandsTest, QueuesShowsWhatMattersInANarrowTerminal) {
    sal::MessageQueue queue;
    ASSERT_TRUE(queue.create("SYS_INQ", 10, 100, 0));
    const std::string whole = reply("queues");
    m_look.width = 80;
    const std::string text =
        "queue    depth  capacity  highest  messages  waiting  receiver\n"
        "SYS_INQ  0      10        0        0         -        no\n";
    EXPECT_EQ(text, reply("queues"));
    EXPECT_EQ(whole, reply("queues -l"));
    m_look.width = 100;
    EXPECT_EQ(whole, reply("queues"));
    EXPECT_EQ(text, reply("queues -s"));
    EXPECT_EQ(0u, reply("queues SYS").find("queues [-s|-l]\n"));
}
