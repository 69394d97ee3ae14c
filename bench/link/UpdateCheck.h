#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

#include "BurstGate.h"
#include "Job.h"
#include "UpdateSeries.h"

/// Compares what a receiver gets with what was to be sent, one after another. Used on the receiving thread;
/// the results are for others when complete() says so.
class UpdateCheck {
public:
    /// The gate is told of each update; it outlives the job. None for a job that is not in bursts.
    void begin(const Job& job, BurstGate* pGate = nullptr) {
        m_job = job;
        m_pGate = pGate;
        m_series = UpdateSeries(job);
        m_next = 0;
        m_count = 0;
        m_wrong = 0;
        m_last = 0;
        m_ages.clear();
        m_ages.reserve(job.kind == Job::EKind::Paced ? job.count : 0);
        m_complete = job.count == 0;
    }

    void number(std::string_view name, int value) {
        const auto number = static_cast<std::uint64_t>(value);
        if (m_job.kind == Job::EKind::Paced)
            m_ages.push_back(UpdateSeries::ageOf(value));
        else if (m_job.isMerged() && number >= m_next && number < m_job.count)
            m_next = number;  // those between were replaced
        else if (m_job.kind != Job::EKind::States || number != m_next)
            ++m_wrong;
        count(name);
    }
    void text(std::string_view name, std::string_view value, bool isEvent) {
        if (m_job.kind != (isEvent ? Job::EKind::Events : Job::EKind::Texts) ||
            value != m_series.text(m_next))
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
        if (name != m_series.name(m_next))
            ++m_wrong;
        ++m_count;
        if (m_pGate)
            m_pGate->arrived(m_next);
        if (++m_next != m_job.count)
            return;
        m_last = UpdateSeries::now();
        m_complete = true;
    }

    Job m_job;
    BurstGate* m_pGate = nullptr;
    UpdateSeries m_series;
    std::uint64_t m_next = 0;  ///< the number of the update that is to come
    std::uint64_t m_count = 0;
    std::uint64_t m_wrong = 0;
    std::int64_t m_last = 0;
    std::vector<std::uint32_t> m_ages;
    std::atomic<bool> m_complete = true;
};
