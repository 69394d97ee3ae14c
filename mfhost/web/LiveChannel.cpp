#include "LiveChannel.h"

#include <utility>

#include "JsonText.h"

std::int64_t LiveChannel::microseconds() const {
    return std::chrono::duration_cast<std::chrono::microseconds>(m_settings.now().time_since_epoch()).count();
}

void LiveChannel::join(std::uint64_t id, IPage& page, const WebSessions::Session& session) {
    JsonText own;
    own.beginObject()
        .member("role", inWords(session.role))
        .member("user", session.user)
        .member("session", std::to_string(session.id))
        .member("time", microseconds())
        .member("version", m_version)
        .member("heartbeat", m_settings.heartbeat)
        .endObject();
    page.send(std::make_shared<const std::string>(R"({"kind":"hello",)" + m_source.host() + "," +
                                                  own.take().substr(1)));
    m_pages.insert_or_assign(id, Member{.pPage = &page, .session = session.id});
}

LiveChannel::Text LiveChannel::bye(const char* pCode, const std::string& text) {
    JsonText json;
    json.beginObject().member("kind", "bye").member("code", pCode).member("text", text).endObject();
    return std::make_shared<const std::string>(json.take());
}

void LiveChannel::end(const char* pCode, const std::string& text) {
    const Text last = bye(pCode, text);
    for (const auto& [id, member] : std::exchange(m_pages, {}))
        member.pPage->sendLast(last);
}

void LiveChannel::tick(Clock::time_point now) {
    const bool isBeat = !m_lastBeat || now - *m_lastBeat >= m_settings.heartbeat;
    if (isBeat)
        m_lastBeat = now;
    m_source.look();
    std::map<std::pair<std::uint64_t, LivePosition>, Chunk> chunks;
    const std::uint64_t next = m_version + 1;
    bool isAnyChanged = false;
    for (auto page = m_pages.begin(); page != m_pages.end();) {
        Member& member = page->second;
        const bool isRevoked = isBeat && !m_sessions.isOpen(member.session);
        const bool isSlowNow = isSlow(member, now);
        if (isRevoked || (isSlowNow && now - *member.slowSince > m_settings.mostPatience)) {
            member.pPage->sendLast(
                isRevoked ? bye("revoked", "the session was ended")
                          : bye("slow", "the page has not taken what it was sent for " +
                                            std::to_string(m_settings.mostPatience.count()) + " s"));
            page = m_pages.erase(page);
            continue;
        }
        ++page;
        if (isSlowNow)
            continue;
        const auto [place, isNew] = chunks.try_emplace({member.version, member.position});
        Chunk& chunk = place->second;
        if (isNew)
            chunk = chunkFrom(member, next);
        member.position = chunk.changes.end;
        if (chunk.text) {
            member.pPage->send(chunk.text);
            member.version = next;
            isAnyChanged = true;
        }
        if (isBeat)
            tellTime(member);
    }
    if (isAnyChanged)
        m_version = next;
}

/// Passed over from now on, or still.
bool LiveChannel::isSlow(Member& member, Clock::time_point now) const {
    if (member.pPage->unsent() <= m_settings.mostUnsent)
        member.slowSince.reset();
    else if (!member.slowSince)
        member.slowSince = now;
    return member.slowSince.has_value();
}

LiveChannel::Chunk LiveChannel::chunkFrom(const Member& member, std::uint64_t next) const {
    Chunk chunk{.changes = m_source.changes(member.position), .text = nullptr};
    const bool isFirst = member.version == 0;
    if (chunk.changes.members.empty() && !isFirst)
        return chunk;
    JsonText head;
    head.beginObject()
        .member("kind", "chunk")
        .member("from", isFirst || chunk.changes.isWhole ? std::uint64_t{0} : member.version)
        .member("to", next)
        .member("time", microseconds())
        .endObject();
    std::string text = head.take();
    text.pop_back();
    if (!chunk.changes.members.empty())
        text += ",";
    text += chunk.changes.members;
    text += "}";
    chunk.text = std::make_shared<const std::string>(std::move(text));
    return chunk;
}

void LiveChannel::tellTime(const Member& member) const {
    JsonText json;
    json.beginObject()
        .member("kind", "heartbeat")
        .member("time", microseconds())
        .member("version", member.version)
        .endObject();
    member.pPage->send(std::make_shared<const std::string>(json.take()));
}
