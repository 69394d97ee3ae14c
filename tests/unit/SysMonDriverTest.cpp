#include "SysMonDriver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "DriverHost.h"
#include "IDistributorFID.h"
#include "LogFile.h"
#include "ParameterPairs.h"
#include "TemporaryDirectory.h"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

/// A machine of files, whose load the test sets.
class Machine {
public:
    Machine() {
        setLoad("0.50");
        files.write("meminfo", "MemAvailable: 102400 kB\n");
        files.write("hostname", "station7\n");
        setLink("up");
    }

    void setLoad(const std::string& load) { files.write("loadavg", load + " 0 0 1/100 42\n"); }
    void setLink(const std::string& state) { files.write("net/eth0/operstate", state + "\n"); }

    SystemProbe::Paths paths() const {
        return {files.path("loadavg"), files.path("meminfo"), files.path("hostname"), files.path("net")};
    }

    TemporaryDirectory files;
};

class SysMonDriverTest : public testing::Test {
protected:
    SysMonDriverTest() { start(sut, "SYS", host); }
    ~SysMonDriverTest() override { sut.deinitialize(); }

    static void start(SysMonDriver& driver, const std::string& driverID, DriverHost& driverHost) {
        driver.setPanelStateInterface(&driverHost);
        driver.setSystemInterface(&driverHost);
        driver.setConfiguration(0, driverID, "data/" + driverID, "", "", "", "");
        EXPECT_TRUE(driver.initializationCompleted());
    }

    /// Sets the load and returns when a sample of it was handled to its end.
    void runWithLoad(const std::string& load, const std::string& reported) {
        const std::string line = "LOAD float " + reported;
        machine.setLoad(load);
        for (int round = 0; round < 2; ++round) {
            const int before = host.calls.count(line);
            ASSERT_TRUE(sut.sendFID("REPORT", {}));
            ASSERT_TRUE(host.calls.waitFor(line, before + 1));
        }
    }

    LogFile log;
    Machine machine;
    DriverHost host;
    SysMonDriver sut{machine.paths()};
};

TEST_F(SysMonDriverTest, ReportsEverythingAtItsStart) {
    EXPECT_TRUE(host.calls.waitFor("LOAD float 0.5"));
    EXPECT_EQ(host.calls.count("MEMFREE int 100"), 1);
    EXPECT_EQ(host.calls.count("HOSTNAME string station7"), 1);
    EXPECT_EQ(host.calls.count("LINK bool true"), 1);
    EXPECT_EQ(host.calls.count("INTERVAL int 1000"), 1);
    EXPECT_EQ(host.calls.count("THRESHOLD float 0"), 1);
}

TEST_F(SysMonDriverTest, ReportsTheLoadEachIntervalAndTheRestOnceOnly) {
    ASSERT_TRUE(sut.sendFID("INTERVAL", parameters({{"ms", "50"}})));
    EXPECT_TRUE(host.calls.waitFor("LOAD float 0.5", 4));
    EXPECT_EQ(host.calls.count("MEMFREE int 100"), 1);
    EXPECT_EQ(host.calls.count("HOSTNAME string station7"), 1);
    EXPECT_EQ(host.calls.count("LINK bool true"), 1);
    EXPECT_EQ(host.calls.count("THRESHOLD float 0"), 1);
}

TEST_F(SysMonDriverTest, ReportsAChange) {
    ASSERT_TRUE(sut.sendFID("INTERVAL", parameters({{"ms", "50"}})));
    machine.setLink("down");
    EXPECT_TRUE(host.calls.waitFor("LINK bool false"));
    machine.files.write("hostname", "station8\n");
    EXPECT_TRUE(host.calls.waitFor("HOSTNAME string station8"));
    machine.files.write("meminfo", "MemAvailable: 51200 kB\n");
    EXPECT_TRUE(host.calls.waitFor("MEMFREE int 50"));
}

