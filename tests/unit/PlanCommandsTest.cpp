#include "PlanCommands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <iomanip>
#include <sstream>

#include "LogCapture.h"
#include "ModuleIdentity.h"
#include "TemporaryDirectory.h"
#include "sal/CmdProcessor.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using EAction = WorkplacePlan::EAction;
using EStateKind = WorkplaceState::EKind;

class PlanCommandsTest : public testing::Test {
protected:
    PlanCommandsTest() { m_sut.registerCommands(); }

    std::string reply(const std::string& line) {
        m_reply.str("");
        m_processor.execute(line, m_reply);
        return m_reply.str();
    }

    LogCapture m_log;
    sal::CmdProcessor m_processor;
    std::ostringstream m_reply;
    std::vector<std::string> m_calls;
    WorkplacePlan m_plan;
    Applied m_applied;
    std::vector<HistoryEntry> m_history;
    std::optional<WorkplaceState> m_state;
    base::Table::Look m_look;
    int m_refusals = 0;
    PlanCommands m_sut{{.reply = [this]() -> std::ostream& { return m_reply; },
                        .who = [] { return "anna"; },
                        .plan = [this] { return m_plan; },
                        .apply =
                            [this](const auto& plan, const auto& who) {
                                m_calls.push_back("apply '" + plan + "' by " + who);
                                return m_applied;
                            },
                        .undo =
                            [this](unsigned number, const auto& who) {
                                m_calls.push_back("undo " + std::to_string(number) + " by " + who);
                                return m_applied;
                            },
                        .history = [this] { return m_history; },
                        .state =
                            [this](unsigned number, auto& error) {
                                m_calls.push_back("state " + std::to_string(number));
                                if (!m_state)
                                    error = "there is no state";
                                return m_state;
                            },
                        .look = [this] { return m_look; },
                        .refused = [this] { ++m_refusals; }}};
};

}  // namespace

TEST_F(PlanCommandsTest, PlanListsEachChangeAndHowToDoIt) {
    m_plan.id = "3-12345678";
    m_plan.findings = {{Finding::ESeverity::Warning, "w.xml", 7, "the ipAddress \"x\x1b\" is none"}};
    m_plan.changes = {{EAction::Rescan, "", "new.xml is new", "new.xml"},
                      {EAction::Remove, "B", "entry is gone"},
                      {EAction::Reload, "A", "module changed"},
                      {EAction::Load, "C", "entry is new"}};
    EXPECT_EQ(
        "warning: w.xml line 7: the ipAddress \"x\\x1b\" is none\nrescan: new.xml is new\nremove B: entry is "
        "gone\nreload A: module changed\nload C: entry is new\napply 3-12345678 does this\n",
        reply("plan"));
}

TEST_F(PlanCommandsTest, PlanWithoutChangesSaysSo) {
    EXPECT_EQ("no changes\n", reply("plan"));
    m_plan.changes = {{EAction::RestartHost, "", "all.xml has changed"}};
    EXPECT_EQ("restart-host: all.xml has changed\n", reply("plan"));
}

TEST_F(PlanCommandsTest, PlanOfARefusedFileSaysWhy) {
    m_plan.findings = {{Finding::ESeverity::Error, "w.xml", 7, "is wrong"}};
    m_plan.refusal = "w.xml line 7: is wrong";
    EXPECT_EQ("error: w.xml line 7: is wrong\nnothing can be applied: w.xml line 7: is wrong\n",
              reply("plan"));
}

TEST_F(PlanCommandsTest, ApplyTellsWhatBecameOfEachChange) {
    m_applied.changes = {{{EAction::Reload, "A", "module changed"}, true, {}},
                         {{EAction::Load, "B", "entry is new"}, false, "no adapter eth7"}};
    m_applied.history = 12;
    EXPECT_EQ(
        "reload A: module changed: done\nload B: entry is new: not done: no adapter eth7\n1 of 2 changes "
        "done; this "
        "is state 12\n",
        reply("apply 3-12345678"));
    m_applied = {};
    EXPECT_EQ("no changes\n", reply("apply"));
    EXPECT_THAT(m_calls, ElementsAre("apply '3-12345678' by anna", "apply '' by anna"));
}

TEST_F(PlanCommandsTest, RefusedApplyAndUndoSayWhy) {
    m_applied.refusal = "the files have changed";
    EXPECT_EQ("nothing is applied: the files have changed\n", reply("apply 1-2"));
    EXPECT_EQ("nothing is undone: the files have changed\n", reply("undo"));
}

