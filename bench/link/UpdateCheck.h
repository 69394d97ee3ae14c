#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

#include "Job.h"
#include "UpdateSeries.h"

/// Compares what a receiver gets with what was to be sent, one after another. Used on the receiving thread;
/// the results are for others when complete() says so.
class UpdateCheck {
public:
    void begin(const Job& job) {
        m_job = job;
        m_series = UpdateSeries(job.nameSize, job.valueSize);
        m_count = 0;
        m_wrong = 0;
        m_last = 0;
        m_ages.clear();
        m_ages.reserve(job.kind == Job::ePaced ? job.count : 0);
        m_complete = job.count == 0;
    }

    void number(std::string_view name, int value) {
        if (m_job.kind == Job::ePaced)
            m_ages.push_back(UpdateSeries::ageOf(value));
        else if (m_job.kind != Job::eStates || value != static_cast<int>(m_count))
            ++m_wrong;
        count(name);
    }
    void text(std::string_view name, std::string_view value, bool isEvent) {
        if (m_job.kind != (isEvent ? Job::eEvents : Job::eTexts) || value != m_series.text(m_count))
            ++m_wrong;
        count(name);
    }

    bool complete() const { return m_complete; }
    std::uint64_t count() const { return m_count; }
    std::uint64_t wrong() const { return m_wrong; }
    std::int64_t last() const { return m_last; }  ///< when the last one came, in nanoseconds
    const std::vector<std::uint32_t>& ages() const { return m_ages; }

private:
    void count(std::string_view name) {
        if (name != m_series.name(m_count))
            ++m_wrong;
        if (++m_count != m_job.count)
            return;
        m_last = UpdateSeries::now();
        m_complete = true;
    }

    Job m_job;
    UpdateSeries m_series;
    std::uint64_t m_count = 0;
    std::uint64_t m_wrong = 0;
    std::int64_t m_last = 0;
    std::vector<std::uint32_t> m_ages;
    std::atomic<bool> m_complete = true;
};
