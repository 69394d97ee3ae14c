#include "WorkplacePlanner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "FileWatch.h"
#include "TemporaryDirectory.h"
#include "XMLVerify.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using EAction = WorkplacePlan::EAction;
using Change = WorkplacePlan::Change;

class WorkplacePlannerTest : public testing::Test {
protected:
    WorkplacePlannerTest() {
        XMLVerify::setTrustDirectory({});
        for (const char* module : {"axis.so", "belt.so", "panel.so"})
            m_directory.write(std::string("drivers/") + module, "module");
        describe("all.xml", type("Axis", "axis.so") + type("Belt", "belt.so") + type("Panel", "panel.so"));
        configure(entry("A") + entry("B", "Belt") + entry("C"));
        run();
    }

    static std::string type(const std::string& type, const std::string& module,
                            const std::string& version = "1.0") {
        return "<module_type name='" + module + "' type='" + type + "' version='" + version + "'/>\n";
    }
    void describe(const std::string& file, const std::string& types) {
        m_directory.write("drivers/" + file, "<mfDriverModule>\n" + types + "</mfDriverModule>");
    }
    static std::string entry(const std::string& id, const std::string& type = "Axis",
                             const std::string& more = {}) {
        return "<mainframeDriver driverID='" + id + "' driverType='" + type +
               "' version='1.0' workingDirectory='data/" + id + "' interfaceType='queue' " + more + "/>\n";
    }
    void configure(const std::string& entries) {
        m_directory.write("w.xml",
                          "<workplaces>\n<workplace id='0'>\n" + entries + "</workplace>\n</workplaces>\n");
    }
    /// From now on this runs.
    void run() {
        m_catalogue = DescriptorCatalogue({path("drivers")});
        m_sources =
            m_sut.look(std::make_shared<const WorkplaceSnapshot>(path("w.xml")), m_catalogue, m_catalogue)
                .sources;
    }
    WorkplacePlanner::Draft draft() {
        return m_sut.draft(
            {m_catalogue, m_sources, [this](const auto& id) { return m_parked.contains(id); }});
    }
    WorkplacePlan plan() {
        auto made = draft();
        m_sut.keep(made);
        return made.plan;
    }
    std::string path(const std::string& name) const { return m_directory.path(name); }

    TemporaryDirectory m_directory;
    WorkplacePlanner m_sut{{path("w.xml"), {path("drivers")}, false}};
    DescriptorCatalogue m_catalogue;
    std::map<std::string, DriverSource> m_sources;
    std::set<std::string> m_parked;
};

}  // namespace

TEST_F(WorkplacePlannerTest, WhatRunsAsTheFilesSayIsNotChanged) {
    const WorkplacePlan sut = plan();
    EXPECT_EQ("", sut.refusal);
    EXPECT_THAT(sut.changes, IsEmpty());
    EXPECT_TRUE(sut.isEmpty());
}

TEST_F(WorkplacePlannerTest, ChangesAreInTheOrderInWhichTheyAreDone) {
    describe("new.xml", type("Cart", "axis.so"));
    m_directory.write("drivers/panel.so", "longer module");
    configure(entry("C", "Axis", "ipAddress='192.0.2.7'") + entry("D", "Cart") + entry("A", "Belt"));
    EXPECT_THAT(plan().changes, ElementsAre(Change{EAction::Rescan, "", path("drivers/new.xml") + " is new",
                                                   path("drivers/new.xml")},
                                            Change{EAction::Remove, "B", "entry is gone"},
                                            Change{EAction::Reload, "PANEL", "module changed"},
                                            Change{EAction::Reload, "C", "entry changed (ipAddress)"},
                                            Change{EAction::Load, "D", "entry is new"},
                                            Change{EAction::Reload, "A", "entry changed (driverType)"}));
}

TEST_F(WorkplacePlannerTest, ChangedModuleReloadsEachOfItsDrivers) {
    m_directory.write("drivers/axis.so", "longer module");
    EXPECT_THAT(plan().changes, ElementsAre(Change{EAction::Reload, "A", "module changed"},
                                            Change{EAction::Reload, "C", "module changed"}));
    std::filesystem::remove(path("drivers/axis.so"));
    EXPECT_THAT(plan().changes, ElementsAre(Change{EAction::Reload, "A", "module is missing"},
                                            Change{EAction::Reload, "C", "module is missing"}));
}

