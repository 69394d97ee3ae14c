#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Job.h"
#include "Results.h"

/// What was measured of the updates of one sender, in the same way for whatever has carried them.
struct UpdateFigures {
    Job job;
    double seconds = 0;           ///< from the sender's begin until the last one was there
    double cpu = 0;               ///< seconds, of all processes together
    std::uint64_t delivered = 0;  ///< of those sent, the others were replaced by later ones
    std::vector<std::uint32_t> ages = {};

    void add(const Results& results, const std::string& transport, int round) const {
        const auto count = static_cast<double>(job.count);
        if (job.kind == Job::EKind::Paced)
            return results.addTimes(job.work(), transport, round, {{"seconds", seconds}}, ages);
        std::vector<Results::Number> numbers{
            {"rate", count / seconds}, {"cpu_per_100k", cpu * 1e5 / count}, {"seconds", seconds}};
        if (job.kind == Job::EKind::Texts) {
            numbers.emplace_back("name_bytes", static_cast<double>(job.nameSize));
            numbers.emplace_back("value_bytes", static_cast<double>(job.valueSize));
        }
        if (job.isMerged()) {
            numbers.emplace_back("names", static_cast<double>(job.names));
            numbers.emplace_back("delivered_rate", static_cast<double>(delivered) / seconds);
            numbers.emplace_back("delivered_percent", 100 * static_cast<double>(delivered) / count);
        }
        results.add(job.work(), transport, round, numbers);
    }
};
