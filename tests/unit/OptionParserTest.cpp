#include "OptionParser.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace {

class OptionParserTest : public testing::Test {
protected:
    std::variant<Options, int> parse(std::vector<const char*> arguments) {
        arguments.insert(arguments.begin(), "mfhost");
        return parseOptions(static_cast<int>(arguments.size()), arguments.data(), m_out, m_err);
    }
    Options options(std::vector<const char*> more) {
        more.insert(more.begin(), {"--drivers", "/d", "--config", "/c.xml"});
        const auto parsed = parse(std::move(more));
        EXPECT_TRUE(std::holds_alternative<Options>(parsed)) << m_err.str();
        return std::holds_alternative<Options>(parsed) ? std::get<Options>(parsed) : Options();
    }
    int exitCode(std::vector<const char*> arguments) {
        const auto parsed = parse(std::move(arguments));
        return std::holds_alternative<int>(parsed) ? std::get<int>(parsed) : -1;
    }
    int refused(std::vector<const char*> more) {
        more.insert(more.begin(), {"--drivers", "/d", "--config", "/c.xml"});
        return exitCode(std::move(more));
    }

    std::ostringstream m_out;
    std::ostringstream m_err;
};

}  // namespace

TEST_F(OptionParserTest, HasTheDefaultsOfAPlainRun) {
    const Options sut = options({});
    EXPECT_EQ(std::vector<std::string>{"/d"}, sut.driverDirectories);
    EXPECT_EQ("/c.xml", sut.config);
    EXPECT_FALSE(sut.sandbox);
    EXPECT_TRUE(sut.startDriverProcesses);
    EXPECT_TRUE(sut.console);
    EXPECT_EQ(4, sut.logLevel);
    EXPECT_EQ(std::chrono::seconds(3), sut.stopTimeout);
    EXPECT_FALSE(sut.follow);
    EXPECT_FALSE(sut.requireSignature);
    EXPECT_FALSE(sut.tellsPanel);
}

TEST_F(OptionParserTest, DriversAndConfigAreRequired) {
    EXPECT_EQ(2, exitCode({}));
    EXPECT_EQ(2, exitCode({"--drivers", "/d"}));
    EXPECT_EQ(2, exitCode({"--config", "/c.xml"}));
    EXPECT_NE(std::string::npos,
              m_err.str().find("usage: mfhost --drivers DIR [--drivers DIR ...] --config FILE"));
    EXPECT_EQ("", m_out.str());
}

TEST_F(OptionParserTest, ArgumentIsNotEchoedAsItIs) {
    EXPECT_EQ(2, refused({"--adapter", "a\x1b[2J\xc2\x9b|\x9b"}));
    EXPECT_NE(std::string::npos,
              m_err.str().find("\"a\\x1b[2J\\u009b|\\x9b\" is not NAME=REAL, such as eth0=enp3s0"))
        << m_err.str();
    EXPECT_EQ(std::string::npos, m_err.str().find_first_of("\x1b\xc2\x9b"));
}

TEST_F(OptionParserTest, UnknownOptionAndPositionalAreWrongUsage) {
    EXPECT_EQ(2, refused({"--frobnicate"}));
    EXPECT_EQ(2, refused({"stray"}));
}

TEST_F(OptionParserTest, HelpGoesToStandardOutput) {
    EXPECT_EQ(0, exitCode({"--help"}));
    EXPECT_NE(std::string::npos, m_out.str().find("--stop-timeout S"));
    EXPECT_EQ(std::string::npos, m_out.str().find("--probe-sandbox"));
    EXPECT_EQ("", m_err.str());
}

TEST_F(OptionParserTest, VersionGoesToStandardOutput) {
    EXPECT_EQ(0, exitCode({"--version"}));
    EXPECT_EQ(0u, m_out.str().find("mfhost "));
}

