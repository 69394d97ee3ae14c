#include "sal/CmdProcessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <thread>

#include "LogCapture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A command that keeps the arguments of its last call and does what it is told.
class Command : public sal::CmdRegister {
public:
    using Words = std::vector<std::string>;

    Command(const std::string& name, const char* help, Words* pCalled)
        : CmdRegister(name, help), m_pCalled(pCalled) {}

    bool call(sal::CmdParameters& parameters) override {
        for (unsigned int i = 0; i < parameters.argumentCount(); ++i)
            m_pCalled->push_back(parameters.argument(i));
        if (parameters.argument(0) == "throw")
            throw std::runtime_error("the axis is stuck");
        if (parameters.argument(0) == "throw int")
            throw 42;
        return parameters.argument(0) != "false";
    }

private:
    Words* m_pCalled;
};

class CmdProcessor : public testing::Test {
protected:
    CmdProcessor() {
        for (const char* name : {"move", "stop", "sendFID", "setStateValue"})
            sut.registerCmd(new Command(name, "usage of it\n\twhat it does.", &called));
    }
    bool execute(const std::string& line) { return sut.execute(line, reply); }

    sal::CmdProcessor sut;
    std::vector<std::string> called;
    std::ostringstream reply;
};

TEST_F(CmdProcessor, WordsBehindTheNameAreTheArguments) {
    EXPECT_TRUE(execute("move  X1 \t 2.5 "));
    EXPECT_THAT(called, ElementsAre("X1", "2.5"));
    EXPECT_EQ(reply.str(), "");
}

TEST_F(CmdProcessor, UnknownWordIsNotEchoedAsItIs) {
    EXPECT_FALSE(execute("'\a\x1b[2J\xc2\x9b|\x9b'"));
    EXPECT_EQ(reply.str(), "unknown command \"\\x07\\x1b[2J\\u009b|\\x9b\"\n");
}

TEST_F(CmdProcessor, QuotesKeepBlanks) {
    execute(R"(move "a b" 'c d')");
    EXPECT_THAT(called, ElementsAre("a b", "c d"));
}

TEST_F(CmdProcessor, EmptyQuotesAreAnEmptyArgument) {
    execute(R"(move "" '')");
    EXPECT_THAT(called, ElementsAre("", ""));
}

TEST_F(CmdProcessor, QuotesJoinWithWhatStandsBesideThem) {
    execute(R"(move x="a b"c)");
    EXPECT_THAT(called, ElementsAre("x=a bc"));
}

TEST_F(CmdProcessor, BackslashKeepsTheNextCharacter) {
    execute(R"(move a\ b \"c \\)");
    EXPECT_THAT(called, ElementsAre("a b", "\"c", "\\"));
}

TEST_F(CmdProcessor, BackslashInDoubleQuotesKeepsQuoteAndBackslashOnly) {
    execute(R"(move "a\"b\\c\d")");
    EXPECT_THAT(called, ElementsAre("a\"b\\c\\d"));
}

TEST_F(CmdProcessor, BackslashInSingleQuotesIsItself) {
    execute(R"(move 'a\b')");
    EXPECT_THAT(called, ElementsAre("a\\b"));
}

TEST_F(CmdProcessor, OpenQuoteIsNamedWithItsColumn) {
    EXPECT_FALSE(execute("move \"a b"));
    EXPECT_EQ(reply.str(), "the \" in column 6 is not closed\n");
    EXPECT_TRUE(called.empty());
}

TEST_F(CmdProcessor, BackslashAtTheEndIsAnError) {
    EXPECT_FALSE(execute("move a\\"));
    EXPECT_EQ(reply.str(), "nothing follows the backslash at the end of the line\n");
}

TEST_F(CmdProcessor, EmptyLineDoesNothing) {
    EXPECT_TRUE(execute(""));
    EXPECT_TRUE(execute(" \t\r\n"));
    EXPECT_EQ(reply.str(), "");
}

TEST_F(CmdProcessor, CommentDoesNothing) {
    EXPECT_TRUE(execute("# move X1"));
    EXPECT_TRUE(called.empty());
}

TEST_F(CmdProcessor, UnknownCommandNamesTheNearest) {
    EXPECT_FALSE(execute("sendfd X"));
    EXPECT_EQ(reply.str(), "unknown command \"sendfd\"; did you mean \"sendFID\"?\n");
}

