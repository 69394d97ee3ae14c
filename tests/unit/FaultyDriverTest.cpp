#include "FaultyDriver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "DriverHost.h"
#include "LogFile.h"
#include "TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class FaultyDriverTest : public testing::Test {
protected:
    ~FaultyDriverTest() override { ::unsetenv("MFD_FAULTS"); }

    bool configure() {
        sut.setPanelStateInterface(&host);
        sut.setSystemInterface(&host);
        return sut.setConfiguration(0, "BAD", "data/BAD", "", "", "", nvram.path());
    }

    bool take(const std::string& fid, const std::vector<std::pair<std::string, std::string>>& pairs = {}) {
        FIDParameterList list;
        for (const auto& [name, value] : pairs)
            list.add(name, value);
        return sut.sendFID(fid, list);
    }

    static long descriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    }

    LogFile log;
    TemporaryDirectory nvram;
    DriverHost host;
    FaultyDriver sut;
};

TEST_F(FaultyDriverTest, ReportsThatItIsReady) {
    configure();
    EXPECT_TRUE(sut.initializationCompleted());
    EXPECT_THAT(host.calls.lines(), ElementsAre("READY bool true"));
}

TEST_F(FaultyDriverTest, AnswersAPing) {
    configure();
    EXPECT_TRUE(take("PING", {{"value", "17"}}));
    EXPECT_THAT(host.calls.lines(), ElementsAre("PONG string 17"));
}

TEST_F(FaultyDriverTest, ReportsUnderAnyName) {
    configure();
    EXPECT_TRUE(take("REPORT", {{"name", "NEW7"}, {"value", "fresh"}}));
    EXPECT_THAT(host.calls.lines(), ElementsAre("NEW7 string fresh"));
    EXPECT_FALSE(take("REPORT", {{"value", "fresh"}}));
}

TEST_F(FaultyDriverTest, FillsTheStoreWithValuesOfManyNames) {
    configure();
    EXPECT_TRUE(take("FAULT.FILLSTORE", {{"count", "3"}}));
    EXPECT_TRUE(host.calls.waitFor("FILL3 int 3"));
    sut.deinitialize();
    EXPECT_THAT(host.calls.lines(), ElementsAre("FILL1 int 1", "FILL2 int 2", "FILL3 int 3"));
    EXPECT_FALSE(take("FAULT.FILLSTORE", {{"count", "none"}}));
}

TEST_F(FaultyDriverTest, FaultsStrikeInTheFid) {
    configure();
    EXPECT_THROW(take("FAULT.THROW"), std::runtime_error);
    EXPECT_THROW(take("FAULT.THROWNUMBER"), int);
    EXPECT_FALSE(take("FAULT.FAIL"));
    EXPECT_TRUE(take("FAULT.SLEEP", {{"ms", "1"}}));
    EXPECT_TRUE(take("FAULT.BUSY", {{"ms", "1"}}));
}

TEST_F(FaultyDriverTest, FaultIsLoggedBeforeItStrikes) {
    configure();
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(take("FAULT.EXIT", {{"code", "3"}}), testing::ExitedWithCode(3), "BAD: as told: exit 3");
}

TEST_F(FaultyDriverTest, UnknownFidIsNamedWithTheKnownOnes) {
    configure();
    EXPECT_FALSE(take("MOVE"));
    EXPECT_FALSE(take("FAULT.EXPLODE"));
    EXPECT_THAT(log.text(),
                HasSubstr("BAD: \"MOVE\" does nothing: is unknown; FIDs are PING, REPORT, FAULT.AT, "));
    EXPECT_THAT(log.text(), HasSubstr("\"explode\" is no fault; there are crash, "));
}

TEST_F(FaultyDriverTest, FloodOfStateHasItsLength) {
    configure();
    EXPECT_TRUE(take("FAULT.FLOODSTATE", {{"count", "3"}}));
    EXPECT_TRUE(host.calls.waitFor("event FLOODED 3"));
    sut.deinitialize();
    EXPECT_THAT(host.calls.linesOf("FLOOD "), ElementsAre("FLOOD int 1", "FLOOD int 2", "FLOOD int 3"));
}

TEST_F(FaultyDriverTest, FloodOfFidsGoesWhereItIsToldTo) {
    configure();
    EXPECT_TRUE(take("FAULT.FLOODFIDS", {{"fid", "OTHER.PING"}, {"count", "2"}}));
    EXPECT_TRUE(host.calls.waitFor("send OTHER.PING value=2"));
    sut.deinitialize();
    EXPECT_THAT(host.calls.lines(), ElementsAre("send OTHER.PING value=1", "send OTHER.PING value=2"));
}

