#include "StandardErrorSink.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spdlog/details/log_msg.h>
#include <unistd.h>

#include <array>
#include <string>
#include <thread>

#include "StandardErrorCapture.h"

namespace {

void log(bool colour, spdlog::level::level_enum level, const std::string& text) {
    sal::StandardErrorSink sut(colour);
    sut.set_pattern("at %^%l%$: %v");
    sut.log(spdlog::details::log_msg("MDM", level, text));
}

TEST(StandardErrorSink, WritesTheLine) {
    StandardErrorCapture capture;
    log(false, spdlog::level::err, "text");
    EXPECT_EQ(capture.finish(), "at error: text\n");
}

TEST(StandardErrorSink, ColourIsOnTheLevelWordAlone) {
    StandardErrorCapture capture;
    log(true, spdlog::level::err, "text");
    EXPECT_EQ(capture.finish(), "at \033[31merror\033[0m: text\n");
}

TEST(StandardErrorSink, LevelsHaveTheirColours) {
    StandardErrorCapture capture;
    for (const auto level :
         {spdlog::level::critical, spdlog::level::warn, spdlog::level::info, spdlog::level::trace})
        log(true, level, "");
    EXPECT_EQ(capture.finish(),
              "at \033[1;31mcritical\033[0m: \nat \033[33mwarning\033[0m: \nat \033[32minfo\033[0m: \n"
              "at \033[2mtrace\033[0m: \n");
}

TEST(StandardErrorSink, ClosedStandardErrorIsAnError) {
    const int saved = ::dup(STDERR_FILENO);
    ::close(STDERR_FILENO);
    bool threw = false;
    try {
        log(false, spdlog::level::err, "text");
    } catch (const std::exception&) {
        threw = true;
    }
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    EXPECT_TRUE(threw);
}

TEST(StandardErrorSink, NonBlockingStandardErrorLosesNothing) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[1]);
    std::size_t received = 0;
    std::thread reader([&] {
        std::array<char, 1024> buffer{};
        for (ssize_t count = 0; (count = ::read(ends[0], buffer.data(), buffer.size())) > 0;)
            received += static_cast<std::size_t>(count);
    });
    log(false, spdlog::level::err, std::string(1'000'000, 'x'));
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    reader.join();
    ::close(ends[0]);
    EXPECT_EQ(received, 1'000'000u + std::string("at error: \n").size());
}

}  // namespace
