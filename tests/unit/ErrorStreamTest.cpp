#include "ErrorStream.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

/// As the log of a driver process writes a line.
std::string logged(const std::string& level, const std::string& output, const std::string& text) {
    return "\x1e" + level + "\x1f" + "1764000000123000000" + "\x1f" + output + "\x1f" + text + "\n";
}

class ErrorStreamTest : public testing::Test {
protected:
    ErrorStreamTest() {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
            throw std::runtime_error("no pipe");
        m_reader = base::UniqueFd(ends[0]);
        m_writer = base::UniqueFd(ends[1]);
    }

    ErrorStream make(const ErrorStream::Limits& limits = {}) {
        return {"AXIS1", std::move(m_reader), limits,
                [this](const std::string& driverID, const sal::LogManager::Line& line, bool isBare) {
                    EXPECT_EQ("AXIS1", driverID);
                    m_lines.push_back(std::to_string(line.level) + " " + line.output + ": " + line.text +
                                      (isBare ? " (bare)" : ""));
                    m_last = line;
                }};
    }
    void write(const std::string& bytes) const {
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()), ::write(m_writer.get(), bytes.data(), bytes.size()));
    }
    /// What comes of these bytes and the end of the process.
    std::vector<std::string> linesOf(const std::string& bytes, const ErrorStream::Limits& limits = {}) {
        ErrorStream sut = make(limits);
        write(bytes);
        m_writer.reset();
        EXPECT_FALSE(sut.read(1 << 20));
        sut.finish();
        m_words = sut.lastWords();
        m_loadFault = sut.loadFault();
        return m_lines;
    }

    base::UniqueFd m_reader;
    base::UniqueFd m_writer;
    std::vector<std::string> m_lines;
    std::vector<std::string> m_words;
    std::string m_loadFault;
    sal::LogManager::Line m_last;
};

TEST_F(ErrorStreamTest, TellsOfACrashOnce) {
    ErrorStream sut = make();
    write(logged("4", "AXIS1 MFD", "Runs /opt/axis.so"));
    EXPECT_TRUE(sut.read(1 << 20));
    EXPECT_FALSE(sut.takeCrash());
    write("half a line\n" + logged("1", "AXIS1 MFD", "Dies of signal 11 on thread 4711"));
    EXPECT_TRUE(sut.read(1 << 20));
    const auto crash = sut.takeCrash();
    ASSERT_TRUE(crash);
    EXPECT_EQ(crash->signal, 11);
    EXPECT_EQ(crash->thread, 4711);
    EXPECT_FALSE(sut.takeCrash());
}

TEST_F(ErrorStreamTest, BareTextIsNoCrash) {
    ErrorStream sut = make();
    write("Dies of signal 11 on thread 4711\n");
    EXPECT_TRUE(sut.read(1 << 20));
    EXPECT_FALSE(sut.takeCrash());
}

}  // namespace

TEST_F(ErrorStreamTest, LineOfTheLogGoesOnAsItIs) {
    EXPECT_THAT(linesOf(logged("4", "AXIS1 MFD", "Runs axis.so")), ElementsAre("4 AXIS1 MFD: Runs axis.so"));
    EXPECT_EQ(std::chrono::system_clock::time_point(std::chrono::milliseconds(1'764'000'000'123)),
              m_last.time);
    EXPECT_THAT(m_words, IsEmpty());
}

TEST_F(ErrorStreamTest, BareLineGetsTheDriverID) {
    EXPECT_THAT(linesOf("terminate called after throwing an instance of 'X'\n  what():  no device\n"),
                ElementsAre("3 AXIS1: terminate called after throwing an instance of 'X' (bare)",
                            "3 AXIS1:   what():  no device (bare)"));
    EXPECT_THAT(m_words,
                ElementsAre("terminate called after throwing an instance of 'X'", "  what():  no device"));
}

TEST_F(ErrorStreamTest, OrderIsKept) {
    EXPECT_THAT(linesOf("one\n" + logged("2", "AXIS1", "two") + "three\n"),
                ElementsAre("3 AXIS1: one (bare)", "2 AXIS1: two", "3 AXIS1: three (bare)"));
}

TEST_F(ErrorStreamTest, LineOfTheLogAfterTextWithoutALineEndIsOne) {
    EXPECT_THAT(linesOf("half" + logged("2", "AXIS1", "two")),
                ElementsAre("3 AXIS1: half (bare)", "2 AXIS1: two"));
}

