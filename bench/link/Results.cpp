#include "Results.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

namespace {

std::string text(double number) {
    std::array<char, 32> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%.6g", number);
    return buffer.data();
}

}  // namespace

void Results::add(const std::string& work, const std::string& transport, int round,
                  const std::vector<Number>& numbers) const {
    write(begin(work, transport, round, numbers) + "}\n");
}

void Results::addTimes(const std::string& work, const std::string& transport, int round,
                       const std::vector<Number>& numbers, std::vector<std::uint32_t> nanoseconds) const {
    if (nanoseconds.empty())
        throw std::runtime_error(work + ", " + transport + ": no times");
    std::sort(nanoseconds.begin(), nanoseconds.end());
    const auto quantile = [&](double part) {
        const auto place = static_cast<std::size_t>(part * static_cast<double>(nanoseconds.size()));
        return text(nanoseconds[std::min(place, nanoseconds.size() - 1)] / 1000.0);
    };
    std::string line = begin(work, transport, round, numbers);
    line += ", \"p50_us\": " + quantile(0.5) + ", \"p99_us\": " + quantile(0.99) +
            ", \"p999_us\": " + quantile(0.999) + ", \"quantiles\": [";
    const char* separator = "";
    for (const double part : {0.001, 0.01, 0.05, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, 0.95, 0.98,
                              0.99, 0.995, 0.998, 0.999}) {
        line += separator + ("[" + text(part)) + ", " + quantile(part) + "]";
        separator = ", ";
    }
    write(line + "]}\n");
}

std::string Results::begin(const std::string& work, const std::string& transport, int round,
                           const std::vector<Number>& numbers) {
    std::string line = "{\"work\": \"" + work + "\", \"transport\": \"" + transport +
                       "\", \"round\": " + std::to_string(round);
    for (const auto& [name, number] : numbers)
        line += std::string(", \"") + name + "\": " + text(number);
    return line;
}

void Results::write(const std::string& line) const {
    if (::write(m_fd, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        throw std::runtime_error("the results cannot be written");
}
