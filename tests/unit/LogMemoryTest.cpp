#include "LogMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::set<std::string> driverIDs() {
    return {"A", "B"};
}

sal::LogManager::Line ofProcess(const std::string& output, const std::string& text, int level = 4) {
    return {std::chrono::system_clock::time_point(std::chrono::seconds(7)), level, output, text};
}

std::vector<std::string> texts(const LogMemory& sut, const LogMemory::Query& query = {}) {
    std::vector<std::string> texts;
    for (const LogMemory::Line& line : sut.lines(query))
        texts.push_back(line.text);
    return texts;
}

}  // namespace

TEST(LogMemory, LineHasAllThatIsKnownOfIt) {
    LogMemory sut(driverIDs);
    const auto before = std::chrono::system_clock::now();
    sut.line("NETWORK", 2, "no answer");
    sut.add("A", ofProcess("A MFD", "Runs a.so", 3));
    const auto lines = sut.lines({});
    ASSERT_EQ(2u, lines.size());
    EXPECT_GE(lines[0].time, before);
    EXPECT_EQ(2, lines[0].level);
    EXPECT_EQ("NETWORK", lines[0].output);
    EXPECT_EQ("", lines[0].driver);
    EXPECT_EQ("no answer", lines[0].text);
    EXPECT_EQ(std::chrono::seconds(7), lines[1].time.time_since_epoch());
    EXPECT_EQ(3, lines[1].level);
    EXPECT_EQ("A MFD", lines[1].output);
    EXPECT_EQ("A", lines[1].driver);
    EXPECT_EQ("Runs a.so", lines[1].text);
}

TEST(LogMemory, LinesOfADriverAreItsOwnAndThoseOfTheHostAboutIt) {
    LogMemory sut(driverIDs);
    sut.line("HOST", 4, "the workplace is started");
    sut.line("HOST", 2, "A: process 7 ended");
    sut.line("HOST", 2, "B: process 8 ended");
    sut.line("A", 3, "of a driver in this process");
    sut.line("HOST", 3, "AB: is no driver");
    sut.line("HOST", 3, "A");
    sut.add("A", ofProcess("A MFD", "of a process"));
    EXPECT_THAT(texts(sut, {.driver = "A"}),
                ElementsAre("A: process 7 ended", "of a driver in this process", "of a process"));
    EXPECT_EQ("B", sut.lines({})[2].driver);
    EXPECT_THAT(texts(sut, {.driver = "C"}), IsEmpty());
}

TEST(LogMemory, QueryTakesALevelAndTheLastOnes) {
    LogMemory sut(driverIDs);
    for (int level = 1; level <= 5; ++level)
        sut.line("HOST", level, std::to_string(level));
    EXPECT_THAT(texts(sut, {.level = 3}), ElementsAre("1", "2", "3"));
    EXPECT_THAT(texts(sut, {.most = 2}), ElementsAre("4", "5"));
    EXPECT_THAT(texts(sut, {.level = 2, .most = 1}), ElementsAre("2"));
    EXPECT_THAT(texts(sut, {.most = 0}), IsEmpty());
}

TEST(LogMemory, QueryTakesWhatCameAfterALine) {
    LogMemory sut(driverIDs);
    for (const char* pText : {"a", "b", "c"})
        sut.line("HOST", 4, pText);
    EXPECT_EQ(2u, sut.lines({})[1].number);
    EXPECT_THAT(texts(sut, {.after = 1}), ElementsAre("b", "c"));
    EXPECT_THAT(texts(sut, {.after = 3}), IsEmpty());
}

TEST(LogMemory, DriverHasItsShare) {
    LogMemory sut(driverIDs, {.lines = 10, .linesOfADriver = 2});
    sut.add("A", ofProcess("A", "a1"));
    sut.line("HOST", 4, "h1");
    sut.line("B", 4, "b1");
    sut.add("A", ofProcess("A", "a2"));
    sut.add("A", ofProcess("A MFD", "a3"));
    sut.line("B", 4, "b2");
    sut.line("B", 4, "b3");
    EXPECT_THAT(texts(sut), ElementsAre("h1", "a2", "a3", "b2", "b3"));
}

TEST(LogMemory, HostAndModuleMayFillIt) {
    LogMemory sut(driverIDs, {.lines = 4, .linesOfADriver = 1});
    for (const char* text : {"1", "2", "3"})
        sut.line("HOST", 4, text);
    sut.line("MDM", 4, "4");
    EXPECT_THAT(texts(sut), ElementsAre("1", "2", "3", "4"));
}

TEST(LogMemory, WhenItIsFullTheOldestGoesOfWhoeverHasTheMost) {
    LogMemory sut(driverIDs, {.lines = 4, .linesOfADriver = 10});
    sut.add("A", ofProcess("A", "old but alone"));
    for (const char* text : {"1", "2", "3", "4", "5"})
        sut.line("HOST", 4, text);
    EXPECT_THAT(texts(sut), ElementsAre("old but alone", "3", "4", "5"));
}

TEST(LogMemory, LongLineIsCut) {
    LogMemory sut(driverIDs, {.lineLength = 4});
    sut.line("HOST", 4, "12345");
    sut.line("HOST", 4, "1234");
    EXPECT_THAT(texts(sut), ElementsAre("1234 ...", "1234"));
}

TEST(LogMemory, LastWordsAreThoseOfTheLastProcess) {
    LogMemory sut(driverIDs, {.drivers = 2});
    EXPECT_THAT(sut.lastWords("A"), IsEmpty());
    sut.setLastWords("A", {"one", "two"});
    EXPECT_THAT(sut.lastWords("A"), ElementsAre("one", "two"));
    sut.setLastWords("A", {});
    EXPECT_THAT(sut.lastWords("A"), IsEmpty());
    sut.setLastWords("B", {"b"});
    sut.setLastWords("C", {"one too many"});
    EXPECT_THAT(sut.lastWords("C"), IsEmpty());
    sut.setLastWords("B", {"again"});
    EXPECT_THAT(sut.lastWords("B"), ElementsAre("again"));
}
