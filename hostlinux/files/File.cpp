#include "sal/File.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "LogLine.h"
#include "sal/LogOutput.h"

namespace sal {
namespace {

/// A name beside the link that no other call uses.
std::string nameBeside(const std::string& link) {
    static std::atomic<unsigned int> s_number{0};
    const auto slash = link.rfind('/');
    const std::string directory = slash == std::string::npos ? std::string() : link.substr(0, slash + 1);
    return directory + ".mfd-link-" + std::to_string(::getpid()) + "-" + std::to_string(++s_number);
}

/// 0, or the system's reason.
int replaceByLink(const std::string& target, const std::string& link) {
    std::string beside = nameBeside(link);
    while (::symlink(target.c_str(), beside.c_str()) != 0) {
        // A process of the same number may have died between making and renaming it.
        if (errno != EEXIST)
            return errno;
        beside = nameBeside(link);
    }
    if (::rename(beside.c_str(), link.c_str()) == 0)
        return 0;
    const int error = errno;
    ::unlink(beside.c_str());
    return error;
}

}  // namespace

bool File::symlink(const Path& target, const Path& link, bool replace) {
    const std::string& from = link.getPathString();
    const std::string& to = target.getPathString();
    int error = 0;
    if (replace)
        error = replaceByLink(to, from);
    else if (::symlink(to.c_str(), from.c_str()) != 0)
        error = errno;
    if (error != 0)
        logLine("FILE", LogOutput::eError,
                "cannot make the link " + from + " to " + to + ": " + std::strerror(error));
    return error == 0;
}

bool File::remove(const Path& path) {
    if (std::remove(path.getPathString().c_str()) == 0)
        return true;
    const int error = errno;
    // That a full directory stays is what is asked for.
    if (error != ENOENT && error != ENOTEMPTY && error != EEXIST)
        logLine("FILE", LogOutput::eWarning,
                "cannot remove " + path.getPathString() + ": " + std::strerror(error));
    return false;
}

}  // namespace sal
