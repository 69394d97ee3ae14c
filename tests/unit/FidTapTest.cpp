#include "FidTap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "FidWatch.h"
#include "LogCapture.h"
#include "MockModuleObserver.h"

namespace {

using testing::NiceMock;
using testing::StrEq;
using testing::StrictMock;

class LogObserver : public sal::LogManager::Observer {
public:
    MOCK_METHOD(void, line, (const std::string& output, int level, const std::string& text), (override));
};

class FidTapTest : public testing::Test {
protected:
    LogCapture m_log;
    StateStore m_store;
    DriverTable m_drivers{m_store};
    StrictMock<MockModuleObserver> m_calls;
    NiceMock<LogObserver> m_lines;
    FidTap m_sut{m_drivers, m_calls, m_lines};
};

}  // namespace

TEST_F(FidTapTest, PassesTheOtherCallsOn) {
    EXPECT_CALL(m_calls, callBegins("A", StrEq("deinitialize")));
    EXPECT_CALL(m_calls, callEnded("A", StrEq("deinitialize")));
    EXPECT_CALL(m_calls, driverDeleted("A"));
    m_sut.callBegins("A", "deinitialize");
    m_sut.callEnded("A", "deinitialize");
    m_sut.driverDeleted("A");
}

TEST_F(FidTapTest, PassesOnWhyAModuleIsNotLoaded) {
    EXPECT_CALL(m_calls, loadFailed("/a.so", "file too short"));
    m_sut.loadFailed("/a.so", "file too short");
}

TEST_F(FidTapTest, PassesLinesOfTheLogOn) {
    EXPECT_CALL(m_lines, line("A", 3, "text"));
    m_sut.line("A", 3, "text");
}

TEST_F(FidTapTest, FidIsACallOnAWatchedThreadAlone) {
    m_sut.fidBegins("A", "MOVE", {});
    EXPECT_TRUE(m_drivers.innermostCalls().empty());
    m_sut.fidEnded("A", true, nullptr);

    const FidTap::WatchedThread watched;
    m_sut.fidBegins("A", "MOVE", {});
    ASSERT_EQ(m_drivers.innermostCalls().size(), 1u);
    EXPECT_EQ(m_drivers.innermostCalls().front().operation, "sendFID(MOVE)");
    std::thread([this] {
        m_sut.fidBegins("B", "MOVE", {});
        EXPECT_EQ(m_drivers.innermostCalls().size(), 1u);
        m_sut.fidEnded("B", true, nullptr);
    }).join();
    m_sut.fidEnded("A", true, nullptr);
    EXPECT_TRUE(m_drivers.innermostCalls().empty());
}

TEST_F(FidTapTest, TellsTheWatchOfTheSameThread) {
    const FIDParameterList none;
    const std::string fid = "A.MOVE";
    const FidWatch watch(m_drivers, fid, none);
    std::thread([this] {
        m_sut.fidBegins("A", "MOVE", {});
        m_sut.fidEnded("A", true, nullptr);
    }).join();
    EXPECT_FALSE(watch.outcome().result);
    m_sut.fidBegins("A", "MOVE", {});
    m_sut.fidEnded("A", true, nullptr);
    EXPECT_EQ(watch.outcome().result, true);
}

TEST_F(FidTapTest, TellsTheWatchOfTheSameThreadWhatItLogs) {
    const FIDParameterList none;
    const std::string fid = "A.MOVE";
    const FidWatch watch(m_drivers, fid, none);
    m_sut.fidBegins("A", "MOVE", {});
    m_sut.line("A", 3, "unknown FID \"MOVE\"; known are STOP");
    m_sut.fidEnded("A", false, nullptr);
    EXPECT_EQ(watch.outcome().reason, EFidReason::UnknownFunction);
}

TEST_F(FidTapTest, TellsNobodyWhereNoneWatches) {
    m_sut.line("A", 3, "unknown FID \"MOVE\"; known are STOP");
    m_sut.sent("A_INQ", 1, nullptr, 0, true);
    m_sut.received("A_OUTQ", 1, nullptr, 0);
    m_sut.fidBegins("A", "MOVE", {});
    m_sut.fidEnded("A", true, nullptr);
    EXPECT_EQ(FidWatch::ofThisThread(), nullptr);
}
