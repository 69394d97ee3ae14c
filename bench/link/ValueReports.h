#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "Results.h"

/// Has probe drivers report values side by side, and tells how long the host took to take them. Each driver
/// notes in a file when it began, and when a FID was back that it had sent after its last value: the host
/// passes a FID on only when what came before it is delivered. So nothing but the values passes the panel
/// while they are measured. Used by one thread.
class ValueReports {
public:
    /// Gives a driver its command: "REPORT" with these two parameters.
    using Ask = std::function<void(int driver, const std::string& count, const std::string& file)>;

    ValueReports(std::filesystem::path directory, Ask ask);

    struct Times {
        std::int64_t begin = 0;  ///< of the first driver, in nanoseconds
        std::int64_t end = 0;    ///< of the last

        double seconds() const { return static_cast<double>(end - begin) / 1e9; }
    };
    /// So many values from each of the first so many drivers. Throws when it takes too long.
    Times report(int drivers, std::uint64_t each) const;
    /// Writes how many values a second this panel takes of all of them together, in a job of so many seconds
    /// at least.
    void measure(int drivers, double seconds, const Results& results, const std::string& panel,
                 int round) const;

private:
    std::filesystem::path file(int driver) const;
    /// Until the driver's file is there.
    Times wait(int driver) const;

    std::filesystem::path m_directory;
    Ask m_ask;
};
