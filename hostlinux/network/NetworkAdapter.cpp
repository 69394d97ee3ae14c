#include "sal/NetworkAdapter.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/cache.h>
#include <netlink/errno.h>
#include <netlink/handlers.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <poll.h>

#include <bit>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "LogLine.h"
#include "Release.h"
#include "sal/LogOutput.h"

namespace sal {
namespace {

using Socket = std::unique_ptr<nl_sock, base::Release<nl_socket_free>>;
using Cache = std::unique_ptr<nl_cache, base::Release<nl_cache_free>>;
using Link = std::unique_ptr<rtnl_link, base::Release<rtnl_link_put>>;
using Address = std::unique_ptr<rtnl_addr, base::Release<rtnl_addr_put>>;
using Message = std::unique_ptr<nl_msg, base::Release<nlmsg_free>>;
using NetworkAddress = std::unique_ptr<nl_addr, base::Release<nl_addr_put>>;

/// Second name to the adapter's own.
std::map<std::string, std::string>& secondNames() {
    static std::map<std::string, std::string> s_names;
    return s_names;
}

std::string reasonOf(int error) {
    return nl_geterror(error);
}

void logError(const std::string& text) {
    logLine("NETWORK", LogOutput::eError, text);
}

/// The kernel answers at once or, where a question or its answer got lost, never.
constexpr int s_answerTimeout = 1000;

int receiveInTime(nl_sock* pSocket, sockaddr_nl* pSender, unsigned char** ppMessage, ucred** ppCredentials) {
    pollfd answer{nl_socket_get_fd(pSocket), POLLIN, 0};
    int ready = 0;
    do {
        ready = ::poll(&answer, 1, s_answerTimeout);
    } while (ready < 0 && errno == EINTR);
    return ready > 0 ? nl_recv(pSocket, pSender, ppMessage, ppCredentials) : -NLE_AGAIN;
}

/// A connection to the kernel's routing tables; null, logged, when the system refuses.
Socket connectToKernel() {
    Socket pSocket(nl_socket_alloc());
    const int error = pSocket ? nl_connect(pSocket.get(), NETLINK_ROUTE) : -NLE_NOMEM;
    if (error < 0) {
        logError("cannot ask the system for its network adapters: " + reasonOf(error));
        return nullptr;
    }
    nl_cb* pCallbacks = nl_socket_get_cb(pSocket.get());
    nl_cb_overwrite_recv(pCallbacks, receiveInTime);
    nl_cb_put(pCallbacks);
    return pSocket;
}

/// The adapters' own names, without the rest of what the kernel knows of them: each start of a driver asks.
int listNames(nl_sock* pSocket, std::vector<std::string>& names) {
    const Message pMessage(nlmsg_alloc_simple(RTM_GETLINK, NLM_F_DUMP));
    ifinfomsg header{};
    if (!pMessage || nlmsg_append(pMessage.get(), &header, sizeof(header), NLMSG_ALIGNTO) < 0 ||
        nla_put_u32(pMessage.get(), IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS) < 0)
        return -NLE_NOMEM;
    const auto take = [](nl_msg* pAnswer, void* pNames) -> int {
        if (nlattr* pName = nlmsg_find_attr(nlmsg_hdr(pAnswer), sizeof(ifinfomsg), IFLA_IFNAME))
            static_cast<std::vector<std::string>*>(pNames)->emplace_back(nla_get_string(pName));
        return NL_OK;
    };
    nl_socket_modify_cb(pSocket, NL_CB_VALID, NL_CB_CUSTOM, take, &names);
    const int error = nl_send_auto(pSocket, pMessage.get());
    return error < 0 ? error : nl_recvmsgs_default(pSocket);
}

/// The number of an adapter by its alternative name; 0 when there is none. A kernel that knows no alternative
/// names refuses the question.
int indexOfAlternativeName(nl_sock* pSocket, const std::string& name) {
    const Message pMessage(nlmsg_alloc_simple(RTM_GETLINK, 0));
    ifinfomsg header{};
    if (!pMessage || nlmsg_append(pMessage.get(), &header, sizeof(header), NLMSG_ALIGNTO) < 0 ||
        nla_put_string(pMessage.get(), IFLA_ALT_IFNAME, name.c_str()) < 0)
        return 0;
    int index = 0;
    const auto take = [](nl_msg* pAnswer, void* pIndex) -> int {
        *static_cast<int*>(pIndex) = static_cast<const ifinfomsg*>(nlmsg_data(nlmsg_hdr(pAnswer)))->ifi_index;
        return NL_OK;
    };
    nl_socket_modify_cb(pSocket, NL_CB_VALID, NL_CB_CUSTOM, take, &index);
    if (nl_send_auto(pSocket, pMessage.get()) < 0 || nl_recvmsgs_default(pSocket) < 0)
        return 0;
    return index;
}

/// 0 when there is no adapter of that name, or it cannot be told, for which error is set.
int indexOf(nl_sock* pSocket, const std::string& name, std::string& error) {
    if (name.size() < IFNAMSIZ) {
        rtnl_link* pFound = nullptr;
        const int result = rtnl_link_get_kernel(pSocket, 0, name.c_str(), &pFound);
        const Link pLink(pFound);
        if (result == 0 && pLink)
            return rtnl_link_get_ifindex(pLink.get());
        if (result < 0 && result != -NLE_NODEV && result != -NLE_OBJ_NOTFOUND) {
            error = reasonOf(result);
            return 0;
        }
    }
    return indexOfAlternativeName(pSocket, name);
}

std::optional<in_addr> parse(const HostAddress& address) {
    in_addr binary{};
    if (!address.isValid() || ::inet_pton(AF_INET, address.getAddressString().c_str(), &binary) != 1)
        return std::nullopt;
    return binary;
}

std::string textOf(const nl_addr* pAddress) {
    char text[INET_ADDRSTRLEN] = "";
    if (pAddress)
        ::inet_ntop(AF_INET, nl_addr_get_binary_addr(pAddress), text, sizeof(text));
    return text;
}

NetworkAddress networkAddress(std::uint32_t address) {
    const std::uint32_t networkOrder = htonl(address);
    return NetworkAddress(nl_addr_build(AF_INET, &networkOrder, sizeof(networkOrder)));
}

/// The length of a netmask's prefix; nothing for a mask with gaps.
std::optional<int> prefixLength(const HostAddress& netmask) {
    const auto binary = parse(netmask);
    if (!binary)
        return std::nullopt;
    const std::uint32_t bits = ntohl(binary->s_addr);
    const int length = std::countl_one(bits);
    if (std::popcount(bits) != length)
        return std::nullopt;
    return length;
}

}  // namespace

struct NetworkAdapter::Impl {
    std::string name;  // as it was opened
    int index = 0;     // 0: not open

