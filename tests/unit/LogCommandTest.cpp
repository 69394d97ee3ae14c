#include "LogCommand.h"

#include "HangGuard.h"
#include "HostProcess.h"
#include "RemoteFixture.h"

namespace {

class LogCommandTest : public RemoteFixture {
protected:
    LogCommandTest() { ::setenv("TZ", "UTC", 1); }

    static std::string line(int number) {
        return R"({"time":"2026-11-22T12:00:0)" + std::to_string(number) +
               R"(.000Z","level":4,"output":"HOST","driver":"","text":"line )" + std::to_string(number) +
               "\"}";
    }
    static std::string lines(const std::vector<int>& numbers) {
        std::string text;
        for (const int number : numbers)
            text += (text.empty() ? "" : ",") + line(number);
        return R"({"lines":[)" + text + "]}";
    }
};

}  // namespace

TEST_F(LogCommandTest, ShowsTheLinesOfADriver) {
    m_host.answer("GET /log?lines=2&driver=SYS&level=2", lines({1, 2}));
    auto remote = control();
    EXPECT_EQ(EExit::Done, LogCommand(remote).show({"SYS", 2, 2}));
    EXPECT_EQ("12:00:01 info HOST  line 1\n12:00:02 info HOST  line 2\n", out());
}

TEST_F(LogCommandTest, KnownLinesAreThoseAtTheEndOfWhatWasThere) {
    EXPECT_EQ(2u, LogCommand::known({"a", "b", "c"}, {"b", "c", "d"}));
    EXPECT_EQ(3u, LogCommand::known({"a", "b", "c"}, {"a", "b", "c"}));
    EXPECT_EQ(0u, LogCommand::known({"a"}, {"b"}));
    EXPECT_EQ(0u, LogCommand::known({}, {"b"}));
    EXPECT_EQ(1u, LogCommand::known({"x", "x"}, {"x", "y"}));
}

TEST_F(LogCommandTest, LinesThatAreNoListAreNone) {
    m_host.answer("GET /log?lines=500", R"({"lines":{"a":[1]}})");
    const HostProcess program(
        {MFD_MFCTL, {"--host", m_host.path(), "log", "-f"}, {{"TZ", "UTC"}}, m_directory.path()});
    ASSERT_TRUE(eventually([this] { return m_host.requests("GET /log?lines=500").size() > 1; }))
        << program.log();
    m_host.answer("GET /log?lines=500", lines({1}));
    EXPECT_TRUE(program.waitForOutput("12:00:01 info HOST  line 1\n")) << program.log();
}

TEST_F(LogCommandTest, FollowPrintsTheLastLinesAndWhatComes) {
    m_host.answer("GET /log?lines=500", lines({1, 2, 3}));
    const HostProcess program(
        {MFD_MFCTL, {"--host", m_host.path(), "log", "-f", "-n", "2"}, {{"TZ", "UTC"}}, m_directory.path()});
    ASSERT_TRUE(program.waitForOutput("line 3\n")) << program.log();
    m_host.answer("GET /log?lines=500", lines({2, 3, 4}));
    ASSERT_TRUE(program.waitForOutput("line 4\n")) << program.log();
    EXPECT_EQ("12:00:02 info HOST  line 2\n12:00:03 info HOST  line 3\n12:00:04 info HOST  line 4\n",
              program.output());
    m_host.answer("GET /log?lines=500", lines({7, 8}));
    EXPECT_TRUE(program.waitForLog("mfctl: more lines came than the host keeps; some are missing here\n"));
}

TEST_F(LogCommandTest, FollowReadsTheStreamOfAHostThatRecords) {
    m_host.answer("GET /log?lines=1&driver=LAMP&level=3", lines({}));
    m_host.answer("GET /stream?kinds=log,output&drivers=LAMP&level=3&lines=1&last=2",
                  R"({"kind":"log","time":"2026-11-22T12:00:01.000000Z","driver":"LAMP","level":2,)"
                  R"("output":"HOST","text":"hot","line":"x","cursor":"i1:both:5"})"
                  "\n"
                  R"({"kind":"output","time":"2026-11-22T12:00:02.000000Z","driver":"LAMP","text":"bare"})"
                  "\n"
                  R"({"kind":"gap","count":3,"line":"gap: 3 records"})"
                  "\n");
    const HostProcess program({MFD_MFCTL,
                               {"--host", m_host.path(), "log", "LAMP", "-f", "-n", "2", "--level", "3"},
                               {{"TZ", "UTC"}},
                               m_directory.path()});
    EXPECT_TRUE(program.waitForOutput("12:00:01 error HOST LAMP  hot\n12:00:02 LAMP  bare\ngap: 3 records\n"))
        << program.log();
}

TEST_F(LogCommandTest, FollowOfADriverThatThereIsNotSaysSo) {
    m_host.answer(
        "GET /log?lines=1&driver=LAMP",
        R"({"error":{"code":"driver-unknown","text":"there is no driver LAMP","nearest":["LAMP1"]}})", 404);
    auto remote = control();
    EXPECT_EQ(std::pair(EExit::Failed, std::string("there is no driver LAMP; did you mean LAMP1?")),
              errorOf([&] { LogCommand(remote).follow({.driver = "LAMP"}); }));
}
