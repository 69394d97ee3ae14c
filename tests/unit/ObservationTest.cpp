#include "Observation.h"

#include <gmock/gmock.h>

#include <thread>

#include "RecordedLines.h"
#include "StreamFixture.h"

using testing::ElementsAre;
using Lines = std::vector<std::string>;

namespace {

/// A small ring, and what stands in it, without times.
class ObservationTest : public StreamFixture {
protected:
    ObservationTest() : m_pRing(ringOf(small())), m_sut(*m_pRing) {}

    Lines recorded() const { return recordedLines(*m_pRing); }

    std::unique_ptr<stream::StreamRing> m_pRing;
    Observation m_sut;
};

}  // namespace

TEST_F(ObservationTest, DriversHaveNumbersAndTheHostHasNone) {
    EXPECT_EQ(m_sut.number(""), 0);
    EXPECT_EQ(m_sut.number("A"), 1);
    EXPECT_EQ(m_sut.number("B"), 2);
    EXPECT_EQ(m_sut.number("A"), 1);
    const std::string longID(100, 'x');
    EXPECT_EQ(m_sut.number(longID), 3);
    EXPECT_EQ(m_sut.number(longID), 3);
}

TEST_F(ObservationTest, NumbersAreThoseOfItsOwnStream) {
    EXPECT_EQ(m_sut.number("A"), 1);
    const auto pRing = ringOf(small());
    Observation other(*pRing);
    EXPECT_EQ(other.number("B"), 1);
    EXPECT_EQ(other.number("A"), 2);
    EXPECT_EQ(m_sut.number("A"), 1);
}

TEST_F(ObservationTest, WallClockIsKnownWithoutALook) {
    const auto moment = Observation::Clock::time_point(std::chrono::seconds(5000));
    m_sut.tick(at(0), moment);
    EXPECT_EQ(m_sut.at(moment), at(0));
    EXPECT_EQ(m_sut.at(moment + std::chrono::microseconds(7)), at(7));
    m_sut.tick(at(1000), moment);
    EXPECT_EQ(m_sut.at(moment), at(1000));
}

TEST_F(ObservationTest, LivesOfDriversAreRecorded) {
    m_sut.started("A", 17, "");
    m_sut.configured("A", "setConfiguration", true, std::chrono::microseconds(12));
    m_sut.hangs("A", "hung for 10 s");
    m_sut.exited("A", 9, "signal 9 (Killed)", false);
    m_sut.restart("A", "in 2 s");
    EXPECT_THAT(recorded(),
                ElementsAre("A start process 17", "A configuration setConfiguration done after 12 us",
                            "A hang hung for 10 s", "A exit signal 9 (Killed)", "A restart in 2 s"));
}

TEST_F(ObservationTest, IncidentsAreHangsAndEndsThatNobodyAskedFor) {
    m_sut.exited("A", 0, "unloaded", false);
    m_sut.exited("B", 9, "signal 9 (Killed)", true);
    m_sut.hangs("C", "hung for 10 s");
    const auto incidents = m_sut.takeIncidents();
    ASSERT_EQ(incidents.size(), 2u);
    EXPECT_EQ(incidents[0].driverID + ": " + incidents[0].cause, "B: signal 9 (Killed)");
    EXPECT_EQ(incidents[1].driverID + ": " + incidents[1].cause, "C: hung for 10 s");
    EXPECT_TRUE(m_sut.takeIncidents().empty());
}

TEST_F(ObservationTest, CommandHasABeginningAndAnEnd) {
    {
        Observation::Command command(&m_sut, {.origin = stream::EOrigin::Console}, "drivers");
        command.setResult(true);
    }
    {
        const Observation::Command command(&m_sut, {.origin = stream::EOrigin::Driver, .driverID = "A"},
                                           "quit");
    }
    const Lines lines = recorded();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], "host command drivers from console");
    EXPECT_THAT(lines[1], testing::MatchesRegex("host command-end #1 done after [0-9.]+ us"));
    EXPECT_EQ(lines[2], "A command quit from driver");
    EXPECT_THAT(lines[3], testing::MatchesRegex("A command-end #4 failed after [0-9.]+ us"));
}

