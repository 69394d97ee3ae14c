#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>

/// Writes one text of metrics in Prometheus' text format 0.0.4 by appending. A family of which no sample
/// comes is left out whole. Belongs to one thread.
class MetricsText {
public:
    using Labels = std::initializer_list<std::pair<std::string_view, std::string_view>>;

    static constexpr const char* s_contentType = "text/plain; version=0.0.4; charset=utf-8";

    /// All are the program's own and written as they are; none comes twice.
    struct Family {
        const char* name;
        const char* type;  ///< "counter", "gauge" or "histogram"
        const char* help;
    };

    /// The samples that come next are of it, until the next family begins. It outlives them.
    void begin(const Family& family) {
        m_pFamily = &family;
        m_isNamed = false;
    }

    /// The values of labels are shown as printable() has them, with quotes and backslashes escaped; one that
    /// is empty is the same as no label.
    template <std::integral Number>
    void sample(Labels labels, Number value) {
        add(labels, std::to_string(value));
    }
    /// The fewest digits that mean this number.
    void sample(Labels labels, double value);

    /// A histogram: how many there were within each bound and beyond the last one, each alone, and their sum.
    void histogram(Labels labels, std::span<const double> bounds, std::span<const std::uint64_t> counts,
                   double sum);

    /// What was written; nothing is left.
    std::string take() { return std::exchange(m_text, {}); }

private:
    void add(Labels labels, std::string_view value, std::string_view suffix = {},
             std::string_view bound = {});

    std::string m_text;
    const Family* m_pFamily = nullptr;
    bool m_isNamed = false;
};
