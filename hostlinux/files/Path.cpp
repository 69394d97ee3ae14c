#include "sal/Path.h"

#include <algorithm>
#include <utility>

namespace sal {

Path::Path() = default;

Path::Path(std::string path) : m_path(std::move(path)) {}

bool Path::expand(const std::string& text) {
    if (m_path.empty() || text.empty())
        return false;
    std::string joined = text;
    for (const char alternative : m_alternativeSeparators)
        std::replace(joined.begin(), joined.end(), alternative, m_separator);
    const bool leads = joined.front() == m_separator;
    const bool ends = m_path.back() == m_separator;
    if (leads && ends)
        joined.erase(0, 1);
    else if (!leads && !ends)
        m_path += m_separator;
    m_path += joined;
    return true;
}

const std::string& Path::getPathString() const {
    return m_path;
}

}  // namespace sal
