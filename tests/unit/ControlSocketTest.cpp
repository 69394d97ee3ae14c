#include "ControlSocket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ForkedProcess.h"
#include "HttpClient.h"
#include "Rounds.h"
#include "TemporaryDirectory.h"
#include "WithoutCapabilities.h"

namespace {

class ControlSocketTest : public testing::Test {
protected:
    std::string path(const std::string& name = "mfhost.sock") const { return m_directory.path(name); }

    /// Another host, which holds the name until it is told to end or is killed.
    std::unique_ptr<ForkedProcess> otherHost() const {
        return std::make_unique<ForkedProcess>([this](const ForkedProcess::Side& side) {
            ControlSocket socket;
            const std::string error = socket.open(path());
            side.tell(error.empty() ? socket.path() : error);
            side.wait();
        });
    }
    bool canConnect(const std::string& name = "mfhost.sock") const {
        HttpClient client;
        return client.connect(path(name));
    }

    const TemporaryDirectory m_directory;
};

/// A socket of another program, which listens as long as the descriptor is open.
base::UniqueFd listenAt(const std::string& path) {
    base::UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listener.get(), 1), 0);
    return listener;
}

}  // namespace

TEST_F(ControlSocketTest, ManyWhoDoNotWaitFindRoomBeforeTheyAreTaken) {
    ControlSocket sut;
    ASSERT_EQ(sut.open(path()), "");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path().copy(address.sun_path, sizeof address.sun_path - 1);
    std::vector<base::UniqueFd> clients;
    for (int i = 0; i < 500; ++i) {
        clients.emplace_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        ASSERT_EQ(
            ::connect(clients.back().get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
            << i;
    }
}

TEST_F(ControlSocketTest, IsThereForAllUsersUntilItsEnd) {
    {
        ControlSocket sut;
        ASSERT_EQ(sut.open(path()), "");
        EXPECT_EQ(sut.path(), path());
        EXPECT_EQ(sut.warning(), "");
        struct stat status {};
        ASSERT_EQ(::stat(path().c_str(), &status), 0);
        EXPECT_TRUE(S_ISSOCK(status.st_mode));
        EXPECT_EQ(status.st_mode & 07777, 0666u);
        ASSERT_EQ(::stat(path("mfhost.sock.lock").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0600u);
        EXPECT_TRUE(canConnect());
    }
    EXPECT_FALSE(m_directory.contains("mfhost.sock"));
    EXPECT_FALSE(m_directory.contains("mfhost.sock.lock"));
}

TEST_F(ControlSocketTest, ListenerDoesNotBlockAndIsNotInherited) {
    ControlSocket sut;
    ASSERT_EQ(sut.open(path()), "");
    const base::UniqueFd listener = sut.takeListener();
    EXPECT_NE(::fcntl(listener.get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(::fcntl(listener.get(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_TRUE(canConnect());
}

TEST_F(ControlSocketTest, LivingHostKeepsItsName) {
    const auto pOther = otherHost();
    ASSERT_EQ(pOther->hear(), path());
    ControlSocket sut;
    ASSERT_EQ(sut.open(path()), "");
    EXPECT_EQ(sut.path(), path("mfhost-2.sock"));
    EXPECT_EQ(sut.warning(), path() + " is taken by another host, process " + std::to_string(pOther->pid()) +
                                 "; this host's is " + path("mfhost-2.sock"));
    EXPECT_TRUE(canConnect());
    EXPECT_TRUE(canConnect("mfhost-2.sock"));
}

TEST_F(ControlSocketTest, StoppedHostKeepsItsName) {
    const auto pOther = otherHost();
    ASSERT_EQ(pOther->hear(), path());
    ::kill(pOther->pid(), SIGSTOP);
    ControlSocket sut;
    ASSERT_EQ(sut.open(path()), "");
    EXPECT_EQ(sut.path(), path("mfhost-2.sock"));
}

TEST_F(ControlSocketTest, KilledHostIsReplaced) {
    const auto pOther = otherHost();
    ASSERT_EQ(pOther->hear(), path());
    pOther->kill();
    EXPECT_TRUE(m_directory.contains("mfhost.sock"));
    ControlSocket sut;
    ASSERT_EQ(sut.open(path()), "");
    EXPECT_EQ(sut.path(), path());
    EXPECT_EQ(sut.warning(), "");
    EXPECT_TRUE(canConnect());
}

TEST_F(ControlSocketTest, KilledHostIsReplacedThoughAForkedChildHasItsListener) {
    ForkedProcess other([this](const ForkedProcess::Side& side) {
        ControlSocket socket;
        const std::string error = socket.open(path());
        const pid_t child = ::fork();
        if (child == 0)
            ::pause();
        side.tell(error + std::to_string(child));
        side.wait();
    });
    const pid_t child = std::atoi(other.hear().c_str());
    ASSERT_GT(child, 0);
    other.kill();
    EXPECT_TRUE(canConnect());
    ControlSocket sut;
    const std::string error = sut.open(path());
    ::kill(child, SIGKILL);
    EXPECT_EQ(error, "");
    EXPECT_EQ(sut.path(), path());
}

TEST_F(ControlSocketTest, ForeignProgramThatListensIsLeftAlone) {
    const base::UniqueFd listener = listenAt(path());
    ControlSocket sut;
    ASSERT_EQ(sut.open(path()), "");
    EXPECT_EQ(sut.warning(),
              path() + " is taken by a program that listens there; this host's is " + path("mfhost-2.sock"));
    EXPECT_FALSE(m_directory.contains("mfhost.sock.lock"));
}

TEST_F(ControlSocketTest, ForeignProgramThatIsGoneIsReplaced) {
    listenAt(path()).reset();
    ControlSocket sut;
    ASSERT_EQ(sut.open(path()), "");
    EXPECT_EQ(sut.path(), path());
}

TEST_F(ControlSocketTest, FileInTheWayIsLeftAloneAndNamed) {
    m_directory.write("mfhost.sock", "a file");
    ControlSocket sut;
    EXPECT_EQ(sut.open(path()),
              path() + " is there and is no socket; remove it, or name another path with --control");
    EXPECT_EQ(m_directory.read("mfhost.sock"), "a file");
    EXPECT_FALSE(m_directory.contains("mfhost.sock.lock"));
}

TEST_F(ControlSocketTest, MissingDirectoryIsNamed) {
    ControlSocket sut;
    EXPECT_EQ(sut.open(path("none/mfhost.sock")),
              "the directory " + path("none") + " cannot be opened: No such file or directory");
}

TEST_F(ControlSocketTest, TooLongAPathIsNamedWithItsLimit) {
    const std::string name = path(std::string(100, 'x'));
    ControlSocket sut;
    EXPECT_EQ(sut.open(name), name + " has " + std::to_string(name.size()) +
                                  " characters; the path of a socket has 107 at most");
}

TEST_F(ControlSocketTest, PathOfADirectoryNamesNoFile) {
    ControlSocket sut;
    EXPECT_EQ(sut.open(path() + "/"), path() + "/ names no file");
}

TEST_F(ControlSocketTest, MissingRightsAreNamed) {
    std::filesystem::permissions(m_directory.path(),
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    const WithoutCapabilities rights{CAP_DAC_OVERRIDE};
    ASSERT_NE(::access((path() + "x").c_str(), F_OK), 0);
    ASSERT_FALSE(WithoutCapabilities::has(CAP_DAC_OVERRIDE));
    ControlSocket sut;
    EXPECT_EQ(sut.open(path()), "cannot make " + path() + ".lock: Permission denied");
}

TEST_F(ControlSocketTest, LockOfAnotherUserIsLeftAlone) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root, to have a file of another user's";
    m_directory.write("mfhost.sock.lock", "");
    ASSERT_EQ(::chown(path("mfhost.sock.lock").c_str(), 4711, 4711), 0);
    ControlSocket sut;
    ASSERT_EQ(sut.open(path()), "");
    EXPECT_EQ(sut.warning(), path() + " is taken by user 4711; this host's is " + path("mfhost-2.sock"));
    EXPECT_TRUE(m_directory.contains("mfhost.sock.lock"));
}

TEST_F(ControlSocketTest, LinkInPlaceOfTheLockIsNotFollowed) {
    m_directory.write("precious", "kept");
    std::filesystem::create_symlink(path("precious"), path("mfhost.sock.lock"));
    ControlSocket sut;
    EXPECT_NE(sut.open(path()), "");
    EXPECT_EQ(m_directory.read("precious"), "kept");
}

TEST_F(ControlSocketTest, RemovesNothingThatIsNotItsOwn) {
    {
        ControlSocket sut;
        ASSERT_EQ(sut.open(path()), "");
        std::filesystem::remove(path());
        m_directory.write("mfhost.sock", "another's");
    }
    EXPECT_EQ(m_directory.read("mfhost.sock"), "another's");
}

TEST_F(ControlSocketTest, HostsThatStartAtTheSameTimeNeverShareANameEndurance) {
    for (int round = 0; round < rounds(); ++round) {
        // What a killed host has left is what they would race for.
        const auto pDead = otherHost();
        ASSERT_EQ(pDead->hear(), path());
        pDead->kill();
        std::vector<std::unique_ptr<ForkedProcess>> hosts;
        for (int i = 0; i < 6; ++i) {
            hosts.push_back(std::make_unique<ForkedProcess>([this](const ForkedProcess::Side& side) {
                side.wait();
                ControlSocket socket;
                const std::string error = socket.open(path());
                side.tell(error.empty() ? socket.path() : error);
                side.wait();
            }));
        }
        for (const auto& pHost : hosts)
            pHost->goOn();
        std::set<std::string> names;
        for (const auto& pHost : hosts)
            names.insert(pHost->hear());
        EXPECT_EQ(names.size(), hosts.size());
        EXPECT_TRUE(names.contains(path())) << *names.begin();
        for (const std::string& name : names)
            EXPECT_TRUE(HttpClient().connect(name)) << name;
        for (const auto& pHost : hosts) {
            pHost->goOn();
            pHost->end();
        }
        EXPECT_TRUE(std::filesystem::is_empty(m_directory.path()));
    }
}

TEST_F(ControlSocketTest, UsualPlaceIsTheUsersRuntimeDirectory) {
    ::setenv("XDG_RUNTIME_DIR", "/run/user/1000", 1);
    EXPECT_EQ(ControlSocket::defaultPath(), "/run/user/1000/mfhost.sock");
    ::setenv("XDG_RUNTIME_DIR", "", 1);
    EXPECT_EQ(ControlSocket::defaultPath(), "/run/mfhost.sock");
    ::unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(ControlSocket::defaultPath(), "/run/mfhost.sock");
}
