#include "LogCore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>

#include <sstream>
#include <string>
#include <vector>

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

/// Notes what it is told.
struct Observer : sal::LogManager::Observer {
    void line(const std::string& output, int level, const std::string& text) override {
        lines.push_back(output + " " + std::to_string(level) + " " + text);
    }
    std::vector<std::string> lines;
};

TEST(LogCore, ObserverIsToldOfEachLineUntilItIsTakenOut) {
    Observer observer;
    sal::LogCore sut(5);
    sut.write("MDM", 2, "before");
    sut.setObserver(&observer);
    sut.write("MDM", 2, "one");
    sut.write("HOST", 9, "two");
    sut.setObserver(nullptr);
    sut.write("MDM", 2, "after");
    EXPECT_THAT(observer.lines, testing::ElementsAre("MDM 2 one", "HOST 5 two"));
}

TEST(LogCore, LineOfAnotherProcessGoesToTheChannelsAlone) {
    Observer observer;
    std::ostringstream text;
    {
        sal::LogCore sut(1);
        sut.addChannel(into(text));
        sut.setObserver(&observer);
        sut.write({std::chrono::system_clock::now(), 3, "AXIS1 MFD", "tab\t"});
        sut.flush();
        sut.setObserver(nullptr);
    }
    EXPECT_EQ(text.str(), "warning AXIS1 MFD tab\\t\n");
    EXPECT_THAT(observer.lines, testing::IsEmpty());
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
