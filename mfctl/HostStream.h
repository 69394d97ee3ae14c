#pragma once

#include <functional>
#include <string>

#include "ApiClient.h"
#include "JsonView.h"
#include "Screen.h"

/// What happens in a host, as its API tells it. Goes on where it was when the connection breaks off or the
/// host is started anew. Main thread.
class HostStream {
public:
    HostStream(ApiClient& client, const Screen& screen) : m_client(client), m_screen(screen) {}

    /// A record or a gap, and the line that it stands on; false where no more is wanted.
    using Take = std::function<bool(const JsonView& record, const std::string& json)>;
    /// The last so many records that the query asks for, and, when it follows, what comes after them, until
    /// no more is wanted; a host that goes is waited for then. False where the host does not record: nothing
    /// was taken. Throws a ControlError for any other refusal.
    bool read(const std::string& query, unsigned last, bool follows, const Take& take);

private:
    bool readOnce(const std::string& target, bool follows, const Take& take);

    ApiClient& m_client;
    const Screen m_screen;
    std::string m_cursor;      ///< of what comes next; empty for none
    bool m_isRefused = false;  ///< the host does not record
    bool m_isEnough = false;
    bool m_wasThere = false;
};
