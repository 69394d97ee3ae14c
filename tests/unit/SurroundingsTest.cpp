#include "Surroundings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "ChangedUmask.h"
#include "LogCapture.h"
#include "TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;

/// In a directory of the test's own.
class SurroundingsTest : public testing::Test {
protected:
    SurroundingsTest() { fs::current_path(m_directory.path()); }
    ~SurroundingsTest() override { fs::current_path(m_before); }

    static mode_t currentUmask() {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        return mask;
    }
    static std::string withoutTimes(const std::string& log) {
        std::string text;
        for (std::size_t begin = 0; begin < log.size();) {
            const auto end = log.find('\n', begin) + 1;
            text += log.substr(log.find("HOST: ", begin), end - log.find("HOST: ", begin));
            begin = end;
        }
        return text;
    }

    const fs::path m_before = fs::current_path();
    TemporaryDirectory m_directory;
    const ChangedUmask m_umask{022};
};

TEST_F(SurroundingsTest, WhatNobodyHasChangedIsNotTold) {
    LogCapture log;
    Surroundings sut;
    sut.restore("A: deinitialize()");
    EXPECT_EQ(fs::current_path(), m_directory.path());
    EXPECT_EQ(currentUmask(), 022u);
    EXPECT_EQ(log.finish(), "");
}

TEST_F(SurroundingsTest, WorkingDirectoryIsPutBackAndTold) {
    LogCapture log;
    Surroundings sut;
    fs::current_path("/");
    sut.restore("A: deinitialize()");
    EXPECT_EQ(fs::current_path(), m_directory.path());
    EXPECT_EQ(
        withoutTimes(log.finish()),
        "HOST: A: deinitialize() has changed the working directory of the host's process to /; it is put "
        "back\n");
}

TEST_F(SurroundingsTest, UmaskIsPutBackAndTold) {
    LogCapture log;
    Surroundings sut;
    ::umask(0);
    sut.restore("A: deinitialize()");
    EXPECT_EQ(currentUmask(), 022u);
    EXPECT_EQ(
        withoutTimes(log.finish()),
        "HOST: A: deinitialize() has changed the umask of the host's process from 0022 to 0000; it is put "
        "back\n");
}

TEST_F(SurroundingsTest, ChangesAgainAndAgainAreToldOnceAndPutBackEachTime) {
    LogCapture log;
    Surroundings sut;
    for (int i = 0; i < 5; ++i) {
        fs::current_path("/");
        ::umask(0);
        sut.restore("A");
        EXPECT_EQ(fs::current_path(), m_directory.path());
        EXPECT_EQ(currentUmask(), 022u);
    }
    const std::string text = log.finish();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST_F(SurroundingsTest, DirectoryThatWasMovedIsStillTheSame) {
    fs::create_directory("work");
    fs::current_path("work");
    Surroundings sut;
    fs::rename(m_directory.path("work"), m_directory.path("moved"));
    fs::current_path("/");
    const LogCapture log;
    sut.restore("A");
    EXPECT_EQ(fs::current_path(), m_directory.path("moved"));
}

TEST_F(SurroundingsTest, DirectoryThatIsGoneIsLeftForTheOwn) {
    Surroundings sut;
    fs::create_directory("other");
    fs::current_path("other");
    fs::remove(m_directory.path("other"));
    const LogCapture log;
    sut.restore("A");
    EXPECT_EQ(fs::current_path(), m_directory.path());
}

}  // namespace
