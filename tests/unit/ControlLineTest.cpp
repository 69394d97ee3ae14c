#include "ControlLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "CannedHost.h"
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
        return runControlLine(static_cast<int>(argv.size()), argv.data(), {m_out, m_err});
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

TEST_F(ControlLineTest, WrongUsageIsTwoInOneLine) {
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{},
                                               {"xyzzy"},
                                               {"keygen"},
                                               {"sign", "w.xml"},
                                               {"sign", "--key", "k"},
                                               {"verify", "w.xml"},
                                               {"reload"},
                                               {"send"},
                                               {"send", "A.B", "--wait", "soon"},
                                               {"send", "A.B", "--timeout", "601"},
                                               {"log", "--level", "6"},
                                               {"set", "KEY"},
                                               {"set", "KEY", "1", "--type", "number"},
                                               {"log", "-n", "0"},
                                               {"undo", "first"},
                                               {"drivers", "SYS"},
                                               {"drivers", "--xyzzy"}}) {
        m_err.str("");
        EXPECT_EQ(2, run(words)) << m_err.str();
        EXPECT_THAT(m_err.str(),
                    testing::MatchesRegex("mfctl: [^\n]+; mfctl \\[COMMAND\\] --help tells what is right\n"));
    }
    EXPECT_EQ("", m_out.str());
}

TEST_F(ControlLineTest, CommandThatThereIsNotIsNamed) {
    EXPECT_EQ(2, run({"--json", "--host", "demo", "xyzzy"}));
    EXPECT_EQ("mfctl: there is no command \"xyzzy\"; mfctl [COMMAND] --help tells what is right\n",
              m_err.str());
}

TEST_F(ControlLineTest, MistypedCommandGetsTheNearestNames) {
    EXPECT_EQ(2, run({"--json", "drivres"}));
    EXPECT_EQ(2, run({"hist"}));
    EXPECT_EQ(2, run({"stat", "SYS.*"}));
    EXPECT_EQ(
        "mfctl: there is no command \"drivres\"; did you mean \"drivers\" or \"driver\"?\n"
        "mfctl: there is no command \"hist\"; did you mean \"history\"?\n"
        "mfctl: there is no command \"stat\"; did you mean \"start\" or \"state\"?\n",
        m_err.str());
    EXPECT_EQ("", m_out.str());
}

TEST_F(ControlLineTest, MistypedOptionGetsTheNearestNames) {
    EXPECT_EQ(2, run({"drivers", "--jsno"}));
    EXPECT_EQ(2, run({"--hots=demo", "drivers"}));
    EXPECT_EQ(2, run({"send", "SYS.MARK", "--wiat", "taken"}));
    EXPECT_EQ(2, run({"sign", "--kye", "site.key", "w.xml"}));
    EXPECT_EQ(2, run({"log", "-json"}));
    EXPECT_EQ(
        "mfctl: there is no option \"--jsno\"; did you mean \"--json\"?\n"
        "mfctl: there is no option \"--hots\"; did you mean \"--host\"?\n"
        "mfctl: there is no option \"--wiat\"; did you mean \"--wait\"?\n"
        "mfctl: there is no option \"--kye\"; did you mean \"--key\"?\n"
        "mfctl: there is no option \"-json\"; did you mean \"--json\"?\n",
        m_err.str());
    EXPECT_EQ("", m_out.str());
}

TEST_F(ControlLineTest, MistypedWordIsNotEchoedAsItIs) {
    EXPECT_EQ(2, run({"driv\x1b[2Jers"}));
    EXPECT_EQ(2, run({"drivers", "--js\x1b[2Jon"}));
    EXPECT_EQ(std::string::npos, m_err.str().find('\x1b'));
}

TEST_F(ControlLineTest, ArgumentIsNotEchoedAsItIs) {
    EXPECT_EQ(2, run({"keygen", "n", "x\x1b[2J\x9b"}));
    EXPECT_THAT(m_err.str(), HasSubstr("x\\x1b[2J\\x9b"));
    EXPECT_EQ(std::string::npos, m_err.str().find_first_of("\x1b\x9b"));
}

TEST_F(ControlLineTest, HelpListsTheCommands) {
    EXPECT_EQ(0, run({"--help"}));
    for (const char* command :
         {"drivers", "driver", "reload", "stop",   "start",   "state",     "send",      "set",    "unset",
          "event",   "events", "macros", "links",  "link",    "macro",     "check",     "plan",   "apply",
          "history", "diff",   "undo",   "health", "log",     "queues",    "sessions",  "attach", "shutdown",
          "doctor",  "keygen", "sign",   "verify", "monitor", "recording", "new-driver"})
        EXPECT_THAT(m_out.str(), HasSubstr("\n  " + std::string(command) + " "));
}

