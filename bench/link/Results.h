#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

/// Writes measurements, each as one JSON object on a line of its own. Every process of a run writes to the
/// same stream; a line goes out whole.
class Results {
public:
    using Number = std::pair<const char*, double>;

    explicit Results(int fd) : m_fd(fd) {}

    void add(const std::string& work, const std::string& transport, int round,
             const std::vector<Number>& numbers) const;

    /// The same, with the distribution of the times: quantiles in microseconds.
    void addTimes(const std::string& work, const std::string& transport, int round,
                  const std::vector<Number>& numbers, std::vector<std::uint32_t> nanoseconds) const;

private:
    static std::string begin(const std::string& work, const std::string& transport, int round,
                             const std::vector<Number>& numbers);
    void write(const std::string& line) const;

    int m_fd;
};
