#include "NameLookup.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

#include "HangGuard.h"
#include "PrivateMachine.h"
#include "TemporaryDirectory.h"
#include "UniqueFd.h"

namespace {

NameLookup::EState ended(const NameLookup& sut) {
    EXPECT_TRUE(eventually([&] { return sut.state() != NameLookup::EState::UnderWay; }));
    return sut.state();
}

TEST(NameLookup, AddressIsFound) {
    const NameLookup sut("127.0.0.1");
    EXPECT_EQ(ended(sut), NameLookup::EState::Found);
}

TEST(NameLookup, WhatCanBeNoNameHasFailedWithTheSystemsReason) {
    const NameLookup sut(std::string(300, 'x'));
    EXPECT_EQ(ended(sut), NameLookup::EState::Failed);
    EXPECT_EQ(sut.fault(), "Name or service not known");
}

constexpr int s_noMachine = 77;

/// In a process of its own, on a machine whose resolver is asked and never answers: 0 where the lookup goes
/// on meanwhile and is given up at once.
int giveUpALookup(const std::string& file) {
    if (const std::string refusal = PrivateMachine::enter(); !refusal.empty()) {
        std::cerr << refusal << std::endl;
        return s_noMachine;
    }
    const base::UniqueFd resolver(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const timeval patience{std::chrono::seconds(c_hangGuard).count(), 0};
    ::setsockopt(resolver.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = ::htons(53);
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    if (::bind(resolver.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        !PrivateMachine::shell("echo nameserver 127.0.0.1 >" + file + " && mount --bind " + file +
                               " /etc/resolv.conf"))
        return 1;
    const NameLookup sut("broker.test");
    char question[512];
    if (::recv(resolver.get(), question, sizeof question, 0) <= 0)
        return 2;
    return sut.state() == NameLookup::EState::UnderWay ? 0 : 3;
}

// Named so that it runs first: the C library of a child of a process that has looked names up believes in
// threads that the child does not have.
TEST(NameLookupDeathTest, ResolverThatDoesNotAnswerHoldsNobodyUp) {
    const TemporaryDirectory directory;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    // Without destructors: what there is is this process's.
    if (child == 0)
        std::_Exit(giveUpALookup(directory.path("resolv.conf")));
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == s_noMachine)
        GTEST_SKIP() << "needs a network and mounts of its own";
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
