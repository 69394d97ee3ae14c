#pragma once

#include <filesystem>

#include "HostProgram.h"
#include "Results.h"
#include "ValueReports.h"

/// Values of probe drivers into the store of the real host program. Each measurement starts a host of its
/// own, which is gone afterwards. Used by the measuring process's only thread.
class HostValues {
public:
    explicit HostValues(const Results& results) : m_results(results) {}

    /// How many values a second the host takes from so many drivers; writes one result.
    void measure(const std::filesystem::path& directory, int drivers, double seconds, int round) const;
    /// Who reads what --follow prints.
    struct Reader {
        const char* name;
        unsigned int linesPerSecond = 0;  ///< 0 for as many as come
    };
    /// The same with --follow, and how many lines are read meanwhile and lost. Throws when the lines and
    /// those said to be dropped are not as many as the values.
    void measureFollow(const std::filesystem::path& directory, const Reader& reader, int drivers,
                       double seconds, int round) const;
    /// How often the host calls what tells of a process's end while it takes so many values from one driver.
    /// Throws when calls are not seen.
    void measureCalls(const std::filesystem::path& directory, std::uint64_t values, int round) const;

    /// A host with so many drivers, and what has them report.
    static HostProgram::Settings settings(const std::filesystem::path& directory, int drivers);
    static ValueReports reportsOf(const HostProgram& host, const std::filesystem::path& directory);

private:
    const Results& m_results;
};
