#include "NotifySocket.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "DatagramReceiver.h"
#include "TemporaryDirectory.h"

namespace {

using EPatience = NotifySocket::EPatience;

TEST(NotifySocket, SendsToThePath) {
    const TemporaryDirectory directory;
    const DatagramReceiver manager(directory.path("notify"));
    const NotifySocket sut(manager.path());
    EXPECT_TRUE(sut.isThere());
    EXPECT_EQ(sut.send("READY=1\n", EPatience::Short), "");
    EXPECT_EQ(manager.receive(), "READY=1\n");
}

TEST(NotifySocket, SendsToANameInNoFileSystem) {
    const DatagramReceiver manager("@mfd-test-" + std::to_string(::getpid()));
    const NotifySocket sut(manager.path());
    EXPECT_EQ(sut.send("READY=1\n", EPatience::None), "");
    EXPECT_EQ(manager.receive(), "READY=1\n");
}

TEST(NotifySocket, WithoutAnAddressThereIsNobodyToTell) {
    const NotifySocket sut("");
    EXPECT_FALSE(sut.isThere());
    EXPECT_EQ(sut.send("READY=1\n", EPatience::Short), "");
}

TEST(NotifySocket, SaysWhatIsWrong) {
    EXPECT_EQ(NotifySocket("/nowhere/notify").send("READY=1\n", EPatience::Short),
              "/nowhere/notify: No such file or directory");
    EXPECT_EQ(NotifySocket(std::string(200, 'x')).send("READY=1\n", EPatience::Short),
              "NOTIFY_SOCKET is too long for a socket's name");
}

TEST(NotifySocket, DoesNotWaitWhereItMustNot) {
    const TemporaryDirectory directory;
    const DatagramReceiver manager(directory.path("notify"));
    const NotifySocket sut(manager.path());
    std::string reason;
    // Until the socket is full, which takes more or fewer by the machine's setting.
    for (int i = 0; i < 100'000 && reason.empty(); ++i)
        reason = sut.send("WATCHDOG=1\n", EPatience::None);
    EXPECT_EQ(reason, manager.path() + ": Resource temporarily unavailable");
}

TEST(NotifySocket, PatienceHasAnEnd) {
    const TemporaryDirectory directory;
    const DatagramReceiver manager(directory.path("notify"));
    const NotifySocket sut(manager.path());
    std::string reason;
    for (int i = 0; i < 100'000 && reason.empty(); ++i)
        reason = sut.send("WATCHDOG=1\n", EPatience::None);
    EXPECT_EQ(sut.send("READY=1\n", EPatience::Short), manager.path() + ": Resource temporarily unavailable");
}

}  // namespace