TEST_F(FaultyDriverTest, EndlessFloodEndsWithStop) {
    configure();
    take("FAULT.FLOODFIDS", {{"fid", "OTHER.PING"}});
    EXPECT_TRUE(host.calls.waitFor("send OTHER.PING value=10"));
    EXPECT_TRUE(take("FAULT.STOP"));
    const auto count = host.calls.lines().size();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_THAT(host.calls.lines(), SizeIs(count));
}

TEST_F(FaultyDriverTest, EndlessFloodEndsWithDeinitialize) {
    configure();
    take("FAULT.FLOODSTATE");
    EXPECT_TRUE(host.calls.waitFor("event FLOODED 10"));
    EXPECT_TRUE(sut.deinitialize());
    const auto count = host.calls.lines().size();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_THAT(host.calls.lines(), SizeIs(count));
}

TEST_F(FaultyDriverTest, WrongNumbersAreRefusedAndDoNothing) {
    configure();
    EXPECT_FALSE(take("FAULT.FLOODSTATE", {{"count", "-1"}}));
    EXPECT_FALSE(take("FAULT.FLOODFIDS", {{"count", "2"}}));
    EXPECT_FALSE(take("FAULT.GARBAGE", {{"count", "many"}}));
    EXPECT_FALSE(take("FAULT.LEAK", {{"mib", "1000001"}}));
    EXPECT_FALSE(take("FAULT.AT", {{"stage", "never"}, {"fault", "fail"}}));
    EXPECT_THAT(host.calls.lines(), IsEmpty());
    EXPECT_THAT(log.text(), HasSubstr("\"FAULT.LEAK\" does nothing: mib and descriptors must be numbers"));
}

TEST_F(FaultyDriverTest, LeaksDescriptorsUntilStop) {
    configure();
    const long before = descriptors();
    EXPECT_TRUE(take("FAULT.LEAK", {{"descriptors", "5"}, {"mib", "1"}}));
    EXPECT_EQ(descriptors(), before + 5);
    EXPECT_TRUE(take("FAULT.STOP"));
    EXPECT_EQ(descriptors(), before);
}

TEST_F(FaultyDriverTest, GarbageNeedsAProcessOfItsOwn) {
    ::setenv("MFD_QUEUE_DIR", nvram.path().c_str(), 1);
    configure();
    EXPECT_FALSE(take("FAULT.GARBAGE"));
    ::unsetenv("MFD_QUEUE_DIR");
    EXPECT_THAT(
        log.text(),
        HasSubstr("\"FAULT.GARBAGE\" does nothing: only a driver in a process of its own has a queue"));
}

TEST_F(FaultyDriverTest, PlansAFaultForAStageByFid) {
    configure();
    EXPECT_TRUE(take("FAULT.AT", {{"stage", "deinitialize"}, {"fault", "fail"}}));
    EXPECT_FALSE(sut.deinitialize());
}

TEST_F(FaultyDriverTest, StopTakesThePlanBack) {
    configure();
    take("FAULT.AT", {{"stage", "deinitialize"}, {"fault", "fail"}});
    take("FAULT.STOP");
    EXPECT_TRUE(sut.deinitialize());
}

TEST_F(FaultyDriverTest, ReadsThePlanOfItsNvramDirectory) {
    nvram.write("faults.txt", "configure fail\nstart fail\n");
    EXPECT_FALSE(configure());
    EXPECT_FALSE(sut.initializationCompleted());
    EXPECT_THAT(host.calls.lines(), IsEmpty());
}

TEST_F(FaultyDriverTest, WrongEntryOfThePlanIsLogged) {
    nvram.write("faults.txt", "start explode\n");
    EXPECT_TRUE(configure());
    EXPECT_THAT(log.text(), HasSubstr("BAD: the plan of faults: \"explode\" is no fault"));
}

TEST_F(FaultyDriverTest, ReadsThePlanOfTheEnvironment) {
    ::setenv("MFD_FAULTS", "start fail", 1);
    FaultyDriver other;
    other.setPanelStateInterface(&host);
    EXPECT_FALSE(other.initializationCompleted());
}

TEST_F(FaultyDriverTest, FailsWhileItIsLoaded) {
    ::setenv("MFD_FAULTS", "load throw", 1);
    EXPECT_THROW(FaultyDriver(), std::runtime_error);
}

}  // namespace
