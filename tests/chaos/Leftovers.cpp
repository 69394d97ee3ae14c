#include "Leftovers.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <regex>
#include <sstream>

#include "TestWorkplace.h"

namespace fs = std::filesystem;

namespace {

std::atomic<pid_t> s_helper = 0;

std::string linkOf(const fs::path& path) {
    std::error_code ignored;
    return fs::read_symlink(path, ignored).string();
}

void addFiles(const fs::path& directory, bool withDirectories, std::set<std::string>& lines) {
    std::error_code ignored;
    for (fs::recursive_directory_iterator entry(directory, ignored), end; !ignored && entry != end;
         entry.increment(ignored)) {
        const fs::file_status status = entry->symlink_status(ignored);
        const char* kind = fs::is_directory(status) ? "directory "
                           : fs::is_symlink(status) ? "link "
                                                    : "file ";
        // ThreadSanitizer's own, of a process that was killed as it began.
        const bool isSanitizers = entry->path().filename().string().starts_with("tsan.rodata.");
        if (!isSanitizers && (!fs::is_directory(status) || withDirectories))
            lines.insert(kind + entry->path().string());
    }
}

void addAddresses(std::set<std::string>& lines) {
    ifaddrs* pFirst = nullptr;
    if (::getifaddrs(&pFirst) != 0)
        return;
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> addresses(pFirst, ::freeifaddrs);
    for (const ifaddrs* pEntry = pFirst; pEntry; pEntry = pEntry->ifa_next) {
        if (!pEntry->ifa_addr || pEntry->ifa_addr->sa_family != AF_INET)
            continue;
        char name[NI_MAXHOST] = "";
        ::getnameinfo(pEntry->ifa_addr, sizeof(sockaddr_in), name, sizeof name, nullptr, 0, NI_NUMERICHOST);
        lines.insert("address " + std::string(name) + " of " + pEntry->ifa_name);
    }
    const std::unique_ptr<struct if_nameindex, void (*)(struct if_nameindex*)> adapters(::if_nameindex(),
                                                                                        ::if_freenameindex);
    for (const struct if_nameindex* pEntry = adapters.get(); pEntry && pEntry->if_name; ++pEntry)
        lines.insert("adapter " + std::string(pEntry->if_name));
}

/// The fields of each line of a file of /proc that tell what it is about.
void addLines(const char* file, const char* kind, std::size_t first, std::size_t last,
              std::set<std::string>& lines) {
    std::istringstream stream(readFile(file));
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        const std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
        std::string text = kind;
        for (std::size_t i = first; i <= last && i < fields.size(); ++i)
            text += " " + fields[i];
        lines.insert(text);
    }
}

std::string commandOf(const fs::path& process) {
    std::string text = readFile(process / "cmdline");
    std::replace(text.begin(), text.end(), '\0', ' ');
    return text;
}

}  // namespace

Leftovers Leftovers::of(const std::vector<fs::path>& directories) {
    Leftovers found;
    for (const fs::path& directory : directories)
        addFiles(directory, false, found.m_lines);
    addAddresses(found.m_lines);
    addLines("/proc/self/mountinfo", "mount", 3, 4, found.m_lines);
    for (const char* table : {"tcp", "tcp6", "udp", "udp6"})
        addLines((std::string("/proc/self/net/") + table).c_str(), table, 1, 3, found.m_lines);
    return found;
}

Leftovers Leftovers::below(const std::vector<fs::path>& directories) {
    Leftovers found;
    for (const fs::path& directory : directories)
        addFiles(directory, true, found.m_lines);
    return found;
}

Leftovers Leftovers::withoutHistory(const fs::path& directory) const {
    const std::string history = "file " + (directory / "mfhost.history/").string();
    const std::string recording = "file " + (directory / "recording/").string();
    const std::regex kept("[0-9]+|files/[0-9a-f]{64}");
    const std::regex recorded("[0-9]{8}[.]seg|blackbox/[A-Za-z0-9_-]+[.]seg");
    Leftovers rest;
    for (const std::string& line : m_lines) {
        if (line.starts_with(recording) && std::regex_match(line.substr(recording.size()), recorded))
            continue;
        if (!line.starts_with(history) || !std::regex_match(line.substr(history.size()), kept))
            rest.m_lines.insert(line);
    }
    return rest;
}

std::vector<std::string> Leftovers::beyond(const Leftovers& other) const {
    std::vector<std::string> more;
    std::set_difference(m_lines.begin(), m_lines.end(), other.m_lines.begin(), other.m_lines.end(),
                        std::back_inserter(more));
    return more;
}

std::map<pid_t, std::string> Leftovers::processes(const std::string& mark) {
    const std::string wanted = '\0' + ("MFD_CHAOS_MARK=" + mark) + '\0';
    const std::string mounts = linkOf("/proc/self/ns/mnt");
    const std::string network = linkOf("/proc/self/ns/net");
    std::map<pid_t, std::string> found;
    std::error_code ignored;
    for (fs::directory_iterator entry("/proc", ignored), end; !ignored && entry != end;
         entry.increment(ignored)) {
        const pid_t pid = std::atoi(entry->path().filename().c_str());
        if (pid <= 0 || pid == ::getpid() || pid == s_helper)
            continue;
        // A process that has ended and waits for its parent has none of these any more.
        if (linkOf(entry->path() / "ns/mnt") == mounts || linkOf(entry->path() / "ns/net") == network ||
            ('\0' + readFile(entry->path() / "environ")).find(wanted) != std::string::npos)
            found[pid] = commandOf(entry->path());
    }
    return found;
}

void Leftovers::setHelper(pid_t pid) {
    s_helper = pid;
}

std::map<pid_t, std::string> Leftovers::running(const std::string& mark) {
    std::map<pid_t, std::string> found = processes(mark);
    std::erase_if(found, [](const auto& process) {
        return readFile("/proc/" + std::to_string(process.first) + "/stat").find(") T ") != std::string::npos;
    });
    return found;
}

bool Leftovers::isPrivateMachine() {
    return linkOf("/proc/self/ns/mnt") != linkOf("/proc/1/ns/mnt") &&
           linkOf("/proc/self/ns/net") != linkOf("/proc/1/ns/net");
}

std::set<pid_t> Leftovers::named(const std::string& name) {
    std::set<pid_t> found;
    for (const auto& [pid, command] : processes({}))
        if (readFile("/proc/" + std::to_string(pid) + "/comm") == name + "\n")
            found.insert(pid);
    return found;
}
