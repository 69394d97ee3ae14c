#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

/// A value of a host's answer, read leniently: a member that is missing or of another type is empty, since a
/// later host may answer otherwise. Lives no longer than the value. Any thread.
class JsonView {
public:
    using Json = nlohmann::json;

    explicit JsonView(const Json& value) : m_pValue(&value) {}

    /// Null counts as missing.
    bool has(const char* name) const;
    /// The member, or null.
    JsonView member(const char* name) const;
    /// The members of an array; none where it is no array.
    std::vector<JsonView> list(const char* name) const;
    std::vector<JsonView> list() const;

    /// A text as it is; numbers and truth values as JSON writes them; else empty.
    std::string text(const char* name) const { return member(name).text(); }
    std::string text() const;
    /// 0 where there is none.
    std::int64_t number(const char* name) const;
    bool flag(const char* name) const;
    /// All of it, as JSON writes it.
    std::string json() const;

private:
    const Json* m_pValue;
};
