#include "WorkplaceRestoring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "TemporaryDirectory.h"
#include "XMLVerify.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using EStateKind = WorkplaceState::EKind;

class WorkplaceRestoringTest : public testing::Test {
protected:
    WorkplaceRestoringTest() {
        XMLVerify::setTrustDirectory({});
        m_directory.write("drivers/axis.so", "axis");
        m_directory.write("drivers/belt.so", "belt");
        m_directory.write(
            "drivers/axis.xml",
            "<mfDriverModule><module_type name='axis.so' type='Axis' version='1.0'/></mfDriverModule>");
        m_directory.write(
            "drivers/belt.xml",
            "<mfDriverModule><module_type name='belt.so' type='Belt' version='1.0'/></mfDriverModule>");
        m_directory.write(
            "w.xml",
            "<workplaces><workplace id='0'><mainframeDriver driverID='A' driverType='Axis' version='1.0' "
            "workingDirectory='data/A' interfaceType='queue'/></workplace></workplaces>");
        m_directory.write("w.xml.sig", std::string(64, 's'));
        m_directory.write("w.xml.sig.info", "info");
    }

    WorkplaceState stateNow() const {
        const DescriptorCatalogue catalogue({path("drivers")});
        return stateOf(WorkplacePlanner::look(std::make_shared<const WorkplaceSnapshot>(path("w.xml")),
                                              catalogue, catalogue));
    }
    /// The names of the files that are written; of those that are to go with a "-" before.
    std::vector<std::string> changed(const WorkplaceState& state, bool isSignatureRequired = false) {
        std::string error;
        m_notes.clear();
        m_changes =
            changesBackTo(state, {path("w.xml"), {path("drivers")}, isSignatureRequired}, m_notes, error);
        EXPECT_EQ("", error);
        std::vector<std::string> names;
        for (const auto& change : m_changes)
            names.push_back((change.bytes ? "" : "-") + fs::path(change.path).filename().string());
        return names;
    }
    std::string path(const std::string& name) const { return m_directory.path(name); }

    TemporaryDirectory m_directory;
    std::vector<std::string> m_notes;
    std::vector<FileExchange::Change> m_changes;
};

}  // namespace

TEST_F(WorkplaceRestoringTest, StateHasTheFilesOfTheDriversThatAreConfigured) {
    const WorkplaceState state = stateNow();
    std::vector<std::string> names;
    for (const auto& file : state.files)
        names.push_back(fs::path(file.path).filename());
    EXPECT_THAT(names, UnorderedElementsAre("w.xml", "w.xml.sig", "w.xml.sig.info", "axis.so", "axis.xml"));
    EXPECT_EQ(m_directory.read("w.xml"), state.find(EStateKind::Workplace)->bytes);
    EXPECT_EQ(std::string(64, 's'), state.find(EStateKind::Signature)->bytes);
    EXPECT_EQ("info", state.find(EStateKind::SigningRecord)->bytes);
    EXPECT_EQ("axis", state.find(EStateKind::Module)->bytes);
    EXPECT_EQ(ModuleIdentity::of(path("drivers/axis.so")).digest(), state.find(EStateKind::Module)->identity);
}

TEST_F(WorkplaceRestoringTest, WhatIsAsItWasIsNotWritten) {
    EXPECT_THAT(changed(stateNow()), IsEmpty());
    EXPECT_THAT(m_notes, IsEmpty());
}

TEST_F(WorkplaceRestoringTest, EachChangedFileIsGivenBackTheWorkplaceFileLast) {
    const WorkplaceState state = stateNow();
    for (const char* name : {"w.xml", "w.xml.sig", "w.xml.sig.info", "drivers/axis.so", "drivers/axis.xml"})
        m_directory.write(name, "other");
    const std::vector<std::string> names = changed(state);
    EXPECT_THAT(names, UnorderedElementsAre("axis.so", "axis.xml", "w.xml.sig.info", "w.xml.sig", "w.xml"));
    EXPECT_EQ("w.xml", names.back());
    for (const auto& file : state.files)
        EXPECT_TRUE(std::any_of(m_changes.begin(), m_changes.end(), [&](const auto& change) {
            return change.path == file.path && change.bytes == file.bytes;
        })) << file.path;
    EXPECT_THAT(m_notes, IsEmpty());
}

