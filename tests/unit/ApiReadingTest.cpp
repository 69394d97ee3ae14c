#include "ApiReading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>
#include <regex>
#include <string>

#include "ApiHost.h"
#include "LogCapture.h"
#include "StreamFixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

class ApiReadingTest : public testing::Test {
protected:
    ApiReadingTest() {
        WorkplaceFile::Entry axis;
        axis.driverID = "AXIS1";
        axis.driverType = "Axis";
        axis.version = "2.1";
        axis.interfaceType = EInterfaceTypes::Queue;
        m_host.drivers.configure({axis}, true);
    }

    static ApiTarget target(const std::string& query) { return ApiTarget::read("/x?" + query); }
    /// What of a driver is a moment of the test is replaced.
    static std::string timeless(const std::string& json) {
        return std::regex_replace(json, std::regex("\"since\":\"[^\"]*\""), "\"since\":\"TIME\"");
    }
    static std::string code(const std::function<void()>& read) {
        try {
            read();
        } catch (const ApiFault& fault) {
            return fault.answer().body;
        }
        return {};
    }

    static system_clock::time_point at(milliseconds time) { return system_clock::time_point(time); }

    LogCapture m_log;
    ApiHost m_host;
    ApiContext m_context = m_host.context();
    ApiReading m_sut{m_context};
};

const std::string s_axis =
    "{\"id\":\"AXIS1\",\"type\":\"Axis\",\"version\":\"2.1\",\"mode\":\"queue\",\"state\":\"not loaded\","
    "\"status\":\"not loaded\",\"alive\":false,\"pid\":null,\"byHand\":false,\"start\":0,\"since\":null,"
    "\"cause\":\"\",\"restarts\":0,\"nextTryMs\":null,\"receivedPerSecond\":0,\"sentPerSecond\":0,"
    "\"queuedIn\":null,\"queuedOut\":null,\"valuesLost\":0";
const std::string s_panel =
    "{\"id\":\"PANEL\",\"type\":\"Panel\",\"version\":\"1.0\",\"mode\":\"direct\",\"state\":\"not loaded\","
    "\"status\":\"not loaded\",\"alive\":false,\"pid\":null,\"byHand\":false,\"start\":0,\"since\":null,"
    "\"cause\":\"\",\"restarts\":0,\"nextTryMs\":null,\"receivedPerSecond\":0,\"sentPerSecond\":0,"
    "\"queuedIn\":null,\"queuedOut\":null,\"valuesLost\":0";

}  // namespace

TEST_F(ApiReadingTest, HostIsNamedWithTheCallersRole) {
    ApiCaller caller;
    caller.role = ERole::Operate;
    caller.name = "anna";
    EXPECT_EQ(
        "{\"version\":\"1.2.3\",\"api\":1,\"instance\":\"a1b2\",\"workplace\":\"/etc/mf/site.xml\","
        "\"started\":\"1970-01-02T00:00:00.000Z\",\"pid\":4711,"
        "\"recording\":{\"ring\":\"\",\"directory\":\"\"},\"role\":\"operate\",\"user\":\"anna\"}",
        m_sut.host(caller));
}

TEST_F(ApiReadingTest, DriversAreListedByTheirIds) {
    EXPECT_EQ("{\"drivers\":[" + s_axis + "}," + s_panel + "}]}", m_sut.drivers());
    EXPECT_EQ(1, m_host.looks) << "ends are looked for first";
}

TEST_F(ApiReadingTest, RunningDriverHasItsProcessTrafficAndQueues) {
    m_host.drivers.processStarted("AXIS1", 42);
    m_host.drivers.setTraffic("AXIS1", 12.5, 0.25);
    sal::MessageQueue::Status in;
    in.name = "AXIS1_INQ";
    in.capacity = 512;
    in.depth = 3;
    sal::MessageQueue::Status out;
    out.name = "AXIS1_OUTQ";
    out.depth = 1;
    m_host.queues = {in, out};
    EXPECT_EQ(
        "{\"drivers\":[{\"id\":\"AXIS1\",\"type\":\"Axis\",\"version\":\"2.1\",\"mode\":\"queue\","
        "\"state\":\"running\",\"status\":\"running\",\"alive\":true,\"pid\":42,\"byHand\":false,\"start\":1,"
        "\"since\":\"TIME\",\"cause\":\"\",\"restarts\":0,\"nextTryMs\":null,\"receivedPerSecond\":12.5,"
        "\"sentPerSecond\":0.25,\"queuedIn\":3,\"queuedOut\":1,\"valuesLost\":0}," +
            s_panel + "}]}",
        timeless(m_sut.drivers()));
}

