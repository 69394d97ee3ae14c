#include "SystemProbe.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

namespace {

constexpr const char* s_loopbackType = "772";

std::optional<std::string> firstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line))
        return std::nullopt;
    return line;
}

bool carriesTraffic(const std::string& directory) {
    if (firstLine(directory + "/type") == s_loopbackType)
        return false;
    const std::optional<std::string> state = firstLine(directory + "/operstate");
    // Interfaces without a link layer of their own never say more than "unknown".
    return state == "up" || (state == "unknown" && firstLine(directory + "/carrier") == "1");
}

}  // namespace

SystemProbe::SystemProbe(Paths paths) : m_paths(std::move(paths)) {}

std::optional<float> SystemProbe::load() const {
    const std::optional<std::string> line = firstLine(m_paths.loadAverage);
    if (!line)
        return std::nullopt;
    float load = 0;
    const auto [end, error] = std::from_chars(line->data(), line->data() + line->size(), load);
    if (error != std::errc() || !std::isfinite(load) || load < 0)
        return std::nullopt;
    return load;
}

std::optional<int> SystemProbe::freeMemory() const {
    std::ifstream file(m_paths.memory);
    std::string name;
    while (file >> name) {
        std::int64_t kibibytes = 0;
        if (name == "MemAvailable:") {
            if (!(file >> kibibytes) || kibibytes < 0 || kibibytes / 1024 > INT32_MAX)
                return std::nullopt;
            return static_cast<int>(kibibytes / 1024);
        }
        std::getline(file, name);
    }
    return std::nullopt;
}

std::optional<std::string> SystemProbe::hostName() const {
    return firstLine(m_paths.hostName);
}

std::optional<bool> SystemProbe::link() const {
    std::error_code error;
    bool up = false;
    std::filesystem::directory_iterator entry(m_paths.networks, error);
    for (; !error && !up && entry != std::filesystem::directory_iterator(); entry.increment(error))
        up = carriesTraffic(entry->path().string());
    if (error)
        return std::nullopt;
    return up;
}
