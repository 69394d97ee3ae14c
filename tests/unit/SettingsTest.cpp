#include "mfd/Settings.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

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

/// Each kill comes at another instant of a write.
TEST_F(SettingsTest, KillInTheMiddleOfAWriteLeavesAWholeFile) {
    for (int round = 0; round < 20; ++round) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            Settings sut;
            if (!sut.load(files.path()).empty())
                ::_exit(1);
            for (int i = sut.integer("count");; ++i) {
                sut.set("count", i);
                sut.set("text", std::string(20000, static_cast<char>('a' + i % 26)));
                if (!sut.save().empty())
                    ::_exit(1);
            }
        }
        ::usleep(static_cast<useconds_t>(2000 + 777 * round));
        ::kill(pid, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the file was broken at round " << round;
        Settings after;
        ASSERT_EQ(after.load(files.path()), "") << "round " << round;
        const std::string text = after.text("text");
        EXPECT_EQ(text, std::string(text.size(), text.empty() ? ' ' : text.front()));
    }
}

}  // namespace
