#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "AnswerOnce.h"
#include "ApiCall.h"

/// Has each action that bears a request ID done once, however often a user sends it: who sends it again gets
/// the answer of the first time, also while that is still being worked out. A user's answers are kept for ten
/// minutes; one that sends more than there is room for loses the oldest. Owned by ApiHandler. Any thread.
class RequestMemory {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        Clock::duration keepTime = std::chrono::minutes(10);
        /// Of one user, and of all together; bytes are those of IDs, contents and answers.
        std::size_t mostOfUser = 4096;
        std::size_t bytesOfUser = 4u << 20;
        std::size_t most = 65536;
        std::size_t bytes = 64u << 20;
        std::function<Clock::time_point()> now = Clock::now;
    };

    enum class EBegin {
        New,      ///< to be done, and told to end()
        Known,    ///< the answer is given, at once or when it is there
        Differs,  ///< the same ID was used for something else; no answer is given
        Full      ///< too many are going on; no answer is given
    };

    RequestMemory() : RequestMemory(Settings()) {}
    explicit RequestMemory(Settings settings);
    RequestMemory(const RequestMemory&) = delete;
    RequestMemory& operator=(const RequestMemory&) = delete;

    /// A call comes in. A user is known by his number and role. The content is what is the same for two
    /// calls that ask for the same.
    EBegin begin(const std::string& user, const std::string& request, const std::string& content,
                 const std::shared_ptr<AnswerOnce>& pAnswer);
    /// What was New is over: gives the answer to all who wait for it. It is not kept where it says that
    /// nothing was done.
    void end(const std::string& user, const std::string& request, const ApiAnswer& answer);

    /// How many requests are kept or going on.
    std::size_t size() const;

private:
    struct Entry {
        std::string request;
        std::string content;
        std::optional<ApiAnswer> answer;  ///< none while it is going on
        std::vector<std::shared_ptr<AnswerOnce>> waiting;
        Clock::time_point begun;

        std::size_t bytes() const;
    };
    /// In the order in which they began.
    using Entries = std::list<Entry>;
    struct Share {
        Entries entries;
        std::map<std::string, Entries::iterator> index;
        std::size_t bytes = 0;
    };

    // Under the lock.
    void forgetOld(Clock::time_point now);
    bool hasRoom(const Share& share) const;
    bool forgetOldest(Share& share);
    void forgetBeyondLimits(Share& share);
    void forget(Share& share, Entries::iterator position);

    const Settings m_settings;
    mutable std::mutex m_mutex;
    std::map<std::string, Share> m_shares;  ///< by user
    std::size_t m_size = 0;
    std::size_t m_bytes = 0;
};
