#pragma once

#include <cstdint>
#include <string>

/// What a caller may do; each may do what those before it may.
enum class ERole { None, View, Operate, Admin };

/// Who asks.
struct ApiCaller {
    ERole role = ERole::None;
    std::string name;  ///< "anna", or "uid 1000" of a user who has no name here
    unsigned uid = 0;
    int pid = 0;
    std::uint64_t session = 0;
};

/// One request.
struct ApiCall {
    std::string method;
    std::string target;  ///< path?query, percent-encoded
    std::string contentType;
    std::string body;
    ApiCaller caller;
};

/// What it is answered with.
struct ApiAnswer {
    unsigned status = 200;
    std::string contentType = "application/json";
    std::string body;
    std::string allow;  ///< the methods there are, for status 405
};