TEST_F(WorkplaceRestoringTest, SignatureOfALaterFileGoes) {
    fs::remove(path("w.xml.sig"));
    fs::remove(path("w.xml.sig.info"));
    const WorkplaceState state = stateNow();
    m_directory.write("w.xml.sig", std::string(64, 't'));
    m_directory.write("w.xml.sig.info", "info");
    EXPECT_THAT(changed(state), ElementsAre("-w.xml.sig.info", "-w.xml.sig"));
}

TEST_F(WorkplaceRestoringTest, FileThatALinkLeadsToIsWrittenItself) {
    const WorkplaceState state = stateNow();
    m_directory.write("real.xml", "other");
    fs::remove(path("w.xml"));
    fs::create_symlink("real.xml", path("w.xml"));
    EXPECT_THAT(changed(state), ElementsAre("real.xml"));
}

// What is kept was written by nobody knows whom.

TEST_F(WorkplaceRestoringTest, PathOfTheStateDecidesNothingAboutTheWorkplaceFile) {
    WorkplaceState state = stateNow();
    state.files[0].path = path("elsewhere.xml");
    state.files[0].bytes = "given back";
    EXPECT_THAT(changed(state), ElementsAre("w.xml"));
    EXPECT_EQ(path("w.xml"), m_changes[0].path);
}

TEST_F(WorkplaceRestoringTest, OnlyWhatLiesInADriverDirectoryIsGivenBack) {
    WorkplaceState state = stateNow();
    for (const char* name : {"secret", "drivers/../secret", "drivers/sub/secret", "driversecret"})
        state.files.push_back({EStateKind::Module, path(name), std::string(64, 'a'), "forged"});
    EXPECT_THAT(changed(state), IsEmpty());
    ASSERT_EQ(4u, m_notes.size());
    EXPECT_EQ(path("secret") +
                  " is another one now and is not given back: it lies in none of the driver directories",
              m_notes[0]);
}

TEST_F(WorkplaceRestoringTest, ModulesAreNotGivenBackWhereSignaturesAreRequired) {
    const WorkplaceState state = stateNow();
    m_directory.write("w.xml", "other");
    m_directory.write("drivers/axis.so", "other");
    EXPECT_THAT(changed(state, true), ElementsAre("w.xml"));
    EXPECT_THAT(m_notes,
                ElementsAre(path("drivers/axis.so") +
                            " is another one now and is not given back: nothing vouches for what was kept "
                            "of it, and --require-signature asks for that"));
}

TEST_F(WorkplaceRestoringTest, LinkToAModuleIsNotReplaced) {
    const WorkplaceState state = stateNow();
    m_directory.write("other.so", "other");
    fs::remove(path("drivers/axis.so"));
    fs::create_symlink(path("other.so"), path("drivers/axis.so"));
    EXPECT_THAT(changed(state), IsEmpty());
    EXPECT_THAT(m_notes, ElementsAre(path("drivers/axis.so") +
                                     " is another one now and is not given back: it is a link"));
}

TEST_F(WorkplaceRestoringTest, ModuleThatWasTooLargeIsTold) {
    WorkplaceState state = stateNow();
    for (auto& file : state.files)
        if (file.kind == EStateKind::Module)
            file.bytes.reset();
    EXPECT_THAT(changed(state), IsEmpty());
    EXPECT_THAT(m_notes, IsEmpty());
    m_directory.write("drivers/axis.so", "other");
    EXPECT_THAT(changed(state), IsEmpty());
    EXPECT_THAT(m_notes,
                ElementsAre(path("drivers/axis.so") +
                            " is another one now and is not given back: it was too large to be kept"));
}

TEST_F(WorkplaceRestoringTest, StateWithoutAWorkplaceFileIsNone) {
    WorkplaceState state = stateNow();
    state.files.erase(state.files.begin());
    std::string error;
    EXPECT_THAT(changesBackTo(state, {path("w.xml"), {path("drivers")}, false}, m_notes, error), IsEmpty());
    EXPECT_EQ("the state has no workplace file", error);
}

TEST_F(WorkplaceRestoringTest, ToBeShownAStateIsKeptToTheWorkplacesOwnFiles) {
    WorkplaceState state = stateNow();
    state.files[0].path = "/etc/passwd";
    state.files.push_back({EStateKind::Descriptor, "/etc/passwd", {}, "forged"});
    keepToOwnFiles(state, {path("w.xml"), {path("drivers")}, false});
    EXPECT_EQ(path("w.xml"), state.files[0].path);
    for (const auto& file : state.files)
        EXPECT_NE("/etc/passwd", file.path);
    EXPECT_EQ(5u, state.files.size());
}