    /// The adapter's IPv4 addresses in the kernel's order: primary ones before their secondary ones.
    std::vector<Address> addresses(nl_sock* pSocket) const;
    std::vector<Address> addresses() const;
    void restore(nl_sock* pSocket, const std::vector<Address>& before, const std::string& deleted) const;
};

std::vector<Address> NetworkAdapter::Impl::addresses(nl_sock* pSocket) const {
    nl_cache* pRaw = nullptr;
    const int error = rtnl_addr_alloc_cache(pSocket, &pRaw);
    const Cache pCache(pRaw);
    if (error < 0) {
        logError("cannot read the addresses of network adapter " + name + ": " + reasonOf(error));
        return {};
    }
    std::vector<Address> found;
    for (nl_object* pObject = nl_cache_get_first(pCache.get()); pObject;
         pObject = nl_cache_get_next(pObject)) {
        auto* pAddress = reinterpret_cast<rtnl_addr*>(pObject);
        if (rtnl_addr_get_ifindex(pAddress) != index || rtnl_addr_get_family(pAddress) != AF_INET ||
            !rtnl_addr_get_local(pAddress))
            continue;
        nl_object_get(pObject);
        found.emplace_back(pAddress);
    }
    return found;
}

std::vector<Address> NetworkAdapter::Impl::addresses() const {
    if (index == 0)
        return {};
    const Socket pSocket = connectToKernel();
    return pSocket ? addresses(pSocket.get()) : std::vector<Address>();
}

/// Puts back the secondary addresses that the kernel took away together with their primary one: they are
/// other drivers' addresses.
void NetworkAdapter::Impl::restore(nl_sock* pSocket, const std::vector<Address>& before,
                                   const std::string& deleted) const {
    const std::vector<Address> now = addresses(pSocket);
    for (const Address& pBefore : before) {
        const std::string text = textOf(rtnl_addr_get_local(pBefore.get()));
        if (text == deleted || !(rtnl_addr_get_flags(pBefore.get()) & IFA_F_SECONDARY))
            continue;
        bool there = false;
        for (const Address& pNow : now)
            there = there || (textOf(rtnl_addr_get_local(pNow.get())) == text &&
                              rtnl_addr_get_prefixlen(pNow.get()) == rtnl_addr_get_prefixlen(pBefore.get()));
        if (there)
            continue;
        rtnl_addr_unset_flags(pBefore.get(), IFA_F_SECONDARY);
        const int error = rtnl_addr_add(pSocket, pBefore.get(), 0);
        if (error < 0 && error != -NLE_EXIST)
            logError("network adapter " + name + " lost its address " + text + " together with " + deleted +
                     ": " + reasonOf(error));
    }
}

std::list<std::string> NetworkAdapter::getAdapterNameList() {
    const Socket pSocket = connectToKernel();
    if (!pSocket)
        return {};
    std::vector<std::string> realNames;
    if (const int error = listNames(pSocket.get(), realNames); error < 0) {
        logError("cannot list the network adapters: " + reasonOf(error));
        return {};
    }
    std::list<std::string> names;
    for (const std::string& name : realNames) {
        names.push_back(name);
        for (const auto& [second, real] : secondNames()) {
            if (real == name)
                names.push_back(second);
        }
    }
    return names;
}

void NetworkAdapter::setSecondName(const std::string& name, const std::string& real) {
    secondNames()[name] = real;
}

NetworkAdapter::NetworkAdapter() : m_pImpl(std::make_unique<Impl>()) {}

NetworkAdapter::~NetworkAdapter() = default;

bool NetworkAdapter::open(const std::string& name) {
    m_pImpl->name = name;
    m_pImpl->index = 0;
    const auto second = secondNames().find(name);
    const std::string& real = second == secondNames().end() ? name : second->second;
    const Socket pSocket = connectToKernel();
    if (!pSocket)
        return false;
    std::string error;
    m_pImpl->index = indexOf(pSocket.get(), real, error);
    const std::string adapter = "network adapter " + name + (real == name ? "" : " (" + real + ")");
    if (!error.empty())
        logError("cannot look for " + adapter + ": " + error);
    else if (m_pImpl->index == 0)
        logError("there is no " + adapter);
    return m_pImpl->index != 0;
}

HostAddress NetworkAdapter::getMainIpAddress() const {
    for (const Address& pAddress : m_pImpl->addresses()) {
        if (!(rtnl_addr_get_flags(pAddress.get()) & IFA_F_SECONDARY))
            return HostAddress(textOf(rtnl_addr_get_local(pAddress.get())));
    }
    return HostAddress();
}

bool NetworkAdapter::hasIpAddress(const HostAddress& address) const {
    if (!address.isValid())
        return false;
    for (const Address& pAddress : m_pImpl->addresses()) {
        if (textOf(rtnl_addr_get_local(pAddress.get())) == address.getAddressString())
            return true;
    }
    return false;
}

bool NetworkAdapter::deleteIpAddress(const HostAddress& address) {
    const std::string& text = address.getAddressString();
    const std::string what =
        "cannot delete the address " + text + " from network adapter " + m_pImpl->name + ": ";
    if (m_pImpl->index == 0) {
        logError(what + "the adapter is not open");
        return false;
    }
    const Socket pSocket = connectToKernel();
    if (!pSocket)
        return false;
    const std::vector<Address> before = m_pImpl->addresses(pSocket.get());
    bool found = false;
    bool deleted = true;
    for (const Address& pAddress : before) {
        if (textOf(rtnl_addr_get_local(pAddress.get())) != text)
            continue;
        found = true;
        const int error = rtnl_addr_delete(pSocket.get(), pAddress.get(), 0);
        if (error < 0) {
            logError(what + reasonOf(error));
            deleted = false;
        }
    }
    if (!found)
        logError(what + "it is not there");
    if (found && deleted)
        m_pImpl->restore(pSocket.get(), before, text);
    return found && deleted;
}

bool NetworkAdapter::addIpAddress(const HostAddress& address, const HostAddress& netmask) {
    const std::string what = "cannot add the address " + address.getAddressString() + " to network adapter " +
                             m_pImpl->name + ": ";
    const auto binary = parse(address);
    const auto prefix = prefixLength(netmask);
    if (m_pImpl->index == 0)
        logError(what + "the adapter is not open");
    else if (!binary)
        logError(what + "it is no IPv4 address such as 192.0.2.10");
    else if (!prefix)
        logError(what + "\"" + netmask.getAddressString() + "\" is no netmask such as 255.255.255.0");
    if (m_pImpl->index == 0 || !binary || !prefix)
        return false;

    const Socket pSocket = connectToKernel();
    const Address pAddress(rtnl_addr_alloc());
    const std::uint32_t number = ntohl(binary->s_addr);
    const NetworkAddress pLocal = networkAddress(number);
    if (!pSocket)
        return false;
    if (!pAddress || !pLocal) {
        logError(what + reasonOf(-NLE_NOMEM));
        return false;
    }
    nl_addr_set_prefixlen(pLocal.get(), *prefix);
    rtnl_addr_set_ifindex(pAddress.get(), m_pImpl->index);
    rtnl_addr_set_local(pAddress.get(), pLocal.get());
    rtnl_addr_set_prefixlen(pAddress.get(), *prefix);
    if (*prefix < 31) {
        const NetworkAddress pBroadcast = networkAddress(number | (0xffffffffu >> *prefix));
        if (pBroadcast)
            rtnl_addr_set_broadcast(pAddress.get(), pBroadcast.get());
    }
    const int error = rtnl_addr_add(pSocket.get(), pAddress.get(), NLM_F_EXCL);
    if (error < 0)
        logError(what + reasonOf(error));
    return error >= 0;
}

}  // namespace sal
