#include "sal/NetworkAdapter.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "LogCapture.h"
#include "WithoutCapabilities.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// A network namespace of the test's own with the veth pair eth0 and far.
class NetworkAdapter : public testing::Test {
protected:
    void SetUp() override {
        m_before = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
        if (::unshare(CLONE_NEWNET) != 0 && !unshareAsUser())
            GTEST_SKIP() << "no network namespace of its own: " << std::strerror(errno);
        if (!ip("link add eth0 type veth peer name far"))
            GTEST_SKIP() << "no veth pair in the kernel, or no ip command";
    }
    void TearDown() override {
        // Refused where the namespace came with a user namespace; the process is the test's own then.
        static_cast<void>(::setns(m_before, CLONE_NEWNET));
        ::close(m_before);
    }

    /// Becomes root of a user namespace, since the ip command has no rights otherwise.
    static bool unshareAsUser() {
        const std::string user = "0 " + std::to_string(::getuid()) + " 1";
        const std::string group = "0 " + std::to_string(::getgid()) + " 1";
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
            return false;
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << user;
        std::ofstream("/proc/self/gid_map") << group;
        return true;
    }

    static bool ip(const std::string& arguments) {
        return std::system(("ip " + arguments + " 2>/dev/null").c_str()) == 0;
    }

    static std::string addresses() {
        std::string text;
        std::FILE* pPipe = ::popen("ip -4 -o address show dev eth0", "r");
        std::array<char, 256> line{};
        while (pPipe && std::fgets(line.data(), line.size(), pPipe))
            text += line.data();
        ::pclose(pPipe);
        return text;
    }

    bool open(const std::string& name = "eth0") { return sut.open(name); }

    sal::NetworkAdapter sut;

private:
    int m_before = -1;
};

TEST_F(NetworkAdapter, ListHasTheNamesInTheKernelsOrder) {
    EXPECT_THAT(sal::NetworkAdapter::getAdapterNameList(), ElementsAre("lo", "far", "eth0"));
}

TEST_F(NetworkAdapter, SecondNameFollowsItsAdapterInTheList) {
    ip("link set far name enp3s0");
    sal::NetworkAdapter::setSecondName("eth7", "enp3s0");
    EXPECT_THAT(sal::NetworkAdapter::getAdapterNameList(), ElementsAre("lo", "enp3s0", "eth7", "eth0"));
}

TEST_F(NetworkAdapter, OpensByItsName) {
    EXPECT_TRUE(open());
}

TEST_F(NetworkAdapter, OpensBySecondName) {
    sal::NetworkAdapter::setSecondName("panel", "eth0");
    ASSERT_TRUE(open("panel"));
    ip("address add 192.0.2.10/24 dev eth0");
    EXPECT_EQ(sut.getMainIpAddress().getAddressString(), "192.0.2.10");
}

TEST_F(NetworkAdapter, OpensByTheKernelsAlternativeName) {
    const std::string name = "an-alternative-name-of-thirty-characters";
    ASSERT_TRUE(ip("link property add dev eth0 altname " + name));
    ASSERT_TRUE(open(name));
    ip("address add 192.0.2.10/24 dev eth0");
    EXPECT_EQ(sut.getMainIpAddress().getAddressString(), "192.0.2.10");
}

TEST_F(NetworkAdapter, MissingAdapterIsNotOpened) {
    LogCapture log;
    EXPECT_FALSE(open("eth9"));
    EXPECT_FALSE(open(""));
    EXPECT_THAT(log.finish(), HasSubstr("error    NETWORK: there is no network adapter eth9\n"));
}

TEST_F(NetworkAdapter, WithoutAddressTheMainOneIsEmpty) {
    open();
    EXPECT_EQ(sut.getMainIpAddress().getAddressString(), "");
}

