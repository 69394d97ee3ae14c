#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "ILiveSource.h"
#include "WebSessions.h"

/// Tells the open pages what changes: at each tick what has come since the page was told last, which is
/// written once for all that know the same; a heartbeat each second. A page that does not take what it is
/// sent is passed over, and told all at once when it does; one that takes nothing for long is let go. Owned
/// by WebListener; API thread.
class LiveChannel {
public:
    using Clock = std::chrono::steady_clock;
    using Text = std::shared_ptr<const std::string>;

    /// The connection of a page.
    class IPage {
    public:
        virtual ~IPage() = default;
        /// Sends it when what came before is sent. Returns at once.
        virtual void send(Text message) = 0;
        /// Bytes that are not sent yet.
        virtual std::size_t unsent() const = 0;
        /// Sends it as the last message, then closes; at once where that takes long.
        virtual void sendLast(Text message) = 0;
    };

    struct Settings {
        std::chrono::milliseconds heartbeat{1000};
        std::size_t mostUnsent = 256 * 1024;  ///< a page with more is passed over
        std::chrono::seconds mostPatience{30};
        std::function<std::chrono::system_clock::time_point()> now = &std::chrono::system_clock::now;
    };

    /// Source and sessions live as long as the channel.
    LiveChannel(ILiveSource& source, const WebSessions& sessions, Settings settings)
        : m_source(source), m_sessions(sessions), m_settings(std::move(settings)) {}

    /// The page is told from now on, first who it is; it lives until leave().
    void join(std::uint64_t id, IPage& page, const WebSessions::Session& session);
    void leave(std::uint64_t id) { m_pages.erase(id); }
    bool isEmpty() const { return m_pages.empty(); }

    void tick(Clock::time_point now);
    /// Every page is told that, and goes.
    void end(const char* pCode, const std::string& text);

    /// The last message to a page.
    static Text bye(const char* pCode, const std::string& text);

private:
    struct Member {
        IPage* pPage;
        std::uint64_t session;
        LivePosition position = {};
        std::uint64_t version = 0;  ///< up to which the page has been told
        std::optional<Clock::time_point> slowSince = {};
    };
    struct Chunk {
        LiveChanges changes;
        Text text;  ///< null where nothing has changed
    };
    using Pages = std::map<std::uint64_t, Member>;

    Chunk chunkFrom(const Member& member, std::uint64_t next) const;
    bool isSlow(Member& member, Clock::time_point now) const;
    void tellTime(const Member& member) const;
    std::int64_t microseconds() const;

    ILiveSource& m_source;
    const WebSessions& m_sessions;
    const Settings m_settings;
    Pages m_pages;
    std::uint64_t m_version = 0;  ///< of the last chunk
    std::optional<Clock::time_point> m_lastBeat;
};
