#include "PeerRoles.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ControlSocket.h"
#include "ForkedProcess.h"
#include "HttpClient.h"
#include "NoDescriptors.h"
#include "TemporaryDirectory.h"
#include "sal/Path.h"
#include "sal/Process.h"

namespace {

class PeerRolesTest : public testing::Test {
protected:
    PeerRolesTest() {
        std::filesystem::permissions(m_directory.path(), std::filesystem::perms(0755));
        m_directory.write("group", "mfview:x:7001:\nmfoperator:x:7002:\nmfadmin:x:7003:\nother:x:7004:\n");
        m_directory.write("passwd", "anna:x:4711:100::/:/bin/sh\n");
        settings.groupFile = m_directory.path("group");
        settings.userFile = m_directory.path("passwd");
        settings.isDriverProcess = [this](int pid) { return drivers.contains(pid); };
        EXPECT_EQ(m_socket.open(m_directory.path("socket")), "");
        m_listener = m_socket.takeListener();
    }

    /// Becomes that user and connects.
    std::unique_ptr<ForkedProcess> connectAs(uid_t user, gid_t group, const std::vector<gid_t>& groups = {}) {
        return std::make_unique<ForkedProcess>([=, this](const ForkedProcess::Side& side) {
            HttpClient client;
            const bool isConnected =
                ForkedProcess::become(user, group, groups) && client.connect(m_socket.path());
            side.tell(isConnected ? "connected" : "failed");
            side.wait();
        });
    }
    /// Of that process; 0: of any. Others of the machine may connect as well.
    base::UniqueFd accept(pid_t process) {
        EXPECT_TRUE(eventually([this, process] {
            m_accepted = base::UniqueFd(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            ucred peer{};
            socklen_t size = sizeof peer;
            ::getsockopt(m_accepted.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size);
            return m_accepted && (process == 0 || peer.pid == process);
        }));
        return std::move(m_accepted);
    }
    PeerRoles::Peer look(uid_t user, gid_t group, const std::vector<gid_t>& groups = {}) {
        const auto pClient = connectAs(user, group, groups);
        EXPECT_EQ(pClient->hear(), "connected");
        PeerRoles sut(settings);
        auto peer = sut.look(accept(pClient->pid()).get());
        EXPECT_TRUE(peer);
        return peer ? std::move(*peer) : PeerRoles::Peer();
    }
    ERole roleOf(uid_t user, gid_t group, const std::vector<gid_t>& groups = {}) {
        return look(user, group, groups).role;
    }

    const TemporaryDirectory m_directory;
    PeerRoles::Settings settings;
    std::set<int> drivers;
    ControlSocket m_socket;
    base::UniqueFd m_listener;
    base::UniqueFd m_accepted;
};

#define NEEDS_ROOT()      \
    if (::geteuid() != 0) \
    GTEST_SKIP() << "needs root, to become other users"

TEST_F(PeerRolesTest, RootAdministers) {
    NEEDS_ROOT();
    const PeerRoles::Peer peer = look(0, 0);
    EXPECT_EQ(peer.role, ERole::Admin);
    EXPECT_TRUE(peer.isFavoured);
    EXPECT_EQ(peer.name, "uid 0");
}

TEST_F(PeerRolesTest, PrimaryGroupDecides) {
    NEEDS_ROOT();
    EXPECT_EQ(roleOf(4711, 7001), ERole::View);
    EXPECT_EQ(roleOf(4711, 7002), ERole::Operate);
    EXPECT_EQ(roleOf(4711, 7003), ERole::Admin);
    EXPECT_EQ(roleOf(4711, 7004), ERole::None);
}

TEST_F(PeerRolesTest, FurtherGroupsDecideAsWell) {
    NEEDS_ROOT();
    EXPECT_EQ(roleOf(4711, 7004, {7001}), ERole::View);
    EXPECT_EQ(roleOf(4711, 7001, {7004, 7002}), ERole::Operate);
    EXPECT_EQ(roleOf(4711, 7002, {7001}), ERole::Operate);
    std::vector<gid_t> many;
    for (gid_t group = 10'000; group < 10'300; ++group)
        many.push_back(group);
    EXPECT_EQ(roleOf(4711, 7004, many), ERole::None);
    many.push_back(7003);
    EXPECT_EQ(roleOf(4711, 7004, many), ERole::Admin);
}

TEST_F(PeerRolesTest, NamesTheUser) {
    NEEDS_ROOT();
    const PeerRoles::Peer anna = look(4711, 7001);
    EXPECT_EQ(anna.name, "anna");
    EXPECT_EQ(anna.uid, 4711u);
    EXPECT_GT(anna.pid, 0);
    EXPECT_FALSE(anna.isFavoured);
    EXPECT_EQ(look(4712, 7001).name, "uid 4712");
}

TEST_F(PeerRolesTest, StarterAdministers) {
    NEEDS_ROOT();
    settings.starter = 4711;
    const PeerRoles::Peer peer = look(4711, 7004);
    EXPECT_EQ(peer.role, ERole::Admin);
    EXPECT_TRUE(peer.isFavoured);
    EXPECT_EQ(roleOf(4712, 7004), ERole::None);
}

TEST_F(PeerRolesTest, UserWhoStandsForAllUnknownOnesHasNoRole) {
    NEEDS_ROOT();
    settings.starter = 65534;
    EXPECT_EQ(roleOf(65534, 7003), ERole::None);
    m_directory.write("group", "mfadmin:x:65534:\n");
    EXPECT_EQ(roleOf(4711, 65534), ERole::None);
}

TEST_F(PeerRolesTest, WhereOneUserIsKnownOnlyTheStarterHasARole) {
    NEEDS_ROOT();
    m_directory.write("uid_map", "      4711       4711          1\n");
    settings.userMap = m_directory.path("uid_map");
    settings.starter = 4711;
    EXPECT_EQ(roleOf(4711, 7004), ERole::Admin);
    EXPECT_EQ(roleOf(0, 0), ERole::None);
    EXPECT_EQ(roleOf(4712, 7003), ERole::None);
}

TEST_F(PeerRolesTest, DriverProcessIsRefused) {
    const auto pDriver = std::make_unique<ForkedProcess>([this](const ForkedProcess::Side& side) {
        HttpClient client;
        side.tell(client.connect(m_socket.path()) ? "connected" : "failed");
        side.wait();
    });
    ASSERT_EQ(pDriver->hear(), "connected");
    PeerRoles sut(settings);
    const auto peer = sut.look(accept(pDriver->pid()).get());
    ASSERT_TRUE(peer);
    EXPECT_EQ(sut.refusal(*peer).reason, "");
    drivers.insert(pDriver->pid());
    EXPECT_EQ(sut.refusal(*peer).reason,
              "process " + std::to_string(pDriver->pid()) +
                  " is a driver's process or was started by one; drivers do not use the "
                  "control socket");
}

TEST_F(PeerRolesTest, PeerThatCannotBeLookedAtIsRefusedForNow) {
    ForkedProcess client([this](const ForkedProcess::Side& side) {
        HttpClient connection;
        side.tell(connection.connect(m_socket.path()) ? "connected" : "failed");
        side.wait();
    });
    ASSERT_EQ(client.hear(), "connected");
    PeerRoles sut(settings);
    const auto peer = sut.look(accept(client.pid()).get());
    ASSERT_TRUE(peer);
    {
        const NoDescriptors none;
        const auto refusal = sut.refusal(*peer);
        EXPECT_EQ(refusal.reason,
                  "whether process " + std::to_string(client.pid()) +
                      " is a driver's cannot be told: the host is short of file descriptors or memory");
        EXPECT_TRUE(refusal.isForNow);
        drivers.insert(client.pid());
        EXPECT_FALSE(sut.refusal(*peer).isForNow) << "it is known to be a driver's";
        drivers.clear();
    }
    EXPECT_EQ(sut.refusal(*peer).reason, "");
}

TEST_F(PeerRolesTest, RolesAreKnownWhereNoDescriptorIsLeft) {
    NEEDS_ROOT();
    const auto pClient = connectAs(4711, 7002);
    ASSERT_EQ(pClient->hear(), "connected");
    PeerRoles sut(settings);
    const base::UniqueFd socket = accept(pClient->pid());
    const NoDescriptors none;
    const auto peer = sut.look(socket.get());
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer->role, ERole::Operate);
    EXPECT_EQ(peer->name, "anna");
}

TEST_F(PeerRolesTest, WhatADriverProcessHasStartedIsRefused) {
    ForkedProcess driver([this](const ForkedProcess::Side& side) {
        // A grandchild, in a session of its own.
        if (::fork() == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::fork() == 0) {
                ::setsid();
                HttpClient client;
                side.tell(client.connect(m_socket.path()) ? std::to_string(::getpid()) : "failed");
                side.wait();
                ::_exit(0);
            }
            ::pause();
        }
        ::pause();
    });
    const pid_t grandchild = std::atoi(driver.hear().c_str());
    ASSERT_GT(grandchild, 0);
    drivers.insert(driver.pid());
    PeerRoles sut(settings);
    const auto peer = sut.look(accept(grandchild).get());
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer->pid, grandchild);
    EXPECT_NE(sut.refusal(*peer).reason, "");
    drivers = {grandchild + 1};
    EXPECT_EQ(sut.refusal(*peer).reason, "");
    ::kill(grandchild, SIGKILL);
}