TEST_F(WorkplacePlannerTest, WorkplaceOfAnEntryCounts) {
    m_directory.write("w.xml", "<workplaces>\n<workplace id='1'>\n" + entry("A") +
                                   "</workplace><workplace id='0'>" + entry("B", "Belt") + entry("C") +
                                   "</workplace>\n</workplaces>\n");
    EXPECT_THAT(plan().changes, ElementsAre(Change{EAction::Reload, "A", "entry changed (workplace)"}));
}

TEST_F(WorkplacePlannerTest, OrderAndCommentsOfTheFileAreNoChange) {
    configure(entry("C") + entry("A") + entry("B", "Belt"));
    EXPECT_THAT(plan().changes, IsEmpty());
}

TEST_F(WorkplacePlannerTest, ParkedDriverStaysParked) {
    m_parked = {"A", "B"};
    configure(entry("A", "Belt") + entry("C"));
    EXPECT_THAT(plan().changes, IsEmpty());
}

TEST_F(WorkplacePlannerTest, ChangedDescriptorOfAKnownTypeNeedsARestart) {
    describe("all.xml", type("Axis", "belt.so") + type("Belt", "belt.so") + type("Panel", "panel.so"));
    EXPECT_THAT(
        plan().changes,
        ElementsAre(Change{EAction::RestartHost, "",
                           path("drivers/all.xml") + " line 2: type \"Axis\" in version \"1.0\" has changed, "
                                                     "which needs a restart of the host"}));
    EXPECT_TRUE(plan().isEmpty());
}

TEST_F(WorkplacePlannerTest, NewDescriptorsErrorRefusesAll) {
    describe("new.xml", type("Cart", "axis.so") + type("Cart", "belt.so"));
    configure(entry("A") + entry("D", "Cart"));
    const WorkplacePlan sut = plan();
    EXPECT_THAT(sut.refusal, HasSubstr("new.xml line 3: type \"Cart\" in version \"1.0\" is announced in "));
    EXPECT_THAT(sut.changes, IsEmpty());
}

TEST_F(WorkplacePlannerTest, FileThatWouldBeRefusedIsRefused) {
    configure(entry("A") + entry("A"));
    EXPECT_THAT(plan().refusal, HasSubstr("the driver ID \"A\" stands in line 3 already"));
    configure(entry("A") + entry("PANEL", "Panel"));
    EXPECT_THAT(plan().refusal,
                HasSubstr("the panel driver is started without an entry and would run twice"));
    m_directory.write("w.xml", "<workplaces>\n<workplace id='0'>\n" + entry("A") + "<!-- cut -->");
    EXPECT_THAT(plan().refusal, HasSubstr(path("w.xml") + " line "));
    std::filesystem::remove(path("w.xml"));
    EXPECT_THAT(plan().refusal, HasSubstr(path("w.xml") + " cannot be read: No such file or directory"));
    EXPECT_THAT(plan().changes, IsEmpty());
}

TEST_F(WorkplacePlannerTest, EntryThatHoldsUpAReloadRefusesAll) {
    const std::string spinning =
        "<mainframeDriver driverType='Axis' driverID='X' version='1.0' workingDirectory='data/X' "
        "interfaceType='queue'/>\n";
    configure(entry("A") + entry("B", "Belt") + entry("C") + spinning);
    run();
    EXPECT_EQ("", plan().refusal);
    configure(entry("A", "Belt") + entry("B", "Belt") + entry("C") + spinning);
    EXPECT_EQ("", plan().refusal);
    configure(spinning + entry("A", "Axis") + entry("B", "Belt") + entry("C"));
    EXPECT_EQ("", plan().refusal);
    configure(spinning + entry("A", "Belt") + entry("B", "Belt") + entry("C"));
    EXPECT_EQ(path("w.xml") +
                  " line 3: driverID must be the first attribute of a mainframeDriver that can be reloaded",
              plan().refusal);
    EXPECT_THAT(plan().changes, IsEmpty());
}

