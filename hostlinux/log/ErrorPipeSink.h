#pragma once

#include <spdlog/formatter.h>
#include <spdlog/sinks/sink.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace sal {

/// Writes each line into the pipe to the host with one system call. When the host is gone, what it has left
/// in the pipe, the line and all that follow go where its own standard error goes. Used by its LogChannel's
/// thread alone. Throws when that is gone, too.
class ErrorPipeSink : public spdlog::sinks::sink {
public:
    using SinkMaker = std::function<spdlog::sink_ptr(const std::string& tag)>;

    /// The tag is set before each line's output. The maker's sink writes to standard error.
    ErrorPipeSink(std::string tag, SinkMaker makeFormer);
    /// Takes along what a host that is gone has left in the pipe.
    ~ErrorPipeSink() override;
    ErrorPipeSink(const ErrorPipeSink&) = delete;
    ErrorPipeSink& operator=(const ErrorPipeSink&) = delete;

    void log(const spdlog::details::log_msg& message) override;
    void flush() override {}
    void set_pattern(const std::string&) override {}
    void set_formatter(std::unique_ptr<spdlog::formatter>) override {}

private:
    std::string speaker(const spdlog::details::log_msg& message) const;
    bool leaveHost();
    void passOn(std::string_view bytes) const;

    const std::string m_tag;
    const SinkMaker m_makeFormer;
    spdlog::sink_ptr m_pFormer;  ///< none while the host is there
};

}  // namespace sal
