#pragma once

#include <spdlog/formatter.h>
#include <spdlog/sinks/sink.h>

#include <functional>
#include <memory>
#include <string>

#include "UniqueFd.h"

namespace sal {

/// Writes each line to the systemd journal, as a datagram with the fields MF_OUTPUT and MF_DRIVER beside
/// priority and text, so that "journalctl MF_DRIVER=SYS" finds what concerns one driver. A line that the
/// journal does not take goes to another sink. Used by its LogChannel's thread alone.
class JournalSink : public spdlog::sinks::sink {
public:
    struct Settings {
        std::string socket;      ///< the journal's
        std::string identifier;  ///< what the journal shows before the process ID
        std::string driver;      ///< the driver ID of all lines; empty in a host
        /// Else the driver that a line is about; may be none.
        std::function<std::string(const std::string& output, const std::string& text)> driverOf;
    };

    JournalSink(Settings settings, spdlog::sink_ptr pOther);

    void log(const spdlog::details::log_msg& message) override;
    void flush() override {}
    void set_pattern(const std::string& pattern) override;
    void set_formatter(std::unique_ptr<spdlog::formatter> pFormatter) override;

private:
    std::string datagram(const spdlog::details::log_msg& message);
    bool send(const std::string& datagram) const;

    const Settings m_settings;
    const spdlog::sink_ptr m_pOther;
    const base::UniqueFd m_socket;
    std::unique_ptr<spdlog::formatter> m_pFormatter;
};

}  // namespace sal