TEST_F(ApiReadingTest, EndedDriverHasItsCauseAndTheNextTry) {
    const RestartPlan::Settings restart{.firstDelay = std::chrono::hours(1),
                                        .longestDelay = std::chrono::hours(1),
                                        .random = [] { return 0.5; }};
    ApiHost host(restart);
    const ApiContext context = host.context();
    const ApiReading sut(context);
    host.drivers.processStarted("AXIS1", 42);
    host.drivers.processEnded("AXIS1", 42, "signal 11", {}, true);
    host.now = *host.drivers.find("AXIS1")->nextTry - seconds(3);
    EXPECT_THAT(sut.drivers(),
                testing::HasSubstr("\"state\":\"waiting\",\"status\":\"ended\",\"alive\":false,"));
    EXPECT_THAT(sut.drivers(),
                testing::HasSubstr("\"cause\":\"signal 11\",\"restarts\":0,\"nextTryMs\":3000,"));
    host.now += seconds(10);
    EXPECT_THAT(sut.drivers(), testing::HasSubstr("\"nextTryMs\":0,"));
}

TEST_F(ApiReadingTest, OneDriverHasItsModulePlaceQueuesAndLastLines) {
    m_host.catalogue = {{.file = "/d/other.xml",
                         .line = 3,
                         .name = "Other",
                         .module = "/d/o.so",
                         .type = "Other",
                         .version = "2.1"},
                        {.file = "/d/axis.xml",
                         .line = 4,
                         .name = "An axis",
                         .module = "/d/axis.so",
                         .type = "Axis",
                         .version = "2.1"}};
    m_host.places["AXIS1"] = {.directory = "data/AXIS1", .networkAdapter = "eth1"};
    sal::MessageQueue::Status in;
    in.name = "AXIS1_INQ";
    in.capacity = 512;
    in.depth = 3;
    in.highWater = 7;
    in.messages = 20;
    in.bytes = 900;
    in.waits = 2;
    in.holders = 2;
    in.waitingForMs = 15;
    in.lockedForMs = 16;
    in.receiverAttached = true;
    in.receiverPid = 42;
    in.received = 17;
    m_host.queues = {in};
    m_host.lines = {
        {.when = at(milliseconds(1)), .level = 2, .output = "HOST", .driverID = "AXIS1", .text = "ended"}};
    m_host.lastWords = {"assertion", "failed\xff"};
    EXPECT_EQ(
        "{\"id\":\"AXIS1\",\"type\":\"Axis\",\"version\":\"2.1\",\"mode\":\"queue\",\"state\":\"not loaded\","
        "\"status\":\"running (by "
        "hand)\",\"alive\":false,\"pid\":null,\"byHand\":false,\"start\":0,\"since\":null,"
        "\"cause\":\"\",\"restarts\":0,\"nextTryMs\":null,\"receivedPerSecond\":0,\"sentPerSecond\":0,"
        "\"queuedIn\":3,\"queuedOut\":null,\"valuesLost\":0,\"module\":\"/d/axis.so\","
        "\"descriptor\":\"/d/axis.xml\",\"directory\":\"data/AXIS1\",\"networkAdapter\":\"eth1\",\"queues\":["
        "{\"name\":\"AXIS1_INQ\",\"driver\":\"AXIS1\",\"capacity\":512,\"depth\":3,\"highWater\":7,"
        "\"messages\":20,\"bytes\":900,\"received\":17,\"waits\":2,\"waitingForMs\":15,\"lockedForMs\":16,"
        "\"holders\":2,\"receiver\":true,\"receiverPid\":42,\"broken\":false}],\"log\":["
        "{\"time\":\"1970-01-01T00:00:00.001Z\",\"level\":2,\"output\":\"HOST\",\"driver\":\"AXIS1\","
        "\"text\":\"ended\"}],\"lastWords\":[\"assertion\",\"failed\xef\xbf\xbd\"]}",
        m_sut.driver("AXIS1"));
    EXPECT_EQ(std::vector<std::string>{"log of \"AXIS1\", 20 lines up to level 5"}, m_host.calls);
}

TEST_F(ApiReadingTest, DriverWithoutDescriptorAndEntryHasNoneOfTheirs) {
    EXPECT_EQ(s_panel +
                  ",\"module\":\"\",\"descriptor\":\"\",\"directory\":\"\",\"networkAdapter\":\"\","
                  "\"queues\":[],\"log\":[],\"lastWords\":[]}",
              m_sut.driver("PANEL"));
}

