#include "LiveSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "ApiHost.h"
#include "FidFields.h"
#include "StreamFixture.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

class LiveSourceTest : public testing::Test {
protected:
    LiveSourceTest() {
        configure({"AXIS1"});
        host.changes.version = 1;
    }
    void configure(const std::vector<std::string>& ids) {
        std::vector<WorkplaceFile::Entry> entries;
        for (const std::string& id : ids) {
            WorkplaceFile::Entry entry;
            entry.driverID = id;
            entry.interfaceType = EInterfaceTypes::Queue;
            entries.push_back(entry);
        }
        host.drivers.configure(entries, true);
    }
    /// What has changed since the last time.
    std::string news() {
        host.now += LiveSource::s_driversEach;
        sut.look();
        const LiveChanges changes = sut.changes(position);
        position = changes.end;
        isWhole = changes.isWhole;
        return changes.members;
    }
    ApiLogLine line(std::uint64_t number, std::chrono::seconds time, const std::string& text) const {
        return {.when = std::chrono::system_clock::time_point(time),
                .level = 4,
                .output = "HOST",
                .driverID = "AXIS1",
                .text = text,
                .number = number};
    }

    ApiHost host;
    const ApiContext context = host.context();
    LiveSource sut{context};
    LivePosition position;
    bool isWhole = false;
};

TEST_F(LiveSourceTest, HostIsNamed) {
    EXPECT_EQ(sut.host(), R"("instance":"a1b2","workplace":"/etc/mf/site.xml")");
}

TEST_F(LiveSourceTest, FirstChangesAreEverything) {
    host.store.setStateValueInt("AXIS1.POSITION", 5);
    host.changes = {.version = 9, .isComplete = true, .entries = host.store.entries(""), .unset = {}};
    const std::string all = news();
    EXPECT_TRUE(isWhole);
    EXPECT_THAT(all, HasSubstr(R"("values":[{"key":"AXIS1.POSITION","type":"int","value":5,"text":"5",)"));
    EXPECT_THAT(all, HasSubstr(R"("drivers":[{"id":"AXIS1",)"));
    EXPECT_THAT(all, HasSubstr(R"("alarms":[])"));
    EXPECT_EQ(position.store, 9u);
    EXPECT_GT(host.looks, 0);
}

TEST_F(LiveSourceTest, WhereNothingHasChangedNothingIsSaid) {
    news();
    EXPECT_EQ(news(), "");
    EXPECT_FALSE(isWhole);
}

TEST_F(LiveSourceTest, ValuesAreAskedForSinceThePosition) {
    host.changes.version = 9;
    news();
    host.calls.clear();
    host.changes.unset = {"AXIS1.OLD"};
    EXPECT_EQ(news(), R"("gone":["AXIS1.OLD"])");
    EXPECT_THAT(host.calls, testing::Contains("changes  since 9"));
}

TEST_F(LiveSourceTest, DriverIsToldAgainWhenItHasChanged) {
    news();
    host.drivers.processStarted("AXIS1", 42);
    EXPECT_THAT(news(), HasSubstr(R"("drivers":[{"id":"AXIS1")"));
    EXPECT_EQ(news(), "");
}

TEST_F(LiveSourceTest, DriverThatIsNoMoreIsGone) {
    configure({"AXIS1", "LAMP"});
    news();
    configure({"AXIS1"});
    EXPECT_EQ(news(), R"("driversGone":["LAMP"])");
    configure({"AXIS1", "LAMP"});
    EXPECT_THAT(news(), HasSubstr(R"("drivers":[{"id":"LAMP")"));
}

TEST_F(LiveSourceTest, WayToTheNextTryIsNoChangeOfADriver) {
    ApiHost waiting(RestartPlan::Settings{.firstDelay = 60s});
    WorkplaceFile::Entry entry;
    entry.driverID = "AXIS1";
    entry.interfaceType = EInterfaceTypes::Queue;
    waiting.drivers.configure({entry}, true);
    waiting.drivers.processStarted("AXIS1", 42);
    waiting.drivers.processEnded("AXIS1", 42, "signal 9", {}, true);
    waiting.changes.version = 1;
    const ApiContext itsContext = waiting.context();
    LiveSource source(itsContext);
    source.look();
    const LiveChanges first = source.changes({});
    ASSERT_THAT(first.members, testing::ContainsRegex(R"("id":"AXIS1".*"nextTryMs":[0-9]+,)"));
    waiting.now += 1s;
    source.look();
    EXPECT_EQ(source.changes(first.end).members, "");
}