TEST_F(CmdProcessor, SwappedNeighboursAreOneSlip) {
    EXPECT_FALSE(execute("mvoe"));
    EXPECT_EQ(reply.str(), "unknown command \"mvoe\"; did you mean \"move\"?\n");
}

TEST_F(CmdProcessor, BeginningOfANameIsNear) {
    EXPECT_FALSE(execute("set"));
    EXPECT_EQ(reply.str(), "unknown command \"set\"; did you mean \"setStateValue\"?\n");
}

TEST_F(CmdProcessor, UnknownCommandWithoutNeighbourSaysNoMore) {
    EXPECT_FALSE(execute("xyzzy"));
    EXPECT_EQ(reply.str(), "unknown command \"xyzzy\"\n");
}

TEST_F(CmdProcessor, UnknownCommandPointsToHelpWhereThereIsOne) {
    sut.registerCmd(new Command("help", "help", &called));
    EXPECT_FALSE(execute("xyzzy"));
    EXPECT_EQ(reply.str(), "unknown command \"xyzzy\"; \"help\" lists all commands\n");
}

TEST_F(CmdProcessor, HelpIsShownWhenTheCommandReturnsFalse) {
    EXPECT_FALSE(execute("move false"));
    EXPECT_EQ(reply.str(), "usage of it\n\twhat it does.\n");
}

TEST_F(CmdProcessor, HelpOptionShowsHelpAndDoesNotCall) {
    EXPECT_TRUE(execute("move --help"));
    EXPECT_EQ(reply.str(), "usage of it\n\twhat it does.\n");
    EXPECT_TRUE(called.empty());
}

TEST_F(CmdProcessor, HelpOptionAmongOthersIsAnArgument) {
    EXPECT_TRUE(execute("move X --help"));
    EXPECT_THAT(called, ElementsAre("X", "--help"));
}

TEST_F(CmdProcessor, HelpListsAllOnOneLineEach) {
    EXPECT_TRUE(sut.help("", reply));
    EXPECT_EQ(
        reply.str(),
        "usage of it: what it does.\nusage of it: what it does.\nusage of it: what it does.\nusage of it: "
        "what it does.\n");
}

TEST_F(CmdProcessor, HelpForAnUnknownCommandIsFalse) {
    EXPECT_FALSE(sut.help("mvoe", reply));
    EXPECT_THAT(reply.str(), HasSubstr("unknown command \"mvoe\""));
}

TEST_F(CmdProcessor, NamesAreInByteOrder) {
    EXPECT_THAT(sut.names(), ElementsAre("move", "sendFID", "setStateValue", "stop"));
}

TEST_F(CmdProcessor, LaterRecordReplacesTheEarlier) {
    std::vector<std::string> calledLater;
    sut.registerCmd(new Command("move", "", &calledLater));
    execute("move X");
    EXPECT_TRUE(called.empty());
    EXPECT_THAT(calledLater, ElementsAre("X"));
}

TEST_F(CmdProcessor, ExceptionOfACommandIsSaidAndLogged) {
    LogCapture log;
    EXPECT_FALSE(execute("move throw"));
    EXPECT_EQ(reply.str(), "move failed: std::runtime_error: the axis is stuck\n");
    EXPECT_THAT(log.finish(),
                HasSubstr("error    COMMAND: move failed: std::runtime_error: the axis is stuck\n"));
}

TEST_F(CmdProcessor, ExceptionOfAnyTypeIsCaught) {
    const LogCapture log;
    EXPECT_FALSE(execute("move 'throw int'"));
    EXPECT_EQ(reply.str(), "move failed: an exception of type int\n");
}

TEST_F(CmdProcessor, CommandRunsOnTheCallingThread) {
    std::thread::id id;
    class WhichThread : public sal::CmdRegister {
    public:
        explicit WhichThread(std::thread::id* pId) : CmdRegister("which", ""), m_pId(pId) {}
        bool call(sal::CmdParameters&) override {
            *m_pId = std::this_thread::get_id();
            return true;
        }

    private:
        std::thread::id* m_pId;
    };
    sut.registerCmd(new WhichThread(&id));
    execute("which");
    EXPECT_EQ(id, std::this_thread::get_id());
}

}  // namespace
