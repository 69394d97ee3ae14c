#include "WorkplaceHistory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"
#include "WithoutCapabilities.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using EStateKind = WorkplaceState::EKind;

class WorkplaceHistoryTest : public testing::Test {
protected:
    static WorkplaceState state(const std::string& workplace, const std::string& module = "module") {
        return {{{EStateKind::Workplace, "/etc/w x.xml", {}, workplace},
                 {EStateKind::Module, "/drivers/axis.so", std::string(64, 'a'), module}}};
    }
    /// The bytes of its workplace file, or why it cannot be had.
    static std::string bytes(const WorkplaceHistory& sut, unsigned number) {
        std::string error;
        const auto found = sut.state(number, error);
        return found ? *found->find(EStateKind::Workplace)->bytes : error;
    }
    unsigned add(WorkplaceHistory& sut, const std::string& workplace, unsigned restores = 0) {
        std::string error;
        const unsigned number = sut.add(
            {.who = "anna", .digest = "d", .outcome = "fine", .restores = restores}, state(workplace), error);
        EXPECT_EQ("", error);
        return number;
    }
    static std::vector<unsigned> numbers(const WorkplaceHistory& sut) {
        std::vector<unsigned> all;
        for (const HistoryEntry& entry : sut.entries())
            all.push_back(entry.number);
        return all;
    }
    /// What a host that is started now finds.
    WorkplaceHistory again() const {
        WorkplaceHistory sut(path());
        EXPECT_THAT(sut.read(), IsEmpty());
        return sut;
    }
    std::string path(const std::string& name = {}) const {
        return m_directory.path(name.empty() ? "history" : "history/" + name);
    }
    std::size_t fileCount() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(path("files")), {}));
    }

    TemporaryDirectory m_directory;
    WorkplaceHistory m_sut{path()};
};

}  // namespace

TEST_F(WorkplaceHistoryTest, WithoutADirectoryThereIsNone) {
    EXPECT_THAT(m_sut.read(), IsEmpty());
    EXPECT_THAT(m_sut.entries(), IsEmpty());
    EXPECT_EQ(nullptr, m_sut.present());
    EXPECT_EQ(nullptr, m_sut.beforePresent());
    EXPECT_FALSE(fs::exists(path()));
}

TEST_F(WorkplaceHistoryTest, StateIsFoundAgainByTheNextHost) {
    const auto when = std::chrono::system_clock::time_point(1'790'000'000'123ms);
    std::string error;
    EXPECT_EQ(1u, m_sut.add({.when = when,
                             .who = "anna\nroot",
                             .digest = "1234",
                             .outcome = "3 of 3 drivers run",
                             .isApplied = false},
                            state(std::string("one\0two", 7)), error));
    EXPECT_EQ(2u, add(m_sut, "two", 1));
    const WorkplaceHistory sut = again();
    ASSERT_EQ(2u, sut.entries().size());
    const HistoryEntry& first = sut.entries()[0];
    EXPECT_EQ(1u, first.number);
    EXPECT_EQ(when, first.when);
    EXPECT_EQ("anna\\nroot", first.who);
    EXPECT_EQ("1234", first.digest);
    EXPECT_EQ("3 of 3 drivers run", first.outcome);
    EXPECT_FALSE(first.isApplied);
    EXPECT_EQ(1u, sut.entries()[1].restores);
    EXPECT_TRUE(sut.entries()[1].isApplied);
    const auto found = sut.state(1, error);
    ASSERT_TRUE(found) << error;
    EXPECT_EQ(std::string("one\0two", 7), found->find(EStateKind::Workplace)->bytes);
    EXPECT_EQ("/etc/w x.xml", found->find(EStateKind::Workplace)->path);
    EXPECT_EQ("module", found->find(EStateKind::Module)->bytes);
    EXPECT_EQ(std::string(64, 'a'), found->find(EStateKind::Module)->identity);
    EXPECT_EQ(nullptr, found->find(EStateKind::Signature));
}

TEST_F(WorkplaceHistoryTest, TimeIsWrittenForPeople) {
    std::string error;
    m_sut.add({.when = std::chrono::system_clock::time_point(1'790'000'000'023ms), .who = "anna"},
              state("one"), error);
    EXPECT_THAT(m_directory.read("history/1"), HasSubstr("\ntime: 2026-09-21T14:13:20.023Z\nwho: anna\n"));
}