TEST_F(LiveSourceTest, AlarmsAreToldWholeWhenTheListHasChanged) {
    news();
    host.alarmList = {{.key = "AXIS1.DRIVER",
                       .text = "ended",
                       .raised = std::chrono::system_clock::time_point(),
                       .count = 2}};
    EXPECT_EQ(news(), R"("alarms":[{"key":"AXIS1.DRIVER","text":"ended","raised":"1970-01-01T00:00:00.000Z",)"
                      R"("count":2,"over":false,"shelvedForMs":null,"shelvedBy":""}])");
    EXPECT_EQ(news(), "");
    host.alarmList[0].shelvedUntil = AlarmList::Clock::now() + 1h;
    host.alarmList[0].shelvedBy = "anna";
    EXPECT_THAT(news(), testing::ContainsRegex(R"x("shelvedForMs":[0-9]+,"shelvedBy":"anna"})x"));
    EXPECT_EQ(news(), "");
    host.alarmList.clear();
    EXPECT_EQ(news(), R"("alarms":[])");
}

TEST_F(LiveSourceTest, WhoIsAtTheControlsIsToldWhenThatHasChanged) {
    EXPECT_THAT(news(), Not(HasSubstr("controls"))) << "nobody was there yet";
    ApiCaller anna{.name = "anna", .place = "web session 4 from 192.0.2.7", .webSession = 4};
    host.controls.take(anna, false);
    EXPECT_THAT(news(), testing::MatchesRegex(
                            R"x("controls":[{]"name":"anna","from":"web session 4 from 192[.]0[.]2[.]7",)x"
                            R"x("session":4,"since":"[-0-9T:.]+Z"})x"));
    EXPECT_EQ(news(), "");
    const LivePosition nothing;
    EXPECT_THAT(sut.changes(nothing).members, HasSubstr(R"("controls":{"name":"anna")"))
        << "a page that opens";
    host.controls.giveBack(anna);
    EXPECT_EQ(news(), R"("controls":null)");
    EXPECT_EQ(news(), "");
}