TEST_F(WorkplacePlannerTest, RequiredSignatureIsAskedFor) {
    WorkplacePlanner sut({path("w.xml"), {path("drivers")}, true});
    const auto made = sut.draft({m_catalogue, m_sources, [](const auto&) { return false; }});
    EXPECT_THAT(made.plan.refusal,
                HasSubstr("w.xml is not signed by a trusted key, and --require-signature"));
}

TEST_F(WorkplacePlannerTest, WithoutAConfigurationThereIsNothingToApply) {
    WorkplacePlanner sut({{}, {path("drivers")}, false});
    EXPECT_EQ("there is no configuration",
              sut.draft({m_catalogue, m_sources, [](const auto&) { return false; }}).plan.refusal);
}

TEST_F(WorkplacePlannerTest, FileIsReadOnce) {
    m_directory.write("w.xml.sig", std::string(64, 's'));
    FileWatch watch(m_directory.path());
    plan();
    EXPECT_EQ(1, watch.opened("w.xml"));
    EXPECT_EQ(1, watch.opened("w.xml.sig"));
}

TEST_F(WorkplacePlannerTest, WarningsOfTheCheckAreFindings) {
    configure(entry("A") + entry("B", "Belt") + entry("C") + entry("D", "Cart"));
    m_directory.write("drivers/broken.xml", "<mfDriverModule>");
    const WorkplacePlan sut = plan();
    EXPECT_EQ("", sut.refusal);
    ASSERT_EQ(2u, sut.findings.size());
    EXPECT_THAT(sut.findings[0].inWords(), HasSubstr("no descriptor announces the driver type \"Cart\""));
    EXPECT_THAT(sut.findings[1].inWords(), HasSubstr("broken.xml"));
}

// IDs and digests.

TEST_F(WorkplacePlannerTest, DigestIsThatOfTheFiles) {
    const std::string before = plan().digest;
    EXPECT_EQ(64u, before.size());
    EXPECT_EQ(before, plan().digest);
    m_directory.write("drivers/axis.so", "longer module");
    const std::string changed = plan().digest;
    EXPECT_NE(before, changed);
    m_directory.write("w.xml.sig", std::string(64, 's'));
    EXPECT_NE(changed, plan().digest);
}

TEST_F(WorkplacePlannerTest, PlanOfTheSameFilesMayBeApplied) {
    const WorkplacePlan first = plan();
    const WorkplacePlan second = plan();
    EXPECT_NE(first.id, second.id);
    EXPECT_EQ("1-" + first.digest.substr(0, 8), first.id);
    EXPECT_EQ("", m_sut.outdated(first.id, draft()));
    EXPECT_EQ("", m_sut.outdated(second.id, draft()));
}

TEST_F(WorkplacePlannerTest, WhatChangedSinceThePlanIsNamed) {
    const std::string id = plan().id;
    configure(entry("A"));
    m_directory.write("drivers/axis.so", "longer module");
    describe("new.xml", type("Cart", "axis.so"));
    m_directory.write("w.xml.sig", std::string(64, 's'));
    EXPECT_EQ("the files have changed since plan " + id + ": " + path("drivers/axis.so") + " has changed, " +
                  path("drivers/belt.so") + " is gone, " + path("drivers/new.xml") + " is new, " +
                  path("w.xml") + " has changed, " + path("w.xml.sig") + " is new",
              m_sut.outdated(id, draft()));
}

TEST_F(WorkplacePlannerTest, UnknownPlanIsRefused) {
    EXPECT_EQ("there is no plan 7; make one with plan", m_sut.outdated("7", draft()));
    const std::string id = plan().id;
    EXPECT_EQ("there is no plan 7; the last one is " + id, m_sut.outdated("7", draft()));
    for (int i = 0; i < 20; ++i)
        plan();
    EXPECT_THAT(m_sut.outdated(id, draft()), HasSubstr("there is no plan " + id + "; the last one is 21-"));
}