TEST_F(ObservationTest, SecretsAreInNoLine) {
    SecretNames secrets;
    secrets.add("password");
    Observation sut(*m_pRing, secrets);
    {
        Observation::Command command(&sut, {.origin = stream::EOrigin::Console},
                                     "sendFID A.LOGIN password=open user=anna");
        command.setResult(false, "A.LOGIN password=open is wrong");
    }
    sut.hostLine("MDM", 5, "MDM: A.LOGIN ( password=open ) received.");
    sut.driverLine("A", "A", 4, "password=open");
    sut.bareLine("A", "tried password=open");
    std::string all;
    for (const std::string& line : recorded())
        all += line + '\n';
    EXPECT_THAT(all, testing::Not(testing::HasSubstr("open")));
    EXPECT_THAT(all, testing::HasSubstr("host command sendFID A.LOGIN password=*** user=anna from console"));
    EXPECT_THAT(all, testing::HasSubstr("A output tried password=***"));
}

TEST_F(ObservationTest, CommandWithoutAnObservationIsNone) {
    Observation::Command command(nullptr, {}, "drivers");
    command.setResult(true);
    EXPECT_EQ(recorded(), Lines{});
}

TEST_F(ObservationTest, AnswerIsCutWhereItIsLong) {
    {
        Observation::Command command(&m_sut, {}, "drivers");
        command.setResult(true, std::string(5000, 'x'));
    }
    const Lines lines = recorded();
    EXPECT_THAT(lines[1], testing::EndsWith(": " + std::string(1024, 'x')));
}

TEST_F(ObservationTest, LineOfTheLogIsItsDrivers) {
    m_sut.number("A");
    m_sut.hostLine("HOST", 3, "A: process 7 ended");
    m_sut.hostLine("A", 4, "moved");
    m_sut.hostLine("HOST", 4, "B: is none");
    m_sut.hostLine("MDM", 4, "text");
    m_sut.driverLine("B", "B MFD", 4, "Runs");
    m_sut.bareLine("B", "out of paper");
    EXPECT_THAT(recorded(), ElementsAre("A log 3 HOST: A: process 7 ended", "A log 4 A: moved",
                                        "host log 4 HOST: B: is none", "host log 4 MDM: text",
                                        "B log 4 B MFD: Runs", "B output out of paper"));
}

TEST_F(ObservationTest, MergedReportsAreSaidOnceASecondWhereThereAreNew) {
    const auto driver = m_sut.number("A");
    m_sut.tick(at(0), {});
    m_sut.addReports(driver, 100, 7);
    m_sut.addReports(driver, 50, 3);
    m_sut.tick(at(999'999), {});
    EXPECT_EQ(recorded(), Lines{});
    m_sut.tick(at(1'000'000), {});
    m_sut.tick(at(2'000'000), {});
    m_sut.addReports(driver, 1, 1);
    m_sut.tick(at(3'000'000), {});
    EXPECT_THAT(recorded(), ElementsAre("A merged 150 received, 140 merged, 10 delivered",
                                        "A merged 1 received, 0 merged, 1 delivered"));
    EXPECT_EQ(m_sut.reports("A").received, 151u);
    EXPECT_EQ(m_sut.reports("A").delivered, 11u);
    EXPECT_EQ(m_sut.reports("B").received, 0u);
}

TEST_F(ObservationTest, WhatAThreadHoldsBackIsItsOwn) {
    Observation::ofThread().hasHeldBack = false;
    std::thread([this] { m_sut.holdBack(); }).join();
    EXPECT_FALSE(Observation::ofThread().hasHeldBack);
    EXPECT_TRUE(m_sut.takeHeldBack());
    EXPECT_FALSE(m_sut.takeHeldBack());
}
