#include "HostSurvey.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "CannedHost.h"
#include "TemporaryDirectory.h"
#include "UniqueFd.h"

namespace {

/// A machine of made-up processes, with real sockets and directories.
class HostSurveyTest : public testing::Test {
protected:
    HostSurveyTest() { m_proc.write("uptime", "1000.00 1.0\n"); }

    void addProcess(int pid, int parent, const std::string& program, const std::string& title,
                    char state = 'S') {
        const std::string place = std::to_string(pid);
        const std::string stat = place + " (" + program + ") " + state + " " + std::to_string(parent) +
                                 " 0 0 0 0 0 0 0 0 0 1 1 0 0 0 0 0 0 100 0 0\n";
        for (const std::string& where : {place, place + "/task/" + place}) {
            m_proc.write(where + "/stat", stat);
            m_proc.write(where + "/comm", program + "\n");
        }
        m_proc.write(place + "/cmdline", title + '\0');
        m_proc.write(place + "/environ", "MFD_QUEUE_DIR=" + m_shared.path("given"));
    }
    /// As it is at this moment; the kernel tells no size of it, by which it could be copied.
    void copyFromProc(const std::string& name) const {
        std::ifstream file("/proc/" + name);
        m_proc.write(name, std::string(std::istreambuf_iterator<char>(file), {}));
    }
    HostSurvey take(const std::vector<std::string>& sockets = {}) {
        HostSurvey::Settings settings;
        settings.sockets = sockets;
        settings.proc = m_proc.path();
        settings.sharedMemory = m_shared.path();
        settings.sample = std::chrono::milliseconds(1);
        settings.patience = std::chrono::milliseconds(200);
        return HostSurvey::take(settings);
    }

    TemporaryDirectory m_proc;
    TemporaryDirectory m_shared;
};

HostSurvey::Process processIn(char state, char threadState = 'S', unsigned load = 0) {
    HostSurvey::Process process;
    process.facts.pid = 7;
    process.facts.state = state;
    process.facts.threads.push_back({7, "commands", threadState, "nfs_wait", 0, ""});
    process.load.push_back(load);
    return process;
}

}  // namespace

TEST_F(HostSurveyTest, DriversBelongToTheirHost) {
    addProcess(10, 1, "mfhost", "mfhost");
    addProcess(11, 10, "mfddllwrap", "SYS MFD Console");
    addProcess(12, 1, "mfddllwrap", "LAMP MFD Console");
    addProcess(13, 1, "bash", "bash");
    const HostSurvey sut = take();
    ASSERT_EQ(1u, sut.hosts.size());
    EXPECT_EQ(10, sut.hosts[0].process.facts.pid);
    ASSERT_EQ(1u, sut.hosts[0].drivers.size());
    EXPECT_EQ("SYS", sut.hosts[0].drivers[0].facts.driverID());
    ASSERT_EQ(1u, sut.orphans.size());
    EXPECT_EQ("LAMP", sut.orphans[0].facts.driverID());
    EXPECT_FALSE(sut.isWell());
}

TEST_F(HostSurveyTest, SocketBelongsToWhoListens) {
    const CannedHost host(m_shared.path("mfhost.sock"));
    addProcess(::getpid(), 1, "mfhost", "mfhost");
    const HostSurvey sut = take({host.path()});
    ASSERT_EQ(1u, sut.hosts.size());
    EXPECT_TRUE(sut.hosts[0].answers());
    EXPECT_TRUE(sut.deadSockets.empty());
    EXPECT_TRUE(sut.isWell());
}

TEST_F(HostSurveyTest, HostThatACommandHoldsUpIsNotWell) {
    CannedHost host(m_shared.path("mfhost.sock"));
    addProcess(::getpid(), 1, "mfhost", "mfhost");
    const std::string command =
        R"j("command":{"what":"sendFID A.PING","driver":"A","operation":"sendFID(PING)","forMs":9000})j";
    host.answer("GET /health", R"({"status":"ok",)" + command + "}");
    EXPECT_TRUE(take({host.path()}).isWell());
    host.answer("GET /health", R"({"status":"busy",)" + command + "}");
    const HostSurvey sut = take({host.path()});
    EXPECT_TRUE(sut.hosts.at(0).answers());
    EXPECT_EQ("sendFID A.PING has been under way for 9 s, in sendFID(PING) of A", sut.hosts[0].heldUp());
    EXPECT_FALSE(sut.isWell());
}