TEST_F(ControlLineTest, HostIsNamedBeforeOrAfterTheCommandOrInTheEnvironment) {
    CannedHost host(m_directory.path("s"));
    host.answer("GET /macros", R"({"macros":[{"name":"evening"}]})");
    EXPECT_EQ(0, run({"--host", host.path(), "macros"}));
    EXPECT_EQ(0, run({"macros", "--host", host.path()}));
    ::setenv("MFCTL_HOST", host.path().c_str(), 1);
    EXPECT_EQ(0, run({"macros"}));
    EXPECT_EQ(0, run({"macros", "--json"}));
    ::unsetenv("MFCTL_HOST");
    EXPECT_EQ("evening\nevening\nevening\n{\"macros\":[{\"name\":\"evening\"}]}\n", m_out.str());
}

TEST_F(ControlLineTest, NoHostIsThree) {
    EXPECT_EQ(3, run({"drivers", "--host", m_directory.path("none")}));
    EXPECT_EQ("mfctl: no host answers at " + m_directory.path("none") + ": No such file or directory\n",
              m_err.str());
}

TEST_F(ControlLineTest, DriverWithoutAnIDIsEachInTrouble) {
    CannedHost host(m_directory.path("s"));
    host.answer("GET /drivers", R"({"drivers":[]})");
    EXPECT_EQ(0, run({"driver", "--host", host.path()}));
    EXPECT_EQ("no driver has ended or hangs\n", m_out.str());
}

TEST_F(ControlLineTest, EachCommandAsksForItsOwn) {
    CannedHost host(m_directory.path("s"));
    const auto asks = [&](std::vector<std::string> words, const std::string& what) {
        words.insert(words.end(), {"--host", host.path()});
        host.answer(what, R"({"error":{"code":"not-allowed","text":"no","nearest":[]}})", 403);
        EXPECT_EQ(4, run(words)) << what;
        EXPECT_EQ(1u, host.requests(what).size()) << what;
    };
    asks({"drivers"}, "GET /drivers");
    asks({"driver", "SYS"}, "GET /drivers/SYS");
    asks({"reload", "SYS"}, "POST /drivers/SYS/reload");
    asks({"stop", "SYS"}, "POST /drivers/SYS/park");
    asks({"start", "SYS"}, "POST /drivers/SYS/unpark");
    asks({"state", "SYS.*"}, "GET /state?glob=SYS.%2A");
    asks({"send", "SYS.MARK", "text=x"}, "POST /fid");
    asks({"set", "KEY", "-5"}, "POST /state");
    asks({"unset", "KEY"}, "POST /unset");
    asks({"event", "DOOR"}, "POST /event");
    asks({"events"}, "GET /events");
    asks({"macros"}, "GET /macros");
    asks({"links"}, "GET /links");
    asks({"macro", "evening"}, "POST /macros/evening/play");
    asks({"check"}, "POST /check");
    asks({"plan"}, "POST /plan");
    asks({"apply"}, "POST /apply");
    asks({"history"}, "GET /history");
    asks({"undo", "3"}, "POST /undo");
    asks({"health"}, "GET /health");
    asks({"log", "SYS", "-n", "7", "--level", "3"}, "GET /log?lines=7&driver=SYS&level=3");
    asks({"queues"}, "GET /queues");
    asks({"sessions"}, "GET /sessions");
    asks({"shutdown"}, "POST /shutdown");
}

TEST_F(ControlLineTest, TimeoutAndStageAreThoseThatWereGivenOrTheUsualOnes) {
    CannedHost host(m_directory.path("s"));
    host.answer("POST /fid", "{}");
    const auto sent = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"send", "A.B", "--host", host.path()});
        EXPECT_EQ(0, run(words)) << m_err.str();
        const auto body = nlohmann::json::parse(host.lastBody("POST /fid"));
        return body["wait"].get<std::string>() + " " + body["timeoutMs"].dump();
    };
    EXPECT_EQ("delivered 5000", sent({}));
    EXPECT_EQ("taken 500", sent({"--wait", "taken", "--timeout", "0.5"}));
    host.answer("POST /drivers/SYS/reload", "{}");
    EXPECT_EQ(0, run({"reload", "SYS", "--host", host.path()}));
    EXPECT_EQ(60000, nlohmann::json::parse(host.lastBody("POST /drivers/SYS/reload"))["timeoutMs"]);
}
