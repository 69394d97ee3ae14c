#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "IStreamReader.h"
#include "Screen.h"

/// What is otherwise at one moment than at an earlier one: values, and how drivers are. It is given all
/// records from the beginning of a recording up to the later moment, of several hosts' lives too. One thread.
class RecordingDifference {
public:
    /// Of records up to this moment it is told what they left; of those after it what changed.
    explicit RecordingDifference(stream::Time from) : m_from(from) {}

    void add(const stream::IStreamReader& reader);

    void print(const Screen& screen) const;
    nlohmann::json json() const;

private:
    /// A value, or with an empty name how the driver is; by the driver's ID and the name.
    struct Entry {
        std::string before;  ///< empty: none was known
        std::string now;
        bool isStale = false;
        bool wasStale = false;
        std::uint64_t changes = 0;  ///< after the moment
    };
    void change(const std::string& driver, const std::string& name, const std::string& now, bool isAfter);
    void setStale(const std::string& driver, bool isAfter);
    void forgetHost(bool isAfter);
    static std::string shown(const std::string& text, bool isStale);
    static bool isOther(const Entry& entry);

    const stream::Time m_from;
    std::string m_instance;
    std::map<std::pair<std::string, std::string>, Entry> m_entries;
};
