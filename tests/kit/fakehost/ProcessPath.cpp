#include <unistd.h>

#include "FakeHost.h"
#include "sal/Path.h"

namespace sal {

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