TEST_F(OptionParserTest, RelativePathsBecomeAbsolute) {
    const auto here = std::filesystem::current_path().string();
    const auto parsed = parse({"--drivers", "d", "--drivers", "/e", "--config", "c.xml", "--workdir", "w",
                               "--log-file", "l", "--trust", "t", "--sandbox=s"});
    const auto& sut = std::get<Options>(parsed);
    EXPECT_EQ((std::vector<std::string>{here + "/d", "/e"}), sut.driverDirectories);
    EXPECT_EQ(here + "/c.xml", sut.config);
    EXPECT_EQ(here + "/w", sut.workDirectory);
    EXPECT_EQ(here + "/l", sut.logFile);
    EXPECT_EQ(here + "/t", sut.trustDirectory);
    EXPECT_EQ(here + "/s", sut.sandboxDirectory);
}

TEST_F(OptionParserTest, EmptyConfigurationStaysEmpty) {
    EXPECT_EQ("", std::get<Options>(parse({"--drivers", "/d", "--config", ""})).config);
}

TEST_F(OptionParserTest, SandboxNeedsNoDirectory) {
    EXPECT_TRUE(options({"--sandbox"}).sandbox);
    EXPECT_EQ("", options({"--sandbox"}).sandboxDirectory);
    EXPECT_TRUE(options({"--sandbox=/s"}).sandbox);
}

TEST_F(OptionParserTest, FollowNeedsNoPattern) {
    EXPECT_EQ("", options({"--follow", "--no-console"}).follow);
    EXPECT_EQ("SYS.*", options({"--follow=SYS.*"}).follow);
}

TEST_F(OptionParserTest, AdaptersArePairs) {
    const Options sut = options({"--adapter", "eth0=enp3s0", "--adapter", "eth1=lo"});
    ASSERT_EQ(2u, sut.adapters.size());
    EXPECT_EQ("eth0", sut.adapters[0].first);
    EXPECT_EQ("enp3s0", sut.adapters[0].second);
}

TEST_F(OptionParserTest, AdapterThatIsNoPairIsRefusedWithAnExample) {
    EXPECT_EQ(2, refused({"--adapter", "eth0"}));
    EXPECT_NE(std::string::npos, m_err.str().find("\"eth0\" is not NAME=REAL, such as eth0=enp3s0"));
    EXPECT_EQ(2, refused({"--adapter", "=x"}));
    EXPECT_EQ(2, refused({"--adapter", "x="}));
}

TEST_F(OptionParserTest, LogLevelIsOneToFive) {
    EXPECT_EQ(5, options({"--log-level", "5"}).logLevel);
    EXPECT_EQ(2, refused({"--log-level", "0"}));
    EXPECT_EQ(2, refused({"--log-level", "6"}));
    EXPECT_EQ(2, refused({"--log-level", "many"}));
}

TEST_F(OptionParserTest, StopTimeoutTakesFractions) {
    EXPECT_EQ(std::chrono::milliseconds(500), options({"--stop-timeout", "0.5"}).stopTimeout);
    EXPECT_EQ(2, refused({"--stop-timeout", "0"}));
    EXPECT_EQ(2, refused({"--stop-timeout", "-1"}));
}

TEST_F(OptionParserTest, HangTimeoutIsInSecondsAndNoneTurnsItOff) {
    EXPECT_EQ(std::chrono::seconds(10), options({}).hangTimeout);
    EXPECT_EQ(std::chrono::milliseconds(2500), options({"--hang-timeout", "2.5"}).hangTimeout);
    EXPECT_EQ(std::chrono::milliseconds(0), options({"--hang-timeout", "0"}).hangTimeout);
    EXPECT_EQ(2, refused({"--hang-timeout", "-1"}));
}

TEST_F(OptionParserTest, CallLimitIsInSeconds) {
    EXPECT_EQ(std::chrono::seconds(60), options({}).callLimit);
    EXPECT_EQ(std::chrono::seconds(300), options({"--call-limit", "300"}).callLimit);
    EXPECT_EQ(2, refused({"--call-limit", "0"}));
}

