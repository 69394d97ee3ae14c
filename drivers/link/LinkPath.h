#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The sites that a FID or an event has passed, oldest first, as its user property "path" has them:
/// "SITE3,SITE2". What keeps messages from going round for ever. Any thread.
class LinkPath {
public:
    /// More sites than any way needs.
    static constexpr std::size_t s_most = 8;

    LinkPath() = default;
    /// Of the property; empty for what begins here.
    explicit LinkPath(std::string_view text);

    std::string text() const;
    const std::vector<std::string>& sites() const { return m_sites; }

    /// Why what has come this way goes no further at this site; empty when it may.
    std::string fault(const std::string& site) const;
    /// This way and that site.
    LinkPath with(const std::string& site) const;

private:
    std::vector<std::string> m_sites;
};
