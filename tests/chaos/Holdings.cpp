#include "Holdings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "Leftovers.h"
#include "TestWorkplace.h"

namespace fs = std::filesystem;

namespace {

long entriesOf(const fs::path& directory) {
    std::error_code ignored;
    long count = 0;
    for (fs::directory_iterator entry(directory, ignored), end; !ignored && entry != end;
         entry.increment(ignored))
        ++count;
    return count;
}

/// In KiB, as the kernel names it.
long memoryOf(pid_t pid, const std::string& kind) {
    std::istringstream status(readFile("/proc/" + std::to_string(pid) + "/status"));
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(kind))
            return std::atol(line.c_str() + kind.size());
    return 0;
}

long zombiesOf(pid_t parent) {
    std::error_code ignored;
    long count = 0;
    for (fs::directory_iterator entry("/proc", ignored), end; !ignored && entry != end;
         entry.increment(ignored)) {
        const std::string text = readFile(entry->path() / "stat");
        char state = 0;
        pid_t of = 0;
        if (const auto name = text.rfind(')'); name != std::string::npos)
            std::istringstream(text.substr(name + 1)) >> state >> of;
        count += state == 'Z' && of == parent ? 1 : 0;
    }
    return count;
}

}  // namespace

Holdings Holdings::of(pid_t host, const std::string& mark, const std::string& temporaryFiles) {
    const std::string process = "/proc/" + std::to_string(host);
    return {.descriptors = entriesOf(process + "/fd"),
            .threads = entriesOf(process + "/task"),
            .processes = static_cast<long>(Leftovers::processes(mark).size()),
            .zombies = zombiesOf(host),
            .queues = filesBelow("/dev/shm"),
            .temporary = filesBelow(temporaryFiles),
            .memoryKb = memoryOf(host, "RssAnon:"),
            .sharedKb = memoryOf(host, "RssShmem:")};
}

long Holdings::filesBelow(const std::string& directory) {
    std::error_code ignored;
    long count = 0;
    for (fs::recursive_directory_iterator entry(directory, ignored), end; !ignored && entry != end;
         entry.increment(ignored)) {
        // What another user puts there is none of the host's.
        struct stat status {};
        const bool isOurs = ::lstat(entry->path().c_str(), &status) == 0 && status.st_uid == ::geteuid();
        count += isOurs && !S_ISDIR(status.st_mode) ? 1 : 0;
    }
    return count;
}

bool Holdings::isLike(const Holdings& other) const {
    return descriptors == other.descriptors && threads == other.threads && processes == other.processes &&
           zombies == other.zombies && queues == other.queues && temporary == other.temporary;
}