TEST_F(OptionParserTest, RecordingHasSizes) {
    EXPECT_TRUE(options({}).records);
    EXPECT_FALSE(options({"--record-off"}).records);
    EXPECT_EQ(2, refused({"--record-off", "--record-size", "8M"}));
    EXPECT_EQ(2, refused({"--record-keep", "1G", "--record-off"}));
    EXPECT_TRUE(options({"--record-size", "8M"}).records);
    EXPECT_TRUE(options({"--record-keep", "500M"}).records);
    EXPECT_EQ(std::nullopt, options({}).recordSize);
    EXPECT_EQ(std::size_t{1} << 30, options({}).recordKeep);
    EXPECT_EQ(std::size_t{8} << 20, options({"--record-size", "8M"}).recordSize);
    EXPECT_EQ(std::size_t{256} << 10, options({"--record-size", "256K"}).recordSize);
    EXPECT_EQ(std::size_t{500} << 20, options({"--record-keep", "500M"}).recordKeep);
    EXPECT_EQ(2, refused({"--record-size", "255K"}));
    EXPECT_EQ(2, refused({"--record-size", "much"}));
}

TEST_F(OptionParserTest, SecretsAreParametersOfFids) {
    EXPECT_TRUE(options({}).secrets.empty());
    const Options sut = options({"--secret", "password", "--secret", "LAMP.PAIR:code"});
    EXPECT_TRUE(sut.secrets.has("CAM1.LOGIN", "password"));
    EXPECT_TRUE(sut.secrets.has("LAMP.PAIR", "code"));
    EXPECT_FALSE(sut.secrets.has("LAMP.MOVE", "code"));
    EXPECT_EQ(2, refused({"--secret", "LAMP.PAIR:"}));
}

TEST_F(OptionParserTest, RestartsHaveNoLimitUnlessOneIsGiven) {
    EXPECT_EQ(std::nullopt, options({}).restartLimit);
    EXPECT_EQ(3u, options({"--restart-limit", "3"}).restartLimit);
    EXPECT_EQ(0u, options({"--restart-limit", "0"}).restartLimit);
    EXPECT_EQ(2, refused({"--restart-limit", "-1"}));
    EXPECT_EQ(2, refused({"--restart-limit", "many"}));
}

TEST_F(OptionParserTest, RestartDelayIsInSecondsUpToAMinute) {
    EXPECT_EQ(std::chrono::seconds(1), options({}).restartDelay);
    EXPECT_EQ(std::chrono::milliseconds(200), options({"--restart-delay", "0.2"}).restartDelay);
    EXPECT_EQ(2, refused({"--restart-delay", "0"}));
    EXPECT_EQ(2, refused({"--restart-delay", "61"}));
}

TEST_F(OptionParserTest, StartWaitIsASecondUnlessAskedOtherwise) {
    EXPECT_FALSE(options({}).waitsUntilAttached);
    EXPECT_FALSE(options({"--start-wait", "second"}).waitsUntilAttached);
    EXPECT_TRUE(options({"--start-wait=attached"}).waitsUntilAttached);
    EXPECT_EQ(2, refused({"--start-wait", "never"}));
    EXPECT_NE(std::string::npos, m_err.str().find("--start-wait: never not in {second,attached}"))
        << m_err.str();
    EXPECT_EQ(2, refused({"--start-wait"}));
}

TEST_F(OptionParserTest, AllowedCommandIsOneWord) {
    EXPECT_EQ((std::vector<std::string>{"quit", "sendFID"}),
              options({"--allow-command", "quit", "--allow-command", "sendFID"}).allowedCommands);
    EXPECT_EQ(2, refused({"--allow-command", "sendFID A.B"}));
}

TEST_F(OptionParserTest, RequiredSignatureNeedsKeys) {
    EXPECT_EQ(2, refused({"--require-signature"}));
    EXPECT_TRUE(options({"--require-signature", "--trust", "/t"}).requireSignature);
}

TEST_F(OptionParserTest, SandboxCanBePreferredButNotAskedForAsWell) {
    EXPECT_FALSE(options({}).prefersSandbox);
    EXPECT_TRUE(options({"--prefer-sandbox"}).prefersSandbox);
    EXPECT_FALSE(options({"--prefer-sandbox"}).sandbox);
    EXPECT_EQ(2, refused({"--prefer-sandbox", "--sandbox"}));
    EXPECT_EQ(2, refused({"--sandbox=/s", "--prefer-sandbox"}));
}

