#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace stream {

struct StreamRecord;

/// What the numbers of one stream mean, as far as it was told: each reader has its own. One thread.
class KeyNames {
public:
    /// A record that defines a number, of which others are passed over.
    void learn(const StreamRecord& record);
    void define(std::uint32_t key, std::string text);
    void clear() { m_names.clear(); }

    /// The driver's ID: "host" for 0, "#12" where it is not known.
    std::string driver(std::uint16_t number) const;
    /// The record's key, as number or as text; empty when it has none, "#3" where it is not known.
    std::string key(const StreamRecord& record) const;
    /// Null when nothing is known of that number.
    const std::string* find(std::uint32_t key) const;
    std::size_t size() const { return m_names.size(); }

    /// As many a stream can define; what comes beyond is damage.
    static constexpr std::size_t s_most = 1u << 20;

private:
    std::unordered_map<std::uint32_t, std::string> m_names;
};

}  // namespace stream
