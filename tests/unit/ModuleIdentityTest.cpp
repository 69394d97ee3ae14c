#include "ModuleIdentity.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;

/// Test modules that differ in one number alone.
fs::path module(const std::string& name) {
    return fs::path(MFD_TEST_MODULE_DIR) / (name + ".so");
}

class ModuleIdentityTest : public testing::Test {
protected:
    ModuleIdentity put(const fs::path& from) {
        fs::copy_file(from, m_directory.path("m.so"), fs::copy_options::overwrite_existing);
        return ModuleIdentity::of(m_directory.path("m.so"));
    }
    ModuleIdentity write(const std::string& bytes) {
        m_directory.write("m.so", bytes);
        return ModuleIdentity::of(m_directory.path("m.so"));
    }
    void touch(std::int64_t second) {
        const timespec times[2] = {{second, 0}, {second, 0}};
        ::utimensat(AT_FDCWD, m_directory.path("m.so").c_str(), times, 0);
    }

    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(ModuleIdentityTest, OtherBuildIsAnotherOne) {
    const ModuleIdentity one = put(module("VersionOne"));
    EXPECT_TRUE(one.isThere);
    EXPECT_EQ(40u, one.buildID.size()) << one.text();
    EXPECT_FALSE(one.isSame(put(module("VersionTwo"))));
}

TEST_F(ModuleIdentityTest, CopyOfTheSameBuildIsNoOther) {
    const ModuleIdentity one = put(module("VersionOne"));
    touch(1'000'000);
    EXPECT_TRUE(one.isSame(ModuleIdentity::of(m_directory.path("m.so"))));
    EXPECT_EQ(one.digest(), ModuleIdentity::of(m_directory.path("m.so")).digest());
}

TEST_F(ModuleIdentityTest, FileWithoutABuildIDIsKnownByItsSizeAndTime) {
    const ModuleIdentity one = write("module");
    EXPECT_EQ("", one.buildID);
    EXPECT_TRUE(one.isSame(ModuleIdentity::of(m_directory.path("m.so"))));
    touch(1'000'000);
    const ModuleIdentity touched = ModuleIdentity::of(m_directory.path("m.so"));
    EXPECT_FALSE(one.isSame(touched));
    EXPECT_EQ("changed at 1000000000000000 of 6 bytes", touched.text());
    write("longer module");
    touch(1'000'000);
    EXPECT_FALSE(touched.isSame(ModuleIdentity::of(m_directory.path("m.so"))));
}

TEST_F(ModuleIdentityTest, WhatIsNoFileIsMissing) {
    const ModuleIdentity missing = ModuleIdentity::of(m_directory.path("m.so"));
    EXPECT_FALSE(missing.isThere);
    EXPECT_EQ("missing", missing.text());
    EXPECT_FALSE(missing.isSame(write("module")));
    fs::create_directory(m_directory.path("directory.so"));
    EXPECT_EQ("missing", ModuleIdentity::of(m_directory.path("directory.so")).text());
    ASSERT_EQ(0, ::mkfifo(m_directory.path("pipe.so").c_str(), 0600));
    EXPECT_EQ("missing", ModuleIdentity::of(m_directory.path("pipe.so")).text());
}

TEST_F(ModuleIdentityTest, FileThatIsCutAnywhereIsReadWithoutHarm) {
    put(module("VersionOne"));
    const std::string whole = m_directory.read("m.so");
    for (std::size_t size = 0; size < 2048; size += 7)
        EXPECT_EQ(size, write(whole.substr(0, size)).size);
}

TEST_F(ModuleIdentityTest, NotesThatLieAreReadWithoutHarm) {
    put(module("VersionOne"));
    std::string bytes = m_directory.read("m.so");
    for (std::size_t i = 4; i < 1024; ++i) {
        const char before = bytes[i];
        bytes[i] = '\xff';
        EXPECT_TRUE(write(bytes).isThere);
        bytes[i] = before;
    }
}
