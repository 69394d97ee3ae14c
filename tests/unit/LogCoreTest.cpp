#include "LogCore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>

#include <sstream>

namespace {

using testing::MatchesRegex;

std::shared_ptr<sal::LogChannel> into(std::ostringstream& text) {
    return std::make_shared<sal::LogChannel>(
        [&text] {
            auto pSink = std::make_shared<spdlog::sinks::ostream_sink_mt>(text);
            pSink->set_pattern("%l %n %v");
            return pSink;
        },
        [](const std::string&) {});
}

TEST(LogCore, LevelStaysWithinItsScale) {
    sal::LogCore sut(0);
    EXPECT_EQ(sut.level(), 1);
    sut.setLevel(6);
    EXPECT_EQ(sut.level(), 5);
}

TEST(LogCore, LevelsUpToItsOwnAreEnabled) {
    const sal::LogCore sut(3);
    EXPECT_TRUE(sut.enabled(3));
    EXPECT_FALSE(sut.enabled(4));
}

TEST(LogCore, EveryChannelGetsTheLine) {
    std::ostringstream first;
    std::ostringstream second;
    {
        sal::LogCore sut(5);
        sut.addChannel(into(first));
        sut.addChannel(into(second));
        sut.write("MDM", 2, "text");
        sut.flush();
    }
    EXPECT_EQ(first.str(), "error MDM text\n");
    EXPECT_EQ(second.str(), "error MDM text\n");
}

}  // namespace