TEST_F(WorkplaceHistoryTest, FileThatWasTooLargeIsNamedWithoutItsBytes) {
    WorkplaceState large = state("one");
    large.files[1].bytes.reset();
    std::string error;
    ASSERT_EQ(1u, m_sut.add({}, large, error)) << error;
    const auto found = again().state(1, error);
    ASSERT_TRUE(found) << error;
    EXPECT_EQ(std::nullopt, found->find(EStateKind::Module)->bytes);
    EXPECT_EQ(std::string(64, 'a'), found->find(EStateKind::Module)->identity);
}

TEST_F(WorkplaceHistoryTest, SameBytesAreKeptOnce) {
    add(m_sut, "one");
    add(m_sut, "two");
    add(m_sut, "one");
    EXPECT_EQ(3u, fileCount());
}

TEST_F(WorkplaceHistoryTest, FiftyStatesAreKept) {
    for (int i = 1; i <= 53; ++i)
        add(m_sut, "state " + std::to_string(i));
    EXPECT_EQ(50u, m_sut.entries().size());
    EXPECT_EQ(4u, m_sut.entries().front().number);
    EXPECT_FALSE(fs::exists(path("3")));
    EXPECT_EQ(51u, fileCount());
    EXPECT_EQ("state 4", bytes(again(), 4));
    EXPECT_EQ("state 53", bytes(again(), 53));
    EXPECT_EQ(50u, again().entries().size());
}

TEST_F(WorkplaceHistoryTest, OldestStatesGiveWayWhereTheFilesTakeTooMuchRoom) {
    WorkplaceHistory sut(path(), {.states = 50, .bytes = 250});
    for (int i = 1; i <= 5; ++i)
        add(sut, std::string(100, static_cast<char>('0' + i)));
    EXPECT_THAT(numbers(sut), ElementsAre(4, 5));
    // The present state and the one before it stay, whatever their size.
    add(sut, std::string(1000, 'x'));
    EXPECT_THAT(numbers(sut), ElementsAre(5, 6));
    EXPECT_EQ(std::string(100, '5'), bytes(sut, 5));
}

TEST_F(WorkplaceHistoryTest, BytesThatWereGivenUpAreKeptAnew) {
    WorkplaceHistory sut(path(), {.states = 2, .bytes = 1000});
    for (const char* text : {"one", "two", "three", "one"})
        add(sut, text);
    EXPECT_EQ("one", bytes(sut, 4));
}

TEST_F(WorkplaceHistoryTest, PresentIsTheLastOneThatWasApplied) {
    add(m_sut, "one");
    add(m_sut, "two");
    std::string error;
    m_sut.add({.isApplied = false}, state("edited"), error);
    EXPECT_EQ(2u, m_sut.present()->number);
    EXPECT_EQ(1u, m_sut.beforePresent()->number);
}

TEST_F(WorkplaceHistoryTest, OneUndoAfterTheOtherGoesFurtherBack) {
    add(m_sut, "one");
    EXPECT_EQ(nullptr, m_sut.beforePresent());
    add(m_sut, "two");
    add(m_sut, "three");
    EXPECT_EQ(2u, m_sut.beforePresent()->number);
    add(m_sut, "two", 2);
    EXPECT_EQ(1u, m_sut.beforePresent()->number);
    add(m_sut, "one", 1);
    EXPECT_EQ(nullptr, m_sut.beforePresent());
    // What was applied after an undo comes after the state that it led to.
    add(m_sut, "six");
    ASSERT_EQ(5u, m_sut.beforePresent()->number);
    EXPECT_EQ(1u, m_sut.beforePresent()->state());
    EXPECT_EQ(6u, m_sut.find(6)->number);
    EXPECT_EQ(nullptr, m_sut.find(7));
}

TEST_F(WorkplaceHistoryTest, DamagedEntryIsToldAndLeftOut) {
    for (const char* text : {"one", "two", "three", "four", "five"})
        add(m_sut, text);
    m_directory.write("history/1", "nonsense");
    const std::string whole = m_directory.read("history/2");
    m_directory.write("history/2", whole.substr(0, whole.size() - 2));
    fs::remove(path("3"));
    fs::create_directory(path("3"));
    m_directory.write("history/4", "time: yesterday\nend\n");
    m_directory.write("history/0", "");
    m_directory.write("history/007", "");
    m_directory.write("history/4294967297", "");
    m_directory.write("history/notes.txt", "mine");
    WorkplaceHistory sut(path());
    EXPECT_THAT(sut.read(), ElementsAre(path("1") + " is left out: it is not whole",
                                        path("2") + " is left out: it is not whole",
                                        path("3") + " is left out: not a regular file",
                                        path("4") + " is left out: line 1 cannot be read"));
    EXPECT_THAT(numbers(sut), ElementsAre(5));
    // And nothing of the operator's is taken away.
    add(sut, "six");
    EXPECT_EQ("mine", m_directory.read("history/notes.txt"));
}