TEST_F(PeerRolesTest, OrphanOfADriverProcessIsRefusedByItsMark) {
    sal::Path shell("/bin/sh");
    ASSERT_TRUE(sal::Process::createProcess(
        "sh", shell,
        {"-c", "setsid curl -s -m 60 --unix-socket " + m_socket.path() + " http://localhost/ & exit 0"}));
    const base::UniqueFd connection = accept(0);
    PeerRoles sut(settings);
    const auto peer = sut.look(connection.get());
    ASSERT_TRUE(peer);
    EXPECT_NE(sut.refusal(*peer).reason, "");
}

TEST_F(PeerRolesTest, ProcessThatIsGoneIsRefused) {
    ForkedProcess client([this](const ForkedProcess::Side& side) {
        HttpClient socket;
        side.tell(socket.connect(m_socket.path()) ? "connected" : "failed");
    });
    ASSERT_EQ(client.hear(), "connected");
    const pid_t pid = client.pid();
    client.end();
    PeerRoles sut(settings);
    const auto peer = sut.look(accept(pid).get());
    ASSERT_TRUE(peer);
    EXPECT_EQ(sut.refusal(*peer).reason,
              "the process that has connected, " + std::to_string(pid) +
                  ", has ended; whether it was a driver's cannot be told any more");
}

TEST_F(PeerRolesTest, StartByAServiceManagerIsTold) {
    ::unsetenv("NOTIFY_SOCKET");
    ::unsetenv("SYSTEMD_EXEC_PID");
    EXPECT_FALSE(PeerRoles::isStartedAsService());
    // Of a terminal that is a service itself.
    ::setenv("SYSTEMD_EXEC_PID", "1", 1);
    EXPECT_FALSE(PeerRoles::isStartedAsService());
    ::setenv("SYSTEMD_EXEC_PID", std::to_string(::getpid()).c_str(), 1);
    EXPECT_TRUE(PeerRoles::isStartedAsService());
    ::unsetenv("SYSTEMD_EXEC_PID");
    ::setenv("NOTIFY_SOCKET", "/run/systemd/notify", 1);
    EXPECT_TRUE(PeerRoles::isStartedAsService());
    ::unsetenv("NOTIFY_SOCKET");
}

}  // namespace
