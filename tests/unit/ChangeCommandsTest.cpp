#include "ChangeCommands.h"

#include "RemoteFixture.h"

namespace {

constexpr std::chrono::seconds s_limit{60};

class ChangeCommandsTest : public RemoteFixture {
protected:
    ChangeCommandsTest() { ::setenv("TZ", "UTC", 1); }
};

}  // namespace

TEST_F(ChangeCommandsTest, CheckTellsFindingsAndFailsForErrors) {
    m_host.answer("POST /check",
                  R"({"file":"/etc/w.xml","errors":1,"warnings":1,"findings":[
                      {"severity":"error","file":"/etc/w.xml","line":5,"text":"twice"},
                      {"severity":"warning","file":"/etc/d.xml","line":null,"text":"odd"}]})");
    auto remote = control();
    EXPECT_EQ(EExit::Failed, ChangeCommands(remote).check());
    EXPECT_EQ("error: /etc/w.xml line 5: twice\nwarning: /etc/d.xml: odd\n/etc/w.xml: 1 error, 1 warning\n",
              out());
    m_host.answer("POST /check", R"({"file":"/etc/w.xml","errors":0,"warnings":2,"findings":[]})");
    EXPECT_EQ(EExit::Done, ChangeCommands(remote).check());
}

TEST_F(ChangeCommandsTest, PlanTellsChangesAndHowTheyAreDone) {
    m_host.answer("POST /plan",
                  R"({"plan":"p7","digest":"ab","refusal":"","findings":[],
                      "changes":[{"action":"reload","driver":"SYS","reason":"module changed"}]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, ChangeCommands(remote).plan(false));
    EXPECT_EQ("action  driver  why\nreload  SYS     module changed\nmfctl apply p7 does this\n", out());
    EXPECT_EQ(EExit::Changes, ChangeCommands(remote).plan(true));
}

TEST_F(ChangeCommandsTest, PlanWithoutChangesIsDone) {
    m_host.answer("POST /plan", R"({"plan":"p7","digest":"ab","refusal":"","findings":[],"changes":[]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, ChangeCommands(remote).plan(true));
    EXPECT_EQ("no changes\n", out());
}

TEST_F(ChangeCommandsTest, PlanThatMayNotBeAppliedFails) {
    m_host.answer("POST /plan",
                  R"({"plan":"","refusal":"the file has an error","findings":[],"changes":[]})");
    auto remote = control();
    EXPECT_EQ(std::pair(EExit::Failed, std::string("nothing may be applied: the file has an error")),
              errorOf([&] { ChangeCommands(remote).plan(true); }));
}

TEST_F(ChangeCommandsTest, ApplyNamesThePlanAndTellsWhatWasDone) {
    m_host.answer(
        "POST /apply",
        R"({"history":8,"changes":[{"action":"reload","driver":"SYS","reason":"module changed","done":true,
                      "why":""}]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, ChangeCommands(remote).apply("p7", s_limit));
    EXPECT_EQ(Json::parse(R"({"plan":"p7"})"), members("POST /apply"));
    EXPECT_EQ(
        "action  driver  why             outcome\n"
        "reload  SYS     module changed  done\n"
        "kept as number 8; mfctl undo goes back\n",
        out());
    ChangeCommands(remote).apply("", s_limit);
    EXPECT_EQ(Json::object(), members("POST /apply"));
}

TEST_F(ChangeCommandsTest, ApplyWithoutChangesKeepsNothingToGoBackFrom) {
    m_host.answer("POST /apply", R"({"history":1,"changes":[]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, ChangeCommands(remote).apply("", s_limit));
    EXPECT_EQ("no changes\nthis is number 1\n", out());
}

TEST_F(ChangeCommandsTest, ApplyFailsWhereOneChangeWasNotDone) {
    m_host.answer(
        "POST /apply",
        R"({"history":8,"changes":[{"action":"load","driver":"A","reason":"entry is new","done":true},
                      {"action":"load","driver":"B","reason":"entry is new","done":false,"why":"no adapter eth7"}]})");
    auto remote = control();
    EXPECT_EQ(std::pair(EExit::Failed, std::string("not every change was done")),
              errorOf([&] { ChangeCommands(remote).apply("", s_limit); }));
    EXPECT_THAT(out(), testing::HasSubstr("load    B       entry is new  not done: no adapter eth7\n"));
}

TEST_F(ChangeCommandsTest, UndoNamesTheNumberWhereOneIsGiven) {
    m_host.answer("POST /undo", R"({"history":9,"changes":[]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, ChangeCommands(remote).undo(0, s_limit));
    EXPECT_EQ(Json::object(), members("POST /undo"));
    ChangeCommands(remote).undo(4, s_limit);
    EXPECT_EQ(Json::parse(R"({"number":4})"), members("POST /undo"));
}

TEST_F(ChangeCommandsTest, HistoryIsListed) {
    m_host.answer("GET /history",
                  R"({"history":[{"number":3,"when":"2026-11-22T12:00:05.000Z","who":"anna",
                      "digest":"0123456789abcdef","outcome":"done"}]})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, ChangeCommands(remote).history());
    EXPECT_EQ(
        "number  when                 who   digest        outcome\n"
        "3       2026-11-22 12:00:05  anna  0123456789ab  done\n",
        out());
}

TEST_F(ChangeCommandsTest, DiffShowsWhatAStateChanged) {
    m_host.answer("GET /history", R"({"history":[{"number":5},{"number":3}]})");
    m_host.answer("GET /history/3", R"({"number":3,"file":"a\nb\n"})");
    m_host.answer("GET /history/5", R"({"number":5,"file":"a\nc\n"})");
    auto remote = control();
    EXPECT_EQ(EExit::Done, ChangeCommands(remote).diff(0));
    EXPECT_EQ("--- number 3\n+++ number 5\n@@ -1,2 +1,2 @@\n a\n-b\n+c\n", out());
    m_out.str("");
    EXPECT_EQ(EExit::Done, ChangeCommands(remote).diff(3));
    EXPECT_EQ("--- nothing\n+++ number 3\n@@ -0,0 +1,2 @@\n+a\n+b\n", out());
}

TEST_F(ChangeCommandsTest, DiffOfANumberThatThereIsNotTellsWhichThereAre) {
    m_host.answer("GET /history", R"({"history":[{"number":3},{"number":5}]})");
    auto remote = control();
    EXPECT_EQ(std::pair(EExit::Failed, std::string("the history has no number 9; it goes from 3 to 5")),
              errorOf([&] { ChangeCommands(remote).diff(9); }));
}
