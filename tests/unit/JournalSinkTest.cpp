#include "JournalSink.h"

#include <gtest/gtest.h>
#include <spdlog/details/log_msg.h>

#include <memory>
#include <string>
#include <vector>

#include "DatagramReceiver.h"
#include "TemporaryDirectory.h"

namespace {

/// Keeps what it gets.
class KeepingSink : public spdlog::sinks::sink {
public:
    void log(const spdlog::details::log_msg& message) override {
        lines.emplace_back(message.payload.data(), message.payload.size());
    }
    void flush() override {}
    void set_pattern(const std::string&) override {}
    void set_formatter(std::unique_ptr<spdlog::formatter>) override {}

    std::vector<std::string> lines;
};

class JournalSinkTest : public testing::Test {
protected:
    void log(sal::JournalSink& sut, spdlog::level::level_enum level, const std::string& text) {
        sut.log(spdlog::details::log_msg("HOST", level, text));
    }
    sal::JournalSink::Settings settings() const {
        return {.socket = m_socket, .identifier = "mfhost", .driver = {}, .driverOf = nullptr};
    }

    const TemporaryDirectory m_directory;
    const std::string m_socket = m_directory.path("journal");
    const std::shared_ptr<KeepingSink> m_pOther = std::make_shared<KeepingSink>();
};

TEST_F(JournalSinkTest, SendsTheFieldsOfALine) {
    const DatagramReceiver journal(m_socket);
    sal::JournalSink sut(settings(), m_pOther);
    log(sut, spdlog::level::warn, "3 of 4 drivers run");
    EXPECT_EQ(journal.receive(),
              "MESSAGE=3 of 4 drivers run\nPRIORITY=4\nSYSLOG_IDENTIFIER=mfhost\nMF_OUTPUT=HOST\n");
    EXPECT_TRUE(m_pOther->lines.empty());
}

TEST_F(JournalSinkTest, LineThatIsPassedOnKeepsItsOutput) {
    const DatagramReceiver journal(m_socket);
    auto own = settings();
    own.driverOf = [](const std::string&, const std::string&) { return "AXIS1"; };
    sal::JournalSink sut(own, m_pOther);
    sut.log(spdlog::details::log_msg("AXIS1 MFD", spdlog::level::info, "Runs axis.so"));
    EXPECT_EQ(journal.receive(),
              "MESSAGE=Runs axis.so\nPRIORITY=6\nSYSLOG_IDENTIFIER=mfhost\nMF_OUTPUT=MFD\n"
              "MF_DRIVER=AXIS1\n");
}

TEST_F(JournalSinkTest, PriorityIsThatOfSyslog) {
    const DatagramReceiver journal(m_socket);
    sal::JournalSink sut(settings(), m_pOther);
    for (const auto& [level, priority] :
         {std::pair(spdlog::level::critical, "PRIORITY=2\n"), std::pair(spdlog::level::err, "PRIORITY=3\n"),
          std::pair(spdlog::level::warn, "PRIORITY=4\n"), std::pair(spdlog::level::info, "PRIORITY=6\n"),
          std::pair(spdlog::level::trace, "PRIORITY=7\n")}) {
        log(sut, level, "text");
        EXPECT_NE(journal.receive().value_or("").find(priority), std::string::npos) << priority;
    }
}

TEST_F(JournalSinkTest, MessageIsFormatted) {
    const DatagramReceiver journal(m_socket);
    sal::JournalSink sut(settings(), m_pOther);
    sut.set_pattern("%n: %v");
    log(sut, spdlog::level::info, "text");
    EXPECT_TRUE(journal.receive().value_or("").starts_with("MESSAGE=HOST: text\n"));
}

TEST_F(JournalSinkTest, AllLinesOfADriverProcessAreItsDrivers) {
    const DatagramReceiver journal(m_socket);
    auto own = settings();
    own.driver = "AXIS1";
    own.driverOf = [](const std::string&, const std::string&) { return "OTHER"; };
    sal::JournalSink sut(own, m_pOther);
    log(sut, spdlog::level::info, "text");
    EXPECT_TRUE(journal.receive().value_or("").ends_with("\nMF_OUTPUT=HOST\nMF_DRIVER=AXIS1\n"));
}

TEST_F(JournalSinkTest, AsksWhichDriverAHostsLineIsAbout) {
    const DatagramReceiver journal(m_socket);
    auto own = settings();
    own.driverOf = [](const std::string& output, const std::string& text) {
        return output == "HOST" && text == "AXIS1: process 17 ended" ? "AXIS1" : "";
    };
    sal::JournalSink sut(own, m_pOther);
    sut.set_pattern("%n: %v");
    log(sut, spdlog::level::info, "AXIS1: process 17 ended");
    EXPECT_TRUE(journal.receive().value_or("").ends_with("\nMF_DRIVER=AXIS1\n"));
    log(sut, spdlog::level::info, "shutting down");
    EXPECT_EQ(journal.receive().value_or("").find("MF_DRIVER"), std::string::npos);
}

TEST_F(JournalSinkTest, TextOfSeveralLinesIsOneField) {
    const DatagramReceiver journal(m_socket);
    sal::JournalSink sut(settings(), m_pOther);
    log(sut, spdlog::level::info, "a\nMF_DRIVER=forged");
    using namespace std::string_literals;
    EXPECT_TRUE(journal.receive().value_or("").starts_with(
        "MESSAGE\n\x12\0\0\0\0\0\0\0a\nMF_DRIVER=forged\nPRIORITY"s));
}

TEST_F(JournalSinkTest, LineGoesToTheOtherSinkWithoutAJournal) {
    sal::JournalSink sut(settings(), m_pOther);
    log(sut, spdlog::level::info, "before");
    {
        const DatagramReceiver journal(m_socket);
        log(sut, spdlog::level::info, "while it is there");
        EXPECT_TRUE(journal.receive().has_value());
    }
    log(sut, spdlog::level::info, "after");
    EXPECT_EQ(m_pOther->lines, (std::vector<std::string>{"before", "after"}));
}

TEST_F(JournalSinkTest, LineThatIsTooLongForADatagramGoesToTheOtherSink) {
    const DatagramReceiver journal(m_socket);
    sal::JournalSink sut(settings(), m_pOther);
    log(sut, spdlog::level::info, std::string(8u << 20, 'x'));
    EXPECT_EQ(m_pOther->lines.size(), 1u);
}

TEST_F(JournalSinkTest, SocketsPathThatIsTooLongIsNoJournal) {
    auto own = settings();
    own.socket = std::string(200, 'x');
    sal::JournalSink sut(own, m_pOther);
    log(sut, spdlog::level::info, "text");
    EXPECT_EQ(m_pOther->lines, std::vector<std::string>{"text"});
}

}  // namespace
