#include "Holdings.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "../system/Workplace.h"

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

}  // namespace

Holdings Holdings::of(pid_t host, const std::string& mark, const std::string& temporaryFiles) {
    const std::string process = "/proc/" + std::to_string(host);
    return {
        entriesOf(process + "/fd"), entriesOf(process + "/task"), static_cast<long>(processesOf(mark).size()),
        filesBelow("/dev/shm"),     filesBelow(temporaryFiles),   memoryOf(host, "RssAnon:"),
        memoryOf(host, "RssShmem:")};
}

std::set<pid_t> Holdings::processesOf(const std::string& mark) {
    const std::string wanted = '\0' + ("MFD_CHAOS_MARK=" + mark) + '\0';
    std::set<pid_t> found;
    std::error_code ignored;
    for (fs::directory_iterator entry("/proc", ignored), end; !ignored && entry != end;
         entry.increment(ignored)) {
        const pid_t pid = std::atoi(entry->path().filename().c_str());
        if (pid > 0 && ('\0' + readFile(entry->path() / "environ")).find(wanted) != std::string::npos)
            found.insert(pid);
    }
    return found;
}

std::set<pid_t> Holdings::runningOf(const std::string& mark) {
    std::set<pid_t> found = processesOf(mark);
    std::erase_if(found, [](pid_t pid) {
        return readFile("/proc/" + std::to_string(pid) + "/stat").find(") T ") != std::string::npos;
    });
    return found;
}

long Holdings::filesBelow(const std::string& directory) {
    std::error_code ignored;
    long count = 0;
    for (fs::recursive_directory_iterator entry(directory, ignored), end; !ignored && entry != end;
         entry.increment(ignored)) {
        std::error_code gone;
        count += entry->is_directory(gone) ? 0 : 1;
    }
    return count;
}

bool Holdings::isLike(const Holdings& other) const {
    return descriptors == other.descriptors && threads == other.threads && processes == other.processes &&
           queues == other.queues && temporary == other.temporary;
}
