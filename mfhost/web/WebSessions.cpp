#include "WebSessions.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <string_view>
#include <utility>

#include "Printable.h"
#include "SecretText.h"

namespace {

constexpr std::size_t s_digits = 6;
constexpr std::size_t s_hashSize = 32;
/// Of a file: with fewer characters it can be guessed.
constexpr std::size_t s_shortestToken = 32;

bool areDigits(const std::string& code) {
    return code.size() == s_digits &&
           std::all_of(code.begin(), code.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::int64_t secondsOf(WebSessions::Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

/// One that the clock can have.
bool isTime(std::int64_t seconds) {
    constexpr std::int64_t last = 9'000'000'000;
    return seconds > 0 && seconds < last;
}

std::string hexOf(const std::string& bytes) {
    static constexpr std::string_view s_hex = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += s_hex[static_cast<unsigned char>(byte) >> 4];
        text += s_hex[static_cast<unsigned char>(byte) & 15u];
    }
    return text;
}

/// Empty for what is none.
std::string hashIn(const std::string& hex) {
    std::string hash;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        unsigned byte = 0;
        const auto [pEnd, fault] = std::from_chars(hex.data() + i, hex.data() + i + 2, byte, 16);
        if (fault != std::errc() || pEnd != hex.data() + i + 2)
            return {};
        hash += static_cast<char>(byte);
    }
    return hash.size() == s_hashSize && hex.size() == 2 * s_hashSize ? hash : std::string();
}

ERole roleNamed(const std::string& name) {
    for (const ERole role : {ERole::View, ERole::Operate, ERole::Admin}) {
        if (name == inWords(role))
            return role;
    }
    return ERole::None;
}

}  // namespace

std::string WebSessions::addCode(const ApiCaller& asker) {
    std::string code = randomToken();
    const std::lock_guard lock(m_mutex);
    forgetOld(m_now());
    if (m_codes.size() >= s_mostCodes)
        m_codes.erase(m_codes.begin());
    m_codes.push_back({hashOf(code), asker.role, asker.name, asker.uid, m_now() + s_codeTime});
    return code;
}

std::string WebSessions::addDigits(const ApiCaller& asker, ERole role) {
    if (role > asker.role)
        return {};
    std::string code = randomDigits(s_digits);
    const std::lock_guard lock(m_mutex);
    m_digits = {hashOf(code), role, asker.name, asker.uid, m_now() + s_codeTime};
    m_attempts = 0;
    return code;
}

WebSessions::Opened WebSessions::open(const std::string& code, const std::string& address) {
    Opened opened;
    const std::lock_guard lock(m_mutex);
    forgetOld(m_now());
    const auto taken = take(code, opened.refusal);
    if (!taken)
        return opened;
    opened.token = randomToken();
    const Clock::time_point now = m_now();
    opened.session = add({.role = taken->role,
                          .user = taken->user,
                          .uid = taken->uid,
                          .address = address,
                          .since = now,
                          .used = now,
                          .expires = now + s_sessionTime},
                         hashOf(opened.token));
    tellFollower();
    return opened;
}

void WebSessions::tellFollower() const {
    if (m_follower)
        m_follower();
}

/// The hashes are compared: how long that takes tells nothing of the code.
std::optional<WebSessions::Code> WebSessions::take(const std::string& code, std::string& refusal) {
    const std::string hash = hashOf(code);
    if (areDigits(code)) {
        if (!m_digits) {
            refusal =
                "no digits hold now: they hold for 2 minutes, once, and for 5 attempts; mfctl pair "
                "makes new ones";
            return std::nullopt;
        }
        if (m_digits->hash == hash)
            return std::exchange(m_digits, std::nullopt);
        if (++m_attempts >= s_attempts)
            m_digits.reset();
        refusal = m_digits ? "these are not the digits"
                           : "these are not the digits, and no more attempts "
                             "are taken; mfctl pair makes new ones";
        return std::nullopt;
    }
    const auto found =
        std::find_if(m_codes.begin(), m_codes.end(), [&](const Code& held) { return held.hash == hash; });
    if (found == m_codes.end()) {
        refusal = "this code does not hold: it holds for 2 minutes, once; mfctl panel makes a new one";
        return std::nullopt;
    }
    Code taken = std::move(*found);
    m_codes.erase(found);
    return taken;
}

const WebSessions::Session& WebSessions::add(Session session, const std::string& hash) {
    if (m_sessions.size() >= s_mostSessions) {
        const auto oldest =
            std::min_element(m_sessions.begin(), m_sessions.end(), [](const auto& one, const auto& other) {
                // Those of the file of tokens stay.
                return std::pair(!one.second.session.expires, one.second.session.used) <
                       std::pair(!other.second.session.expires, other.second.session.used);
            });
        m_byHash.erase(oldest->second.hash);
        m_sessions.erase(oldest);
    }
    session.id = ++m_lastID;
    m_byHash[hash] = session.id;
    return m_sessions.emplace(m_lastID, Held{std::move(session), hash}).first->second.session;
}

std::string WebSessions::addTokens(const std::string& text, unsigned uid) {
    std::vector<std::pair<Session, std::string>> read;
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        const auto wrong = [number](const std::string& what) {
            return "line " + std::to_string(number) + ": " + what;
        };
        std::istringstream words(line.substr(0, line.find('#')));
        std::string role;
        std::string token;
        std::string name;
        std::string rest;
        if (!(words >> role))
            continue;
        words >> token >> name;
        if (roleNamed(role) == ERole::None)
            return wrong(base::quoted(role) + " is no role; view, operate and admin are");
        // What is wrong with a token does not say it.
        if (token.size() < s_shortestToken)
            return wrong("a token has 32 characters at least; openssl rand -hex 32 makes one");
        if (words >> rest)
            return wrong(base::quoted(rest) + " is one word too many; a line is ROLE TOKEN [NAME]");
        const Clock::time_point now = m_now();
        read.push_back({{.role = roleNamed(role),
                         .user = name.empty() ? "token " + std::to_string(read.size() + 1) : name,
                         .uid = uid,
                         .since = now,
                         .used = now},
                        token});
    }
    if (read.size() > s_mostSessions / 2)
        return "more than " + std::to_string(s_mostSessions / 2) + " tokens";
    const std::lock_guard lock(m_mutex);
    for (const auto& [session, token] : read)
        add(session, hashOf(token));
    return {};
}