TEST_F(HostSurveyTest, HostThatDoesNotAnswerIsFoundAllTheSame) {
    CannedHost host(m_shared.path("mfhost.sock"));
    host.fallSilent();
    addProcess(::getpid(), 1, "mfhost", "mfhost", 'T');
    const HostSurvey sut = take({host.path()});
    ASSERT_EQ(1u, sut.hosts.size());
    EXPECT_FALSE(sut.hosts[0].answers());
    ASSERT_EQ(1u, sut.hosts[0].sockets.size());
    EXPECT_THAT(sut.hosts[0].sockets[0].silence, testing::HasSubstr("does not answer within 1 s"));
    EXPECT_FALSE(sut.isWell());
}

TEST_F(HostSurveyTest, HostThatAcceptsNobodyIsFoundByItsSocket) {
    const std::string path = m_shared.path("mfhost.sock");
    const base::UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    ASSERT_EQ(0, ::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, ::listen(listener.get(), 0));
    std::vector<base::UniqueFd> waiting;
    int result = 0;
    while (result == 0) {
        waiting.emplace_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        result = ::connect(waiting.back().get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    ASSERT_EQ(EAGAIN, errno);

    addProcess(10, 1, "mfhost", "mfhost");
    copyFromProc("net/unix");
    struct stat info {};
    ASSERT_EQ(0, ::fstat(listener.get(), &info));
    std::filesystem::create_directory(m_proc.path("10/fd"));
    std::filesystem::create_symlink("socket:[" + std::to_string(info.st_ino) + "]", m_proc.path("10/fd/3"));
    const HostSurvey sut = take({path});
    ASSERT_EQ(1u, sut.hosts.size());
    ASSERT_EQ(1u, sut.hosts[0].sockets.size());
    EXPECT_EQ(10, sut.hosts[0].sockets[0].pid);
    EXPECT_FALSE(sut.hosts[0].answers());
}

TEST_F(HostSurveyTest, SocketOfADeadHostIsLeft) {
    const std::string path = m_shared.path("mfhost.sock");
    { const CannedHost host(path); }
    const HostSurvey sut = take({path});
    ASSERT_EQ(1u, sut.deadSockets.size());
    EXPECT_EQ(0, sut.deadSockets[0].pid);
    EXPECT_FALSE(sut.isWell());
}

TEST_F(HostSurveyTest, QueueDirectoriesAreThoseOfHostsAndThoseThatProcessesUse) {
    m_shared.write("mfd-0-abcDEF/SYS_INQ", "12345");
    m_shared.write("mfd-test-abcdef/X", "");
    m_shared.write("given/OUT", "");
    addProcess(10, 1, "mfhost", "mfhost");
    const HostSurvey sut = take();
    ASSERT_EQ(2u, sut.queueDirectories.size());
    EXPECT_EQ(m_shared.path("given"), sut.queueDirectories[0].path);
    EXPECT_EQ(m_shared.path("mfd-0-abcDEF"), sut.queueDirectories[1].path);
    ASSERT_EQ(1u, sut.queueDirectories[1].files.size());
    // One that was given is nobody's to lock.
    EXPECT_TRUE(sut.queueDirectories[0].isHeld);
    EXPECT_EQ("SYS_INQ", sut.queueDirectories[1].files[0].name);
    EXPECT_EQ(5u, sut.queueDirectories[1].files[0].bytes);
    EXPECT_FALSE(sut.queueDirectories[1].isHeld);
}

TEST_F(HostSurveyTest, RecordingBesideQueuesIsNoQueue) {
    m_shared.write("mfd-0-abcDEF/SYS_INQ", "12345");
    m_shared.write("mfd-0-abcDEF/stream.ring", "1234567");
    m_shared.write("mfd-0-abcDEF/stream.ring.lock", "");
    m_shared.write("mfd-0-abcDEF/stream.place", "/x\n");
    m_shared.write("mfd-0-abcDEF/mfd-0-ring-ghiJKL/stream.ring", "");
    const HostSurvey sut = take();
    ASSERT_EQ(1u, sut.queueDirectories.size());
    ASSERT_EQ(1u, sut.queueDirectories[0].files.size());
    EXPECT_EQ("SYS_INQ", sut.queueDirectories[0].files[0].name);
    ASSERT_EQ(4u, sut.queueDirectories[0].recording.size());
    EXPECT_EQ("mfd-0-ring-ghiJKL", sut.queueDirectories[0].recording[0].name);
    EXPECT_EQ("stream.place", sut.queueDirectories[0].recording[1].name);
    EXPECT_EQ("stream.ring", sut.queueDirectories[0].recording[2].name);
    EXPECT_EQ(7u, sut.queueDirectories[0].recording[2].bytes);
    EXPECT_EQ("stream.ring.lock", sut.queueDirectories[0].recording[3].name);
}

TEST_F(HostSurveyTest, RecordingOfADeadHostIsLeft) {
    m_shared.write("mfd-0-abcDEF/stream.ring", "");
    EXPECT_FALSE(take().isWell());
}

TEST_F(HostSurveyTest, QueuesOfAHostInASandboxAreFoundThroughIt) {
    addProcess(10, 1, "mfhost", "mfhost");
    m_proc.write("10/root" + m_shared.path("given") + "/SYS_INQ", "12");
    const HostSurvey sut = take();
    ASSERT_EQ(1u, sut.queueDirectories.size());
    EXPECT_EQ(m_shared.path("given"), sut.queueDirectories[0].path);
    EXPECT_TRUE(sut.queueDirectories[0].isSeen);
    EXPECT_EQ(1u, sut.queueDirectories[0].files.size());
}

TEST_F(HostSurveyTest, QueuesThatCannotBeSeenAreSaidToBeSo) {
    addProcess(10, 1, "mfhost", "mfhost");
    const HostSurvey sut = take();
    ASSERT_EQ(1u, sut.queueDirectories.size());
    EXPECT_FALSE(sut.queueDirectories[0].isSeen);
}

TEST_F(HostSurveyTest, DirectoryWhoseLockIsHeldBelongsToAHostThatRuns) {
    m_shared.write("mfd-0-abcDEF/SYS_INQ", "");
    const base::UniqueFd held(
        ::open(m_shared.path("mfd-0-abcDEF").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(0, ::flock(held.get(), LOCK_SH));
    copyFromProc("locks");
    const HostSurvey sut = take();
    ASSERT_EQ(1u, sut.queueDirectories.size());
    EXPECT_TRUE(sut.queueDirectories[0].isHeld);
    // The look has left the lock to its holder, and the directory to others that share it.
    EXPECT_EQ(0, ::flock(held.get(), LOCK_EX | LOCK_NB));
}

TEST_F(HostSurveyTest, TroubleIsWhatTheKernelTells) {
    EXPECT_EQ("", HostSurvey::trouble(processIn('S')));
    EXPECT_EQ("it is stopped; kill -CONT 7 lets it go on", HostSurvey::trouble(processIn('T')));
    EXPECT_EQ("a debugger holds it", HostSurvey::trouble(processIn('t')));
    EXPECT_EQ("it has ended, and its parent has not taken note", HostSurvey::trouble(processIn('Z')));
    EXPECT_EQ("its thread \"commands\" is held in the kernel, in nfs_wait",
              HostSurvey::trouble(processIn('S', 'D')));
    EXPECT_EQ("its thread \"commands\" computes without a pause",
              HostSurvey::trouble(processIn('R', 'R', 95)));
}

TEST_F(HostSurveyTest, NothingIsWell) {
    EXPECT_TRUE(take().isWell());
}
