#include "StateCommands.h"

#include "HangGuard.h"
#include "HostProcess.h"
#include "RemoteFixture.h"

namespace {

class StateCommandsTest : public RemoteFixture {
protected:
    /// mfctl state --watch as a program of its own.
    std::unique_ptr<HostProcess> watch(std::vector<std::string> further = {}) {
        std::vector<std::string> arguments{"--host", m_host.path(), "state", "--watch"};
        arguments.insert(arguments.end(), further.begin(), further.end());
        return std::make_unique<HostProcess>(
            HostProcess::Start{MFD_MFCTL, arguments, {}, m_directory.path()});
    }
};

}  // namespace

TEST_F(StateCommandsTest, ShowsValuesAndWhetherTheyHold) {
    m_host.answer("GET /state?glob=SYS.%2A",
                  R"({"version":7,"complete":true,"values":[
                      {"key":"SYS.LOAD","type":"float","value":0.5,"text":"0.5","owner":"SYS","ageMs":3000,"stale":null},
                      {"key":"SYS.UP","type":"int","value":5,"text":"5","owner":"SYS","ageMs":200000,
                       "stale":{"cause":"signal 11","forMs":4000}}],"unset":[]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, StateCommands(remote).show("SYS.*"));
    EXPECT_EQ(
        "key       type   value  set by  age    holds\n"
        "SYS.LOAD  float  0.5    SYS     3 s    yes\n"
        "SYS.UP    int    5      SYS     3 min  stale for 4 s (signal 11)\n",
        out());
}

