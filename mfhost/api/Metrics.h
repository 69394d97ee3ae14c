#pragma once

#include <string>

#include "ApiContext.h"

class MetricsText;

/// What the host counts, as metrics for Prometheus; docs/metrics.md has the table of them. All of it is there
/// anyway: nothing is counted for this alone while messages pass. Made by ApiReading for one answer; API
/// thread.
class Metrics {
public:
    explicit Metrics(const ApiContext& context) : m_context(context) {}

    /// All families of which there is something to say, in the order of the table.
    std::string text() const;

private:
    using Drivers = std::vector<DriverTable::Driver>;

    void writeHost(MetricsText& text) const;
    void writeDrivers(MetricsText& text, const Drivers& drivers) const;
    void writeRestarts(MetricsText& text, const Drivers& drivers) const;
    void writeCalls(MetricsText& text) const;
    void writeQueues(MetricsText& text) const;
    void writeDeliveries(MetricsText& text) const;
    void writeReports(MetricsText& text, const Drivers& drivers) const;
    void writeStream(MetricsText& text) const;
    void writeFids(MetricsText& text) const;
    void writeValues(MetricsText& text, const Drivers& drivers) const;
    void writeApi(MetricsText& text) const;

    const ApiContext& m_context;
};
