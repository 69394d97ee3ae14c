#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ApiCall.h"

/// Who may use the web panel: the codes with which a session is opened, and the sessions. A code has no more
/// than the role of who asked for it. Of codes and tokens only hashes are kept. Owned by HostApi, which keeps
/// the sessions over a restart of the host. Any thread.
class WebSessions {
public:
    using Clock = std::chrono::system_clock;

    static constexpr std::chrono::minutes s_codeTime{2};
    static constexpr unsigned s_attempts = 5;  ///< at six digits, whoever makes them
    static constexpr std::chrono::hours s_sessionTime{30 * 24};
    static constexpr std::size_t s_mostSessions = 256;  ///< the one that was used last the longest ago goes
    static constexpr std::size_t s_mostCodes = 16;      ///< the oldest goes

    struct Session {
        std::uint64_t id = 0;
        ERole role = ERole::None;
        std::string user;          ///< who asked for the code, or the name in the file of tokens
        unsigned uid = 0;          ///< the user's number
        std::string address = {};  ///< from which it was opened; empty for one of the file of tokens
        Clock::time_point since;
        Clock::time_point used;
        std::optional<Clock::time_point> expires = {};  ///< none of the file of tokens
        std::uint64_t requests = 0;
    };
    struct Opened {
        std::string refusal;  ///< why there is no session; empty when there is one
        std::string token;
        Session session;
    };

    explicit WebSessions(std::function<Clock::time_point()> now = &Clock::now) : m_now(std::move(now)) {}

    /// Called on whichever thread opens or ends a session, under this object's lock: returns at once. Before
    /// other threads use the object.
    void setFollower(std::function<void()> follower) { m_follower = std::move(follower); }
    /// The sessions that were opened with codes, as text for restore(), a line each.
    std::string stored() const;
    /// Takes them over; how many lines are none.
    std::size_t restore(const std::string& text);

    /// A long code, for one session with the asker's role.
    std::string addCode(const ApiCaller& asker);
    /// Six digits, for one session; the former ones hold no longer. The role is the asker's at most: an empty
    /// text says that it is more.
    std::string addDigits(const ApiCaller& asker, ERole role);
    /// Opens a session for a code that holds, which then holds no longer. Wrong digits count as an attempt.
    Opened open(const std::string& code, const std::string& address);

    /// Takes over what the file of tokens holds: "ROLE TOKEN [NAME]" a line, "#" begins a comment. The
    /// sessions belong to that user. Empty, or what is wrong with which line; nothing is taken over then.
    std::string addTokens(const std::string& text, unsigned uid);

    /// A number that no session has or will have.
    std::uint64_t takeNumber();
    /// The session of a token, which counts a request.
    std::optional<Session> find(const std::string& token);
    /// Whether it is the token of a session, which counts no request.
    bool isToken(const std::string& token) const;
    bool isOpen(std::uint64_t id) const;
    /// False when there is none of that number.
    bool end(std::uint64_t id);
    /// In the order in which they were opened.
    std::vector<Session> sessions() const;

private:
    struct Code {
        std::string hash;
        ERole role = ERole::None;
        std::string user;
        unsigned uid = 0;
        Clock::time_point expires;
    };
    struct Held {
        Session session;
        std::string hash;
    };

    // Under the lock.
    bool holds(std::uint64_t id) const;
    void forgetOld(Clock::time_point now);
    std::optional<Code> take(const std::string& code, std::string& refusal);
    const Session& add(Session session, const std::string& hash);
    void tellFollower() const;

    const std::function<Clock::time_point()> m_now;
    std::function<void()> m_follower;
    mutable std::mutex m_mutex;
    std::vector<Code> m_codes;     ///< the oldest first
    std::optional<Code> m_digits;  ///< those that were asked for last
    unsigned m_attempts = 0;       ///< at these
    std::map<std::uint64_t, Held> m_sessions;
    std::map<std::string, std::uint64_t> m_byHash;
    std::uint64_t m_lastID = 0;
};
