#include "WorkplaceChanges.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "TemporaryDirectory.h"
#include "XMLVerify.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using EAction = WorkplacePlan::EAction;

/// A workplace that does what it is told, and says it.
class WorkplaceChangesTest : public testing::Test {
protected:
    WorkplaceChangesTest() {
        XMLVerify::setTrustDirectory({});
        for (const char* module : {"axis.so", "panel.so"})
            m_directory.write(std::string("drivers/") + module, "module");
        m_directory.write(
            "drivers/all.xml",
            "<mfDriverModule><module_type name='axis.so' type='Axis' version='1.0'/><module_type "
            "name='panel.so' type='Panel' version='1.0'/></mfDriverModule>");
        configure(entry("A") + entry("B"));
        m_catalogue = DescriptorCatalogue({path("drivers")});
        const auto draft = WorkplacePlanner::look(std::make_shared<const WorkplaceSnapshot>(path("w.xml")),
                                                  m_catalogue, m_catalogue);
        m_sources = draft.sources;
        m_sut.readHistory();
        EXPECT_EQ(1u, m_sut.keep(draft, "start", "2 of 2 drivers run"));
    }

    static std::string entry(const std::string& id, const std::string& more = {}) {
        return "<mainframeDriver driverID='" + id +
               "' driverType='Axis' version='1.0' workingDirectory='data/" + id + "' interfaceType='queue' " +
               more + "/>\n";
    }
    void configure(const std::string& entries) {
        m_directory.write("w.xml",
                          "<workplaces>\n<workplace id='0'>\n" + entries + "</workplace>\n</workplaces>\n");
    }
    WorkplaceChanges make() {
        return WorkplaceChanges(
            {path("w.xml"), {path("drivers")}, false}, path("history"),
            {.isReady = [this] { return m_isReady; },
             .running =
                 [this] {
                     return WorkplacePlanner::Running{m_catalogue, m_sources,
                                                      [](const auto&) { return false; }};
                 },
             .hand =
                 [this](const auto&, const auto& leavingIDs, bool hasPanelEntry) {
                     std::string call = "hand";
                     for (const std::string& id : leavingIDs)
                         call += " without " + id;
                     m_done.push_back(call + (hasPanelEntry ? " with PANEL" : ""));
                     return m_handFault;
                 },
             .change =
                 [this](const auto& draft, const WorkplacePlan::Change& change) {
                     m_done.push_back(std::string(inWords(change.action)) + " " + change.driverID);
                     if (change.driverID == m_throws)
                         throw std::runtime_error("no memory");
                     if (m_faults.contains(change.driverID))
                         return m_faults.at(change.driverID);
                     if (change.action == EAction::Remove)
                         m_sources.erase(change.driverID);
                     else
                         m_sources[change.driverID] = draft.sources.at(change.driverID);
                     return std::string();
                 },
             .end = [this](const auto&) { m_done.emplace_back("end"); }});
    }
    std::string path(const std::string& name) const { return m_directory.path(name); }
    std::string file() const { return m_directory.read("w.xml"); }
    /// What was logged since the last question.
    std::string logged() {
        const std::string text = m_log.text();
        const std::string news = text.substr(m_read);
        m_read = text.size();
        return news;
    }

    TemporaryDirectory m_directory;
    LogCapture m_log;
    std::size_t m_read = 0;
    bool m_isReady = true;
    std::string m_handFault;
    std::map<std::string, std::string> m_faults;
    std::string m_throws = "nobody";
    std::vector<std::string> m_done;
    DescriptorCatalogue m_catalogue;
    std::map<std::string, DriverSource> m_sources;
    WorkplaceChanges m_sut = make();
};

}  // namespace

TEST_F(WorkplaceChangesTest, NothingChangedIsNothingDone) {
    const Applied applied = m_sut.apply({}, "console");
    EXPECT_EQ("", applied.refusal);
    EXPECT_EQ("no changes", applied.outcome());
    EXPECT_EQ(1u, applied.history);
    EXPECT_EQ(1u, m_sut.history().size());
    EXPECT_THAT(logged(), HasSubstr("info     HOST: apply by console: no changes\n"));
}

