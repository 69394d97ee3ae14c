#include "LogText.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

namespace {

std::string textOf(const char* pJson, bool isColoured = false) {
    ::setenv("TZ", "UTC", 1);
    std::ostringstream out;
    const Screen screen{out, out, {0, isColoured}};
    const nlohmann::json line = nlohmann::json::parse(pJson);
    return logText(JsonView(line), screen);
}

}  // namespace

TEST(LogText, HasTimeLevelOutputDriverAndText) {
    EXPECT_EQ("12:00:05 warning MDM SYS  slow", textOf(R"({"time":"2026-11-22T12:00:05.000Z","level":3,
              "output":"MDM","driver":"SYS","text":"slow"})"));
}

TEST(LogText, NamesADriverOnce) {
    EXPECT_EQ("12:00:05 info SYS  x", textOf(R"({"time":"2026-11-22T12:00:05.000Z","level":4,
              "output":"SYS","driver":"SYS","text":"x"})"));
    EXPECT_EQ("12:00:05 info SYS MFD  x", textOf(R"({"time":"2026-11-22T12:00:05.000Z","level":4,
              "output":"SYS MFD","driver":"SYS","text":"x"})"));
    EXPECT_EQ("12:00:05 info HOST  SYS: is parked", textOf(R"({"time":"2026-11-22T12:00:05.000Z","level":4,
              "output":"HOST","driver":"SYS","text":"SYS: is parked"})"));
}

TEST(LogText, IsPrintable) {
    EXPECT_EQ("  a\\nb\\x1b[2J", textOf(R"({"text":"a\nb\u001b[2J"})"));
}

TEST(LogText, ErrorIsRedAndWarningYellow) {
    EXPECT_EQ("\x1b[31m error  x\x1b[0m", textOf(R"({"level":2,"text":"x"})", true));
    EXPECT_EQ("\x1b[33m warning  x\x1b[0m", textOf(R"({"level":3,"text":"x"})", true));
    EXPECT_EQ(" info  x", textOf(R"({"level":4,"text":"x"})", true));
}

TEST(LogText, LinesOfATextArePrintableOneByOne) {
    std::ostringstream out;
    printLines("a\r\n\x1b[2J\n\nlast", Screen{out, out});
    EXPECT_EQ("a\n\\x1b[2J\n\nlast\n", out.str());
}
