#include "mfd/Settings.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "ForkedProcess.h"
#include "PrivateMachine.h"
#include "Rounds.h"
#include "TemporaryDirectory.h"

namespace {

using mfd::Settings;

class SettingsTest : public testing::Test {
protected:
    std::string path() const { return files.path("settings.txt"); }

    TemporaryDirectory files;
};

TEST_F(SettingsTest, HasNoValuesWhereThereIsNoFile) {
    Settings sut;
    EXPECT_EQ(sut.load(files.path()), "");
    EXPECT_TRUE(sut.values().empty());
    EXPECT_EQ(sut.integer("brightness", 50), 50);
    EXPECT_FALSE(files.contains("settings.txt"));
}

TEST_F(SettingsTest, ValuesAreThereAfterARestart) {
    {
        Settings sut;
        ASSERT_EQ(sut.load(files.path()), "");
        sut.set("brightness", 40);
        sut.set("speed", 0.1);
        sut.set("lit", true);
        sut.set("name", "main\\hall\nleft = right");
        sut.set("a\\b", "x");
        sut.set("gone", "x");
        sut.remove("gone");
        ASSERT_EQ(sut.save(), "");
    }
    Settings sut;
    ASSERT_EQ(sut.load(files.path()), "");
    EXPECT_EQ(sut.values().size(), 5u);
    EXPECT_EQ(sut.integer("brightness"), 40);
    EXPECT_EQ(sut.number("speed"), 0.1);
    EXPECT_TRUE(sut.boolean("lit"));
    EXPECT_EQ(sut.text("name"), "main\\hall\nleft = right");
    EXPECT_EQ(sut.text("a\\b"), "x");
}

TEST_F(SettingsTest, FileIsTextThatPeopleCanRead) {
    Settings sut(3);
    ASSERT_EQ(sut.load(files.path()), "");
    sut.set("b", 2);
    sut.set("a", "x\ny");
    ASSERT_EQ(sut.save(), "");
    EXPECT_EQ(files.read("settings.txt"), "mfd-settings 3\na=x\\ny\nb=2\nend\n");
    EXPECT_FALSE(files.contains("settings.txt.part"));
}

TEST_F(SettingsTest, ValueOfAnotherTypeIsTheFallback) {
    Settings sut;
    sut.set("name", "hall");
    EXPECT_EQ(sut.integer("name", 7), 7);
    EXPECT_EQ(sut.number("name", 0.5), 0.5);
    EXPECT_TRUE(sut.boolean("name", true));
    EXPECT_FALSE(sut.boolean("name"));
}

TEST_F(SettingsTest, FormerVersionIsMigratedAndWritten) {
    files.write("settings.txt", "mfd-settings 1\nbright=40\nend\n");
    Settings sut(3, [](int from, Settings::Values& values) {
        EXPECT_EQ(from, 1);
        values["brightness"] = values["bright"];
        values.erase("bright");
    });
    EXPECT_EQ(sut.load(files.path()), "");
    EXPECT_EQ(sut.integer("brightness"), 40);
    EXPECT_EQ(files.read("settings.txt"), "mfd-settings 3\nbrightness=40\nend\n");
}

TEST_F(SettingsTest, SameVersionIsNotMigrated) {
    files.write("settings.txt", "mfd-settings 2\na=1\nend\n");
    Settings sut(2, [](int, Settings::Values& values) { values.clear(); });
    EXPECT_EQ(sut.load(files.path()), "");
    EXPECT_EQ(sut.integer("a"), 1);
}

TEST_F(SettingsTest, FileThatCannotBeMigratedIsSetAside) {
    files.write("settings.txt", "mfd-settings 1\nbright=x\nend\n");
    Settings sut(2, [](int, Settings::Values&) { throw std::runtime_error("bright is no number"); });
    EXPECT_EQ(sut.load(files.path()),
              path() +
                  ": what is of version 1 does not become version 2: bright is no number; it is kept as "
                  "settings.txt.broken, and nothing is remembered");
    EXPECT_TRUE(sut.values().empty());
}

TEST_F(SettingsTest, LaterVersionIsSetAside) {
    files.write("settings.txt", "mfd-settings 3\na=1\nend\n");
    Settings sut(2);
    EXPECT_EQ(sut.load(files.path()),
              path() +
                  ": it is of version 3, this driver's is 2; it is kept as settings.txt.version3, and "
                  "nothing is remembered");
    EXPECT_EQ(files.read("settings.txt.version3"), "mfd-settings 3\na=1\nend\n");
    EXPECT_FALSE(files.contains("settings.txt"));
}

struct Broken {
    const char* name;
    const char* bytes;
    const char* fault;
};

class SettingsBroken : public SettingsTest, public testing::WithParamInterface<Broken> {};

TEST_P(SettingsBroken, FileIsSetAsideWithALine) {
    files.write("settings.txt", GetParam().bytes);
    Settings sut;
    EXPECT_EQ(sut.load(files.path()), path() + ": " + GetParam().fault +
                                          "; it is kept as settings.txt.broken, and nothing is remembered");
    EXPECT_TRUE(sut.values().empty());
    EXPECT_EQ(files.read("settings.txt.broken"), GetParam().bytes);
    sut.set("a", 2);
    EXPECT_EQ(sut.save(), "");
    EXPECT_EQ(files.read("settings.txt"), "mfd-settings 1\na=2\nend\n");
}

INSTANTIATE_TEST_SUITE_P(
    Settings, SettingsBroken,
    testing::Values(Broken{"Empty", "", "line 1: \"\" is not \"mfd-settings\" and a version"},
                    Broken{"Foreign", "<xml/>\n", "line 1: \"<xml/>\" is not \"mfd-settings\" and a version"},
                    Broken{"NoVersion", "mfd-settings 0\nend\n",
                           "line 1: \"mfd-settings 0\" is not \"mfd-settings\" and a version"},
                    Broken{"NoPair", "mfd-settings 1\na=1\nabc\nend\n", "line 3: \"abc\" is not NAME=VALUE"},
                    Broken{"NoName", "mfd-settings 1\n=1\nend\n", "line 2: \"=1\" is not NAME=VALUE"},
                    Broken{"CutOff", "mfd-settings 1\na=1\n", "its last line is not \"end\": it is cut off"}),
    [](const auto& broken) { return std::string(broken.param.name); });

TEST_F(SettingsTest, FileThatCannotBeReadStaysAndIsNotWritten) {
    ASSERT_EQ(::mkdir(path().c_str(), 0700), 0);
    Settings sut;
    EXPECT_EQ(sut.load(files.path()),
              path() + " cannot be read: not a regular file; nothing is remembered, and it is not written");
    sut.set("a", 1);
    EXPECT_EQ(sut.save(), "settings not saved: they were not loaded");
}

TEST_F(SettingsTest, SaysWhyItCannotBeSaved) {
    Settings sut;
    ASSERT_EQ(sut.load(files.path("nowhere")), "");
    EXPECT_EQ(sut.save(), files.path("nowhere/settings.txt") + " not saved: No such file or directory");
}

TEST_F(SettingsTest, NameOfASettingHasNoEqualsSign) {
    Settings sut;
    for (const char* name : {"", "a=b", "a\nb"})
        EXPECT_THROW(sut.set(name, 1), std::logic_error) << name;
}

/// What a process that saves again and again has come to, where its death does not reach.
struct Progress {
    std::atomic<int> begun;
    std::atomic<int> done;
};

std::string textOf(int number) {
    return std::string(static_cast<std::size_t>(number % 7) * 4000 + 10,
                       static_cast<char>('a' + number % 26));
}

/// Each kill comes at another moment, nearly all of them in the middle of a save().
TEST_F(SettingsTest, KillAtAnyMomentLeavesTheFileFromBeforeOrTheNewOneEndurance) {
    const int kills = rounds(20);
    int inTheMiddle = 0;
    int newOnes = 0;
    {
        Settings first;
        ASSERT_EQ(first.load(files.path()), "");
        first.set("number", 1);
        first.set("text", textOf(1));
        ASSERT_EQ(first.save(), "");
    }
    void* const pShared =
        ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pShared, MAP_FAILED);
    auto* const pProgress = static_cast<Progress*>(pShared);
    pProgress->done = 1;
    for (int round = 0; round < kills; ++round) {
        {
            ForkedProcess child([&](const ForkedProcess::Side& side) {
                Settings sut;
                std::string fault = sut.load(files.path());
                for (int number = sut.integer("number") + 1; fault.empty(); ++number) {
                    sut.set("number", number);
                    sut.set("text", textOf(number));
                    pProgress->begun = number;
                    fault = sut.save();
                    pProgress->done = number;
                    if (fault.empty() && number % 4 == 0)
                        side.tell("saves");
                }
                side.tell(fault);
            });
            ASSERT_EQ(child.hear(), "saves") << "round " << round;
            ::usleep(static_cast<useconds_t>(::random() % 3000));
            child.kill();
        }
        const int begun = pProgress->begun;
        const int done = pProgress->done;
        ASSERT_TRUE(files.contains("settings.txt")) << "round " << round;
        Settings after;
        ASSERT_EQ(after.load(files.path()), "") << "round " << round;
        const int number = after.integer("number");
        ASSERT_TRUE(number == done || number == begun) << number << " of " << done << ", " << begun;
        ASSERT_EQ(after.text("text"), textOf(number)) << "round " << round;
        inTheMiddle += begun != done ? 1 : 0;
        newOnes += number != done ? 1 : 0;
        pProgress->done = number;
    }
    ::munmap(pShared, sizeof(Progress));
    EXPECT_GT(inTheMiddle, 0) << "no kill came in the middle of a save()";
    std::cout << kills << " kills, " << inTheMiddle << " in the middle of a save(), " << newOnes
              << " of these after the new file had taken its place\n";
}

