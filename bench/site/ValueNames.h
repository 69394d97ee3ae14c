#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

/// The values that each simulated workplace has, "D3.V7", and their drivers. Any thread.
class ValueNames {
public:
    ValueNames(int drivers, int values) {
        for (int driver = 1; driver <= drivers; ++driver) {
            m_drivers.insert("D" + std::to_string(driver));
            for (int value = 1; value <= values; ++value) {
                m_keys.push_back("D" + std::to_string(driver) + ".V" + std::to_string(value));
                m_places[m_keys.back()] = m_keys.size() - 1;
            }
        }
    }

    std::size_t size() const { return m_keys.size(); }
    const std::string& key(std::size_t place) const { return m_keys[place]; }
    /// Nothing for what is no value of a driver, such as the link's own.
    std::optional<std::size_t> place(const std::string& key) const {
        const auto found = m_places.find(key);
        return found == m_places.end() ? std::nullopt : std::optional(found->second);
    }
    const std::set<std::string>& drivers() const { return m_drivers; }

private:
    std::set<std::string> m_drivers;
    std::vector<std::string> m_keys;
    std::unordered_map<std::string, std::size_t> m_places;
};