TEST_F(PlanCommandsTest, WhatIsRefusedOrNotDoneWholeIsAFailure) {
    reply("diff");
    EXPECT_EQ(1, m_refusals);
    m_plan.refusal = "w.xml line 7: is wrong";
    reply("plan");
    EXPECT_EQ(2, m_refusals);
    m_applied.changes = {{{EAction::Load, "B", "entry is new"}, false, "no adapter eth7"}};
    reply("apply");
    EXPECT_EQ(3, m_refusals);
    m_applied.refusal = "the files have changed";
    reply("undo");
    EXPECT_EQ(4, m_refusals);
}

TEST_F(PlanCommandsTest, WhatIsDoneIsNoFailure) {
    m_applied.changes = {{{EAction::Load, "B", "entry is new"}, true, {}}};
    m_state.emplace();
    for (const char* pLine : {"plan", "apply", "undo", "history", "diff"})
        reply(pLine);
    EXPECT_EQ(0, m_refusals);
}

TEST_F(PlanCommandsTest, HistoryFitsTheTerminal) {
    m_history = {{.number = 1, .when = {}, .who = "start", .digest = "1", .outcome = std::string(60, 'x')}};
    m_look.width = 60;
    std::istringstream lines(reply("history"));
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 60u) << line;
    EXPECT_THAT(m_reply.str(), HasSubstr("x...  1\n"));
}

TEST_F(PlanCommandsTest, UndoTakesTheNumberOfAState) {
    m_applied.notes = {"/etc/w.xml is given back"};
    EXPECT_EQ("/etc/w.xml is given back\nno changes\n", reply("undo"));
    reply("undo 7");
    for (const char* line : {"undo x", "undo 0", "undo -1", "undo 7x", "diff x"})
        EXPECT_THAT(reply(line), StartsWith(std::string(line).substr(0, 4) + " [<number>]\n\t")) << line;
    EXPECT_THAT(m_calls, ElementsAre("undo 0 by anna", "undo 7 by anna"));
}

TEST_F(PlanCommandsTest, HistoryListsTheStates) {
    EXPECT_EQ("no state was kept\n", reply("history"));
    std::tm local{};
    std::istringstream("2026-11-22 12:13:14") >> std::get_time(&local, "%Y-%m-%d %H:%M:%S");
    local.tm_isdst = -1;
    const auto when = std::chrono::system_clock::from_time_t(std::mktime(&local));
    m_history = {
        {.number = 1, .when = when, .who = "start", .digest = "1234567890", .outcome = "3 of 3 drivers run"},
        {.number = 2, .when = when, .who = "signal", .digest = "a", .outcome = "no changes", .restores = 1}};
    EXPECT_EQ(
        "state  time                 by      outcome             files\n"
        "1      2026-11-22 12:13:14  start   3 of 3 drivers run  12345678\n"
        "2      2026-11-22 12:13:14  signal  no changes          those of state 1\n",
        reply("history"));
}

TEST_F(PlanCommandsTest, DiffTellsInWhichFilesAndLinesTheyDiffer) {
    const TemporaryDirectory directory;
    directory.write("w.xml", "one\ntwo\x1b\n");
    directory.write("w.xml.sig", "signature");
    directory.write("m.so", "module");
    EXPECT_EQ("there is no state\n", reply("diff 7"));
    m_state =
        WorkplaceState{{{EStateKind::Workplace, directory.path("w.xml"), {}, "one\nthree\n"},
                        {EStateKind::Signature, directory.path("w.xml.sig"), {}, "other"},
                        {EStateKind::Module, directory.path("m.so"),
                         ModuleIdentity::of(directory.path("m.so")).digest(), "module"},
                        {EStateKind::Module, directory.path("gone.so"), std::string(64, 'a'), std::nullopt}}};
    EXPECT_EQ(directory.path("w.xml") + " differs\n@@ line 1\n one\n-three\n+two\\x1b\n" +
                  directory.path("w.xml.sig") + " differs\n" + directory.path("gone.so") +
                  " is not there: No such file or directory\n",
              reply("diff"));
    m_state->files.pop_back();
    m_state->files[0].bytes = "one\ntwo\x1b\n";
    m_state->files[1].bytes = "signature";
    EXPECT_EQ("no difference\n", reply("diff"));
    EXPECT_THAT(m_calls, ElementsAre("state 7", "state 0", "state 0"));
}
