#include "SandboxNetwork.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <map>

namespace {

/// Runs the body in a process with a fresh network namespace; 77 where there is none to be had.
int inNetworkNamespace(const std::function<bool()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (::unshare(CLONE_NEWNET) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
            ::_exit(77);
        ::_exit(body() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// IPv4 addresses of the adapters that are up, with their netmasks.
std::map<std::string, std::string> addresses() {
    std::map<std::string, std::string> found;
    ifaddrs* pFirst = nullptr;
    ::getifaddrs(&pFirst);
    for (const ifaddrs* p = pFirst; p; p = p->ifa_next) {
        if (!p->ifa_addr || p->ifa_addr->sa_family != AF_INET || !(p->ifa_flags & IFF_UP))
            continue;
        char address[INET_ADDRSTRLEN];
        char netmask[INET_ADDRSTRLEN];
        ::inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(p->ifa_addr)->sin_addr, address, sizeof address);
        ::inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(p->ifa_netmask)->sin_addr, netmask,
                    sizeof netmask);
        found[p->ifa_name] = std::string(address) + " " + netmask;
    }
    ::freeifaddrs(pFirst);
    return found;
}

bool isRunning(const std::string& adapter) {
    ifaddrs* pFirst = nullptr;
    ::getifaddrs(&pFirst);
    bool isFound = false;
    for (const ifaddrs* p = pFirst; p; p = p->ifa_next)
        isFound = isFound || (adapter == p->ifa_name && (p->ifa_flags & IFF_RUNNING));
    ::freeifaddrs(pFirst);
    return isFound;
}

}  // namespace

TEST(SandboxNetwork, BringsUpLoAndAnEth0WithTheAddress) {
    const int code = inNetworkNamespace([] {
        return setUpSandboxNetwork("192.0.2.10/24").empty() &&
               addresses() == std::map<std::string, std::string>{{"lo", "127.0.0.1 255.0.0.0"},
                                                                 {"eth0", "192.0.2.10 255.255.255.0"}};
    });
    if (code == 77)
        GTEST_SKIP() << "needs a network namespace";
    EXPECT_EQ(0, code);
}

TEST(SandboxNetwork, Eth0HasACarrier) {
    const int code = inNetworkNamespace([] {
        if (!setUpSandboxNetwork("192.0.2.10/24").empty())
            return false;
        // The kernel reports it a moment after the other end is up.
        for (int i = 0; i < 1000 && !isRunning("eth0"); ++i)
            ::usleep(5000);
        return isRunning("eth0");
    });
    if (code == 77)
        GTEST_SKIP() << "needs a network namespace";
    EXPECT_EQ(0, code);
}

TEST(SandboxNetwork, SaysWhichAddressIsNone) {
    const int code = inNetworkNamespace([] {
        const std::string reason = setUpSandboxNetwork("192.0.2.300/24");
        return reason.starts_with("address 192.0.2.300/24: ");
    });
    if (code == 77)
        GTEST_SKIP() << "needs a network namespace";
    EXPECT_EQ(0, code);
}