/// With its own mounts, so nothing but the file is full.
TEST_F(SettingsTest, FullDiskIsSaidAndLeavesTheFileFromBefore) {
    ForkedProcess child([&](const ForkedProcess::Side& side) {
        const std::string missing = PrivateMachine::enterWithSmall(files.path(), "64k");
        side.tell(missing);
        if (!missing.empty())
            return;
        Settings sut;
        side.tell(sut.load(files.path()));
        sut.set("a", 1);
        side.tell(sut.save());
        sut.set("text", std::string(200000, 'x'));
        side.tell(sut.save());
        side.tell(std::to_string(files.contains("settings.txt.part")));
        sut.remove("text");
        sut.set("a", 2);
        // Not even a few bytes are left.
        std::ofstream(files.path("other")) << std::string(100000, 'x') << std::flush;
        side.tell(sut.save());
        Settings after;
        side.tell(after.load(files.path()));
        side.tell(after.text("a"));
        std::filesystem::remove(files.path("other"));
        side.tell(sut.save());
        side.tell(after.load(files.path()));
        side.tell(after.text("a"));
    });
    const std::string missing = child.hear();
    if (!missing.empty())
        GTEST_SKIP() << missing;
    const std::string full = path() + " not saved: No space left on device";
    EXPECT_EQ(child.hear(), "");
    EXPECT_EQ(child.hear(), "");
    EXPECT_EQ(child.hear(), full);
    EXPECT_EQ(child.hear(), "0");
    EXPECT_EQ(child.hear(), full);
    EXPECT_EQ(child.hear(), "");
    EXPECT_EQ(child.hear(), "1");
    EXPECT_EQ(child.hear(), "");
    EXPECT_EQ(child.hear(), "");
    EXPECT_EQ(child.hear(), "2");
}

TEST_F(SettingsTest, DirectoryThatMayNotBeWrittenIsSaidAndTheFileStays) {
    {
        Settings first;
        ASSERT_EQ(first.load(files.path()), "");
        first.set("a", 1);
        ASSERT_EQ(first.save(), "");
    }
    ASSERT_EQ(::chmod(files.path().c_str(), 0555), 0);
    ForkedProcess child([&](const ForkedProcess::Side& side) {
        // Root may write all the same.
        if (::geteuid() == 0 && !ForkedProcess::become(65534, 65534))
            return;
        Settings sut;
        side.tell(sut.load(files.path()));
        sut.set("a", 2);
        side.tell(sut.save());
    });
    EXPECT_EQ(child.hear(), "");
    EXPECT_EQ(child.hear(), path() + " not saved: Permission denied");
    child.end();
    EXPECT_EQ(files.read("settings.txt"), "mfd-settings 1\na=1\nend\n");
    ASSERT_EQ(::chmod(files.path().c_str(), 0755), 0);
}

}  // namespace
