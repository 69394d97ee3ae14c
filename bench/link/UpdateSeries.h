#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

/// The updates of a job as every sender makes them and every receiver expects them: a thousand names in turn,
/// more than are ever held back, so that none replaces another.
class UpdateSeries {
public:
    static constexpr std::size_t s_names = 1000;

    explicit UpdateSeries(std::size_t nameSize = 8, std::size_t valueSize = 8)
        : m_text(valueSize < 8 ? 8 : valueSize, 'v') {
        for (std::size_t i = 0; i < s_names; ++i) {
            std::string digits = std::to_string(i);
            m_names[i] = "VALUE" + std::string(3 - digits.size(), '0') + digits;
            if (m_names[i].size() < nameSize)
                m_names[i].resize(nameSize, '_');
        }
    }

    const std::string& name(std::uint64_t number) const { return m_names[number % s_names]; }

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
    /// The time as a value carries it; ageOf() tells how long ago that was, below two seconds.
    static int stamp() { return static_cast<int>(now() & 0x7fffffff); }
    static std::uint32_t ageOf(int stamp) { return static_cast<std::uint32_t>((now() - stamp) & 0x7fffffff); }

private:
    std::array<std::string, s_names> m_names;
    std::string m_text;
};