TEST_F(SysMonDriverTest, ReportRepeatsEverything) {
    ASSERT_TRUE(host.calls.waitFor("LOAD float 0.5"));
    ASSERT_TRUE(sut.sendFID("REPORT", {}));
    EXPECT_TRUE(host.calls.waitFor("INTERVAL int 1000", 2));
    EXPECT_TRUE(host.calls.waitFor("THRESHOLD float 0", 2));
    EXPECT_TRUE(host.calls.waitFor("HOSTNAME string station7", 2));
    EXPECT_TRUE(host.calls.waitFor("MEMFREE int 100", 2));
    EXPECT_TRUE(host.calls.waitFor("LINK bool true", 2));
}

TEST_F(SysMonDriverTest, OneReportRepeatsEverythingOnce) {
    ASSERT_TRUE(host.calls.waitFor("LOAD float 0.5"));
    ASSERT_TRUE(sut.sendFID("INTERVAL", parameters({{"ms", "3600000"}})));
    ASSERT_TRUE(host.calls.waitFor("INTERVAL int 3600000"));
    ASSERT_TRUE(sut.sendFID("REPORT", {}));
    ASSERT_TRUE(host.calls.waitFor("HOSTNAME string station7", 2));
    runWithLoad("0.75", "0.75");
    sut.deinitialize();
    EXPECT_EQ(host.calls.count("HOSTNAME string station7"), 4);
    EXPECT_EQ(host.calls.count("LOAD float 0.75"), 2);
}

TEST_F(SysMonDriverTest, WhatCannotBeReadIsUnsetAndLoggedOnce) {
    ASSERT_TRUE(host.calls.waitFor("LOAD float 0.5"));
    std::filesystem::remove(machine.files.path("hostname"));
    ASSERT_TRUE(sut.sendFID("INTERVAL", parameters({{"ms", "50"}})));
    ASSERT_TRUE(host.calls.waitFor("HOSTNAME unset"));
    ASSERT_TRUE(host.calls.waitFor("LOAD float 0.5", host.calls.count("LOAD float 0.5") + 3));
    const std::string text = log.text();
    const auto first = text.find("SYS: HOSTNAME cannot be read on this machine");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(text.find("SYS: HOSTNAME cannot be read on this machine", first + 1), std::string::npos);
}

TEST_F(SysMonDriverTest, ReadableAgainIsReportedAgain) {
    std::filesystem::remove(machine.files.path("hostname"));
    ASSERT_TRUE(sut.sendFID("REPORT", {}));
    ASSERT_TRUE(host.calls.waitFor("HOSTNAME unset"));
    const int before = host.calls.count("HOSTNAME string station7");
    machine.files.write("hostname", "station7\n");
    EXPECT_TRUE(host.calls.waitFor("HOSTNAME string station7", before + 1));
}

class SysMonDriverBadInterval : public SysMonDriverTest, public testing::WithParamInterface<const char*> {};

TEST_P(SysMonDriverBadInterval, ChangesNothingAndIsLogged) {
    EXPECT_FALSE(sut.sendFID("INTERVAL", parameters({{"ms", GetParam()}})));
    EXPECT_THAT(log.text(), HasSubstr("SYS: INTERVAL ignored, ms=\"" + std::string(GetParam()) +
                                      "\" is not a whole number from 50 to 3600000"));
    runWithLoad("0.75", "0.75");
    EXPECT_EQ(host.calls.linesOf("INTERVAL").back(), "INTERVAL int 1000");
}

INSTANTIATE_TEST_SUITE_P(Values, SysMonDriverBadInterval,
                         testing::Values("", "49", "3600001", "1e3", "100ms", " 100", "-100",
                                         "99999999999999999999"));

TEST_F(SysMonDriverTest, IntervalTakesItsBounds) {
    EXPECT_TRUE(sut.sendFID("INTERVAL", parameters({{"ms", "3600000"}})));
    EXPECT_TRUE(host.calls.waitFor("INTERVAL int 3600000"));
    EXPECT_TRUE(sut.sendFID("INTERVAL", parameters({{"ms", "50"}})));
    EXPECT_TRUE(host.calls.waitFor("INTERVAL int 50"));
}

