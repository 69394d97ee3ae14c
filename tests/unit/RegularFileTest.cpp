#include "RegularFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <thread>

#include "TemporaryDirectory.h"
#include "UniqueFd.h"

namespace {

using EFault = base::RegularFile::EFault;

class RegularFileTest : public testing::Test {
protected:
    std::string path() const { return m_directory.path("f"); }

    void expectRefused(EFault fault, const std::string& reason, std::size_t limit = 1000) const {
        const auto file = base::RegularFile::read(path(), limit);
        EXPECT_FALSE(file);
        EXPECT_EQ(file.fault, fault);
        EXPECT_EQ(file.reason, reason);
        EXPECT_EQ(file.bytes, "");
    }

    TemporaryDirectory m_directory;
};

}  // namespace

TEST_F(RegularFileTest, IsReadWhole) {
    const std::string text = std::string(200'000, 'x') + '\0' + "end";
    m_directory.write("f", text);
    const auto file = base::RegularFile::read(path());
    EXPECT_TRUE(file);
    EXPECT_EQ(file.bytes, text);
    EXPECT_EQ(file.size, text.size());
    EXPECT_EQ(file.reason, "");
}

TEST_F(RegularFileTest, EmptyOneIsRead) {
    m_directory.write("f", "");
    const auto file = base::RegularFile::read(path());
    EXPECT_TRUE(file);
    EXPECT_EQ(file.bytes, "");
}

TEST_F(RegularFileTest, TellsThePermissions) {
    m_directory.write("f", "x");
    ASSERT_EQ(::chmod(path().c_str(), 0640), 0);
    EXPECT_EQ(base::RegularFile::read(path()).mode, 0640u);
}

TEST_F(RegularFileTest, AsManyBytesAsTheLimitAreRead) {
    m_directory.write("f", std::string(1000, 'x'));
    EXPECT_EQ(base::RegularFile::read(path(), 1000).bytes, std::string(1000, 'x'));
}

TEST_F(RegularFileTest, OneByteMoreThanTheLimitIsTooLarge) {
    m_directory.write("f", std::string(1001, 'x'));
    expectRefused(EFault::TooLarge, "larger than 1000 bytes");
    EXPECT_EQ(base::RegularFile::read(path(), 1000).size, 1001u);
}

TEST_F(RegularFileTest, UsualLimitIsSixteenMegabytes) {
    m_directory.write("f", "");
    std::filesystem::resize_file(path(), 16u << 20);
    EXPECT_TRUE(base::RegularFile::read(path()));
    std::filesystem::resize_file(path(), (16u << 20) + 1);
    EXPECT_EQ(base::RegularFile::read(path()).reason, "larger than 16777216 bytes");
}

TEST_F(RegularFileTest, FileThatDoesNotKnowItsSizeIsReadWhole) {
    struct stat status {};
    ASSERT_EQ(::stat("/proc/self/maps", &status), 0);
    ASSERT_EQ(status.st_size, 0);
    const auto file = base::RegularFile::read("/proc/self/maps");
    EXPECT_GT(file.size, 100u);
    EXPECT_TRUE(file.bytes.ends_with('\n'));
}

TEST_F(RegularFileTest, FileThatDoesNotKnowItsSizeIsHeldToTheLimit) {
    const auto file = base::RegularFile::read("/proc/self/maps", 100);
    EXPECT_EQ(file.fault, EFault::TooLarge);
    EXPECT_EQ(file.bytes, "");
    EXPECT_GT(file.size, 100u);
}

TEST_F(RegularFileTest, MissingOneIsNotOpened) {
    expectRefused(EFault::NotOpened, "No such file or directory");
}

TEST_F(RegularFileTest, OneThatTheSystemDoesNotReadIsNotRead) {
    const auto file = base::RegularFile::read("/proc/self/mem");
    EXPECT_EQ(file.fault, EFault::NotRead);
    EXPECT_EQ(file.reason, "Input/output error");
}

TEST_F(RegularFileTest, DirectoryIsNotRegular) {
    std::filesystem::create_directory(path());
    expectRefused(EFault::NotRegular, "not a regular file");
}

TEST_F(RegularFileTest, PipeIsNotWaitedFor) {
    ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
    expectRefused(EFault::NotRegular, "not a regular file");
}

TEST_F(RegularFileTest, SocketIsNotRegular) {
    const base::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    expectRefused(EFault::NotRegular, "not a regular file");
}

TEST_F(RegularFileTest, LinkIsFollowed) {
    m_directory.write("target", "x");
    std::filesystem::create_symlink(m_directory.path("target"), path());
    EXPECT_EQ(base::RegularFile::read(path()).bytes, "x");
}

TEST_F(RegularFileTest, WriteAllGoesOnWhereACallEnded) {
    // A pipe takes 64 KB at a time.
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const base::UniqueFd reader(ends[0]);
    base::UniqueFd writer(ends[1]);
    std::string read;
    std::thread thread([&] {
        char piece[1000];
        for (ssize_t count = 0; (count = ::read(reader.get(), piece, sizeof piece)) > 0;)
            read.append(piece, static_cast<std::size_t>(count));
    });
    const std::string text(300'000, 'x');
    EXPECT_TRUE(base::writeAll(writer.get(), text));
    writer.reset();
    thread.join();
    EXPECT_EQ(read, text);
}

TEST_F(RegularFileTest, WriteAllTellsWhatTheSystemSays) {
    const base::UniqueFd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    EXPECT_FALSE(base::writeAll(full.get(), "x"));
    EXPECT_EQ(errno, ENOSPC);
}
