#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// A message to or from a broker with those of its properties that links use. A value.
struct LinkMessage {
    std::string topic{};
    std::string payload{};
    int qos = 1;
    bool isRetained = false;
    std::string responseTopic{};
    std::string correlation{};
    std::uint32_t expiry = 0;                                       ///< in seconds; 0 for none
    std::vector<std::pair<std::string, std::string>> properties{};  ///< of the user's own

    /// The first of that name; empty for none.
    std::string property(const std::string& name) const {
        const auto found = std::find_if(properties.begin(), properties.end(),
                                        [&](const auto& known) { return known.first == name; });
        return found == properties.end() ? std::string() : found->second;
    }
};
