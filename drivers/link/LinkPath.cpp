#include "LinkPath.h"

#include <algorithm>

#include "Printable.h"

LinkPath::LinkPath(std::string_view text) {
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        m_sites.emplace_back(text.substr(begin, end - begin));
        begin = end + 1;
        // Further ones change nothing, and a stranger may have written thousands.
        if (m_sites.size() > s_most)
            return;
    }
}

std::string LinkPath::text() const {
    std::string text;
    for (const std::string& site : m_sites)
        text += (text.empty() ? "" : ",") + site;
    return text;
}

std::string LinkPath::fault(const std::string& site) const {
    if (std::find(m_sites.begin(), m_sites.end(), site) != m_sites.end())
        return "it goes round: it has passed " + base::printable(text()) + " and comes to " +
               base::printable(site) + " again";
    if (m_sites.size() > s_most)
        return "it has passed more than " + std::to_string(s_most) + " sites: " + base::printable(text());
    return {};
}

LinkPath LinkPath::with(const std::string& site) const {
    LinkPath longer = *this;
    longer.m_sites.push_back(site);
    return longer;
}