std::uint64_t WebSessions::takeNumber() {
    const std::lock_guard lock(m_mutex);
    return ++m_lastID;
}

std::optional<WebSessions::Session> WebSessions::find(const std::string& token) {
    const std::string hash = hashOf(token);
    const std::lock_guard lock(m_mutex);
    forgetOld(m_now());
    const auto found = m_byHash.find(hash);
    if (found == m_byHash.end())
        return std::nullopt;
    Session& session = m_sessions.at(found->second).session;
    session.used = m_now();
    ++session.requests;
    return session;
}

bool WebSessions::holds(std::uint64_t id) const {
    const auto found = m_sessions.find(id);
    return found != m_sessions.end() &&
           (!found->second.session.expires || *found->second.session.expires > m_now());
}

bool WebSessions::isToken(const std::string& token) const {
    const std::string hash = hashOf(token);
    const std::lock_guard lock(m_mutex);
    const auto found = m_byHash.find(hash);
    return found != m_byHash.end() && holds(found->second);
}

bool WebSessions::isOpen(std::uint64_t id) const {
    const std::lock_guard lock(m_mutex);
    return holds(id);
}

bool WebSessions::end(std::uint64_t id) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_sessions.find(id);
    if (found == m_sessions.end())
        return false;
    m_byHash.erase(found->second.hash);
    m_sessions.erase(found);
    tellFollower();
    return true;
}

std::string WebSessions::stored() const {
    const std::lock_guard lock(m_mutex);
    std::string text;
    for (const auto& [id, held] : m_sessions) {
        const Session& session = held.session;
        if (!session.expires)
            continue;
        text += hexOf(held.hash) + "\t" + inWords(session.role) + "\t" + std::to_string(session.uid) + "\t" +
                std::to_string(secondsOf(session.since)) + "\t" + std::to_string(secondsOf(session.used)) +
                "\t" + std::to_string(secondsOf(*session.expires)) + "\t" + session.address + "\t" +
                base::printable(session.user) + "\n";
    }
    return text;
}

std::size_t WebSessions::restore(const std::string& text) {
    const std::lock_guard lock(m_mutex);
    std::size_t wrong = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string hex;
        std::string role;
        std::string rest;
        unsigned uid = 0;
        std::int64_t since = 0;
        std::int64_t used = 0;
        std::int64_t expires = 0;
        fields >> hex >> role >> uid >> since >> used >> expires;
        const bool isRead = fields.get() == '\t' && std::getline(fields, rest) && isTime(since) &&
                            isTime(used) && isTime(expires);
        const std::string hash = hashIn(hex);
        const auto tab = rest.find('\t');
        if (!isRead || hash.empty() || roleNamed(role) == ERole::None || tab == std::string::npos) {
            ++wrong;
            continue;
        }
        const auto timeOf = [](std::int64_t seconds) {
            return Clock::time_point(std::chrono::seconds(seconds));
        };
        // Whoever has written it, none holds for longer than one that is opened now.
        const Clock::time_point end = std::min(timeOf(expires), m_now() + s_sessionTime);
        if (end > m_now() && !m_byHash.contains(hash))
            add({.role = roleNamed(role),
                 .user = rest.substr(tab + 1),
                 .uid = uid,
                 .address = rest.substr(0, tab),
                 .since = timeOf(since),
                 .used = timeOf(used),
                 .expires = end},
                hash);
    }
    return wrong;
}

std::vector<WebSessions::Session> WebSessions::sessions() const {
    const std::lock_guard lock(m_mutex);
    std::vector<Session> all;
    for (const auto& [id, held] : m_sessions) {
        if (!held.session.expires || *held.session.expires > m_now())
            all.push_back(held.session);
    }
    return all;
}

void WebSessions::forgetOld(Clock::time_point now) {
    std::erase_if(m_codes, [now](const Code& code) { return code.expires <= now; });
    if (m_digits && m_digits->expires <= now)
        m_digits.reset();
    std::erase_if(m_sessions, [&](const auto& held) {
        const bool isOver = held.second.session.expires && *held.second.session.expires <= now;
        if (isOver)
            m_byHash.erase(held.second.hash);
        return isOver;
    });
}