TEST_F(NetworkAdapter, NotOpenedItHasNoAddress) {
    EXPECT_EQ(sut.getMainIpAddress().getAddressString(), "");
    EXPECT_FALSE(sut.hasIpAddress("192.0.2.10"));
}

TEST_F(NetworkAdapter, MainAddressIsTheFirstPrimaryOne) {
    ip("address add 192.0.2.10/24 dev eth0");
    ip("address add 192.0.2.11/24 dev eth0");
    ip("address add 198.51.100.1/24 dev eth0");
    open();
    EXPECT_EQ(sut.getMainIpAddress().getAddressString(), "192.0.2.10");
}

TEST_F(NetworkAdapter, AddressesOfOtherAdaptersAreNotItsOwn) {
    ip("address add 192.0.2.10/24 dev far");
    open();
    EXPECT_EQ(sut.getMainIpAddress().getAddressString(), "");
    EXPECT_FALSE(sut.hasIpAddress("192.0.2.10"));
}

TEST_F(NetworkAdapter, HasPrimaryAndSecondaryAddresses) {
    ip("address add 192.0.2.10/24 dev eth0");
    ip("address add 192.0.2.11/24 dev eth0");
    open();
    EXPECT_TRUE(sut.hasIpAddress("192.0.2.10"));
    EXPECT_TRUE(sut.hasIpAddress("192.0.2.11"));
    EXPECT_FALSE(sut.hasIpAddress("192.0.2.1"));
    EXPECT_FALSE(sut.hasIpAddress("rubbish"));
}

TEST_F(NetworkAdapter, AddedAddressHasThePrefixOfTheNetmask) {
    open();
    EXPECT_TRUE(sut.addIpAddress("192.0.2.10", "255.255.255.0"));
    EXPECT_THAT(addresses(), HasSubstr("192.0.2.10/24 brd 192.0.2.255"));
    EXPECT_TRUE(sut.addIpAddress("198.51.100.1", "255.255.255.255"));
    EXPECT_THAT(addresses(), HasSubstr("198.51.100.1/32"));
}

class NetworkAdapterNetmask : public NetworkAdapter, public testing::WithParamInterface<const char*> {};

TEST_P(NetworkAdapterNetmask, IsRefusedWhenItIsNone) {
    open();
    LogCapture log;
    EXPECT_FALSE(sut.addIpAddress("192.0.2.10", GetParam()));
    EXPECT_EQ(addresses(), "");
    EXPECT_THAT(log.finish(),
                HasSubstr("error    NETWORK: cannot add the address 192.0.2.10 to network adapter eth0: "
                          "\"" +
                          std::string(GetParam()) + "\" is no netmask such as 255.255.255.0\n"));
}

INSTANTIATE_TEST_SUITE_P(Texts, NetworkAdapterNetmask,
                         testing::Values("255.0.255.0", "0.255.255.255", "255.255.255.1", "24", "",
                                         "255.255.255"));

TEST_F(NetworkAdapter, MalformedAddressIsRefused) {
    open();
    LogCapture log;
    EXPECT_FALSE(sut.addIpAddress("192.0.2.300", "255.255.255.0"));
    EXPECT_EQ(addresses(), "");
    EXPECT_THAT(log.finish(), HasSubstr("192.0.2.300 to network adapter eth0: it is no IPv4 address"));
}

TEST_F(NetworkAdapter, AddressThatIsThereIsNotAddedAgain) {
    open();
    sut.addIpAddress("192.0.2.10", "255.255.255.0");
    LogCapture log;
    EXPECT_FALSE(sut.addIpAddress("192.0.2.10", "255.255.255.0"));
    EXPECT_THAT(log.finish(), HasSubstr("cannot add the address 192.0.2.10 to network adapter eth0: "));
}

TEST_F(NetworkAdapter, DeletesOneAddress) {
    ip("address add 192.0.2.10/24 dev eth0");
    ip("address add 192.0.2.11/24 dev eth0");
    open();
    EXPECT_TRUE(sut.deleteIpAddress("192.0.2.11"));
    EXPECT_THAT(addresses(), HasSubstr("192.0.2.10/24"));
    EXPECT_THAT(addresses(), Not(HasSubstr("192.0.2.11")));
}

