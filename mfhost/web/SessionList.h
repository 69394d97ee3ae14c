#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "ApiCall.h"

/// The connections that there are, for whoever asks. Owned by ApiServer, which changes it on the API thread;
/// any thread reads.
class SessionList {
public:
    struct Session {
        std::uint64_t id = 0;
        std::string user;  ///< "anna" or "uid 1000"
        unsigned uid = 0;
        int pid = 0;
        ERole role = ERole::None;
        std::chrono::system_clock::time_point since;
        std::uint64_t requests = 0;
    };

    void add(const ApiCaller& caller, std::chrono::system_clock::time_point now);
    void countRequest(std::uint64_t session);
    void remove(std::uint64_t session);

    /// In the order in which they came.
    std::vector<Session> sessions() const;

private:
    mutable std::mutex m_mutex;
    std::map<std::uint64_t, Session> m_sessions;
};
