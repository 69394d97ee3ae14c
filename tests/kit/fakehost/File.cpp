#include "sal/File.h"

#include "FakeHost.h"

namespace sal {

bool File::symlink(const Path& target, const Path& link, bool replace) {
    return fakehost::Journal::instance().perform("symlink " + target.getPathString() + " -> " +
                                                 link.getPathString() + (replace ? " replace" : ""));
}

bool File::remove(const Path& path) {
    fakehost::FakeHost& host = fakehost::FakeHost::current();
    const std::string& text = path.getPathString();
    if (!host.journal().perform("remove " + text))
        return false;
    const std::string::size_type slash = text.rfind('/');
    if (slash != std::string::npos)
        host.entries[text.substr(0, slash)].remove(text.substr(slash + 1));
    return true;
}

}  // namespace sal
