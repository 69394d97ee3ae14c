#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The topics over which sites talk, below "mf/1/": who writes what, for the side that writes and the one
/// that reads. A driver ID, a state, an event, a function or a site is one level each; what a level may not
/// hold is percent-encoded. Any thread.
class LinkTopics {
public:
    enum class EKind { Up, Tick, State, Event, Fid, Reply };

    /// A topic taken apart.
    struct Parts {
        std::string site;  ///< whose tree it is in
        EKind kind = EKind::Up;
        /// The driver's ID, or the boot ID to which a reply goes; empty for the others.
        std::string driver;
        std::string name;  ///< of the state, event or function; empty for the others

        bool operator==(const Parts&) const = default;
    };

    /// Whether and since when the site is there; retained, and its last will.
    static std::string up(const std::string& site);
    /// Its clock, once a second.
    static std::string tick(const std::string& site);
    static std::string state(const std::string& site, const std::string& driver, const std::string& name);
    static std::string event(const std::string& site, const std::string& driver, const std::string& name);
    /// To this site.
    static std::string fid(const std::string& site, const std::string& driver, const std::string& name);
    /// What this site answers to the instance of another that has this boot ID.
    static std::string reply(const std::string& site, const std::string& boot);

    /// What to subscribe for the states and events of a driver, and for FIDs to it; of all drivers with "*".
    static std::string states(const std::string& site, const std::string& driver);
    static std::string events(const std::string& site, const std::string& driver);
    static std::string fids(const std::string& site, const std::string& driver);
    /// All replies of this site, whomever they are for.
    static std::string replies(const std::string& site);
    /// All of a site's topics, to which nobody but itself subscribes.
    static std::string tree(const std::string& site);

    /// Nothing for a topic that none of these makes.
    static std::optional<Parts> parse(std::string_view topic);

    /// One level: "/", "+", "#", "%" and control characters as %XX, and so are
    /// all bytes beyond ASCII where one of them cannot be shown.
    static std::string encoded(std::string_view level);
    /// Nothing where encoded() does not make such a level.
    static std::optional<std::string> decoded(std::string_view level);

private:
    static std::string below(const std::string& site, const char* pKind);
    static std::string below(const std::string& site, const char* pKind, const std::string& driver,
                             const std::string& name);
    static std::string allBelow(const std::string& site, const char* pKind, const std::string& driver);
};