TEST_F(WorkplaceChangesTest, EachChangeIsDoneAndTold) {
    configure(entry("C") + entry("A", "ipAddress='192.0.2.7'"));
    const WorkplacePlan plan = m_sut.plan();
    const Applied applied = m_sut.apply(plan.id, "anna");
    EXPECT_EQ("", applied.refusal);
    EXPECT_THAT(m_done, ElementsAre("hand without B", "remove B", "load C", "reload A", "end"));
    EXPECT_EQ("3 of 3 changes done", applied.outcome());
    EXPECT_EQ(2u, applied.history);
    const std::string log = logged();
    EXPECT_THAT(log, HasSubstr("info     HOST: B: is removed by anna (entry is gone)\n"));
    EXPECT_THAT(log, HasSubstr("info     HOST: C: is started by anna (entry is new)\n"));
    EXPECT_THAT(log, HasSubstr("info     HOST: A: is reloaded by anna (entry changed (ipAddress))\n"));
    EXPECT_THAT(log, HasSubstr("info     HOST: apply by anna: 3 of 3 changes done\n"));
    ASSERT_EQ(2u, m_sut.history().size());
    EXPECT_EQ("anna", m_sut.history()[1].who);
    EXPECT_EQ("3 of 3 changes done", m_sut.history()[1].outcome);
    EXPECT_EQ("no changes", m_sut.apply({}, "anna").outcome());
}

TEST_F(WorkplaceChangesTest, FailureOfOneStopsNoOther) {
    configure(entry("C") + entry("D") + entry("A", "ipAddress='192.0.2.7'") + entry("B"));
    m_faults["C"] = "no adapter eth7";
    m_throws = "D";
    const Applied applied = m_sut.apply({}, "signal");
    EXPECT_EQ("1 of 3 changes done", applied.outcome());
    ASSERT_EQ(3u, applied.changes.size());
    EXPECT_EQ("no adapter eth7", applied.changes[0].reason);
    EXPECT_EQ("it was broken off: no memory", applied.changes[1].reason);
    EXPECT_TRUE(applied.changes[2].isDone);
    const std::string log = logged();
    EXPECT_THAT(log,
                HasSubstr("error    HOST: C: is not started by signal (entry is new): no adapter eth7\n"));
    EXPECT_THAT(log, HasSubstr("warning  HOST: apply by signal: 1 of 3 changes done\n"));
    EXPECT_EQ("1 of 3 changes done", m_sut.history().back().outcome);
}

TEST_F(WorkplaceChangesTest, ReloadOfThePanelHasAnEntryForIt) {
    m_directory.write("drivers/panel.so", "longer module");
    m_sut.apply({}, "console");
    EXPECT_THAT(m_done, ElementsAre("hand with PANEL", "reload PANEL", "end"));
}

TEST_F(WorkplaceChangesTest, OutdatedPlanIsRefused) {
    configure(entry("A"));
    const std::string id = m_sut.plan().id;
    configure(entry("B"));
    const Applied applied = m_sut.apply(id, "anna");
    EXPECT_EQ("the files have changed since plan " + id + ": " + path("w.xml") + " has changed",
              applied.refusal);
    EXPECT_THAT(m_done, IsEmpty());
    EXPECT_THAT(
        logged(),
        HasSubstr("error    HOST: apply by anna is refused, nothing is changed: " + applied.refusal + "\n"));
    EXPECT_EQ(1u, m_sut.history().size());
}

TEST_F(WorkplaceChangesTest, FileThatWouldBeRefusedIsNotApplied) {
    configure(entry("A") + entry("A"));
    EXPECT_THAT(m_sut.apply({}, "anna").refusal, HasSubstr("stands in line 3 already"));
    configure(entry("A"));
    m_handFault = "no descriptors";
    EXPECT_EQ("no descriptors", m_sut.apply({}, "anna").refusal);
    EXPECT_THAT(logged(), HasSubstr("HOST: apply by anna is refused, nothing is changed: no descriptors\n"));
    EXPECT_THAT(m_done, ElementsAre("hand without B"));
    EXPECT_EQ(1u, m_sut.history().size());
}