class SysMonDriverBadThreshold : public SysMonDriverTest, public testing::WithParamInterface<const char*> {};

TEST_P(SysMonDriverBadThreshold, ChangesNothingAndIsLogged) {
    EXPECT_FALSE(sut.sendFID("THRESHOLD", parameters({{"load", GetParam()}})));
    EXPECT_THAT(log.text(), HasSubstr("SYS: THRESHOLD ignored, load=\"" + std::string(GetParam()) +
                                      "\" is not a number from 0 (no alarm) up"));
    runWithLoad("0.75", "0.75");
    EXPECT_EQ(host.calls.linesOf("THRESHOLD").back(), "THRESHOLD float 0");
}

INSTANTIATE_TEST_SUITE_P(Values, SysMonDriverBadThreshold,
                         testing::Values("", "-0.1", "nan", "inf", "2,5", "two"));

TEST_F(SysMonDriverTest, LoadAboveTheThresholdRaisesAnAlarmAtThePanel) {
    ASSERT_TRUE(sut.sendFID("THRESHOLD", parameters({{"load", "2"}})));
    runWithLoad("2.50", "2.5");
    EXPECT_EQ(host.calls.count("send PANEL.ALARM source=SYS, text=load 2.50 is above 2.00, load=2.50, "
                               "threshold=2.00"),
              1);
    EXPECT_EQ(host.calls.count("event LOADHIGH 2.50"), 1);
}

TEST_F(SysMonDriverTest, LoadAtTheThresholdRaisesNone) {
    ASSERT_TRUE(sut.sendFID("THRESHOLD", parameters({{"load", "2"}})));
    runWithLoad("2.00", "2");
    EXPECT_THAT(host.calls.linesOf("send"), IsEmpty());
}

TEST_F(SysMonDriverTest, ThresholdZeroRaisesNone) {
    runWithLoad("99.00", "99");
    EXPECT_THAT(host.calls.linesOf("send"), IsEmpty());
}

TEST_F(SysMonDriverTest, OneCrossingRaisesOneAlarm) {
    ASSERT_TRUE(sut.sendFID("THRESHOLD", parameters({{"load", "2"}})));
    runWithLoad("2.50", "2.5");
    runWithLoad("2.60", "2.6");
    EXPECT_EQ(host.calls.linesOf("event LOADHIGH").size(), 1u);
}

TEST_F(SysMonDriverTest, LoadThatTrembledAroundTheThresholdRaisesNoSecondAlarm) {
    ASSERT_TRUE(sut.sendFID("THRESHOLD", parameters({{"load", "2"}})));
    runWithLoad("2.50", "2.5");
    runWithLoad("1.90", "1.9");
    runWithLoad("2.60", "2.6");
    EXPECT_EQ(host.calls.linesOf("event LOADHIGH").size(), 1u);
}

TEST_F(SysMonDriverTest, LoadThatFellWellBelowRaisesASecondAlarm) {
    ASSERT_TRUE(sut.sendFID("THRESHOLD", parameters({{"load", "2"}})));
    runWithLoad("2.50", "2.5");
    runWithLoad("1.75", "1.75");
    runWithLoad("2.75", "2.75");
    EXPECT_EQ(host.calls.count("event LOADHIGH 2.75"), 1);
}

TEST_F(SysMonDriverTest, NewThresholdIsArmed) {
    ASSERT_TRUE(sut.sendFID("THRESHOLD", parameters({{"load", "2"}})));
    runWithLoad("2.50", "2.5");
    ASSERT_TRUE(sut.sendFID("THRESHOLD", parameters({{"load", "1"}})));
    EXPECT_TRUE(host.calls.waitFor("event LOADHIGH 2.50", 2));
}