TEST_F(LiveSourceTest, WhatHappenedIsRecordsOfTheStreamInTheOrderOfTheirTimes) {
    host.lines = {line(1, 1s, "AXIS1: started"), line(2, 9'000'000'000s, "later than any event")};
    host.store.triggerEvent("AXIS1.HOMED", "by hand");
    const std::string all = news();
    EXPECT_THAT(all, HasSubstr(R"("records":[{"number":1,"time":"1970-01-01T00:00:01.000000Z","kind":"log",)"
                               R"("driver":"AXIS1","level":4,"output":"HOST","text":"AXIS1: started"},)"
                               R"({"number":2,)"));
    EXPECT_THAT(all, HasSubstr(R"("kind":"event","driver":"AXIS1","key":"HOMED","value":"by hand"},)"
                               R"({"number":3,)"));
    host.lines.clear();
    EXPECT_EQ(news(), "");
}

TEST_F(LiveSourceTest, RecordsThatWereMissedAreCounted) {
    host.store.triggerEvent("AXIS1.HOMED", "");
    news();
    for (std::size_t i = 0; i < StateStore::s_keptEvents + 50; ++i)
        host.store.triggerEvent("AXIS1.HOMED", std::to_string(i));
    const std::string later = news();
    EXPECT_THAT(later, HasSubstr(R"("missed":50)"));
    EXPECT_THAT(later, HasSubstr(R"("value":"50"})"));
    EXPECT_THAT(later, Not(HasSubstr(R"("value":"49"})")));
}

TEST_F(LiveSourceTest, OnlyTheLastRecordsAreKept) {
    for (std::uint64_t number = 1; number <= LiveSource::s_keptRecords + 1; ++number)
        host.lines.push_back(line(number, 1s, "line " + std::to_string(number)));
    const std::string all = news();
    EXPECT_THAT(all, Not(HasSubstr("line 1\"")));
    EXPECT_THAT(all, HasSubstr("line 2\""));
    EXPECT_THAT(all, Not(HasSubstr("missed")));
}

/// Of a host that records.
class LiveSourceOfRingsTest : public StreamFixture {
protected:
    LiveSourceOfRingsTest() { host.changes.version = 1; }

    std::string news(std::chrono::milliseconds after = LiveSource::s_driversEach) {
        host.now += after;
        m_pSut->look();
        const LiveChanges changes = m_pSut->changes(position);
        position = changes.end;
        return changes.members;
    }
    void make() {
        host.pRecorded = &recorded;
        m_pContext = std::make_unique<ApiContext>(host.context());
        m_pSut = std::make_unique<LiveSource>(*m_pContext);
    }
    void sendFid(stream::EFidOutcome outcome) {
        const stream::FidFields fields("LAMP.ON");
        observation.stream().fid(at(0), {.sender = observation.number("AXIS1"),
                                         .receiver = observation.number("LAMP"),
                                         .outcome = outcome,
                                         .fields = fields.bytes()});
    }

    ApiHost host;
    std::unique_ptr<stream::StreamRing> pRing = ringOf(small());
    Observation observation{*pRing};
    stream::StreamSource source{*pRing};
    RecordedStream recorded{source, observation.keys()};
    std::unique_ptr<ApiContext> m_pContext;
    std::unique_ptr<LiveSource> m_pSut;
    LivePosition position;
};

TEST_F(LiveSourceOfRingsTest, WhatHappenedIsReadFromTheRings) {
    make();
    sendFid(stream::EFidOutcome::Written);
    observation.started("LAMP", 42, "");
    EXPECT_THAT(news(),
                HasSubstr(R"("records":[{"number":3,"time":"2026-11-22T14:03:22.181123Z","kind":"fid",)"
                          R"("driver":"AXIS1","fid":"LAMP.ON","parameters":[],"receiver":"LAMP",)"
                          R"("origin":"driver","outcome":"written"},{"number":4,)"));
    observation.exited("LAMP", 9, "signal 9", false);
    EXPECT_THAT(news(),
                testing::ContainsRegex(R"("kind":"exit","driver":"LAMP","status":9,"text":"signal 9")"));
    EXPECT_EQ(news(), "");
}

TEST_F(LiveSourceOfRingsTest, ValuesAreLeftToTheStore) {
    make();
    news();
    observation.stream().valueInt(at(0), {.number = 0, .text = "POSITION"}, 5);
    sendFid(stream::EFidOutcome::Written);
    const std::string all = news();
    EXPECT_THAT(all, HasSubstr(R"("kind":"fid")"));
    EXPECT_THAT(all, Not(HasSubstr("POSITION")));
    EXPECT_THAT(all, Not(HasSubstr("gap")));
}

TEST_F(LiveSourceOfRingsTest, WhatHostAndStoreHaveOfItIsNotToldTwice) {
    make();
    host.store.triggerEvent("AXIS1.HOMED", "by hand");
    EXPECT_THAT(news(), Not(HasSubstr("HOMED")));
}

TEST_F(LiveSourceOfRingsTest, PageThatWasLappedHearsHowManyItHasMissed) {
    make();
    news();
    const std::uint64_t before = pRing->lastNumber();
    for (int i = 0; i < 3000; ++i)
        observation.exited("LAMP", 9, "signal 9", false);
    const std::string later = news();
    EXPECT_THAT(later, HasSubstr(R"("records":[{"kind":"gap","reason":"lapped","first":)" +
                                 std::to_string(before + 1) + ","));
    EXPECT_GT(recorded.lapped(RecordedStream::EReader::Panel), 0u);
    const std::uint64_t missed = recorded.lapped(RecordedStream::EReader::Panel);
    EXPECT_THAT(later, HasSubstr(R"("count":)" + std::to_string(missed) + ","));
}

TEST_F(LiveSourceOfRingsTest, PageThatOpensLaterHearsOfTheNewestOnly) {
    make();
    for (int i = 0; i < 3000; ++i)
        observation.exited("LAMP", 9, "signal 9", false);
    const std::string all = news();
    EXPECT_THAT(all, Not(HasSubstr("gap")));
    EXPECT_THAT(all, Not(HasSubstr("missed")));
    EXPECT_THAT(all, HasSubstr("{\"number\":" + std::to_string(pRing->lastNumber()) + ","));
}

TEST_F(LiveSourceOfRingsTest, WhatCameWhileNobodyLookedIsToldOnceOrCounted) {
    make();
    sendFid(stream::EFidOutcome::Written);
    news();
    sendFid(stream::EFidOutcome::NotRunning);
    const std::string later = news(LiveSource::s_streamIdle + 1s);
    EXPECT_THAT(later, HasSubstr(R"("outcome":"not running")"));
    EXPECT_THAT(later, Not(HasSubstr(R"("outcome":"written")")));
    EXPECT_THAT(later, Not(HasSubstr("missed")));
    const std::uint64_t before = pRing->lastNumber();
    for (int i = 0; i < 3000; ++i)
        observation.exited("LAMP", 9, "signal 9", false);
    const std::string last = news(LiveSource::s_streamIdle + 1s);
    EXPECT_THAT(last, HasSubstr("{\"number\":" + std::to_string(pRing->lastNumber()) + ","));
    const auto number = std::stoull(last.substr(last.find("{\"number\":") + 10));
    EXPECT_THAT(last, HasSubstr(R"("missed":)" + std::to_string(number - before - 1)));
}

}  // namespace