TEST_F(ApiReadingTest, UnknownDriverIsToldWithTheNearest) {
    EXPECT_EQ(
        "{\"error\":{\"code\":\"driver-unknown\",\"text\":\"there is no driver AXSI1\","
        "\"nearest\":[\"AXIS1\"]}}",
        code([&] { m_sut.driver("AXSI1"); }));
    EXPECT_EQ(
        "{\"error\":{\"code\":\"driver-unknown\",\"text\":\"there is no driver \\\"\\u000a\xef\xbf\xbd\","
        "\"nearest\":[]}}",
        code([&] { m_sut.driver("\"\n\xff"); }));
}

TEST_F(ApiReadingTest, IdsOfAnyBytesAreEscaped) {
    m_host.drivers.processStarted("A\"\x1b\xff", 42);
    EXPECT_THAT(m_sut.drivers(), testing::HasSubstr("{\"id\":\"A\\\"\\u001b\xef\xbf\xbd\",\"type\":\"\""));
}

TEST_F(ApiReadingTest, StateHasValuesInTheirTypes) {
    StateStore::Entry text;
    text.key = "AXIS1.NAME";
    text.value = StateValue(std::string("a\"b"));
    text.owner = {StateStore::EOwner::Driver, "AXIS1"};
    text.start = 3;
    text.reported = m_host.now - milliseconds(1500);
    text.version = 17;
    StateStore::Entry number = text;
    number.key = "X";
    number.value = StateValue(0.1f);
    number.owner = {StateStore::EOwner::Console, ""};
    number.staleCause = "signal 11";
    number.staleSince = m_host.now - milliseconds(20);
    StateStore::Entry whole = text;
    whole.key = "Y";
    whole.value = StateValue(-7);
    StateStore::Entry flag = text;
    flag.key = "Z";
    flag.value = StateValue(true);
    m_host.changes = {.version = 20, .isComplete = true, .entries = {text, number, whole, flag}, .unset = {}};
    const std::string rest = ",\"owner\":\"AXIS1\",\"start\":3,\"ageMs\":1500,\"version\":17,\"stale\":null}";
    EXPECT_EQ(
        "{\"version\":20,\"complete\":true,\"values\":["
        "{\"key\":\"AXIS1.NAME\",\"type\":\"string\",\"value\":\"a\\\"b\",\"text\":\"a\\\"b\"" +
            rest +
            ",{\"key\":\"X\",\"type\":\"float\",\"value\":0.1,\"text\":\"0.1\",\"owner\":\"console\","
            "\"start\":3,"
            "\"ageMs\":1500,\"version\":17,\"stale\":{\"cause\":\"signal 11\",\"forMs\":20}},"
            "{\"key\":\"Y\",\"type\":\"int\",\"value\":-7,\"text\":\"-7\"" +
            rest + ",{\"key\":\"Z\",\"type\":\"bool\",\"value\":true,\"text\":\"true\"" + rest +
            "],\"unset\":[]}",
        m_sut.state(target("")));
    EXPECT_EQ(std::vector<std::string>{"changes  since 0"}, m_host.calls);
    EXPECT_EQ(1, m_host.looks);
}

TEST_F(ApiReadingTest, FloatThatIsNoNumberIsNull) {
    StateStore::Entry entry;
    entry.key = "X";
    entry.value = StateValue(std::numeric_limits<float>::quiet_NaN());
    m_host.changes.entries = {entry};
    EXPECT_THAT(m_sut.state(target("")),
                testing::HasSubstr("\"type\":\"float\",\"value\":null,\"text\":\"nan\""));
}

TEST_F(ApiReadingTest, StateIsAskedForByPatternAndVersion) {
    m_host.changes = {.version = 21, .isComplete = false, .entries = {}, .unset = {"A", "B\x1b"}};
    EXPECT_EQ("{\"version\":21,\"complete\":false,\"values\":[],\"unset\":[\"A\",\"B\\u001b\"]}",
              m_sut.state(target("glob=AXIS*&since=18446744073709551615")));
    EXPECT_EQ(std::vector<std::string>{"changes AXIS* since 18446744073709551615"}, m_host.calls);
}

TEST_F(ApiReadingTest, ReportsAreCountedOnDemand) {
    m_host.changes = {.version = 21, .isComplete = false, .entries = {}, .unset = {}};
    m_host.reports = {{"AXIS1", 100, 90, 7}};
    EXPECT_EQ(
        "{\"version\":21,\"complete\":false,\"values\":[],\"unset\":[],\"counts\":[{\"driver\":\"AXIS1\","
        "\"received\":100,\"merged\":90,\"delivered\":10,\"changes\":7}]}",
        m_sut.state(target("counts=1")));
    EXPECT_THAT(m_sut.state(target("counts=0")), testing::Not(testing::HasSubstr("counts")));
    EXPECT_THAT(code([&] { m_sut.state(target("counts=2")); }), testing::HasSubstr("counts is"));
}

