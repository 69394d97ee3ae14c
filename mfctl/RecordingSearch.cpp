#include "RecordingSearch.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "ApiClient.h"
#include "ControlError.h"
#include "RemoteControl.h"

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds s_patience{2'000};

bool isThere(const std::string& path) {
    struct stat info {};
    return !path.empty() && ::stat(path.c_str(), &info) == 0;
}

/// Whether it is a directory that a host has made for its queues or its rings, mfd-UID-... of that user's:
/// another user's would have us read what no host has written.
bool isHostsOwn(const fs::path& path) {
    const std::string name = path.filename().string();
    const std::string_view head = "mfd-";
    struct stat info {};
    return name.starts_with(head) && ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) &&
           name.substr(head.size()).starts_with(std::to_string(info.st_uid) + '-');
}

/// As this process finds it: a host in a sandbox has a /dev/shm of its own.
std::string seenFromHere(const std::string& path, const std::string& proc, const std::string& pid) {
    const std::string through = proc + "/" + pid + "/root" + path;
    return !isThere(path) && isThere(through) ? through : path;
}

}  // namespace

RecordingSearch::Settings RecordingSearch::ofMachine() {
    Settings settings;
    if (const char* pQueues = std::getenv("MFD_QUEUE_DIR"))
        settings.queueDirectory = pQueues;
    return settings;
}

RecordingPlace RecordingSearch::find(const Choice& choice) const {
    if (!choice.ring.empty() || !choice.directory.empty())
        return {choice.ring, choice.directory};
    try {
        return ofHost(choice.host);
    } catch (const ControlError& error) {
        if (error.exit() != EExit::NoHost && error.exit() != EExit::NotFinished &&
            error.exit() != EExit::NotAllowed)
            throw;
        RecordingPlace place = left(choice.host);
        if (place.ring.empty() && place.directory.empty())
            throw ControlError(EExit::NoHost, std::string(error.what()) +
                                                  "; no host has left a recording here either: --ring or "
                                                  "--directory names one");
        m_screen.complain(std::string(error.what()) +
                          "; reading what is left: " + (place.ring.empty() ? place.directory : place.ring));
        return place;
    }
}

RecordingPlace RecordingSearch::ofHost(const std::string& host) const {
    const std::string socket = m_socket.find(host);
    const ApiClient::Reply reply = ApiClient(socket).get("", s_patience);
    if (reply.isError())
        throw ControlError(RemoteControl::errorExit(reply), RemoteControl::errorText(reply));
    const JsonView recording = reply.view().member("recording");
    const std::string pid = reply.view().text("pid");
    RecordingPlace place{recording.text("ring"), recording.text("directory")};
    if (place.ring.empty() && place.directory.empty())
        throw ControlError(EExit::Failed, "the host at " + socket +
                                              " records nothing that others can read; --ring or --directory "
                                              "names another recording");
    for (std::string* pPath : {&place.ring, &place.directory}) {
        if (!pPath->empty())
            *pPath = seenFromHere(*pPath, m_settings.proc, pid);
    }
    return place;
}

RecordingPlace RecordingSearch::left(const std::string& host) const {
    std::string fault;
    RecordingPlace place;
    place.ring = newestRing(fault);
    place.directory = leftDirectory(host, place.ring);
    if (place.ring.empty() && place.directory.empty() && !fault.empty())
        throw ControlError(EExit::NotAllowed, "no host answers, and " + fault);
    return place;
}

std::string RecordingSearch::newestRing(std::string& fault) const {
    std::vector<std::string> directories;
    if (!m_settings.queueDirectory.empty())
        directories.push_back(m_settings.queueDirectory);
    // Beside queues a host may have set aside what another one has left.
    for (const std::string& parent : {m_settings.sharedMemory, m_settings.queueDirectory}) {
        std::error_code failed;
        for (fs::directory_iterator entry(parent, failed), end; !failed && entry != end;
             entry.increment(failed)) {
            if (isHostsOwn(entry->path()))
                directories.push_back(entry->path().string());
        }
    }
    std::string newest;
    timespec when{};
    for (const std::string& directory : directories) {
        const std::string path = directory + '/' + s_ringName;
        struct stat info {};
        if (::stat(path.c_str(), &info) != 0) {
            if (errno == EACCES)
                fault = directory + " may not be looked into: " + std::strerror(errno);
            continue;
        }
        const bool isNewer = info.st_mtim.tv_sec != when.tv_sec ? info.st_mtim.tv_sec > when.tv_sec
                                                                : info.st_mtim.tv_nsec > when.tv_nsec;
        if (newest.empty() || isNewer) {
            newest = path;
            when = info.st_mtim;
        }
    }
    return newest;
}

std::string RecordingSearch::leftDirectory(const std::string& host, const std::string& ring) const {
    const auto isDirectory = [](const std::string& path) {
        std::error_code failed;
        return fs::is_directory(path, failed);
    };
    if (!ring.empty()) {
        std::string named;
        std::getline(std::ifstream(fs::path(ring).replace_filename(s_placeName)), named);
        if (named.starts_with('/') && isDirectory(named))
            return named;
    }
    // A relative path would mean another place wherever it is told.
    std::error_code failed;
    std::string here = (fs::absolute(m_settings.current, failed).lexically_normal() / s_directoryName);
    if (isDirectory(here))
        return here;
    std::vector<std::string> found;
    for (fs::directory_iterator entry(m_settings.services, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        const std::string path = entry->path().string() + '/' + s_directoryName;
        const bool isMeant = host.empty() || entry->path().filename() == host;
        if (isMeant && isDirectory(path))
            found.push_back(path);
    }
    return found.size() == 1 ? found.front() : std::string();
}
