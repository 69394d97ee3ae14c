#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "TemporaryDirectory.h"
#include "sal/Path.h"

namespace {

class ProcessPath : public testing::Test {
protected:
    void TearDown() override { std::filesystem::current_path(m_before); }
    std::filesystem::path m_before = std::filesystem::current_path();
    TemporaryDirectory directory;
};

TEST_F(ProcessPath, WorkingDirectoryCanBeSetAndRead) {
    EXPECT_TRUE(sal::Path::setCurrentWorkingDirPath(sal::Path(directory.path())));
    EXPECT_EQ(sal::Path::getCurrentWorkingDirPath().getPathString(), directory.path());
}

TEST_F(ProcessPath, MissingWorkingDirectoryIsRefused) {
    EXPECT_FALSE(sal::Path::setCurrentWorkingDirPath(sal::Path(directory.path("none"))));
    EXPECT_EQ(sal::Path::getCurrentWorkingDirPath().getPathString(), m_before.string());
}

TEST_F(ProcessPath, WorkingDirectoryIsEmptyWhenItIsGone) {
    std::filesystem::create_directory(directory.path("gone"));
    sal::Path::setCurrentWorkingDirPath(sal::Path(directory.path("gone")));
    std::filesystem::remove(directory.path("gone"));
    EXPECT_EQ(sal::Path::getCurrentWorkingDirPath().getPathString(), "");
}

TEST_F(ProcessPath, ExecutableDirectoryHoldsTheExecutable) {
    EXPECT_TRUE(std::filesystem::exists(sal::Path::getExeBasePath().getPathString() + "/unit_hostlinux"));
}

}  // namespace
