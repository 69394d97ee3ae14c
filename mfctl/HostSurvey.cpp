#include "HostSurvey.h"

#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "ApiClient.h"
#include "ControlError.h"
#include "HeldUpText.h"
#include "RecordingSearch.h"
#include "UniqueFd.h"

namespace fs = std::filesystem;

namespace {

/// A thread that uses more than this of a processor computes.
constexpr unsigned s_busy = 80;

/// Who holds the listening socket of that path, from the kernel's lists; 0 where nobody is seen to.
int holderOf(const std::string& path, const std::string& proc) {
    std::ifstream sockets(proc + "/net/unix");
    std::string link;
    for (std::string line; std::getline(sockets, line);) {
        std::istringstream words(line);
        std::string number, users, protocol, flags, type, state, inode, name;
        words >> number >> users >> protocol >> flags >> type >> state >> inode >> name;
        // Flags of a socket that accepts connections.
        if (name == path && flags == "00010000")
            link = "socket:[" + inode + "]";
    }
    if (link.empty())
        return 0;
    for (const int pid : ProcessFacts::all(proc)) {
        std::error_code failed;
        for (fs::directory_iterator entry(proc + "/" + std::to_string(pid) + "/fd", failed), end;
             !failed && entry != end; entry.increment(failed)) {
            std::error_code ignored;
            if (fs::read_symlink(entry->path(), ignored) == link)
                return pid;
        }
    }
    return 0;
}

/// Who listens at the socket; 0 where nobody does. Waits for nothing.
int listenerOf(const std::string& path, const std::string& proc) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return 0;
    std::memcpy(address.sun_path, path.data(), path.size());
    const base::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket)
        return 0;
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        // A host that hangs has its queue full some time.
        return errno == EAGAIN ? holderOf(path, proc) : 0;
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? peer.pid : 0;
}

HostSurvey::Socket lookAt(const std::string& path, const HostSurvey::Settings& settings) {
    HostSurvey::Socket socket{path, listenerOf(path, settings.proc), {}, {}, {}};
    try {
        ApiClient client(path);
        const ApiClient::Reply reply = client.get("", settings.patience);
        if (reply.isError()) {
            socket.silence = "it answers " + std::to_string(reply.status);
        } else {
            socket.answer = reply.body;
            const ApiClient::Reply health = client.get("/health", settings.patience);
            if (!health.isError() && health.view().text("status") == "busy")
                socket.heldUp = heldUpText(health.view());
        }
    } catch (const ControlError& error) {
        socket.silence = error.what();
    }
    return socket;
}

/// Whether a process holds a lock of the whole file, from the kernel's list: trying it would disturb a host
/// that starts.
bool isLocked(const std::string& path, const std::string& proc) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return false;
    char place[64];
    std::snprintf(place, sizeof place, "%02x:%02x:%llu", major(info.st_dev), minor(info.st_dev),
                  static_cast<unsigned long long>(info.st_ino));
    std::ifstream locks(proc + "/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        for (std::string word; words >> word;) {
            if (word == place)
                return true;
        }
    }
    return false;
}

/// Whether a host has made it for itself: mfd-UID-XXXXXX.
bool isHostsOwn(const std::string& name) {
    constexpr std::size_t head = 4;
    constexpr std::size_t randomLetters = 6;
    const std::size_t dash = name.rfind('-');
    return name.starts_with("mfd-") && dash != std::string::npos && dash > head &&
           dash + 1 + randomLetters == name.size() &&
           std::all_of(name.begin() + head, name.begin() + static_cast<std::ptrdiff_t>(dash),
                       [](char c) { return c >= '0' && c <= '9'; });
}

/// The memory of a recording and what lies beside it, or the directory that the next host gives to that of a
/// dead one.
bool isOfRecording(const std::string& name) {
    return name.starts_with(RecordingSearch::s_ringName) || name == RecordingSearch::s_placeName ||
           (name.starts_with("mfd-") && name.find("-ring-") != std::string::npos);
}

/// place: where this process finds it.
HostSurvey::QueueDirectory queueDirectory(const std::string& path, const std::string& place,
                                          const std::string& proc) {
    std::error_code failed;
    HostSurvey::QueueDirectory directory{path, fs::is_directory(place, failed), false, {}, {}};
    // A host locks only a directory that it has made.
    directory.isHeld = !isHostsOwn(fs::path(path).filename().string()) || isLocked(place, proc);
    for (fs::directory_iterator entry(place, failed), end; !failed && entry != end; entry.increment(failed)) {
        struct stat info {};
        if (::lstat(entry->path().c_str(), &info) != 0)
            continue;
        const auto age = std::chrono::seconds(std::max<std::time_t>(0, std::time(nullptr) - info.st_mtime));
        const std::string name = entry->path().filename().string();
        (isOfRecording(name) ? directory.recording : directory.files)
            .push_back({name, static_cast<std::uint64_t>(info.st_size), age});
    }
    for (std::vector<HostSurvey::QueueFile>* const pFiles : {&directory.files, &directory.recording})
        std::sort(pFiles->begin(), pFiles->end(),
                  [](const auto& one, const auto& other) { return one.name < other.name; });
    return directory;
}