TEST_F(ApiReadingTest, WrongPatternAndVersionAreRefused) {
    EXPECT_THAT(
        code([&] { m_sut.state(target("since=18446744073709551616")); }),
        testing::HasSubstr("\"text\":\"since is \\\"18446744073709551616\\\" where a whole number from 0 "
                           "to 18446744073709551615 is needed\""));
    for (const char* query : {"since=", "since=-1", "since=+1", "since=1x", "since=0x1", "since=%201"})
        EXPECT_THAT(code([&] { m_sut.state(target(query)); }), testing::HasSubstr("request-invalid"))
            << query;
    EXPECT_EQ("", code([&] { m_sut.state(target("glob=" + std::string(256, 'a'))); }));
    EXPECT_THAT(code([&] { m_sut.state(target("glob=" + std::string(257, 'a'))); }),
                testing::HasSubstr("glob has a zero byte, or more than 256 bytes"));
    EXPECT_THAT(code([&] { m_sut.state(target("glob=a%00")); }), testing::HasSubstr("glob has a zero byte"));
}

TEST_F(ApiReadingTest, EventsAreListed) {
    m_host.store.triggerEvent("AXIS1.DONE", "a\"");
    EXPECT_THAT(
        m_sut.events(),
        testing::MatchesRegex("\\{\"events\":\\[\\{\"id\":\"AXIS1.DONE\",\"value\":\"a\\\\\"\",\"owner\":"
                              "\"AXIS1\",\"time\":\"20[0-9-]+T[0-9:]+[.][0-9]+Z\"\\}\\]\\}"));
}

TEST_F(ApiReadingTest, QueuesAreListed) {
    EXPECT_EQ("{\"queues\":[]}", m_sut.queues());
    sal::MessageQueue::Status queue;
    queue.name = "AXIS1_OUTQ";
    queue.isBroken = true;
    m_host.queues = {queue};
    EXPECT_EQ(
        "{\"queues\":[{\"name\":\"AXIS1_OUTQ\",\"driver\":\"AXIS1\",\"capacity\":0,\"depth\":0,\"highWater\":"
        "0,"
        "\"messages\":0,\"bytes\":0,\"received\":0,\"waits\":0,\"waitingForMs\":0,\"lockedForMs\":0,"
        "\"holders\":0,\"receiver\":false,\"receiverPid\":null,\"broken\":true}]}",
        m_sut.queues());
}

TEST_F(ApiReadingTest, MacrosAreListed) {
    m_host.macroNames = {"home", "a\tb"};
    EXPECT_EQ("{\"macros\":[{\"name\":\"home\"},{\"name\":\"a\\u0009b\"}]}", m_sut.macros());
}

TEST_F(ApiReadingTest, LinksAreListedWithWhatTheyReportOfThemselves) {
    EXPECT_EQ("{\"links\":[]}", m_sut.links());
    std::vector<WorkplaceFile::Entry> entries;
    for (const char* pID : {"SITE2", "SITE3", "SITE4"}) {
        WorkplaceFile::Entry entry;
        entry.driverID = pID;
        entry.driverType = "Link";
        entry.interfaceType = EInterfaceTypes::Direct;
        entries.push_back(entry);
    }
    m_host.drivers.configure(entries, true);
    StateStore& store = m_host.store;
    for (const std::string id : {"SITE2", "SITE3"}) {
        store.setStateValue(id + ".LINK_SITE", "SITE1");
        store.setStateValue(id + ".LINK_TO", id);
        store.setStateValue(id + ".LINK_BROKER", "127.0.0.1 port 1883");
        store.setStateValueFloat(id + ".LINK_DELAY", 1.5F);
        store.setStateValueFloat(id + ".LINK_IN", 10.5F);
        store.setStateValueFloat(id + ".LINK_OUT", 0.0F);
    }
    store.setStateValue("SITE2.LINK", "up");
    store.setStateValue("SITE3.LINK", "SITE3 is away");
    store.setStateValue("SITE3.LINK_ERROR", "SITE3 is away");
    store.makeStale("SITE3", {"SITE3.LINK_DELAY", "SITE3.LINK_IN", "SITE3.LINK_OUT"}, "SITE3 is away");
    m_host.now = ApiContext::Clock::now() + seconds(3600);
    EXPECT_EQ(
        "{\"links\":["
        "{\"driver\":\"SITE2\",\"site\":\"SITE1\",\"to\":\"SITE2\",\"broker\":\"127.0.0.1 port 1883\","
        "\"up\":true,\"cause\":\"\",\"forMs\":36NN,\"delayMs\":1.5,\"inPerSecond\":10.5,"
        "\"outPerSecond\":0,\"error\":null},"
        "{\"driver\":\"SITE3\",\"site\":\"SITE1\",\"to\":\"SITE3\",\"broker\":\"127.0.0.1 port 1883\","
        "\"up\":false,\"cause\":\"SITE3 is away\",\"forMs\":36NN,\"delayMs\":null,\"inPerSecond\":null,"
        "\"outPerSecond\":null,\"error\":{\"text\":\"SITE3 is away\",\"ageMs\":36NN}},"
        "{\"driver\":\"SITE4\",\"site\":\"\",\"to\":\"\",\"broker\":\"\",\"up\":false,"
        "\"cause\":\"not loaded\",\"forMs\":null,\"delayMs\":null,\"inPerSecond\":null,"
        "\"outPerSecond\":null,\"error\":null}]}",
        std::regex_replace(m_sut.links(), std::regex(R"x("(forMs|ageMs)":36\d{5}\b)x"), R"("$1":36NN)"));
}

