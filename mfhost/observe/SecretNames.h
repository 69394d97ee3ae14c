#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Which parameters of FIDs are secret: "***" is recorded in place of their values. Filled before the host
/// starts; then any thread.
class SecretNames {
public:
    /// One more: "PARAMETER" of every FID, or "DRIVER.FUNCTION:PARAMETER", with the wildcards of a shell.
    /// False for one that names no parameter or, before a colon, no FID.
    bool add(std::string_view pattern);

    bool empty() const { return m_patterns.empty(); }
    /// The FID as it is sent: "DRIVER.FUNCTION".
    bool has(std::string_view fid, std::string_view parameter) const;

    /// A line of the console, with "***" in its words "PARAMETER=VALUE", whatever FID they belong to. One
    /// that holds a secret but is no line of words is "***" from there on.
    std::string inCommand(const std::string& line) const;
    /// Any other line: from the first "PARAMETER=" on "***", since nobody knows where the value ends. The
    /// line itself where it holds none, or what is made of it in the room.
    std::string_view inLine(std::string_view line, std::string& room) const;

private:
    struct Pattern {
        std::string fid;
        std::string parameter;
    };

    bool isSecret(std::string_view parameter) const;

    std::vector<Pattern> m_patterns;
};