TEST_F(SysMonDriverTest, AlarmThatCannotBeSentIsLogged) {
    host.sendResult = false;
    ASSERT_TRUE(sut.sendFID("THRESHOLD", parameters({{"load", "2"}})));
    runWithLoad("2.50", "2.5");
    EXPECT_THAT(log.text(),
                HasSubstr("SYS: load 2.50 is above 2.00, but the alarm could not be sent to the panel"));
}

TEST_F(SysMonDriverTest, ForwardSendsTheRestOfTheParameters) {
    EXPECT_TRUE(sut.sendFID(
        "FORWARD", parameters({{"a", "1"}, {"fid", "LOCAL.FORWARD"}, {"fid", "SYS.MARK"}, {"text", "x"}})));
    EXPECT_EQ(host.calls.count("send LOCAL.FORWARD a=1, fid=SYS.MARK, text=x"), 1);
}

TEST_F(SysMonDriverTest, ForwardNeedsAWholeFid) {
    EXPECT_FALSE(sut.sendFID("FORWARD", parameters({{"fid", "MARK"}})));
    EXPECT_THAT(log.text(),
                HasSubstr("SYS: FORWARD ignored, fid=\"MARK\" is not a driver ID, \".\" and a function"));
    EXPECT_THAT(host.calls.linesOf("send"), IsEmpty());
}

TEST_F(SysMonDriverTest, ForwardThatFailsIsLogged) {
    host.sendResult = false;
    EXPECT_FALSE(sut.sendFID("FORWARD", parameters({{"fid", "LOCAL.MARK"}})));
    EXPECT_THAT(log.text(), HasSubstr("SYS: FORWARD failed, LOCAL.MARK could not be sent"));
}

TEST_F(SysMonDriverTest, ForwardMayComeBackToTheSameDriver) {
    host.onSend = [this](const std::string&) {
        EXPECT_TRUE(sut.sendFID("MARK", parameters({{"text", "back"}})));
    };
    EXPECT_TRUE(sut.sendFID("FORWARD", parameters({{"fid", "SYS.MARK"}})));
    EXPECT_EQ(host.calls.count("MARK string back"), 1);
}

TEST_F(SysMonDriverTest, MarkShowsItsText) {
    EXPECT_TRUE(sut.sendFID("MARK", parameters({{"text", "here"}})));
    EXPECT_EQ(host.calls.count("MARK string here"), 1);
}

TEST_F(SysMonDriverTest, UnknownFidIsLoggedWithThoseThatAreKnown) {
    EXPECT_FALSE(sut.sendFID("DANCE", {}));
    EXPECT_THAT(log.text(),
                HasSubstr("SYS: unknown FID \"DANCE\"; known are FORWARD, INTERVAL, MARK, REPORT, "
                          "THRESHOLD"));
}

TEST_F(SysMonDriverTest, ShowStatePrintsOneLine) {
    ASSERT_TRUE(sut.sendFID("THRESHOLD", parameters({{"load", "2"}})));
    runWithLoad("1.50", "1.5");
    testing::internal::CaptureStdout();
    EXPECT_TRUE(sut.showState());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "load 1.50, 100 MiB free, host station7, link up, every 1000 ms, alarm above load 2.00\n");
}

TEST_F(SysMonDriverTest, EndsAtOnceInTheMiddleOfAnInterval) {
    ASSERT_TRUE(sut.sendFID("INTERVAL", parameters({{"ms", "3600000"}})));
    ASSERT_TRUE(host.calls.waitFor("INTERVAL int 3600000"));
    EXPECT_TRUE(sut.deinitialize());
}

TEST_F(SysMonDriverTest, TakesAndReportsNothingAfterItsEnd) {
    sut.deinitialize();
    const auto before = host.calls.lines();
    EXPECT_FALSE(sut.sendFID("MARK", parameters({{"text", "late"}})));
    EXPECT_EQ(host.calls.lines(), before);
}