TEST_F(ApiReadingTest, LinkThatHasEndedIsNotUpWhateverItReportedLast) {
    WorkplaceFile::Entry entry;
    entry.driverID = "SITE2";
    entry.driverType = "Link";
    entry.interfaceType = EInterfaceTypes::Direct;
    m_host.drivers.configure({entry}, true);
    m_host.store.setStateValue("SITE2.LINK", "up");
    m_host.store.makeStale("SITE2", {"SITE2.LINK"}, "stopped by anna");
    EXPECT_THAT(m_sut.links(), testing::HasSubstr("\"up\":false,\"cause\":\"stopped by anna\","));
}

TEST_F(ApiReadingTest, CompletionGivesWhatTheLastWordMayBecome) {
    m_host.words = {"state", "startDriver"};
    EXPECT_EQ("{\"words\":[\"state\",\"startDriver\"]}", m_sut.completion(target("line=sta")));
    EXPECT_EQ((std::vector<std::string>{"sta"}), m_host.completed);
    m_sut.completion(target("line=state%20"));
    EXPECT_EQ((std::vector<std::string>{"state", ""}), m_host.completed);
    m_sut.completion(target("line=sendFID%20%22A%20B.C%22%20na"));
    EXPECT_EQ((std::vector<std::string>{"sendFID", "A B.C", "na"}), m_host.completed);
    m_sut.completion(ApiTarget::read("/x"));
    EXPECT_EQ((std::vector<std::string>{""}), m_host.completed);
    EXPECT_THAT(code([&] { m_sut.completion(target("word=a")); }), testing::HasSubstr("word"));
}

