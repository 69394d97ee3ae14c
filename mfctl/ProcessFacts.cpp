#include "ProcessFacts.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "RecordingSearch.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* s_title = " MFD Console";
/// More than a kernel file of interest has.
constexpr std::size_t s_mostBytes = 1u << 20;

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text;
    char piece[4096];
    while (text.size() < s_mostBytes && (file.read(piece, sizeof piece) || file.gcount() > 0))
        text.append(piece, static_cast<std::size_t>(file.gcount()));
    return text;
}

std::string linkTarget(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t size = ::readlink(path.c_str(), target, sizeof target);
    return size > 0 ? std::string(target, static_cast<std::size_t>(size)) : std::string();
}

std::vector<std::string> parts(const std::string& text, char separator) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        result.push_back(part);
    return result;
}

std::string oneLine(std::string text) {
    text.erase(std::find(text.begin(), text.end(), '\n'), text.end());
    return text;
}

/// The fields of "stat" after the name, which may hold anything.
struct Stat {
    char state = '?';
    int parent = 0;
    std::uint64_t cpuTicks = 0;
    std::uint64_t startTicks = 0;
};

std::optional<Stat> statOf(const std::string& path) {
    const std::string text = contents(path);
    const std::size_t end = text.rfind(')');
    if (end == std::string::npos)
        return std::nullopt;
    std::istringstream stream(text.substr(end + 1));
    std::vector<std::string> fields;
    for (std::string field; stream >> field;)
        fields.push_back(field);
    // Of the fields that proc(5) counts from 1, the third is the first here.
    constexpr std::size_t user = 11;
    constexpr std::size_t system = 12;
    constexpr std::size_t begin = 19;
    if (fields.size() <= begin)
        return std::nullopt;
    const auto number = [&](std::size_t index) { return std::strtoull(fields[index].c_str(), nullptr, 10); };
    return Stat{fields[0].front(), std::atoi(fields[1].c_str()), number(user) + number(system),
                number(begin)};
}

std::chrono::seconds ageOf(std::uint64_t startTicks, const std::string& proc) {
    const double uptime = std::strtod(contents(proc + "/uptime").c_str(), nullptr);
    const double started = static_cast<double>(startTicks) / static_cast<double>(::sysconf(_SC_CLK_TCK));
    return std::chrono::seconds(static_cast<long>(std::max(0.0, uptime - started)));
}

std::uint64_t residentKb(const std::string& status) {
    const std::size_t place = status.find("VmRSS:");
    return place == std::string::npos ? 0 : std::strtoull(status.c_str() + place + 6, nullptr, 10);
}

std::size_t entriesOf(const std::string& directory) {
    std::error_code failed;
    const fs::directory_iterator begin(directory, failed);
    return failed ? 0 : static_cast<std::size_t>(std::distance(begin, fs::directory_iterator()));
}

std::vector<std::string> mappedBelow(const std::string& maps, const std::string& directory) {
    std::set<std::string> found;
    for (const std::string& line : parts(maps, '\n')) {
        const std::size_t path = line.find('/');
        if (path == std::string::npos)
            continue;
        const std::string name = line.substr(path);
        // The host maps what it makes before it has a name.
        if (name.find("/#") != std::string::npos)
            continue;
        const bool isBelow = !directory.empty() && name.starts_with(directory + "/");
        if (isBelow || name.starts_with("/dev/shm/mfd-"))
            found.insert(name);
    }
    return {found.begin(), found.end()};
}

std::vector<ProcessFacts::Thread> threadsOf(const std::string& directory) {
    std::vector<ProcessFacts::Thread> threads;
    for (const int id : ProcessFacts::all(directory + "/task")) {
        const std::string place = directory + "/task/" + std::to_string(id);
        const auto stat = statOf(place + "/stat");
        if (!stat)
            continue;
        const std::string waitsIn = oneLine(contents(place + "/wchan"));
        threads.push_back({id, oneLine(contents(place + "/comm")), stat->state, waitsIn == "0" ? "" : waitsIn,
                           stat->cpuTicks, contents(place + "/stack")});
    }
    return threads;
}

}  // namespace

std::vector<int> ProcessFacts::all(const std::string& proc) {
    std::vector<int> numbers;
    std::error_code failed;
    for (fs::directory_iterator entry(proc, failed), end; !failed && entry != end; entry.increment(failed)) {
        const std::string name = entry->path().filename().string();
        if (!name.empty() &&
            std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; }))
            numbers.push_back(std::atoi(name.c_str()));
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

std::optional<ProcessFacts> ProcessFacts::read(int pid, const std::string& proc) {
    const std::string directory = proc + "/" + std::to_string(pid);
    const auto stat = statOf(directory + "/stat");
    if (!stat)
        return std::nullopt;
    ProcessFacts facts;
    facts.pid = pid;
    facts.parent = stat->parent;
    facts.state = stat->state;
    facts.name = oneLine(contents(directory + "/comm"));
    struct stat owner {};
    if (::stat(directory.c_str(), &owner) == 0)
        facts.user = owner.st_uid;
    facts.program = linkTarget(directory + "/exe");
    facts.directory = linkTarget(directory + "/cwd");
    facts.command = parts(contents(directory + "/cmdline"), '\0');
    for (const std::string& entry : parts(contents(directory + "/environ"), '\0')) {
        const std::size_t equals = entry.find('=');
        if (entry.starts_with("MFD_") && equals != std::string::npos)
            facts.settings[entry.substr(0, equals)] = entry.substr(equals + 1);
    }
    facts.age = ageOf(stat->startTicks, proc);
    facts.memoryKb = residentKb(contents(directory + "/status"));
    facts.descriptors = entriesOf(directory + "/fd");
    const auto setting = facts.settings.find("MFD_QUEUE_DIR");
    for (const std::string& file :
         mappedBelow(contents(directory + "/maps"),
                     setting == facts.settings.end() ? std::string() : setting->second)) {
        const bool isRing = fs::path(file).filename() == RecordingSearch::s_ringName;
        (isRing ? facts.rings : facts.queues).push_back(file);
    }
    facts.threads = threadsOf(directory);
    return facts;
}

std::string ProcessFacts::driverID() const {
    const std::string title = command.empty() ? std::string() : command.front();
    const std::size_t end = title.find(s_title);
    return end == std::string::npos ? std::string() : title.substr(0, end);
}

std::string ProcessFacts::programName() const {
    std::string file = fs::path(program).filename().string();
    // As the kernel names a file that was replaced since, as by an upgrade.
    constexpr std::string_view deleted = " (deleted)";
    if (file.ends_with(deleted))
        file.erase(file.size() - deleted.size());
    return file.empty() ? name : file;
}

const char* stateInWords(char state) {
    switch (state) {
        case 'R':
            return "runs";
        case 'S':
        case 'I':
            return "sleeps";
        case 'D':
            return "is held in the kernel";
        case 'T':
            return "is stopped";
        case 't':
            return "is held by a debugger";
        case 'Z':
        case 'X':
            return "has ended";
        default:
            return "is in an unknown state";
    }
}
