#include "SandboxNetwork.h"

#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/link/veth.h>

#include <memory>

#include "Release.h"

namespace {

using Socket = std::unique_ptr<nl_sock, base::Release<nl_socket_free>>;
using Link = std::unique_ptr<rtnl_link, base::Release<rtnl_link_put>>;
using Address = std::unique_ptr<nl_addr, base::Release<nl_addr_put>>;
using LinkAddress = std::unique_ptr<rtnl_addr, base::Release<rtnl_addr_put>>;

std::string refused(const std::string& step, int error) {
    return step + ": " + nl_geterror(error);
}

std::string bringUp(nl_sock* pSocket, const char* name) {
    rtnl_link* pFound = nullptr;
    if (const int error = rtnl_link_get_kernel(pSocket, 0, name, &pFound); error < 0)
        return refused(std::string("find ") + name, error);
    const Link found(pFound);
    const Link change(rtnl_link_alloc());
    rtnl_link_set_flags(change.get(), IFF_UP);
    if (const int error = rtnl_link_change(pSocket, found.get(), change.get(), 0); error < 0)
        return refused(std::string("bring up ") + name, error);
    return {};
}

/// One end of a veth pair, so that eth0 has a carrier; a dummy where there is no veth.
std::string addEth0(nl_sock* pSocket) {
    const Link pair(rtnl_link_veth_alloc());
    rtnl_link_set_name(pair.get(), "eth0");
    rtnl_link* pPeer = rtnl_link_veth_get_peer(pair.get());
    rtnl_link_set_name(pPeer, "peer0");
    rtnl_link_put(pPeer);
    const int vethError = rtnl_link_add(pSocket, pair.get(), NLM_F_CREATE | NLM_F_EXCL);
    if (vethError >= 0)
        return bringUp(pSocket, "peer0");
    const Link dummy(rtnl_link_alloc());
    rtnl_link_set_name(dummy.get(), "eth0");
    rtnl_link_set_type(dummy.get(), "dummy");
    if (const int error = rtnl_link_add(pSocket, dummy.get(), NLM_F_CREATE | NLM_F_EXCL); error < 0)
        return "add eth0: veth " + std::string(nl_geterror(vethError)) + ", dummy " + nl_geterror(error);
    return {};
}

std::string addAddress(nl_sock* pSocket, const char* name, const std::string& text) {
    nl_addr* pParsed = nullptr;
    if (const int error = nl_addr_parse(text.c_str(), AF_INET, &pParsed); error < 0)
        return refused("address " + text, error);
    const Address parsed(pParsed);
    const LinkAddress address(rtnl_addr_alloc());
    rtnl_addr_set_ifindex(address.get(), static_cast<int>(if_nametoindex(name)));
    rtnl_addr_set_local(address.get(), parsed.get());
    if (const int error = rtnl_addr_add(pSocket, address.get(), 0); error < 0)
        return refused("add " + text + " to " + name, error);
    return {};
}

}  // namespace

std::string setUpSandboxNetwork(const std::string& address) {
    const Socket socket(nl_socket_alloc());
    if (!socket)
        return "no memory for a netlink socket";
    if (const int error = nl_connect(socket.get(), NETLINK_ROUTE); error < 0)
        return refused("netlink", error);
    if (std::string refusal = bringUp(socket.get(), "lo"); !refusal.empty())
        return refusal;
    if (std::string refusal = addEth0(socket.get()); !refusal.empty())
        return refusal;
    if (std::string refusal = bringUp(socket.get(), "eth0"); !refusal.empty())
        return refusal;
    return addAddress(socket.get(), "eth0", address);
}
