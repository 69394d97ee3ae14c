#include "Leftovers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "TestWorkplace.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class LeftoversTest : public testing::Test {
protected:
    LeftoversTest() {
        char name[] = "/tmp/mfd-leftovers-XXXXXX";
        m_directory = mkdtemp(name);
    }
    ~LeftoversTest() override { fs::remove_all(m_directory); }

    /// Of this machine's network others may add and take away something meanwhile.
    static std::vector<std::string> filesOf(std::vector<std::string> lines) {
        std::erase_if(lines, [](const std::string& line) {
            return !line.starts_with("file ") && !line.starts_with("link ");
        });
        return lines;
    }

    fs::path m_directory;
};

}  // namespace

TEST_F(LeftoversTest, NewFilesAndLinksAreFound) {
    const Leftovers before = Leftovers::of({m_directory});
    fs::create_directory(m_directory / "deep");
    writeFile(m_directory / "deep/core", "");
    fs::create_symlink("nowhere", m_directory / "link");
    EXPECT_THAT(filesOf(Leftovers::of({m_directory}).beyond(before)),
                ElementsAre("file " + (m_directory / "deep/core").string(),
                            "link " + (m_directory / "link").string()));
    EXPECT_THAT(filesOf(before.beyond(Leftovers::of({m_directory}))), IsEmpty());
}

TEST_F(LeftoversTest, HistoryStaysButNotItsDrafts) {
    const fs::path history = m_directory / "mfhost.history";
    fs::create_directories(history / "files");
    writeFile(history / "17", "");
    writeFile(history / "files" / std::string(64, 'a'), "");
    writeFile(history / "17.draft", "");
    writeFile(history / "files/short", "");
    EXPECT_THAT(
        filesOf(Leftovers::of({m_directory}).withoutHistory(m_directory).lines()),
        ElementsAre("file " + (history / "17.draft").string(), "file " + (history / "files/short").string()));
}

TEST_F(LeftoversTest, RecordingStaysButNotItsDrafts) {
    const fs::path recording = m_directory / "recording";
    fs::create_directories(recording / "blackbox");
    writeFile(recording / "00000017.seg", "");
    writeFile(recording / "blackbox/20261122T140322Z-A-signal-9.seg", "");
    writeFile(recording / "blackbox/20261122T140322Z-A-signal-9.seg.part", "");
    EXPECT_THAT(
        filesOf(Leftovers::of({m_directory}).withoutHistory(m_directory).lines()),
        ElementsAre("file " + (recording / "blackbox/20261122T140322Z-A-signal-9.seg.part").string()));
}

TEST_F(LeftoversTest, DirectoriesAreFoundWhereNothingMayStay) {
    fs::create_directory(m_directory / "mfd-0");
    EXPECT_THAT(Leftovers::below({m_directory}).lines(),
                ElementsAre("directory " + (m_directory / "mfd-0").string()));
}

TEST_F(LeftoversTest, SocketThatListensIsFound) {
    const Leftovers before = Leftovers::of({});
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(fd, 1), 0);
    EXPECT_THAT(Leftovers::of({}).beyond(before), Contains(HasSubstr("tcp 0100007F:")));
    ::close(fd);
}

TEST_F(LeftoversTest, AddressesAdaptersAndMountsAreLookedAt) {
    const auto all = Leftovers::of({}).beyond(Leftovers());
    EXPECT_THAT(all, Contains("adapter lo"));
    EXPECT_THAT(all, Contains(HasSubstr("mount / /proc")));
}

TEST_F(LeftoversTest, ProcessIsFoundWhateverItsEnvironmentAndParent) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::fork() > 0)
            ::_exit(0);
        ::setsid();
        ::clearenv();
        ::prctl(PR_SET_NAME, "mfd-orphan");
        const pid_t own = ::getpid();
        if (::write(ready[1], &own, sizeof own) == sizeof own)
            ::pause();
        ::_exit(1);
    }
    pid_t orphan = 0;
    ASSERT_EQ(::read(ready[0], &orphan, sizeof orphan), static_cast<ssize_t>(sizeof orphan));
    ::waitpid(child, nullptr, 0);
    EXPECT_TRUE(Leftovers::processes("no such mark").contains(orphan));
    EXPECT_THAT(Leftovers::named("mfd-orphan"), Contains(orphan));
    EXPECT_FALSE(Leftovers::processes("no such mark").contains(::getpid()));
    ::kill(orphan, SIGSTOP);
    for (int i = 0; i < 1000 && Leftovers::running("").contains(orphan); ++i)
        ::usleep(10000);
    EXPECT_FALSE(Leftovers::running("").contains(orphan));
    ::kill(orphan, SIGKILL);
    ::close(ready[0]);
    ::close(ready[1]);
}
