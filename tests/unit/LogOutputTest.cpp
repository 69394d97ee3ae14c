#include "sal/LogOutput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <thread>

#include "LogCapture.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class LogOutput : public testing::Test {
protected:
    LogCapture log{sal::LogManager::Settings{.level = 4, .file = {}, .tag = {}}};
    sal::LogOutput& sut = *log.manager().getLogOutput("MDM");
};

TEST_F(LogOutput, KnowsItsName) {
    EXPECT_EQ(sut.name(), "MDM");
}

TEST_F(LogOutput, LineIsHandedOverAtItsEnd) {
    sut.level(4) << "begun, ";
    sut.level(4) << "ended" << std::endl;
    EXPECT_THAT(log.finish(), MatchesRegex("[^\n]*MDM: begun, ended\n"));
}

TEST_F(LogOutput, FlushDoesNotEndALine) {
    sut.level(4) << "begun, " << std::flush << "ended" << std::endl;
    EXPECT_THAT(log.finish(), MatchesRegex("[^\n]*MDM: begun, ended\n"));
}

TEST_F(LogOutput, LineLeftOpenComesOutWhenItsThreadEnds) {
    std::thread([this] { sut.level(4) << "left open"; }).join();
    EXPECT_THAT(log.finish(), EndsWith("MDM: left open\n"));
}

TEST_F(LogOutput, ThreadsHaveStreamsOfTheirOwn) {
    const std::ostream* pOther = nullptr;
    std::thread([&] { pOther = &sut.level(4); }).join();
    EXPECT_NE(&sut.level(4), pOther);
}

TEST_F(LogOutput, LevelsHaveStreamsOfTheirOwn) {
    sut.level(2) << "a failure ";
    sut.level(4) << "a report" << std::endl;
    sut.level(2) << "ends" << std::endl;
    EXPECT_THAT(log.finish(), MatchesRegex(".* info     MDM: a report\n.* error    MDM: a failure ends\n"));
}

TEST_F(LogOutput, DisabledLevelFormatsNothing) {
    EXPECT_EQ(sut.level(5).rdbuf(), nullptr);
    EXPECT_FALSE(sut.level(5).good());
}

TEST_F(LogOutput, DisabledLevelWritesNothing) {
    sut.level(5) << "unwanted" << std::endl;
    EXPECT_EQ(log.finish(), "");
}

TEST_F(LogOutput, EnabledTellsTheLevelsThatAreLogged) {
    EXPECT_TRUE(sut.enabled(4));
    EXPECT_FALSE(sut.enabled(5));
}

TEST_F(LogOutput, LevelBelowTheScaleIsCritical) {
    sut.level(0) << "text" << std::endl;
    EXPECT_THAT(log.finish(), HasSubstr(" critical MDM: text"));
}

TEST_F(LogOutput, LevelAboveTheScaleIsNeverLogged) {
    log.manager().setLevel(5);
    sut.level(6) << "text" << std::endl;
    EXPECT_EQ(log.finish(), "");
}

TEST_F(LogOutput, ManipulatorsEndWithTheirLine) {
    sut.level(4) << std::hex << 255 << std::endl;
    sut.level(4) << 255 << std::endl;
    EXPECT_THAT(log.finish(), MatchesRegex("[^\n]*MDM: ff\n[^\n]*MDM: 255\n"));
}

TEST_F(LogOutput, LineFeedInsideDoesNotMakeASecondLine) {
    sut.level(4) << "one\ntwo" << std::endl;
    EXPECT_THAT(log.finish(), EndsWith("MDM: one\\ntwo\n"));
}

TEST_F(LogOutput, TerminalControlIsWrittenOut) {
    sut.level(4) << "\033[2J" << std::endl;
    EXPECT_THAT(log.finish(), EndsWith("MDM: \\x1b[2J\n"));
}

TEST_F(LogOutput, EndlessLineIsCut) {
    sut.level(4) << std::string(200'000, 'x') << std::endl;
    sut.level(4) << "next" << std::endl;
    const std::string text = log.finish();
    EXPECT_LT(text.size(), 70'000u);
    EXPECT_THAT(text, EndsWith("MDM: next\n"));
}

}  // namespace