TEST_F(ErrorStreamTest, WhatOnlyBeginsLikeALineOfTheLogIsBare) {
    EXPECT_THAT(linesOf("a\x1e"
                        "b\n"),
                ElementsAre("3 AXIS1: a\\x1eb (bare)"));
    EXPECT_THAT(m_words, ElementsAre("a\\x1eb"));
}

TEST_F(ErrorStreamTest, BlankLinesSayNothing) {
    EXPECT_THAT(linesOf("\n  \r\n\t\none\n"), ElementsAre("3 AXIS1: one (bare)"));
}

TEST_F(ErrorStreamTest, LineIsOneHoweverItComes) {
    ErrorStream sut = make();
    for (const char c : std::string("one\ntwo")) {
        write(std::string(1, c));
        EXPECT_TRUE(sut.read(1 << 20));
    }
    EXPECT_THAT(m_lines, ElementsAre("3 AXIS1: one (bare)"));
    m_writer.reset();
    EXPECT_FALSE(sut.read(1 << 20));
    sut.finish();
    EXPECT_THAT(m_lines, ElementsAre("3 AXIS1: one (bare)", "3 AXIS1: two (bare)"));
}

TEST_F(ErrorStreamTest, LongLineIsCut) {
    EXPECT_THAT(linesOf("12345678\n1234\n", {.lineLength = 4}),
                ElementsAre("3 AXIS1: 1234 ... (bare)", "3 AXIS1: 1234 (bare)"));
}

TEST_F(ErrorStreamTest, ReadStopsAfterItsTurn) {
    ErrorStream sut = make();
    write(std::string(40'000, 'x') + "\n");
    EXPECT_TRUE(sut.read(1));
    EXPECT_THAT(m_lines, IsEmpty());
    EXPECT_TRUE(sut.read(1 << 20));
    EXPECT_EQ(1u, m_lines.size());
}

TEST_F(ErrorStreamTest, LinesBeyondTheRateAreCountedAndToldInOneLine) {
    EXPECT_THAT(
        linesOf("1\n2\n3\n4\n5\n", {.lines = 3}),
        ElementsAre("3 AXIS1: 1 (bare)", "3 AXIS1: 2 (bare)", "3 AXIS1: 3 (bare)",
                    "3 HOST: AXIS1: 2 lines of its log and standard error are left out here: more than "
                    "3 in a second"));
    EXPECT_THAT(m_words, ElementsAre("1", "2", "3", "4", "5"));
}

TEST_F(ErrorStreamTest, LongLinesCountAsSeveral) {
    EXPECT_THAT(
        linesOf(std::string(2048, 'x') + "\n1\n2\n", {.lines = 4}),
        ElementsAre(StartsWith("3 AXIS1: xxx"), "3 AXIS1: 1 (bare)",
                    "3 HOST: AXIS1: 1 line of its log and standard error are left out here: more than "
                    "4 in a second"));
}

TEST_F(ErrorStreamTest, WhatWasLeftOutIsToldWhenItsSecondIsOver) {
    ErrorStream sut = make({.lines = 1});
    write("1\n2\n");
    sut.read(1 << 20);
    EXPECT_TRUE(sut.hasLeftOut());
    const auto isTold = [&] {
        sut.tell();
        return m_lines.size() == 2;
    };
    while (!isTold())
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_THAT(m_lines.back(), StartsWith("3 HOST: AXIS1: 1 line "));
    EXPECT_FALSE(sut.hasLeftOut());
    write("3\n");
    sut.read(1 << 20);
    EXPECT_EQ("3 AXIS1: 3 (bare)", m_lines.back());
}

TEST_F(ErrorStreamTest, LastWordsAreTheLastOfWhatWasNotLogged) {
    linesOf("1\n2\n" + logged("2", "AXIS1", "no word") + "3\n", {.lastWords = 2});
    EXPECT_THAT(m_words, ElementsAre("2", "3"));
}

TEST_F(ErrorStreamTest, LastWordIsCut) {
    linesOf("12345678\n", {.lastWordLength = 4});
    EXPECT_THAT(m_words, ElementsAre("1234"));
}

TEST_F(ErrorStreamTest, FaultOfTheModuleIsKept) {
    linesOf(logged("2", "AXIS1 MODULE", "cannot load the driver module /a/axis.so: file too short") +
            "end\n");
    EXPECT_EQ("file too short", m_loadFault);
}

TEST_F(ErrorStreamTest, WhatIsNotLoggedIsNoFaultOfTheModule) {
    linesOf("cannot load the driver module /a/axis.so: file too short\n");
    EXPECT_EQ("", m_loadFault);
}
