#include "NameLookup.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

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

/// On a machine whose resolver is asked and never answers: whether the lookup goes on, and is given up at
/// once.
bool givesUpALookup(const std::string& file) {
    if (const std::string refusal = PrivateMachine::enter(); !refusal.empty()) {
        std::cerr << "skipped: " << refusal;
        return true;
    }
    const base::UniqueFd resolver(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = ::htons(53);
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    if (::bind(resolver.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        !PrivateMachine::shell("echo nameserver 127.0.0.1 >" + file + " && mount --bind " + file +
                               " /etc/resolv.conf"))
        return false;
    const NameLookup sut("broker.test");
    char question[512];
    if (::recv(resolver.get(), question, sizeof question, 0) <= 0)
        return false;
    std::cerr << "asked";
    return sut.state() == NameLookup::EState::UnderWay;
}

TEST(NameLookupDeathTest, ResolverThatDoesNotAnswerHoldsNobodyUp) {
    const TemporaryDirectory directory;
    // Without the destructors of the child: they are this process's.
    EXPECT_EXIT(std::_Exit(givesUpALookup(directory.path("resolv.conf")) ? 0 : 1), testing::ExitedWithCode(0),
                "asked|skipped: ");
}

}  // namespace
