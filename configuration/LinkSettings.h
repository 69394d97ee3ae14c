#pragma once

#include <chrono>
#include <set>
#include <string>

/// What a link's file says: which site is linked with which, over which broker, and what passes. A value.
struct LinkSettings {
    struct Broker {
        std::string host;
        int port = 0;
        std::string password;     ///< empty for none
        std::string authorities;  ///< file of those whose certificate a broker must have; empty: no TLS
        std::string certificate;  ///< file of the site's own; empty for none
        std::string key;          ///< its file

        bool isSecure() const { return !authorities.empty(); }
        bool operator==(const Broker&) const = default;
    };

    /// Drivers by their IDs.
    struct Drivers {
        std::set<std::string> ids;
        bool areAll = false;

        bool contain(const std::string& driverID) const { return areAll || ids.contains(driverID); }
        bool operator==(const Drivers&) const = default;
    };

    std::string site;  ///< this one
    std::string farSite;
    Broker broker;
    Drivers exported;         ///< here: others may read their values and events
    Drivers imported;         ///< there: their values and events appear here
    Drivers allowed;          ///< here: the far site may send them FIDs
    bool hasTransit = false;  ///< what came in over a link may go out over this one
    std::chrono::seconds expiry{5};
    std::chrono::seconds spread{5};

    bool operator==(const LinkSettings&) const = default;
};
