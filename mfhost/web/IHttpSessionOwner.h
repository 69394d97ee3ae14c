#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "ApiCall.h"
#include "ApiThreadDoor.h"
#include "HttpLimits.h"
#include "HttpRequest.h"

/// What a session needs of the server that owns it. API thread.
class IHttpSessionOwner {
public:
    virtual ~IHttpSessionOwner() = default;

    virtual const HttpLimits& limits() const = 0;
    virtual std::shared_ptr<ApiThreadDoor> door() const = 0;

    /// The session has this request; whether it may begin, or there are too many now.
    virtual bool takeRequest(const ApiCaller& caller, const HttpRequest& request) = 0;
    /// Answers it once, at once or later, on any thread; HEAD comes as GET. Does not throw.
    virtual void handle(HttpRequest request, const ApiCaller& connection,
                        std::function<void(ApiAnswer)> answer) = 0;
    /// Bytes of answers that no client of any session has taken yet.
    virtual std::size_t& unsent() = 0;
    /// The session is closed. The owner may let go of it.
    virtual void ended(std::uint64_t session) = 0;
};
