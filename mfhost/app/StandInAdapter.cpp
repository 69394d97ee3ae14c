#include "StandInAdapter.h"

#include <linux/if.h>
#include <netlink/cache.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include "Release.h"

std::string standInAdapter() {
    const std::unique_ptr<nl_sock, base::Release<nl_socket_free>> socket(nl_socket_alloc());
    nl_cache* pLinks = nullptr;
    if (!socket || nl_connect(socket.get(), NETLINK_ROUTE) < 0 ||
        rtnl_link_alloc_cache(socket.get(), AF_UNSPEC, &pLinks) < 0)
        return {};
    const std::unique_ptr<nl_cache, base::Release<nl_cache_free>> links(pLinks);
    std::string firstUp;
    for (nl_object* pObject = nl_cache_get_first(pLinks); pObject; pObject = nl_cache_get_next(pObject)) {
        auto* pLink = reinterpret_cast<rtnl_link*>(pObject);
        const std::string_view name = rtnl_link_get_name(pLink);
        if (name.starts_with("eth"))
            return {};
        if (name != "lo" && rtnl_link_get_operstate(pLink) == IF_OPER_UP)
            firstUp = firstUp.empty() ? name : std::min<std::string_view>(firstUp, name);
    }
    return firstUp.empty() ? "lo" : firstUp;
}
