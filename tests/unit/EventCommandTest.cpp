#include "EventCommand.h"

#include "HangGuard.h"
#include "HostProcess.h"
#include "RemoteFixture.h"

namespace {

class EventCommandTest : public RemoteFixture {
protected:
    static std::string record(int number, const std::string& kind, const std::string& line) {
        return R"({"number":)" + std::to_string(number) + R"(,"kind":")" + kind + R"(","line":")" + line +
               R"(","cursor":"i1:both:)" + std::to_string(number + 1) + "\"}\n";
    }
    static constexpr const char* s_hello = "{\"kind\":\"hello\",\"instance\":\"i1\",\"restarted\":false}\n";
    static constexpr const char* s_usual =
        "GET /stream?kinds=event,fid,command,mark,start,exit,hang,restart,configuration,stale";
};

}  // namespace

TEST_F(EventCommandTest, ListsWhatAHostHasRecordedLast) {
    m_host.answer(
        std::string(s_usual) + "&lines=1&follow=0&last=2",
        s_hello + record(7, "fid", "A fid B.ON to B: written") + record(8, "exit", "B exit signal 9"));
    auto remote = control();
    EXPECT_EQ(EExit::Done, EventCommand(remote).show({.lines = 2}));
    EXPECT_EQ("A fid B.ON to B: written\nB exit signal 9\n", out());
}

TEST_F(EventCommandTest, AsksForWhatIsChosen) {
    m_host.answer("GET /stream?kinds=fid%2Cexit&drivers=AX%2A%2CLAMP&glob=%2AMOVE&lines=1&follow=0&last=50",
                  s_hello + record(7, "fid", "A fid B.MOVE"));
    auto remote = control();
    EXPECT_EQ(EExit::Done,
              EventCommand(remote).show(
                  {.what = {.drivers = {"AX*", "LAMP"}, .kinds = {"fid", "exit"}, .glob = "*MOVE"}}));
    EXPECT_EQ("A fid B.MOVE\n", out());
}

TEST_F(EventCommandTest, PrintsTheRecordsAsTheyCameWithJson) {
    m_host.answer(std::string(s_usual) + "&lines=1&follow=0&last=50", s_hello + record(7, "start", "x"));
    auto remote = control(true);
    EXPECT_EQ(EExit::Done, EventCommand(remote).show({}));
    EXPECT_EQ(record(7, "start", "x"), out());
}

TEST_F(EventCommandTest, OfAHostThatDoesNotRecordItListsTheEvents) {
    const std::string refusal =
        R"({"error":{"code":"refused","text":"the host does not record","nearest":[]}})";
    m_host.answer(std::string(s_usual) + "&lines=1&follow=0&last=50", refusal, 409);
    m_host.answer("GET /events", R"({"events":[]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, EventCommand(remote).show({}));
    EXPECT_EQ("no events\n", out());
    EXPECT_EQ(
        "mfctl: the host does not record (--record-off): these are its last events alone, without function "
        "IDs, "
        "commands, starts and ends\n",
        err());
    m_host.answer("GET /stream?kinds=fid&lines=1&follow=0&last=50", refusal, 409);
    EXPECT_EQ(
        std::pair(EExit::Failed,
                  std::string("the host does not record (--record-off): only its last events can be listed")),
        errorOf([&] { EventCommand(remote).show({.what = {.kinds = {"fid"}}}); }));
}

TEST_F(EventCommandTest, FollowPrintsWhatComesUntilItIsEnded) {
    m_host.answer("GET /stream?kinds=exit&lines=1&last=2", s_hello + record(7, "exit", "seven"));
    m_host.answer("GET /stream?kinds=exit&lines=1&from=i1%3Aboth%3A8",
                  R"({"kind":"gap","count":3,"line":"gap: 3 records","cursor":"i1:both:9"})"
                  "\n" +
                      record(9, "exit", "nine"));
    const HostProcess program({MFD_MFCTL,
                               {"--host", m_host.path(), "events", "--kind", "exit", "-f", "-n", "2"},
                               {},
                               m_directory.path()});
    EXPECT_TRUE(program.waitForOutput("seven\ngap: 3 records\nnine\n")) << program.log();
}

TEST_F(EventCommandTest, KindThatIsNoneIsWrongUsage) {
    const HostProcess program(
        {MFD_MFCTL, {"--host", m_host.path(), "events", "--kind", "fids"}, {}, m_directory.path()});
    EXPECT_TRUE(program.waitForLog("\"fids\" is no kind of record; there are "));
    EXPECT_TRUE(m_host.requests().empty());
}
