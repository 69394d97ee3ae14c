#include "ProcessReading.h"

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>

namespace {

std::string textOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

std::optional<ProcessReading> ProcessReading::parse(const std::string& stat, const std::string& status) {
    // The name in parentheses may hold anything, parentheses too.
    const auto nameEnd = stat.rfind(')');
    if (nameEnd == std::string::npos)
        return std::nullopt;
    std::istringstream fields(stat.substr(nameEnd + 1));
    char state = 0;
    fields >> state;
    std::string skipped;
    for (int i = 0; i < 10; ++i)
        fields >> skipped;
    std::uint64_t user = 0;
    std::uint64_t system = 0;
    fields >> user >> system;
    if (!fields)
        return std::nullopt;

    ProcessReading reading;
    reading.cpuTicks = user + system;
    reading.isRunnable = state == 'R';
    const std::string tracer = "TracerPid:";
    if (const auto at = status.find(tracer); at != std::string::npos) {
        long pid = 0;
        std::istringstream(status.substr(at + tracer.size())) >> pid;
        reading.isTraced = pid != 0;
    }
    return reading;
}

bool ProcessReading::hasThread(int pid, int thread) {
    const std::string directory =
        "/proc/" + std::to_string(pid) + "/task/" + std::to_string(thread) + "/stat";
    return ::access(directory.c_str(), F_OK) == 0;
}

std::optional<ProcessReading> ProcessReading::read(int pid) {
    const std::string directory = "/proc/" + std::to_string(pid) + "/";
    return parse(textOf(directory + "stat"), textOf(directory + "status"));
}