TEST_F(WorkplaceHistoryTest, NumberOfADamagedEntryIsNotGivenAgain) {
    add(m_sut, "one");
    m_directory.write("history/2", "nonsense");
    EXPECT_EQ(3u, add(m_sut, "three"));
    EXPECT_EQ("nonsense", m_directory.read("history/2"));
}

TEST_F(WorkplaceHistoryTest, DamagedBytesAreNotGivenBack) {
    add(m_sut, "one");
    const std::string digest = m_directory.read("history/1");
    const auto at = digest.find("workplace: ") + 11;
    const std::string file = path("files/" + digest.substr(at, 64));
    ASSERT_TRUE(fs::exists(file));
    fs::resize_file(file, 2);
    EXPECT_EQ("what was kept of /etc/w x.xml is damaged (" + file + ")", bytes(m_sut, 1));
    fs::remove(file);
    EXPECT_EQ("what was kept of /etc/w x.xml is gone: No such file or directory (" + file + ")",
              bytes(m_sut, 1));
    EXPECT_EQ(path("9") + " cannot be used: No such file or directory", bytes(m_sut, 9));
}

TEST_F(WorkplaceHistoryTest, DamagedBytesAreReplacedWhenTheyAreKeptAgain) {
    add(m_sut, "one");
    for (const auto& file : fs::directory_iterator(path("files")))
        fs::resize_file(file.path(), 0);
    WorkplaceHistory sut = again();
    add(sut, "one");
    EXPECT_EQ("one", bytes(sut, 2));
}

TEST_F(WorkplaceHistoryTest, NameThatLeadsElsewhereIsNoDigest) {
    add(m_sut, "one");
    m_directory.write("history/2",
                      "time: 2026-09-21T14:13:20.023Z\nworkplace: ../../secret - /etc/w.xml\nend\n");
    WorkplaceHistory sut(path());
    EXPECT_THAT(sut.read(), ElementsAre(path("2") + " is left out: line 2 cannot be read"));
}

TEST_F(WorkplaceHistoryTest, WhatCannotBeWrittenIsSaid) {
    m_directory.write("history", "a file");
    std::string error;
    EXPECT_EQ(0u, m_sut.add({}, state("one"), error));
    EXPECT_EQ(path() + " cannot be made: Not a directory", error);
    fs::remove(path());
    add(m_sut, "one");
    ::chmod(path().c_str(), 0500);
    {
        const WithoutCapabilities withoutRights({CAP_DAC_OVERRIDE});
        ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
        EXPECT_EQ(0u, m_sut.add({}, state("one"), error));
        EXPECT_EQ(path("2") + " cannot be written: Permission denied", error);
    }
    ::chmod(path().c_str(), 0700);
    EXPECT_THAT(numbers(m_sut), ElementsAre(1));
}

TEST_F(WorkplaceHistoryTest, DirectoryThatCannotBeReadIsToldAndTheHostGoesOn) {
    add(m_sut, "one");
    ::chmod(path().c_str(), 0);
    {
        const WithoutCapabilities withoutRights({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
        ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
        WorkplaceHistory sut(path());
        EXPECT_THAT(
            sut.read(),
            ElementsAre(path() + " cannot be read: Permission denied; what was applied before is not known"));
    }
    ::chmod(path().c_str(), 0700);
}

TEST_F(WorkplaceHistoryTest, EntryThatIsCutAnywhereDoesNoHarm) {
    add(m_sut, "one");
    const std::string whole = m_directory.read("history/1");
    for (std::size_t size = 0; size < whole.size(); ++size) {
        m_directory.write("history/1", whole.substr(0, size));
        WorkplaceHistory sut(path());
        EXPECT_EQ(size < whole.size() - 1 ? 1u : 0u, sut.read().size()) << size;
    }
}