TEST_F(OptionParserTest, ControlSocketIsWhereTheUserHasHisOwn) {
    ::setenv("XDG_RUNTIME_DIR", "/run/user/1000", 1);
    EXPECT_EQ("/run/user/1000/mfhost.sock", options({}).control);
    ::unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ("/run/mfhost.sock", options({}).control);
    EXPECT_EQ("/tmp/demo.sock", options({"--control", "/tmp/demo.sock"}).control);
    EXPECT_EQ(std::filesystem::current_path().string() + "/demo.sock",
              options({"--control", "demo.sock"}).control);
}

TEST_F(OptionParserTest, ThereMayBeNoControlSocket) {
    EXPECT_FALSE(options({"--no-control"}).control);
    EXPECT_EQ(2, refused({"--no-control", "--control", "/tmp/demo.sock"}));
    EXPECT_EQ(2, refused({"--control", ""}));
    EXPECT_NE(std::string::npos, m_err.str().find("an empty path names no socket; --no-control does without"))
        << m_err.str();
}

TEST_F(OptionParserTest, ServicesReadNoConsole) {
    EXPECT_FALSE(options({"--no-console"}).console);
}

TEST_F(OptionParserTest, ProcessesCanBeStartedByHand) {
    EXPECT_FALSE(options({"--no-start-mfds"}).startDriverProcesses);
}

TEST_F(OptionParserTest, ProbeOfTheSandboxNeedsNothingElse) {
    const auto parsed = parse({"--probe-sandbox"});
    ASSERT_TRUE(std::holds_alternative<Options>(parsed));
    EXPECT_TRUE(std::get<Options>(parsed).probeSandbox);
    EXPECT_TRUE(std::get<Options>(parsed).sandbox);
}

TEST_F(OptionParserTest, CheckIsNotTheDefault) {
    EXPECT_FALSE(options({}).check);
    EXPECT_TRUE(options({"--check"}).check);
    EXPECT_FALSE(options({"--check"}).checkAsJson);
    EXPECT_TRUE(options({"--check", "--json"}).checkAsJson);
}

TEST_F(OptionParserTest, JsonIsOfUseWithACheckOnly) {
    EXPECT_EQ(2, refused({"--json"}));
}

TEST_F(OptionParserTest, WebPanelIsThisMachinesAlone) {
    EXPECT_FALSE(options({}).web);
    const Options sut = options({"--web", "8080"});
    ASSERT_TRUE(sut.web);
    EXPECT_EQ("127.0.0.1:8080", sut.web->text());
    EXPECT_EQ("", sut.webCertificate);
    EXPECT_EQ("[::1]:80", options({"--web", "[::1]:80"}).web->text());
}

TEST_F(OptionParserTest, WebPanelForOthersNeedsTlsOrAWordThatSaysOtherwise) {
    EXPECT_EQ(2, refused({"--web", "0.0.0.0:8080"}));
    EXPECT_NE(std::string::npos,
              m_err.str().find("--web: \"0.0.0.0:8080\" is reached from other machines: it needs --web-cert "
                               "and --web-key, or --web-plain where nobody else is on the way"))
        << m_err.str();
    EXPECT_EQ("0.0.0.0:8080", options({"--web", "0.0.0.0:8080", "--web-plain"}).web->text());
    const Options sut = options({"--web", "0.0.0.0:8443", "--web-cert", "/c", "--web-key", "/k"});
    EXPECT_EQ("0.0.0.0:8443", sut.web->text());
    EXPECT_EQ("/c", sut.webCertificate);
    EXPECT_EQ("/k", sut.webKey);
}

TEST_F(OptionParserTest, OptionsOfTheWebPanelGoTogether) {
    EXPECT_EQ(2, refused({"--web", "x"}));
    EXPECT_EQ(2, refused({"--web-plain"}));
    EXPECT_EQ(2, refused({"--web-tokens", "/t"}));
    EXPECT_EQ(2, refused({"--web", "80", "--web-cert", "/c"}));
    EXPECT_EQ(2, refused({"--web", "80", "--web-key", "/k"}));
    EXPECT_EQ(2, refused({"--web", "80", "--web-cert", "/c", "--web-key", "/k", "--web-plain"}));
    EXPECT_EQ("/t", options({"--web", "80", "--web-tokens", "/t"}).webTokens);
}