TEST_F(WorkplaceChangesTest, NothingIsDoneOnceTheModuleGoes) {
    configure(entry("A"));
    m_isReady = false;
    EXPECT_EQ("the host is stopping", m_sut.plan().refusal);
    EXPECT_EQ("the host is stopping", m_sut.apply({}, "anna").refusal);
    EXPECT_EQ("the host is stopping", m_sut.undo(1, "anna").refusal);
    EXPECT_THAT(m_done, IsEmpty());
}

TEST_F(WorkplaceChangesTest, DescriptorThatNeedsARestartIsToldAndNotDone) {
    m_directory.write("drivers/all.xml",
                      "<mfDriverModule><module_type name='panel.so' type='Axis' version='1.0'/><module_type "
                      "name='panel.so' type='Panel' version='1.0'/></mfDriverModule>");
    m_faults[""] = "only a restart of the host takes it over";
    EXPECT_EQ("0 of 1 change done", m_sut.apply({}, "anna").outcome());
    EXPECT_THAT(logged(),
                HasSubstr("warning  HOST: " + path("drivers/all.xml") +
                          " line 1: type \"Axis\" in version \"1.0\" has changed, which needs a restart "
                          "of the host\n"));
}

// Undo.

TEST_F(WorkplaceChangesTest, UndoGivesTheStateBeforeBack) {
    const std::string before = file();
    configure(entry("A"));
    m_sut.apply({}, "anna");
    m_done.clear();
    const Applied applied = m_sut.undo(0, "berta");
    EXPECT_EQ("", applied.refusal);
    EXPECT_EQ(before, file());
    EXPECT_THAT(m_done, ElementsAre("hand", "load B", "end"));
    EXPECT_THAT(applied.notes, ElementsAre(path("w.xml") + " is given back"));
    EXPECT_EQ(3u, applied.history);
    EXPECT_EQ(1u, m_sut.history().back().restores);
    EXPECT_EQ("berta", m_sut.history().back().who);
    const std::string log = logged();
    EXPECT_THAT(log, HasSubstr("info     HOST: undo by berta: " + path("w.xml") + " is given back\n"));
    EXPECT_THAT(log, HasSubstr("info     HOST: undo of state 1 by berta: 1 of 1 change done\n"));
}

TEST_F(WorkplaceChangesTest, UndoWalksBackAndANumberLeadsAnywhere) {
    const std::string first = file();
    configure(entry("A"));
    const std::string second = file();
    m_sut.apply({}, "anna");
    configure(entry("C"));
    const std::string third = file();
    m_sut.apply({}, "anna");
    m_sut.undo(0, "anna");
    EXPECT_EQ(second, file());
    m_sut.undo(0, "anna");
    EXPECT_EQ(first, file());
    EXPECT_EQ("there is no state before the present one, which is 5; undo 5 gives its files back",
              m_sut.undo(0, "anna").refusal);
    EXPECT_EQ("", m_sut.undo(3, "anna").refusal);
    EXPECT_EQ(third, file());
    EXPECT_EQ("there is no state 99; history lists them", m_sut.undo(99, "anna").refusal);
}

TEST_F(WorkplaceChangesTest, UpdateOfAModuleIsRolledBack) {
    m_directory.write("drivers/axis.so", "newer module");
    ASSERT_EQ("2 of 2 changes done", m_sut.apply({}, "anna").outcome());
    m_done.clear();
    const Applied applied = m_sut.undo(0, "anna");
    EXPECT_EQ("module", m_directory.read("drivers/axis.so"));
    EXPECT_THAT(applied.notes, ElementsAre(path("drivers/axis.so") + " is given back"));
    EXPECT_THAT(m_done, ElementsAre("hand", "reload A", "reload B", "end"));
}