/// Those that hosts make for themselves, and those that processes were told to use; with the place where this
/// process finds each, since a host in a sandbox has a /dev/shm of its own.
std::map<std::string, std::string> queuePlaces(const std::vector<ProcessFacts>& processes,
                                               const HostSurvey::Settings& settings) {
    std::map<std::string, std::string> places;
    std::error_code failed;
    for (const ProcessFacts& process : processes) {
        const auto setting = process.settings.find("MFD_QUEUE_DIR");
        if (setting == process.settings.end())
            continue;
        const std::string& path = setting->second;
        const std::string through = settings.proc + "/" + std::to_string(process.pid) + "/root" + path;
        places[path] = fs::is_directory(through, failed) ? through : path;
    }
    for (fs::directory_iterator entry(settings.sharedMemory, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        if (isHostsOwn(entry->path().filename().string()))
            places.emplace(entry->path().string(), entry->path().string());
    }
    return places;
}

/// How much of a processor each thread has used since the facts were read.
std::vector<unsigned> loadSince(const ProcessFacts& before, const std::string& proc,
                                std::chrono::milliseconds sample) {
    const auto now = ProcessFacts::read(before.pid, proc);
    std::vector<unsigned> load;
    const double ticks = static_cast<double>(::sysconf(_SC_CLK_TCK)) *
                         static_cast<double>(std::max<long long>(1, sample.count())) / 1000;
    for (const ProcessFacts::Thread& thread : before.threads) {
        std::uint64_t used = 0;
        for (const ProcessFacts::Thread& later : now ? now->threads : before.threads) {
            if (later.id == thread.id && later.cpuTicks > thread.cpuTicks)
                used = later.cpuTicks - thread.cpuTicks;
        }
        load.push_back(static_cast<unsigned>(std::min(100.0, static_cast<double>(used) * 100 / ticks)));
    }
    return load;
}

}  // namespace

bool HostSurvey::Host::answers() const {
    return std::any_of(sockets.begin(), sockets.end(),
                       [](const Socket& socket) { return !socket.answer.empty(); });
}

std::string HostSurvey::Host::heldUp() const {
    for (const Socket& socket : sockets) {
        if (!socket.heldUp.empty())
            return socket.heldUp;
    }
    return {};
}

HostSurvey HostSurvey::take(const Settings& settings) {
    HostSurvey survey;
    std::vector<ProcessFacts> known;
    for (const int pid : ProcessFacts::all(settings.proc)) {
        auto facts = ProcessFacts::read(pid, settings.proc);
        if (facts && (facts->programName() == "mfhost" || !facts->driverID().empty()))
            known.push_back(std::move(*facts));
    }
    std::this_thread::sleep_for(settings.sample);
    const auto looked = [&](const ProcessFacts& facts) {
        return Process{facts, loadSince(facts, settings.proc, settings.sample)};
    };
    for (const ProcessFacts& facts : known) {
        if (facts.driverID().empty())
            survey.hosts.push_back({looked(facts), {}, {}});
    }
    const auto hostOf = [&](int pid) {
        return std::find_if(survey.hosts.begin(), survey.hosts.end(),
                            [&](const Host& host) { return host.process.facts.pid == pid; });
    };
    for (const ProcessFacts& facts : known) {
        if (facts.driverID().empty())
            continue;
        const auto host = hostOf(facts.parent);
        (host == survey.hosts.end() ? survey.orphans : host->drivers).push_back(looked(facts));
    }
    for (const std::string& path : settings.sockets) {
        const Socket socket = lookAt(path, settings);
        const auto host = hostOf(socket.pid);
        (host == survey.hosts.end() ? survey.deadSockets : host->sockets).push_back(socket);
    }
    for (const auto& [path, place] : queuePlaces(known, settings))
        survey.queueDirectories.push_back(queueDirectory(path, place, settings.proc));
    return survey;
}

std::string HostSurvey::trouble(const Process& process) {
    const ProcessFacts& facts = process.facts;
    switch (facts.state) {
        case 'T':
            return "it is stopped; kill -CONT " + std::to_string(facts.pid) + " lets it go on";
        case 't':
            return "a debugger holds it";
        case 'Z':
        case 'X':
            return "it has ended, and its parent has not taken note";
        default:
            break;
    }
    for (std::size_t i = 0; i < facts.threads.size(); ++i) {
        const ProcessFacts::Thread& thread = facts.threads[i];
        if (thread.state == 'D')
            return "its thread \"" + thread.name + "\" is held in the kernel" +
                   (thread.waitsIn.empty() ? "" : ", in " + thread.waitsIn);
        if (i < process.load.size() && process.load[i] >= s_busy)
            return "its thread \"" + thread.name + "\" computes without a pause";
    }
    return {};
}

bool HostSurvey::isWell() const {
    const auto isSound = [](const Process& process) { return trouble(process).empty(); };
    const bool areHostsWell = std::all_of(hosts.begin(), hosts.end(), [&](const Host& host) {
        return host.answers() && host.heldUp().empty() && isSound(host.process) &&
               std::all_of(host.drivers.begin(), host.drivers.end(), isSound);
    });
    const bool isNothingLeft =
        orphans.empty() && deadSockets.empty() &&
        std::all_of(queueDirectories.begin(), queueDirectories.end(), [](const QueueDirectory& directory) {
            return directory.isHeld || (directory.files.empty() && directory.recording.empty());
        });
    return areHostsWell && isNothingLeft;
}
