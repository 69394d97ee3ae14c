#pragma once

#include <spdlog/formatter.h>
#include <spdlog/sinks/sink.h>

#include <memory>
#include <string>
#include <string_view>

namespace sal {

/// Writes each line to standard error with one system call, so that the lines of several processes do not
/// mix; with colour on a terminal. Used by its LogChannel's thread alone. Throws when standard error is gone.
class StandardErrorSink : public spdlog::sinks::sink {
public:
    explicit StandardErrorSink(bool colour) : m_colour(colour) {}

    /// Writes the whole text, and waits until a standard error that does not block takes it. 0, or the
    /// system's error number.
    static int writeAll(std::string_view text);

    void log(const spdlog::details::log_msg& message) override;
    void flush() override {}
    void set_pattern(const std::string& pattern) override;
    void set_formatter(std::unique_ptr<spdlog::formatter> pFormatter) override;

private:
    std::unique_ptr<spdlog::formatter> m_pFormatter;
    bool m_colour;
};

}  // namespace sal
