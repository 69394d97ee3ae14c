#include "LogCommands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <sstream>

#include "sal/CmdProcessor.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class LogCommandsTest : public testing::Test {
protected:
    LogCommandsTest() { m_sut.registerCommands(); }

    std::string output(const std::string& line) {
        m_reply.str({});
        m_processor.execute(line, m_reply);
        return m_reply.str();
    }

    sal::CmdProcessor m_processor;
    std::ostringstream m_reply;
    LogMemory m_memory{[] { return std::set<std::string>{"AXIS1", "LAMP"}; }};
    LogCommands m_sut{{.memory = m_memory,
                       .reply = [this]() -> std::ostream& { return m_reply; },
                       .driverIDs =
                           [] {
                               return std::vector<std::string>{"AXIS1", "LAMP"};
                           }}};
};

}  // namespace

TEST_F(LogCommandsTest, LinesAreAsInTheLog) {
    std::tm local{};
    local.tm_year = 126;
    local.tm_mon = 10;
    local.tm_mday = 2;
    local.tm_hour = 3;
    local.tm_isdst = -1;
    const auto time =
        std::chrono::system_clock::from_time_t(std::mktime(&local)) + std::chrono::milliseconds(45);
    m_memory.add("AXIS1", {time, 2, "AXIS1 MFD", "no answer"});
    m_memory.add("AXIS1", {time, 4, "AXIS1", "again"});
    EXPECT_EQ(
        "2026-11-02 03:00:00.045 error    AXIS1 MFD: no answer\n"
        "2026-11-02 03:00:00.045 info     AXIS1: again\n",
        output("log"));
}

TEST_F(LogCommandsTest, TwentyLinesAreShownUnlessAnotherNumberIsAsked) {
    for (int i = 1; i <= 30; ++i)
        m_memory.line("HOST", 4, "line " + std::to_string(i));
    EXPECT_THAT(output("log"), HasSubstr(" HOST: line 11\n"));
    EXPECT_THAT(output("log"), Not(HasSubstr(" HOST: line 10\n")));
    EXPECT_THAT(output("log -n 1"), EndsWith(" HOST: line 30\n"));
    EXPECT_THAT(output("log -n 1"), Not(HasSubstr("line 29")));
    EXPECT_THAT(output("log -n 100"), HasSubstr(" HOST: line 1\n"));
}

TEST_F(LogCommandsTest, OneDriverIsShownWithItsLastWords) {
    m_memory.line("HOST", 2, "AXIS1: process 7 ended unexpectedly");
    m_memory.line("HOST", 2, "LAMP: process 8 ended unexpectedly");
    m_memory.setLastWords("AXIS1", {"terminate called", "  what():  no device"});
    const std::string text = output("log AXIS1 -n 5");
    EXPECT_THAT(text, EndsWith(" error    HOST: AXIS1: process 7 ended unexpectedly\n"
                               "last words of the process that ended last:\n"
                               "    terminate called\n"
                               "      what():  no device\n"));
    EXPECT_THAT(text, Not(HasSubstr("LAMP")));
    EXPECT_THAT(output("log"), Not(HasSubstr("last words")));
}

TEST_F(LogCommandsTest, NothingIsSaidToBeSo) {
    EXPECT_EQ("no lines\n", output("log LAMP"));
}

TEST_F(LogCommandsTest, UnknownDriverIsToldWithTheNearest) {
    EXPECT_EQ("there is no driver AXSI1; did you mean AXIS1?\n", output("log AXSI1"));
    EXPECT_EQ("there is no driver DESK; drivers lists them\n", output("log DESK"));
}

TEST_F(LogCommandsTest, WrongUseIsAnsweredWithTheUse) {
    for (const char* line : {"log -n", "log -n x", "log -n 0", "log -n -1", "log AXIS1 LAMP", "log -n 5x"})
        EXPECT_THAT(output(line), StartsWith("log [<driverID>] [-n <number>]\n")) << line;
}

TEST_F(LogCommandsTest, IsAnsweredOutsideTheProcessorAsWell) {
    m_memory.line("HOST", 4, "one");
    m_memory.line("HOST", 4, "two");
    EXPECT_TRUE(LogCommands::areMeantBy({"log", "-n", "1"}));
    EXPECT_FALSE(LogCommands::areMeantBy({"state"}));
    EXPECT_FALSE(LogCommands::areMeantBy({}));
    m_sut.answer({"log", "-n", "1"});
    EXPECT_THAT(m_reply.str(), EndsWith(" info     HOST: two\n"));
    EXPECT_THAT(m_reply.str(), Not(HasSubstr("one")));
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"log", "--help"}, std::vector<std::string>{"log", "-n"}}) {
        m_reply.str({});
        m_sut.answer(words);
        EXPECT_THAT(m_reply.str(), StartsWith("log [<driverID>] [-n <number>]\n"));
    }
}
