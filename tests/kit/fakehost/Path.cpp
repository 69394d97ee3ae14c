#include "sal/Path.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "FakeHost.h"

namespace sal {

Path::Path() = default;

Path::Path(std::string path) : m_path(std::move(path)) {}

bool Path::expand(const std::string& text) {
    if (m_path.empty() || text.empty())
        return false;
    std::string tail = text;
    for (char alternative : m_alternativeSeparators)
        std::replace(tail.begin(), tail.end(), alternative, m_separator);
    const bool ends = m_path.back() == m_separator;
    const bool begins = tail.front() == m_separator;
    if (ends && begins)
        tail.erase(0, 1);
    else if (!ends && !begins)
        m_path += m_separator;
    m_path += tail;
    return true;
}

const std::string& Path::getPathString() const {
    return m_path;
}

Path Path::getCurrentWorkingDirPath() {
    fakehost::FakeHost& host = fakehost::FakeHost::current();
    return host.journal().permit("working directory") ? Path(host.workingDirectory) : Path();
}

bool Path::setCurrentWorkingDirPath(const Path& path) {
    fakehost::FakeHost& host = fakehost::FakeHost::current();
    const std::string& text = path.getPathString();
    if (!host.journal().perform("chdir " + text) || chdir(host.realPath(text).c_str()) != 0)
        return false;
    host.workingDirectory = text.starts_with('/') ? text : host.workingDirectory + "/" + text;
    return true;
}

Path Path::getExeBasePath() {
    fakehost::FakeHost& host = fakehost::FakeHost::current();
    return host.journal().permit("program directory") ? Path(host.exeDirectory) : Path();
}

}  // namespace sal
