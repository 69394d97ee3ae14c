#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "ApiCall.h"

/// Who is at the controls of the workplace, one at most. It is shown to all, and is no lock: no action is
/// refused for it. A session of the web panel has them no longer when it has ended, or when none of its pages
/// was open for a minute; a caller on the control socket until they are given back or taken over. Owned by
/// HostApi, told of pages by the web port. Any thread.
class Controls {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::seconds s_withoutPage{60};

    struct Holder {
        ApiCaller caller;
        std::chrono::system_clock::time_point since;

        /// "web session 4 from 192.0.2.7", or "the control socket".
        std::string from() const { return caller.isOfPanel() ? caller.place : "the control socket"; }
    };
    struct Settings {
        /// Whether there still is a session of the web panel of that number. It may not call this object.
        std::function<bool(std::uint64_t webSession)> isOpen;
        /// Has holder() called after that time, on another thread.
        std::function<void(std::chrono::milliseconds time)> lookAfter;
        std::function<Clock::time_point()> now = &Clock::now;
    };
    struct Change {
        bool isDone = false;           ///< false: refused, for the sake of the former holder
        std::optional<Holder> former;  ///< who had them at that moment
    };

    explicit Controls(Settings settings) : m_settings(std::move(settings)) {}
    Controls(const Controls&) = delete;
    Controls& operator=(const Controls&) = delete;

    /// Nothing where nobody is. The log is told of one who is there no longer.
    std::optional<Holder> holder();
    /// Gives them to the caller. Who has them keeps them, with the former time; refused where another one has
    /// them and isOnlyFree is true.
    Change take(const ApiCaller& caller, bool isOnlyFree);
    /// Nobody has them then. Refused where another one has them, unless the caller is an admin.
    Change giveBack(const ApiCaller& caller);
    static bool isSame(const ApiCaller& one, const ApiCaller& other);

    /// A page of that session has opened, or closed.
    void pageCame(std::uint64_t webSession);
    void pageWent(std::uint64_t webSession);

private:
    // Under the lock.
    void forgetGone();
    void waitForPage();

    const Settings m_settings;
    std::mutex m_mutex;
    std::optional<Holder> m_holder;
    Clock::time_point m_lastPage;  ///< when the holder's last one went, or it took them without
    std::map<std::uint64_t, std::size_t> m_pages;  ///< how many are open, by session
};
