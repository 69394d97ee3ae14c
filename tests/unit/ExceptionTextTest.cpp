#include "ExceptionText.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(ExceptionText, HasTypeAndWords) {
    EXPECT_EQ(sal::exceptionText(std::runtime_error("no such axis")), "std::runtime_error: no such axis");
}

class Silent : public std::exception {
public:
    const char* what() const noexcept override { return nullptr; }
};

TEST(ExceptionText, StandsAnExceptionWithoutWords) {
    EXPECT_TRUE(sal::exceptionText(Silent()).ends_with("Silent: "));
}

TEST(ExceptionText, NamesTheTypeOfAnythingThrown) {
    try {
        throw std::string("text");
    } catch (...) {
        EXPECT_TRUE(sal::currentExceptionText().starts_with("an exception of type std::"));
    }
}

TEST(ExceptionText, OrdinaryExceptionIsNotTheEndOfTheThread) {
    try {
        throw 17;
    } catch (...) {
        EXPECT_FALSE(sal::isThreadEnding());
    }
}

TEST(ExceptionText, SymbolThatIsNoneStays) {
    EXPECT_EQ(sal::demangled("main"), "main");
    EXPECT_EQ(sal::demangled("_ZN4Axis4moveEv"), "Axis::move()");
}

}  // namespace
