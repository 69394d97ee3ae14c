#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "IAnswerBody.h"

/// What a caller may do: each role what those before it may, and more.
enum class ERole {
    None,     ///< nothing
    View,     ///< whatever only asks
    Operate,  ///< FIDs, values, events, alarms, macros, plans and checks
    Admin     ///< whatever changes which drivers run, and the host's end
};

/// "none", "view", "operate" or "admin".
inline const char* inWords(ERole role) {
    switch (role) {
        case ERole::View:
            return "view";
        case ERole::Operate:
            return "operate";
        case ERole::Admin:
            return "admin";
        default:
            return "none";
    }
}

/// Who calls, as the listener found out when the connection was accepted.
struct ApiCaller {
    ERole role = ERole::None;
    std::string name;  ///< "anna", or "uid 1000" where the user has no name
    unsigned uid = 0;
    int pid = 0;
    std::uint64_t session = 0;     ///< the number of the connection
    std::string place = {};        ///< of a session of the web panel: "web session 4 from 192.0.2.7"
    std::uint64_t webSession = 0;  ///< the number of that session; 0 for none

    /// Whether it is a session of the web panel.
    bool isOfPanel() const { return !place.empty(); }
    /// For log and recording: "anna (web session 4 from 192.0.2.7)".
    std::string who() const { return place.empty() ? name : name + " (" + place + ")"; }
};

/// One request, without anything of its transport.
struct ApiCall {
    std::string method;       ///< "GET", "POST"
    std::string target;       ///< path and query as they came, percent-encoded
    std::string contentType;  ///< of the body; empty when the request names none
    std::string body;
    ApiCaller caller;
};

/// Its answer.
struct ApiAnswer {
    static constexpr const char* s_json = "application/json";

    unsigned status = 200;
    std::string contentType = s_json;
    std::string body;
    std::string allow = {};          ///< for the header of that name, where the status is 405
    std::string cache = "no-store";  ///< for Cache-Control
    /// Further fields of the head, of names and values that need no look.
    std::vector<std::pair<std::string, std::string>> fields = {};
    /// What comes after the body; null where that is all.
    std::shared_ptr<IAnswerBody> pMore = {};

    bool operator==(const ApiAnswer&) const = default;
};
