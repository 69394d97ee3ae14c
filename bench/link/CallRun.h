#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include "CallPeer.h"
#include "Results.h"

/// Calls one after another for so many seconds, after half of that as warm-up, and writes how long each took.
/// Called while this process has one thread; throws when a call fails.
class CallRun {
public:
    CallRun(std::filesystem::path directory, const Results& results)
        : m_directory(std::move(directory)), m_results(results) {}

    /// A program is started for each.
    void programs(const CallPeerKind& kind, double seconds, int round) const;
    /// Over a connection that is kept open. There is a pause after each call: whoever is asked may allow no
    /// more than a thousand a second.
    void connection(const CallPeerKind& kind, double seconds, int round) const;

private:
    void times(const char* work, const std::string& name, double seconds, int round,
               const std::function<void()>& call, const std::function<void()>& pause) const;

    const std::filesystem::path m_directory;
    const Results& m_results;
};
