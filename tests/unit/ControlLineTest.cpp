#include "ControlLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"

namespace {

using testing::HasSubstr;

class ControlLineTest : public testing::Test {
protected:
    int run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "mfctl");
        std::vector<const char*> argv;
        for (const std::string& argument : arguments)
            argv.push_back(argument.c_str());
        return runControlLine(static_cast<int>(argv.size()), argv.data(), m_out, m_err);
    }

    TemporaryDirectory m_directory;
    std::ostringstream m_out;
    std::ostringstream m_err;
};

}  // namespace

TEST_F(ControlLineTest, KeyIsMadeAndSignsAndIsTrusted) {
    m_directory.write("w.xml", "<workplaces/>");
    EXPECT_EQ(0, run({"keygen", m_directory.path("site")}));
    EXPECT_EQ(0, run({"sign", "--key", m_directory.path("site.key"), m_directory.path("w.xml")}));
    EXPECT_EQ(0, run({"verify", "--trust", m_directory.path(), m_directory.path("w.xml")}));
    EXPECT_EQ("", m_err.str());
}

TEST_F(ControlLineTest, FailureIsOne) {
    EXPECT_EQ(1, run({"verify", "--trust", m_directory.path(), m_directory.path("absent.xml")}));
    EXPECT_THAT(m_err.str(), HasSubstr("mfctl: " + m_directory.path("absent.xml") + ": "));
}

TEST_F(ControlLineTest, WrongUsageIsTwoWithTheUsage) {
    EXPECT_EQ(2, run({}));
    EXPECT_EQ(2, run({"resign"}));
    EXPECT_EQ(2, run({"keygen"}));
    EXPECT_EQ(2, run({"sign", "w.xml"}));
    EXPECT_EQ(2, run({"sign", "--key", "k"}));
    EXPECT_EQ(2, run({"verify", "w.xml"}));
    EXPECT_THAT(m_err.str(), HasSubstr("usage: mfctl keygen NAME | sign --key FILE FILE..."));
    EXPECT_EQ("", m_out.str());
}

TEST_F(ControlLineTest, ArgumentIsNotEchoedAsItIs) {
    EXPECT_EQ(2, run({"keygen", "n", "x\x1b[2J\x9b"}));
    EXPECT_THAT(m_err.str(), HasSubstr("x\\x1b[2J\\x9b"));
    EXPECT_EQ(std::string::npos, m_err.str().find_first_of("\x1b\x9b"));
}

TEST_F(ControlLineTest, HelpListsTheCommands) {
    EXPECT_EQ(0, run({"--help"}));
    for (const char* command : {"keygen", "sign", "verify"})
        EXPECT_THAT(m_out.str(), HasSubstr(command));
}
