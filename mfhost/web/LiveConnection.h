#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <cstdint>
#include <memory>

#include "HttpRequest.h"
#include "ILiveOwner.h"
#include "LiveChannel.h"

/// The connection of one open page: a WebSocket, with TLS or without. Kept by its owner and by what is under
/// way; API thread.
class LiveConnection : public LiveChannel::IPage {
public:
    using PlainStream = boost::asio::ip::tcp::socket;
    using TlsStream = boost::asio::ssl::stream<PlainStream>;

    /// Answers the request, which asks for a WebSocket and came by that stream.
    static std::shared_ptr<LiveConnection> make(PlainStream stream, const HttpRequest& request,
                                                std::uint64_t id, ILiveOwner& owner);
    static std::shared_ptr<LiveConnection> make(TlsStream stream, const HttpRequest& request,
                                                std::uint64_t id, ILiveOwner& owner);

    /// Once the owner holds it.
    virtual void start() = 0;
    /// At once; what was not sent is gone.
    virtual void close() = 0;
};