TEST_F(NetworkAdapter, DeletesAnAddressWithWhateverNetmask) {
    ip("address add 192.0.2.10/28 dev eth0");
    open();
    EXPECT_TRUE(sut.deleteIpAddress("192.0.2.10"));
    EXPECT_EQ(addresses(), "");
}

TEST_F(NetworkAdapter, DeletingAPrimaryAddressKeepsItsSecondaryOnes) {
    ip("address add 192.0.2.10/24 dev eth0");
    ip("address add 198.51.100.1/24 dev eth0");
    ip("address add 198.51.100.2/24 dev eth0");
    ip("address add 198.51.100.3/24 dev eth0");
    open();
    EXPECT_TRUE(sut.deleteIpAddress("198.51.100.1"));
    EXPECT_THAT(addresses(), Not(HasSubstr("198.51.100.1/")));
    EXPECT_THAT(addresses(), HasSubstr("198.51.100.2/24"));
    EXPECT_THAT(addresses(), HasSubstr("198.51.100.3/24"));
    EXPECT_EQ(sut.getMainIpAddress().getAddressString(), "192.0.2.10");
}

TEST_F(NetworkAdapter, SecondaryAddressIsKeptThoughItIsThereWithAnotherPrefixToo) {
    ip("address add 198.51.100.1/24 dev eth0");
    ip("address add 198.51.100.2/24 dev eth0");
    ip("address add 198.51.100.2/32 dev eth0");
    open();
    EXPECT_TRUE(sut.deleteIpAddress("198.51.100.1"));
    EXPECT_THAT(addresses(), HasSubstr("198.51.100.2/24"));
    EXPECT_THAT(addresses(), HasSubstr("198.51.100.2/32"));
}

TEST_F(NetworkAdapter, AddressThatIsNotThereIsNotDeleted) {
    open();
    LogCapture log;
    EXPECT_FALSE(sut.deleteIpAddress("192.0.2.10"));
    EXPECT_THAT(log.finish(),
                HasSubstr("error    NETWORK: cannot delete the address 192.0.2.10 from network adapter "
                          "eth0: it is not there\n"));
}

TEST_F(NetworkAdapter, NotOpenedItChangesNothing) {
    const LogCapture log;
    EXPECT_FALSE(sut.addIpAddress("192.0.2.10", "255.255.255.0"));
    EXPECT_FALSE(sut.deleteIpAddress("192.0.2.10"));
}

TEST_F(NetworkAdapter, MissingRightsAreSaidInTheSystemsWords) {
    ip("address add 192.0.2.11/24 dev eth0");
    open();
    const WithoutCapabilities rights{CAP_NET_ADMIN};
    ASSERT_FALSE(WithoutCapabilities::has(CAP_NET_ADMIN));
    LogCapture log;
    EXPECT_FALSE(sut.addIpAddress("192.0.2.10", "255.255.255.0"));
    EXPECT_FALSE(sut.deleteIpAddress("192.0.2.11"));
    const std::string text = log.finish();
    EXPECT_THAT(
        text,
        HasSubstr("cannot add the address 192.0.2.10 to network adapter eth0: Operation not permitted\n"));
    EXPECT_THAT(
        text,
        HasSubstr(
            "cannot delete the address 192.0.2.11 from network adapter eth0: Operation not permitted\n"));
}

TEST_F(NetworkAdapter, RemovedAdapterHasNoAddressAndTakesNone) {
    open();
    ip("link delete eth0");
    const LogCapture log;
    EXPECT_EQ(sut.getMainIpAddress().getAddressString(), "");
    EXPECT_FALSE(sut.addIpAddress("192.0.2.10", "255.255.255.0"));
}

}  // namespace