TEST_F(StateCommandsTest, CountsWhatDriversHaveReported) {
    m_host.answer(
        "GET /state?counts=1&glob=%5B%5D",
        R"({"values":[],"counts":[{"driver":"SYS","received":1000,"merged":900,"delivered":100,"changes":7}]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, StateCommands(remote).counts());
    EXPECT_EQ(
        "driver  received  merged  delivered  changes\n"
        "SYS     1000      900     100        7\n",
        out());
}

TEST_F(StateCommandsTest, NothingIsSaid) {
    m_host.answer("GET /state", R"({"values":[]})");
    m_host.answer("GET /state?glob=X", R"({"values":[]})");
    auto remote = control();
    StateCommands(remote).show("");
    StateCommands(remote).show("X");
    EXPECT_EQ("no state values\nno state value matches X\n", out());
}

TEST_F(StateCommandsTest, TypeIsWhatTheValueLooksLike) {
    const auto typeOf = [](const std::string& value) {
        std::string type;
        StateCommands::typedValue(value, type);
        return type;
    };
    EXPECT_EQ("int", typeOf("-5"));
    EXPECT_EQ("float", typeOf("5000000000"));
    EXPECT_EQ("float", typeOf("0.5"));
    EXPECT_EQ("bool", typeOf("true"));
    EXPECT_EQ("string", typeOf("5 apples"));
    EXPECT_EQ("string", typeOf(""));
    EXPECT_EQ("string", typeOf("inf"));
}

TEST_F(StateCommandsTest, ValueThatIsNoneOfItsTypeIsRefusedBeforeItIsSent) {
    auto remote = control();
    const auto textOf = [&](const char* pValue, const char* pType) {
        const auto [exit, text] = errorOf([&] { StateCommands(remote).set("A", pValue, pType); });
        EXPECT_EQ(EExit::WrongUsage, exit);
        return text;
    };
    EXPECT_EQ("\"x\" is no int; it must be a whole number of 32 bits, such as -5", textOf("x", "int"));
    EXPECT_EQ("\"1e999\" is no float; it must be a number such as 0.5", textOf("1e999", "float"));
    EXPECT_EQ("\"yes\" is no bool; it must be true or false", textOf("yes", "bool"));
    EXPECT_TRUE(m_host.requests().empty());
}

TEST_F(StateCommandsTest, SetsWithItsType) {
    m_host.answer("POST /state", "{}");
    auto remote = control();
    EXPECT_EQ(EExit::Done, StateCommands(remote).set("A", "5", ""));
    EXPECT_EQ(Json::parse(R"({"key":"A","type":"int","value":5})"), members("POST /state"));
    StateCommands(remote).set("A", "5", "string");
    EXPECT_EQ(Json::parse(R"({"key":"A","type":"string","value":"5"})"), members("POST /state"));
    EXPECT_EQ("A = 5 (int)\nA = 5 (string)\n", out());
}

TEST_F(StateCommandsTest, UnsetsAndTriggers) {
    m_host.answer("POST /unset", "{}");
    m_host.answer("POST /event", "{}");
    auto remote = control();
    EXPECT_EQ(EExit::Done, StateCommands(remote).unset("A"));
    EXPECT_EQ(EExit::Done, StateCommands(remote).trigger("DOOR", "open"));
    EXPECT_EQ(Json::parse(R"({"key":"A"})"), members("POST /unset"));
    EXPECT_EQ(Json::parse(R"({"id":"DOOR","value":"open"})"), members("POST /event"));
}

TEST_F(StateCommandsTest, ListsEvents) {
    ::setenv("TZ", "UTC", 1);
    m_host.answer(
        "GET /events",
        R"({"events":[{"id":"DOOR","value":"open","owner":"SYS","time":"2026-11-22T12:00:05.000Z"}]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, StateCommands(remote).events());
    EXPECT_EQ("time                 event  value  from\n2026-11-22 12:00:05  DOOR   open   SYS\n", out());
}

TEST_F(StateCommandsTest, WatchAsksForWhatChangedSince) {
    m_host.answer("GET /state",
                  R"({"version":7,"complete":true,"values":[{"key":"A","text":"1"}],"unset":[]})");
    m_host.answer("GET /state?since=7",
                  R"({"version":8,"complete":false,"values":[{"key":"A","text":"2"}],"unset":[]})");
    m_host.answer("GET /state?since=8", R"({"version":9,"complete":false,"values":[],"unset":["A"]})");
    m_host.answer("GET /state?since=9", R"({"version":9,"complete":false,"values":[],"unset":[]})");
    const auto program = watch();
    EXPECT_TRUE(program->waitForOutput("A unset\n")) << program->output() << program->log();
    EXPECT_THAT(program->output(), testing::MatchesRegex("[0-9:]+ A = 1\n[0-9:]+ A = 2\n[0-9:]+ A unset\n"));
    // It goes on.
    EXPECT_TRUE(eventually([&] { return m_host.requests("GET /state?since=9").size() > 2; }));
    EXPECT_EQ("", program->log());
}

TEST_F(StateCommandsTest, WatchOutlivesARestartOfTheHost) {
    const std::string path = m_directory.path("mfhost-2.sock");
    auto pHost = std::make_unique<CannedHost>(path, "first");
    pHost->answer("GET /state",
                  R"({"version":70,"complete":true,"values":[{"key":"A","text":"old"}],"unset":[]})");
    pHost->answer("GET /state?since=70", R"({"version":70,"complete":false,"values":[],"unset":[]})");
    const HostProcess program({MFD_MFCTL, {"state", "--watch", "--host", path}, {}, m_directory.path()});
    ASSERT_TRUE(program.waitForOutput("A = old\n")) << program.log();
    pHost.reset();
    EXPECT_TRUE(program.waitForLog("; waiting for it\n")) << program.log();
    pHost = std::make_unique<CannedHost>(path, "second");
    // The version of the former one means nothing here.
    pHost->answer("GET /state?since=70", R"({"version":70,"complete":false,"values":[],"unset":[]})");
    pHost->answer("GET /state",
                  R"({"version":3,"complete":true,"values":[{"key":"B","text":"new"}],"unset":[]})");
    pHost->answer("GET /state?since=3", R"({"version":3,"complete":false,"values":[],"unset":[]})");
    EXPECT_TRUE(program.waitForOutput("B = new\n")) << program.output() << program.log();
    EXPECT_TRUE(program.waitForOutput("A unset\n")) << program.output();
    EXPECT_TRUE(program.waitForLog("mfctl: the host at " + path + " was started anew\n")) << program.log();
}

TEST_F(StateCommandsTest, WatchOfNoHostEndsWithThree) {
    HostProcess program(
        {MFD_MFCTL, {"state", "--watch", "--host", m_directory.path("none")}, {}, m_directory.path()});
    EXPECT_EQ(3, program.waitForEnd());
}

TEST_F(StateCommandsTest, WatchAsJsonPrintsEachAnswerWithAChange) {
    m_host.answer("GET /state", R"({"version":7,"complete":true,"values":[],"unset":[]})");
    m_host.answer("GET /state?since=7", R"({"version":8,"values":[{"key":"A","text":"2"}]})");
    m_host.answer("GET /state?since=8", R"({"version":8,"values":[]})");
    const auto program = watch({"--json"});
    EXPECT_TRUE(program->waitForOutput("\"A\"")) << program->log();
    EXPECT_TRUE(eventually([&] { return m_host.requests("GET /state?since=8").size() > 2; }));
    EXPECT_EQ(
        "{\"version\":7,\"complete\":true,\"values\":[],\"unset\":[]}\n"
        "{\"version\":8,\"values\":[{\"key\":\"A\",\"text\":\"2\"}]}\n",
        program->output());
}
