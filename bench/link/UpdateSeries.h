#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "Job.h"

/// The updates of a job as every sender makes them and every receiver expects them: its names in turn. Used
/// by one thread at a time.
class UpdateSeries {
public:
    UpdateSeries() : UpdateSeries(Job()) {}
    explicit UpdateSeries(const Job& job)
        : m_count(job.names), m_nameSize(job.nameSize), m_text(job.valueSize < 8 ? 8 : job.valueSize, 'v') {}

    /// The names are made when the first is asked for, so that a driver starts no later for them.
    const std::string& name(std::uint64_t number) const {
        if (m_names.empty())
            make();
        // The usual division is by a constant, which is quick.
        return m_names[m_count == Job::s_names ? number % Job::s_names : number % m_count];
    }

    /// The text of that update; good until the next call.
    const std::string& text(std::uint64_t number) {
        for (int i = 7; i >= 0; --i, number >>= 4)
            m_text[static_cast<std::size_t>(i)] = "0123456789ABCDEF"[number & 15];
        return m_text;
    }

    static std::int64_t now() {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
    }
    /// A paced sender's, before each update.
    static void pause() {
        const timespec time{0, 200'000};
        nanosleep(&time, nullptr);
    }
    /// The time as a value carries it; ageOf() tells how long ago that was, below two seconds.
    static int stamp() { return static_cast<int>(now() & 0x7fffffff); }
    static std::uint32_t ageOf(int stamp) { return static_cast<std::uint32_t>((now() - stamp) & 0x7fffffff); }

private:
    void make() const {
        m_names.reserve(m_count);
        for (std::size_t i = 0; i < m_count; ++i) {
            std::string digits = std::to_string(i);
            std::string name = "VALUE" + std::string(digits.size() < 3 ? 3 - digits.size() : 0, '0') + digits;
            if (name.size() < m_nameSize)
                name.resize(m_nameSize, '_');
            m_names.push_back(std::move(name));
        }
    }

    std::size_t m_count;
    std::size_t m_nameSize;
    mutable std::vector<std::string> m_names;
    std::string m_text;
};
