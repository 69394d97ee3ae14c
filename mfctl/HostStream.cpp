#include "HostStream.h"

#include <chrono>
#include <thread>

#include "ControlError.h"
#include "HostReturn.h"
#include "RemoteControl.h"

namespace {
/// Before it is asked again where the stream has ended.
constexpr std::chrono::milliseconds s_openPause{200};
}  // namespace

bool HostStream::readOnce(const std::string& target, bool follows, const Take& take) {
    const auto takeLine = [&](const std::string& line) {
        const ApiClient::Json json = ApiClient::Json::parse(line, nullptr, false);
        const JsonView record(json);
        m_wasThere = true;
        if (const std::string cursor = record.text("cursor"); !cursor.empty())
            m_cursor = cursor;
        const std::string kind = record.text("kind");
        if (kind == "hello" && record.flag("restarted"))
            m_screen.complain("the host at " + m_client.socket() + " was started anew");
        if (kind == "hello" || kind == "heartbeat")
            return true;
        m_isEnough = !take(record, line);
        return !m_isEnough;
    };
    using Clock = HttpConnection::Clock;
    const auto end = follows ? Clock::time_point::max() : Clock::now() + ApiClient::s_usualLimit;
    const ApiClient::Reply reply = m_client.follow(target, takeLine, end);
    if (!reply.isError())
        return !follows || m_isEnough;
    // A host of a former version has no such resource.
    const std::string code = reply.view().member("error").text("code");
    m_isRefused = m_cursor.empty() && (code == "refused" || code == "not-found");
    if (!m_isRefused)
        throw ControlError(RemoteControl::errorExit(reply), RemoteControl::errorText(reply));
    return true;
}

bool HostStream::read(const std::string& query, unsigned last, bool follows, const Take& take) {
    const std::string begin = "/stream?" + query + "&lines=1" + (follows ? "" : "&follow=0");
    for (;; std::this_thread::sleep_for(s_openPause)) {
        std::string reason = "the host at " + m_client.socket() + " has ended the stream";
        try {
            const std::string from =
                m_cursor.empty() ? "&last=" + std::to_string(last) : "&from=" + ApiClient::encoded(m_cursor);
            if (readOnce(begin + from, follows, take))
                return !m_isRefused;
        } catch (const ControlError& error) {
            const bool mayReturn = error.exit() == EExit::NoHost || error.exit() == EExit::NotFinished;
            if (!follows || !mayReturn || !m_wasThere)
                throw;
            reason = error.what();
        }
        HostReturn(m_client, m_screen).awaitHost(reason);
    }
}
