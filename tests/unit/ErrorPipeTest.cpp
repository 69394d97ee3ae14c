#include "ErrorPipe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "StandardErrorCapture.h"

namespace {

using sal::ErrorPipe;
using std::chrono::system_clock;

std::optional<sal::LogManager::Line> decoded(std::string line) {
    EXPECT_TRUE(line.ends_with('\n'));
    line.pop_back();
    const auto read = ErrorPipe::read(line);
    EXPECT_EQ("", read.bare);
    return read.logged;
}

/// Sets the variable as for a child with this standard error.
void announce(int descriptor) {
    const std::string variable = ErrorPipe::variableFor(descriptor);
    ::setenv(ErrorPipe::s_variable, variable.substr(variable.find('=') + 1).c_str(), 1);
}

}  // namespace

TEST(ErrorPipe, LineComesOutAsItWent) {
    const auto time = system_clock::time_point(std::chrono::milliseconds(1'764'000'000'123));
    const auto line = decoded(ErrorPipe::encode(3, time, "AXIS1 MFD", "no \"answer\": \xc3\xa4"));
    ASSERT_TRUE(line);
    EXPECT_EQ(3, line->level);
    EXPECT_EQ(time, line->time);
    EXPECT_EQ("AXIS1 MFD", line->output);
    EXPECT_EQ("no \"answer\": \xc3\xa4", line->text);
}

TEST(ErrorPipe, EmptyTextIsALine) {
    const auto line = decoded(ErrorPipe::encode(4, {}, "MFD", ""));
    ASSERT_TRUE(line);
    EXPECT_EQ("", line->text);
}

TEST(ErrorPipe, OtherTextIsNoLine) {
    const std::string line = ErrorPipe::encode(4, {}, "MFD", "text");
    for (const std::string& text :
         {std::string("terminate called"), line.substr(1), line.substr(0, line.rfind('\x1f')),
          std::string("\x1e"
                      "6\x1f"
                      "1\x1fMFD\x1ftext"),
          std::string("\x1e"
                      "4\x1fnow\x1fMFD\x1ftext")}) {
        const auto read = ErrorPipe::read(text);
        EXPECT_EQ(text, read.bare);
        EXPECT_FALSE(read.logged) << text;
    }
}

TEST(ErrorPipe, WhatCannotBeShownIsWrittenOut) {
    const auto line = ErrorPipe::read(
                          "\x1e"
                          "4\x1f"
                          "1\x1fM\x1b\x1f\x9btext\x1f")
                          .logged;
    ASSERT_TRUE(line);
    EXPECT_EQ("M\\x1b", line->output);
    EXPECT_EQ("\\x9btext\\x1f", line->text);
}

TEST(ErrorPipe, LineMayFollowTextWithoutALineEnd) {
    std::string text = "half" + ErrorPipe::encode(4, {}, "MFD", "text");
    text.pop_back();
    const auto read = ErrorPipe::read(text);
    EXPECT_EQ("half", read.bare);
    ASSERT_TRUE(read.logged);
    EXPECT_EQ("text", read.logged->text);
}

TEST(ErrorPipe, BlankTextIsNone) {
    for (const char* text : {"", " ", "\t\r"})
        EXPECT_EQ("", ErrorPipe::read(text).bare);
}

TEST(ErrorPipe, WhatIsNotOpenIsNone) {
    EXPECT_EQ("", ErrorPipe::variableFor(-1));
}

TEST(ErrorPipe, IsTakenOnceByTheProcessThatHasIt) {
    StandardErrorCapture capture;
    announce(STDERR_FILENO);
    const bool isTaken = ErrorPipe::take();
    const char* const pLeft = std::getenv(ErrorPipe::s_variable);
    const bool isTakenAgain = ErrorPipe::take();
    capture.finish();
    EXPECT_TRUE(isTaken);
    EXPECT_EQ(nullptr, pLeft);
    EXPECT_FALSE(isTakenAgain);
}

TEST(ErrorPipe, AnotherStandardErrorThanTheOneThatIsMeantIsNotTaken) {
    std::array<int, 2> ends{};
    ASSERT_EQ(0, ::pipe2(ends.data(), O_CLOEXEC));
    announce(ends[1]);
    EXPECT_FALSE(ErrorPipe::take());
    EXPECT_EQ(nullptr, std::getenv(ErrorPipe::s_variable));
    ::setenv(ErrorPipe::s_variable, "", 1);
    EXPECT_FALSE(ErrorPipe::take());
    ::close(ends[0]);
    ::close(ends[1]);
}