TEST_F(SysMonDriverTest, EndWaitsForACallInside) {
    std::promise<void> release;
    std::promise<void> inside;
    host.onSend = [&](const std::string&) {
        inside.set_value();
        release.get_future().wait();
        host.calls.add("send over");
    };
    auto sending = std::async(std::launch::async, [&] {
        return sut.sendFID("FORWARD", parameters({{"fid", "LOCAL.MARK"}}));
    });
    inside.get_future().wait();
    auto ending = std::async(std::launch::async, [&] {
        sut.deinitialize();
        return host.calls.count("send over");
    });
    EXPECT_EQ(ending.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    release.set_value();
    EXPECT_EQ(ending.get(), 1);
    EXPECT_TRUE(sending.get());
}

TEST_F(SysMonDriverTest, StartsAgainAfterItsEnd) {
    ASSERT_TRUE(host.calls.waitFor("LOAD float 0.5"));
    sut.deinitialize();
    ASSERT_TRUE(sut.initializationCompleted());
    EXPECT_TRUE(host.calls.waitFor("HOSTNAME string station7", 2));
}

TEST_F(SysMonDriverTest, TwoInOneProcessKeepApart) {
    DriverHost otherHost;
    SysMonDriver other(machine.paths());
    start(other, "LOCAL", otherHost);
    ASSERT_TRUE(other.sendFID("THRESHOLD", parameters({{"load", "0.1"}})));
    EXPECT_TRUE(otherHost.calls.waitFor("event LOADHIGH 0.50"));
    runWithLoad("0.75", "0.75");
    EXPECT_THAT(host.calls.linesOf("event"), IsEmpty());
    other.deinitialize();
}

/// What a driver in a process of its own is given.
class NotingDistributor : public IDistributorFID {
public:
    mutable CallLog calls;

    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void dispatchFID(const std::string& fid, const FIDParameterList&) const override { calls.add(fid); }
};

TEST_F(SysMonDriverTest, ForwardThatTheQueueRefusesFailsThoughThereIsADistributor) {
    NotingDistributor distributor;
    DriverHost otherHost;
    SysMonDriver other(machine.paths());
    other.setDistributorFIDInterface(&distributor);
    start(other, "SYS", otherHost);
    EXPECT_TRUE(other.sendFID("FORWARD", parameters({{"fid", "LOCAL.MARK"}})));
    EXPECT_EQ(otherHost.calls.count("send LOCAL.MARK "), 1);
    otherHost.sendResult = false;
    EXPECT_FALSE(other.sendFID("FORWARD", parameters({{"fid", "LOCAL.MARK"}})));
    EXPECT_TRUE(distributor.calls.lines().empty());
    other.deinitialize();
}

TEST(SysMonDriver, TakesNoFidBeforeItsStart) {
    SysMonDriver sut;
    EXPECT_FALSE(sut.sendFID("REPORT", {}));
}

TEST(SysMonDriver, DoesNotStartWithoutAPanelState) {
    LogFile log;
    SysMonDriver sut;
    sut.setConfiguration(0, "SYS", "", "", "", "", "");
    EXPECT_FALSE(sut.initializationCompleted());
    EXPECT_THAT(log.text(), HasSubstr("SYS: not started, there is nowhere to report to"));
}

TEST(SysMonDriver, EndsWithoutEverHavingStarted) {
    SysMonDriver sut;
    EXPECT_TRUE(sut.deinitialize());
}

TEST(SysMonDriver, SaysWhenTheHostOffersNoWayToSend) {
    LogFile log;
    DriverHost host;
    Machine machine;
    SysMonDriver sut(machine.paths());
    sut.setPanelStateInterface(&host);
    sut.setConfiguration(0, "SYS", "", "", "", "", "");
    ASSERT_TRUE(sut.initializationCompleted());
    EXPECT_FALSE(sut.sendFID("FORWARD", parameters({{"fid", "LOCAL.MARK"}})));
    EXPECT_THAT(log.text(), HasSubstr("SYS: FORWARD failed, LOCAL.MARK could not be sent"));
    sut.deinitialize();
}

}  // namespace