TEST_F(ApiReadingTest, CompletionGivesAThousandWordsAtMost) {
    m_host.words.assign(1'001, "AXIS1.A");
    const std::string words = m_sut.completion(target("line=state%20A"));
    EXPECT_EQ(1'000, std::count(words.begin(), words.end(), 'X'));
}

TEST_F(ApiReadingTest, CatalogueAndModulesAreListed) {
    m_host.catalogue = {{.file = "/d/axis.xml",
                         .line = 4,
                         .name = "An axis",
                         .module = "/d/axis.so",
                         .type = "Axis",
                         .version = "2.1"},
                        {.file = "/d/lamp.xml",
                         .line = 1,
                         .name = "",
                         .module = "/d/lamp.so",
                         .type = "Lamp",
                         .version = "1"}};
    const std::string axis =
        "{\"type\":\"Axis\",\"version\":\"2.1\",\"name\":\"An axis\",\"module\":\"/d/axis.so\","
        "\"descriptor\":\"/d/axis.xml\",\"line\":4";
    const std::string lamp =
        "{\"type\":\"Lamp\",\"version\":\"1\",\"name\":\"\",\"module\":\"/d/lamp.so\","
        "\"descriptor\":\"/d/lamp.xml\",\"line\":1";
    EXPECT_EQ("{\"drivers\":[" + axis + "}," + lamp + "}]}", m_sut.catalogue());
    EXPECT_EQ("{\"modules\":[" + axis + ",\"drivers\":[\"AXIS1\"]}," + lamp + ",\"drivers\":[]}]}",
              m_sut.modules());
}

TEST_F(ApiReadingTest, LogIsAskedForByDriverLinesAndLevel) {
    EXPECT_EQ("{\"lines\":[]}", m_sut.log(target("")));
    EXPECT_EQ("{\"lines\":[]}", m_sut.log(target("driver=AXIS1&lines=10000&level=1")));
    EXPECT_EQ((std::vector<std::string>{"log of \"\", 100 lines up to level 5",
                                        "log of \"AXIS1\", 10000 lines up to level 1"}),
              m_host.calls);
    EXPECT_THAT(code([&] { m_sut.log(target("driver=AXIS3")); }),
                testing::HasSubstr("\"text\":\"there is no driver AXIS3\",\"nearest\":[\"AXIS1\"]"));
    for (const char* query : {"lines=0", "lines=10001", "level=0", "level=6", "level=error"})
        EXPECT_THAT(code([&] { m_sut.log(target(query)); }), testing::HasSubstr("request-invalid")) << query;
}

TEST_F(ApiReadingTest, SessionsAreListed) {
    m_host.sessions = {{.id = 7,
                        .user = "anna",
                        .uid = 1000,
                        .pid = 42,
                        .role = ERole::Admin,
                        .since = at(seconds(1)),
                        .requests = 9}};
    m_host.sessions.push_back({.id = 8,
                               .user = "bert",
                               .uid = 1001,
                               .pid = std::nullopt,
                               .role = ERole::View,
                               .since = at(seconds(1)),
                               .requests = 4,
                               .address = "192.0.2.7",
                               .used = at(seconds(2)),
                               .expires = at(seconds(3))});
    EXPECT_EQ(
        "{\"sessions\":[{\"id\":7,\"user\":\"anna\",\"uid\":1000,\"pid\":42,\"role\":\"admin\","
        "\"since\":\"1970-01-01T00:00:01.000Z\",\"requests\":9,\"address\":\"\",\"used\":null,\"expires\":"
        "null},"
        "{\"id\":8,\"user\":\"bert\",\"uid\":1001,\"pid\":null,\"role\":\"view\","
        "\"since\":\"1970-01-01T00:00:01.000Z\",\"requests\":4,\"address\":\"192.0.2.7\","
        "\"used\":\"1970-01-01T00:00:02.000Z\",\"expires\":\"1970-01-01T00:00:03.000Z\"}]}",
        m_sut.sessions());
}

TEST_F(ApiReadingTest, HistoryIsListedAndEachFileOfIt) {
    m_host.history = {
        {.number = 1, .when = at(seconds(1)), .who = "anna", .digest = "ab", .outcome = "2 changes"},
        {.number = 2, .when = at(seconds(2)), .who = "signal", .digest = "cd", .outcome = ""}};
    m_host.files[1] = "<workplaces/>\n";
    const std::string first =
        "{\"number\":1,\"when\":\"1970-01-01T00:00:01.000Z\",\"who\":\"anna\","
        "\"digest\":\"ab\",\"outcome\":\"2 changes\"";
    EXPECT_EQ(
        "{\"history\":[" + first +
            "},{\"number\":2,\"when\":\"1970-01-01T00:00:02.000Z\",\"who\":\"signal\",\"digest\":\"cd\","
            "\"outcome\":\"\"}]}",
        m_sut.history());
    EXPECT_EQ(first + ",\"file\":\"<workplaces/>\\u000a\"}", m_sut.historyEntry(1));
    EXPECT_THAT(code([&] { m_sut.historyEntry(2); }), testing::HasSubstr("not-found"));
    EXPECT_THAT(code([&] { m_sut.historyEntry(3); }),
                testing::HasSubstr("no state of the workplace with the number 3 is kept"));
}

TEST_F(ApiReadingTest, HealthCountsAndSaysWhatIsDone) {
    m_host.drivers.processStarted("AXIS1", 42);
    EXPECT_EQ("{\"status\":\"ok\",\"configured\":2,\"running\":1,\"parked\":0,\"alarms\":0,\"command\":null}",
              m_sut.health());
    m_host.activity = {
        .busy = true, .what = "reload of AXIS1", .driverID = "AXIS1", .since = m_host.now - seconds(5)};
    EXPECT_EQ(
        "{\"status\":\"ok\",\"configured\":2,\"running\":1,\"parked\":0,\"alarms\":0,\"command\":{\"what\":"
        "\"reload of "
        "AXIS1\",\"driver\":\"AXIS1\",\"operation\":\"\",\"forMs\":5000}}",
        m_sut.health());
    m_host.now += milliseconds(1);
    m_host.drivers.callBegins("PANEL", "init");
    EXPECT_EQ(
        "{\"status\":\"busy\",\"configured\":2,\"running\":1,\"parked\":0,\"alarms\":0,\"command\":{\"what\":"
        "\"reload of "
        "AXIS1\",\"driver\":\"PANEL\",\"operation\":\"init\",\"forMs\":5001}}",
        m_sut.health());
    m_host.isStopping = true;
    EXPECT_THAT(m_sut.health(), testing::HasSubstr("{\"status\":\"stopping\","));
}

TEST_F(ApiReadingTest, HealthTellsHowManyAlarmsAreInSight) {
    m_host.drivers.processStarted("AXIS1", 42);
    m_host.alarms = 2;
    EXPECT_EQ("{\"status\":\"ok\",\"configured\":2,\"running\":1,\"parked\":0,\"alarms\":2,\"command\":null}",
              m_sut.health());
}

TEST_F(ApiReadingTest, DriverThatIsToRunAndDoesNotDegradesTheHost) {
    EXPECT_THAT(m_sut.health(),
                testing::HasSubstr("{\"status\":\"degraded\",\"configured\":2,\"running\":0,"));
    m_host.drivers.processStarted("AXIS1", 42);
    EXPECT_THAT(m_sut.health(), testing::HasSubstr("{\"status\":\"ok\","));
    m_host.drivers.processHung("AXIS1", 42, "hung");
    EXPECT_THAT(m_sut.health(), testing::HasSubstr("{\"status\":\"degraded\","));
    m_host.drivers.processEnded("AXIS1", 42, "signal 9", {}, false);
    EXPECT_THAT(m_sut.health(), testing::HasSubstr("{\"status\":\"degraded\","));
}

TEST_F(ApiReadingTest, ParkedDriverAndOneThatIsNeverLoadedDoNot) {
    m_host.drivers.beginParking("AXIS1", "parked");
    m_host.drivers.endParking("AXIS1");
    EXPECT_EQ("{\"status\":\"ok\",\"configured\":2,\"running\":0,\"parked\":1,\"alarms\":0,\"command\":null}",
              m_sut.health());
    WorkplaceFile::Entry socket;
    socket.driverID = "SOCKET";
    socket.interfaceType = EInterfaceTypes::Socket;
    m_host.drivers.configure({socket}, false);
    EXPECT_THAT(m_sut.health(), testing::HasSubstr("{\"status\":\"ok\",\"configured\":3,"));
}

// --- what was recorded ---

TEST_F(ApiReadingTest, LifeOfADriverIsToldWithoutARecording) {
    m_host.drivers.processStarted("AXIS1", 42);
    m_host.drivers.processEnded("AXIS1", 42, "signal 11", {}, false);
    const std::regex times("2[0-9]{3}-[^\"]*");
    EXPECT_EQ(
        "{\"driver\":\"AXIS1\",\"more\":false,\"steps\":["
        "{\"time\":\"TIME\",\"step\":\"end\",\"pid\":42,\"start\":1,\"text\":\"signal 11\"},"
        "{\"time\":\"TIME\",\"step\":\"start\",\"pid\":42,\"start\":1,\"text\":\"\"}],\"gaps\":[],"
        "\"recorded\":false,\"since\":\"1970-01-02T00:00:00.000000Z\"}",
        std::regex_replace(m_sut.runs("AXIS1", target("")), times, "TIME"));
    EXPECT_THAT(m_sut.runs("AXIS1", target("limit=1")), testing::HasSubstr("\"more\":true"));
    EXPECT_EQ(
        "{\"error\":{\"code\":\"driver-unknown\",\"text\":\"there is no driver "
        "AXIS\",\"nearest\":[\"AXIS1\"]}}",
        code([&] { m_sut.runs("AXIS", target("")); }));
    EXPECT_EQ(
        "{\"error\":{\"code\":\"request-invalid\",\"text\":\"limit is \\\"0\\\" where a whole number from 1 "
        "to "
        "1000 is needed\",\"nearest\":[]}}",
        code([&] { m_sut.runs("AXIS1", target("limit=0")); }));
}

TEST_F(ApiReadingTest, WithoutARecordingItIsSaidWhatAHistoryNeeds) {
    EXPECT_EQ(
        "{\"error\":{\"code\":\"refused\",\"text\":\"the host does not record (--record-off), so nothing "
        "is known of what was\",\"nearest\":[]}}",
        code([&] { m_sut.stateHistory("AXIS1.POSITION", target("")); }));
}

TEST_F(ApiReadingTest, SpanOfAHistoryIsHeldAgainstWhatCanBe) {
    const auto fault = [&](const std::string& query) {
        return code([&] { m_sut.stateHistory("AXIS1.POSITION", target(query)); });
    };
    EXPECT_THAT(fault("from=yesterday"),
                testing::HasSubstr(
                    "from is \\\"yesterday\\\" where a time such as 2026-11-22T14:03:22.181Z is needed"));
    EXPECT_THAT(fault("from=2020-01-02T00:00:00Z&to=2020-01-01T00:00:00Z"),
                testing::HasSubstr("from is 2020-01-02T00:00:00.000000Z, which is not before "
                                   "2020-01-01T00:00:00.000000Z, where the span ends"));
    for (const char* time : {"1969-12-31T23:59:59Z", "9999-01-01T00:00:00Z", "2020-01-01"})
        EXPECT_THAT(fault(std::string("to=") + time), testing::HasSubstr("where a time such as ")) << time;
    EXPECT_THAT(fault("points=2"),
                testing::HasSubstr("points is \\\"2\\\" where a whole number from 3 to 10000 is needed"));
}

namespace {

/// A host that records.
class ApiReadingOfRecordingTest : public StreamFixture {
protected:
    ApiReadingOfRecordingTest() {
        m_host.pRecorded = &m_recorded;
        m_host.drivers.processStarted("AXIS1", 42);
    }
    static ApiTarget target(const std::string& query) { return ApiTarget::read("/x?" + query); }

    std::unique_ptr<stream::StreamRing> m_pRing = ringOf(small());
    Observation m_observation{*m_pRing};
    stream::StreamSource m_source{*m_pRing};
    RecordedStream m_recorded{m_source, m_observation.keys()};
    ApiHost m_host;
};

}  // namespace

TEST_F(ApiReadingOfRecordingTest, HistoryHasTheRecordsOfTheSpanAndTheValueNow) {
    m_host.store.setStateValueInt("AXIS1.POSITION", 7);
    // 2020-01-01T00:00:00Z and so many seconds.
    const auto when = [](int second) { return stream::Time(std::chrono::seconds(1'577'836'800 + second)); };
    const std::uint16_t axis = m_observation.number("AXIS1");
    const stream::StreamWriter::Key key{m_observation.keys().key(axis, "AXIS1.POSITION", when(0)),
                                        "AXIS1.POSITION"};
    m_observation.stream().valueInt(when(0), key, 5);
    m_observation.stream().valueInt(when(2), key, 7);
    m_observation.stream().valueInt(when(9), key, 8);
    const ApiContext context = m_host.context();
    const std::string text = ApiReading(context).stateHistory(
        "AXIS1.POSITION", target("from=2020-01-01T00:00:01Z&to=2020-01-01T00:00:05Z"));
    EXPECT_THAT(text, testing::HasSubstr("\"changes\":1,\"thinned\":false,\"held\":{\"time\":"
                                         "\"2020-01-01T00:00:00.000000Z\",\"value\":5,\"text\":\"5\"},"
                                         "\"points\":[{\"time\":\"2020-01-01T00:00:02.000000Z\",\"value\":7,"
                                         "\"text\":\"7\"}],\"last\""));
    EXPECT_THAT(text,
                testing::HasSubstr("\"now\":{\"key\":\"AXIS1.POSITION\",\"type\":\"int\",\"value\":7,"));
}

TEST_F(ApiReadingOfRecordingTest, ValueThatNeverWasIsUnknown) {
    m_host.store.setStateValueInt("AXIS1.POSITION", 7);
    const ApiContext context = m_host.context();
    try {
        ApiReading(context).stateHistory("AXIS1.POSITON", target(""));
        FAIL() << "it was answered";
    } catch (const ApiFault& fault) {
        EXPECT_EQ(
            "{\"error\":{\"code\":\"state-unknown\",\"text\":\"there is no value AXIS1.POSITON, and none was "
            "recorded in that time\",\"nearest\":[\"AXIS1.POSITION\"]}}",
            fault.answer().body);
    }
}

TEST_F(ApiReadingOfRecordingTest, LifeBeforeTheHostComesFromTheRecording) {
    // The host of the test has been there since 1970-01-02.
    m_observation.stream().start(stream::Time(std::chrono::hours(23)), m_observation.number("AXIS1"), 7,
                                 "again");
    const ApiContext context = m_host.context();
    const std::string text = ApiReading(context).runs("AXIS1", target(""));
    EXPECT_THAT(text,
                testing::HasSubstr("{\"time\":\"1970-01-01T23:00:00.000000Z\",\"step\":\"start\",\"pid\":7,"
                                   "\"start\":null,\"text\":\"again\"}],\"gaps\":[],"
                                   "\"recorded\":true,\"since\":\"1970-01-01T23:00:00.000000Z\"}"));
}

TEST_F(ApiReadingOfRecordingTest, HostThatStopsReadsNoFurther) {
    m_host.isStopping = true;
    const ApiContext context = m_host.context();
    try {
        ApiReading(context).runs("AXIS1", target(""));
        FAIL() << "it was answered";
    } catch (const ApiFault& fault) {
        EXPECT_EQ(ApiFault::ECode::Stopping, fault.code());
    }
}