TEST_F(WorkplaceChangesTest, EditsThatWereNotAppliedAreKept) {
    configure(entry("A"));
    m_sut.apply({}, "anna");
    configure(entry("A") + entry("EDITED"));
    const std::string edited = file();
    EXPECT_EQ("", m_sut.undo(0, "berta").refusal);
    ASSERT_EQ(4u, m_sut.history().size());
    const HistoryEntry& kept = m_sut.history()[2];
    EXPECT_FALSE(kept.isApplied);
    EXPECT_EQ("not applied, kept before an undo", kept.outcome);
    EXPECT_EQ("", m_sut.undo(3, "berta").refusal);
    EXPECT_EQ(edited, file());
}

TEST_F(WorkplaceChangesTest, RefusedStateLeavesTheFilesAsTheyWere) {
    configure(entry("A"));
    m_sut.apply({}, "anna");
    const std::string now = file();
    // Somebody has put another file into the first state.
    const std::string bad =
        "<workplaces><workplace id='0'>" + entry("X") + entry("X") + "</workplace></workplaces>";
    configure(entry("X") + entry("X"));
    WorkplaceHistory forged(path("history"));
    forged.read();
    std::string error;
    ASSERT_EQ(
        3u, forged.add({.who = "mallory"}, {{{WorkplaceState::EKind::Workplace, "/w.xml", {}, bad}}}, error));
    m_directory.write("w.xml", now);
    m_sut.readHistory();
    m_done.clear();
    const Applied applied = m_sut.undo(3, "anna");
    EXPECT_THAT(applied.refusal,
                HasSubstr("state 3 is refused: " + path("w.xml") + " line 2: the driver ID \"X\""));
    EXPECT_THAT(applied.refusal, HasSubstr("; the files are as they were"));
    EXPECT_EQ(now, file());
    EXPECT_THAT(m_done, IsEmpty());
}

TEST_F(WorkplaceChangesTest, DamagedStateIsRefused) {
    configure(entry("A"));
    m_sut.apply({}, "anna");
    const std::string now = file();
    for (const auto& kept : fs::directory_iterator(path("history/files")))
        fs::resize_file(kept.path(), 3);
    EXPECT_THAT(m_sut.undo(0, "anna").refusal, HasSubstr(" is damaged ("));
    EXPECT_EQ(now, file());
}

// What is kept.

TEST_F(WorkplaceChangesTest, ChangeOfTheFileThatChangesNoDriverIsAState) {
    m_directory.write("w.xml", file() + "\n");
    const Applied applied = m_sut.apply({}, "anna");
    EXPECT_EQ("no changes", applied.outcome());
    EXPECT_EQ(2u, applied.history);
}

TEST_F(WorkplaceChangesTest, StateOfTheNextStartIsKeptWhenItIsAnother) {
    const auto start = [&] {
        WorkplaceChanges next = make();
        next.readHistory();
        return next.keep(WorkplacePlanner::look(std::make_shared<const WorkplaceSnapshot>(path("w.xml")),
                                                m_catalogue, m_catalogue),
                         "start", "2 of 2 drivers run");
    };
    EXPECT_EQ(1u, start());
    configure(entry("A"));
    EXPECT_EQ(2u, start());
    EXPECT_EQ(2u, start());
    // There is nothing to come back to.
    m_directory.write("w.xml", "<workplaces");
    EXPECT_EQ(0u, start());
}

TEST_F(WorkplaceChangesTest, StateThatCannotBeKeptIsSaidAndAppliedAllTheSame) {
    fs::remove_all(path("history"));
    m_directory.write("history", "a file");
    configure(entry("A"));
    const Applied applied = m_sut.apply({}, "anna");
    EXPECT_EQ("1 of 1 change done", applied.outcome());
    EXPECT_EQ(0u, applied.history);
    EXPECT_THAT(logged(),
                HasSubstr("warning  HOST: this state of the workplace is not kept, and undo does not lead "
                          "back to it: " +
                          path("history") + " cannot be made: Not a directory\n"));
}

TEST_F(WorkplaceChangesTest, StateIsShown) {
    std::string error;
    const auto state = m_sut.historyState(0, error);
    ASSERT_TRUE(state) << error;
    EXPECT_EQ(file(), state->find(WorkplaceState::EKind::Workplace)->bytes);
    EXPECT_FALSE(m_sut.historyState(7, error));
    EXPECT_EQ("there is no state 7; history lists them", error);
}
