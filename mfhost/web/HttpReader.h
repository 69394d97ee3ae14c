#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "ApiCall.h"
#include "ApiFault.h"
#include "HttpLimits.h"
#include "HttpRequest.h"

/// Reads the requests of one connection out of its bytes, however these are cut. Owned by the connection's
/// session, API thread. Knows nothing of sockets.
class HttpReader {
public:
    enum class EState {
        Between,   ///< of the next request there is nothing yet
        Header,    ///< in its first lines
        Body,      ///< the first lines are there
        Complete,  ///< a request waits for take()
        Failed,  ///< the bytes are no request that is taken here: fault() says why, and nothing more is read
    };

    explicit HttpReader(const HttpLimits& limits);
    ~HttpReader();
    HttpReader(const HttpReader&) = delete;
    HttpReader& operator=(const HttpReader&) = delete;

    /// Reads on, to the end of one request at most. How many of the bytes are used up; the others are to be
    /// given again, with those that follow.
    std::size_t read(std::string_view bytes);
    EState state() const { return m_state; }

    /// Whether the client waits to be told that it may send the body.
    bool expectsContinue() const;
    /// The complete request; the reader stands between two then.
    HttpRequest take();
    /// What the client is told before the connection ends.
    const ApiAnswer& fault() const { return m_fault; }

private:
    struct Parser;

    std::size_t parse(std::string_view bytes);
    void checkHeader();
    void fail(const ApiFault& fault);

    const HttpLimits& m_limits;
    std::unique_ptr<Parser> m_pParser;
    EState m_state = EState::Between;
    std::size_t m_headerSize = 0;  ///< of what was used up
    ApiAnswer m_fault;
};
